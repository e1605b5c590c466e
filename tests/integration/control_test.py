# SPDX-License-Identifier: MIT
"""Immediate compiles, the hunt for compilers, and every way in which the daemon ends."""
import concurrent.futures
import os
import shutil
import signal
import subprocess
import threading
import time

import world
from world import APPS, COMPILE, COMPILER, SINGLE, Client, World

KILLED = -7
LAST_CHECK = 'No job to do, idle for 10 seconds, exit vorna_server'


class Control(World):

    def tap_pgrep(self):
        """Puts a script before the real search that notes what it is to look for. While there is a
        FIFO named gate, a search waits until somebody has opened and closed that."""
        tap, real = self.directory + '/tap', self.directory + '/pgrep'
        shutil.copy('/usr/bin/pgrep', real)
        with open(tap, 'w') as script:
            script.write(f'''#!/bin/sh
                printf '%s\\0' "$@" >> {self.directory}/searches
                [ ! -p {self.directory}/gate ] || read -r line < {self.directory}/gate
                exec {real} "$@"''')
        os.chmod(tap, 0o755)
        subprocess.check_call(['mount', '--bind', tap, '/usr/bin/pgrep'])

    def test_immediate_compile_answers_each_failure_and_keeps_the_groups_in_order(self):
        self.package('ok', files=('bin/A.dll', 'bin/.native_image/A.ni.dll'))
        self.package('plain', {})
        self.package('read.only', area='/usr/apps')
        self.package('no.app')
        self.package('stuck', files=('bin/A.dll', 'bin/.native_image/A.ni.dll'))
        self.package('fails')
        self.package('killed')
        self.results.update({('app_info_get', 'no.app'): -1, (COMPILE, 'fails'): -9,
                             (COMPILE, 'killed'): KILLED,
                             ('removeNativeImagesUnderPackageRoot', 'stuck'): -1})
        self.keep_busy()
        self.start()
        pid = str(self.daemon.pid)
        table = {'unknown': 6, 'plain': 8, 'read.only': 0, 'no.app': 4, 'stuck': 11, 'fails': 9,
                 'killed': 10, 'ok': 0}
        self.client.call('AddPackageToAOTQueue', 'fails')
        for package, expected in table.items():
            self.assertEqual(self.client.typed('PerformPackageAOT', package), ('(i)', (expected,)),
                             package)
        self.results['initNativeImageCommon', ''] = -4
        self.assertEqual(self.client.call('PerformPackageAOT', 'ok'), 11)
        self.assertEqual((self.done, self.queued()), (['ok'], 'fails\n'))
        self.assertEqual([call[:3] for call in self.seen(COMPILE)],
                         [[package, str(0x80), '-'] for package in ('fails', 'killed', 'ok')])
        self.assertEqual(self.seen('removeNativeImagesUnderPackageRoot'), [['stuck'], ['ok']])
        self.assertEqual(self.ended(signal.SIGINT), 0)
        one = ['7 2 1 0 0 ', '7 1 2 0 0 ', '7 2 2 0 0 ', '7 1 1 0 0 ']
        self.assertEqual(self.seen('cpu_boost_pid_request'), [
            [pid, request] for request in ['7 1 1 0 0 '] + one * (len(table) + 1) + ['7 2 1 0 0 ']])

    def test_take_over_kills_a_compiler_that_starts_late_and_blocks_no_status_call(self):
        for package in 'abc':
            self.package(package)
        self.queue('a', 'c')
        self.tap_pgrep()
        gate = self.directory + '/gate'
        os.mkfifo(gate)
        before_compile, compile_a = self.hold('app_info_get_app_type', 'a'), self.hold(COMPILE, 'a')
        compile_b = self.hold(COMPILE, 'b')
        self.start()
        before_compile.wait()
        reply = self.client.begin('PerformPackageAOT', 'b')
        with open(gate, 'w'):  # opens when the search has begun
            self.assertEqual(self.client.call('GetAOTDaemonStatus')[:2], ('a', 2))
            before_compile.release()
            compile_a.become_compiler(APPS + '/a/bin/A.dll')
            os.unlink(gate)
        self.assertEqual(compile_b.wait().arguments[1:3], [str(0x80), '-'])
        self.assertEqual(self.client.call('GetAOTDaemonStatus'), ('c', 2, False, SINGLE))
        self.assertEqual(self.queued(), 'c\na\n')
        second = self.client.begin('PerformPackageAOT', 'c')
        compile_c = self.hold(COMPILE, 'c')
        compile_b.release()
        self.assertEqual(reply.result(), ('(i)', (0,)))
        compile_c.release()
        self.assertEqual(second.result(), ('(i)', (0,)))
        self.wait_done('a', 'b', 'c', 'a')

    def test_no_worker_overtakes_an_immediate_compile_that_hunts_for_the_compiler(self):
        for package in 'abc':
            self.package(package)
        self.queue(*'ac')
        self.tap_pgrep()
        gate = self.directory + '/gate'
        os.mkfifo(gate)
        compile_a = self.hold(COMPILE, 'a')
        self.start()
        compile_a.wait()
        reply = self.client.begin('PerformPackageAOT', 'b')
        with open(gate, 'w'):
            compile_a.release()
            self.wait_log('Another thread is waiting for the thread status to stop running')
            os.unlink(gate)
        self.assertEqual(reply.result(), ('(i)', (0,)))
        self.wait_done('a', 'b', 'c')

    def test_hostile_package_ids_run_nothing_kill_nobody_and_hang_nothing(self):
        trap = self.directory + '/trap'
        ids = [f'$(touch {trap})', f'`touch {trap}`', f'"; touch {trap}; "', f"'; touch {trap}; '",
               f'\\"; touch {trap}; \\"', f'\n touch {trap}\n', 'back\\', '', '*', '[', 'x|sshd',
               '-v', '\u20ac $HOME %s%n', 'x' * 140000]
        self.tap_pgrep()
        stranger = subprocess.Popen(['sshd', '600'], executable='/bin/sleep')
        not_utf8 = self.hold('package_info_get', '\udcff\udcfe')
        in_hand = [self.hold('package_info_get', package) for package in ids]
        self.queue('\udcff\udcfe')
        self.start()
        not_utf8.wait()
        self.assertEqual(self.client.typed('GetAOTDaemonStatus')[0], '(sibi)')
        not_utf8.release()
        for package in ids:
            self.assertEqual(self.client.call('AddPackageToAOTQueue', package), 0)
        for package, look_up in zip(ids, in_hand):
            look_up.wait()
            self.assertEqual(self.client.call('RemovePackageFromAOTQueue', package), 0)
            look_up.release()
        self.wait_log('queue process completed')
        self.assertEqual(self.client.call('PerformPackageAOT', ids[0]), 6)
        self.assertFalse(os.path.exists(trap))
        self.assertIsNone(stranger.poll())
        with open(self.directory + '/searches', encoding='utf-8') as file:
            searched = set(file.read().split('\0'))
        self.assertLessEqual({f'{COMPILER}.* {APPS}/{package}' for package in ids[:-1]}, searched)


class End(World):

    def test_idle_daemon_exits_at_the_third_check_and_a_second_one_at_once(self):
        self.start()
        self.assertEqual((self.queued(), os.stat(world.QUEUE).st_mode & 0o7777), ('', 0o644))
        second = subprocess.Popen([world.DAEMON], env=self.environment)
        self.assertEqual(second.wait(), 0)
        self.assertEqual(self.ended(), 0)
        idle = [line for line in self.lines('priority', 'source', 'function', 'text')
                if line[2] == 'should_keep_server_alive']
        place = 'vorna_server', 'should_keep_server_alive'
        self.assertEqual(idle, [('D', *place, 'Idle count: 1'), ('D', *place, 'Idle count: 2'),
                                ('I', *place, LAST_CHECK)])
        self.assertEqual([text for text, in self.lines('text')][-3:],
                         ['finalize completed', 'vorna_server : end', 'Finalize'])

    def at_the_deadline(self):
        """Calls of several clients that arrive while the last idle check decides to exit."""
        self.package('a')
        self.ask = [LAST_CHECK]
        last_check = self.hold('log_print', LAST_CHECK)
        self.start()
        last_check.wait()
        clients = [Client(self.address) for _ in range(4)]
        replies = [client.begin('IsPackageInAOTQueue', 'x') for client in clients * 25]
        replies.append(clients[0].begin('AddPackageToAOTQueue', 'a'))
        replies.append(clients[1].begin('PerformPackageAOT', 'unknown'))
        for client in clients:
            client.bus_call('GetId')  # what was sent before it has reached the daemon's connection
        last_check.release()
        for reply in replies[:-2]:
            self.assertEqual(reply.result(), ('(b)', (False,)))
        self.assertEqual(replies[-2].result(), ('(i)', (0,)))
        self.assertIn(replies[-1].result(), [('(i)', (6,)), ('(i)', (10,))])  # 10: it is ending

    def test_calls_at_the_deadline_are_answered_and_keep_the_daemon_alive(self):
        self.at_the_deadline()
        self.wait_done('a')
        self.wait_log('queue process completed')
        self.assertEqual(self.count('name acquired'), 2)

    def test_calls_at_the_deadline_are_answered_when_systemd_stops_the_nameless_service(self):
        self.on_name_lost = lambda: self.daemon.send_signal(signal.SIGTERM)
        self.at_the_deadline()
        self.assertEqual(self.ended(), 0)
        self.assertEqual(self.queued(), 'a\n')

    def test_activation_during_the_exit_loses_no_call_and_no_package(self):
        """The bus starts the daemon by its name, so that two could meet at one queue file."""
        with open(self.directory + '/services/org.kivor.vorna.service', 'w') as file:
            file.write(f'[D-BUS Service]\nName={world.NAME}\nExec={world.DAEMON}\n')
        self.client.bus_call('ReloadConfig')
        packages = [f'p{number}' for number in range(12)]
        for package in packages:
            self.package(package)
        self.client.call('IsPackageInAOTQueue', 'x')
        self.wait_log(LAST_CHECK)

        def hammer(mine):
            client = Client(self.address)
            for package in mine:
                self.assertEqual(client.call('AddPackageToAOTQueue', package), 0)
                for _ in range(20):
                    client.call('GetAOTDaemonStatus')
        with concurrent.futures.ThreadPoolExecutor() as pool:
            list(pool.map(hammer, [packages[number::3] for number in range(3)]))
        self.wait(lambda: sorted(self.done) == sorted(packages), 'every package to be compiled')
        os.kill(self.client.bus_call('GetConnectionUnixProcessID', '(s)', world.NAME)[0],
                signal.SIGTERM)
        self.wait_log('vorna_server : end', self.count('Max CPU Utilization'))

    def ended_by(self, how, queue, state):
        """The state returns the calls that are then in flight."""
        for package in 'abc':
            self.package(package)
        self.queue(*queue)
        self.start()
        replies = state()
        self.client.bus_call('GetId')
        self.assertEqual(self.ended(how), 0)
        self.assertEqual((self.compilers(), sorted(self.queued().split())), ([], sorted(queue)))
        self.assertEqual([reply.result()[0][:2] for reply in replies], ['(i'] * len(replies))

    def test_interrupt_ends_an_idle_daemon(self):
        self.ended_by(signal.SIGINT, '', lambda: [])

    def test_termination_ends_a_paused_worker(self):
        self.ended_by(signal.SIGTERM, 'ac', lambda: [
            self.client.call('AOTDaemonProcess', 1), self.wait_log('Wait on pause')][2:])

    def test_termination_ends_a_worker_that_cannot_be_stopped(self):
        def state():
            self.hold(COMPILE, 'a').wait()
            self.client.begin('PerformPackageAOT', 'b')
            self.wait_log('Halt requested')
            return []
        self.ended_by(signal.SIGTERM, 'ac', state)

    def test_termination_ends_a_compiling_worker_and_no_idle_check_starts_another(self):
        self.ask = ['Halt requested']
        halt = self.hold('log_print', 'Halt requested')

        def state():
            self.hold(COMPILE, 'a').become_compiler(APPS + '/a/bin/A.dll')
            self.wait_log('Worker thread busy')
            time.sleep(4)  # the next idle check, 5 seconds after this one, is to fall into the end
            self.daemon.send_signal(signal.SIGTERM)
            halt.wait()
            time.sleep(1.5)
            halt.release()
            return []
        self.ended_by(signal.SIGTERM, 'ac', state)
        self.assertEqual(self.count('queue process started'), 1)

    def test_termination_waits_for_the_call_in_hand(self):
        def state():
            look_up = self.hold('package_info_get', 'slow')
            replies = [self.client.begin('GetPackageAOTStatus', 'slow')]
            look_up.wait()
            # Late enough for a daemon that does not wait to be gone.
            self.on_name_lost = threading.Timer(0.5, look_up.release).start
            return replies
        self.ended_by(signal.SIGTERM, '', state)

    def test_interrupt_answers_the_immediate_compile_and_the_one_behind_it(self):
        def state():
            compile_b = self.hold(COMPILE, 'b')
            replies = [self.client.begin('PerformPackageAOT', 'b')]
            compile_b.become_compiler(APPS + '/b/bin/A.dll')
            return replies + [self.client.begin('PerformPackageAOT', 'c')]
        self.ended_by(signal.SIGINT, '', state)

    def test_death_of_the_bus_ends_the_daemon_with_status_0(self):
        self.package('a')
        self.queue('a')
        compile_a = self.hold(COMPILE, 'a')
        self.start()
        compile_a.become_compiler(APPS + '/a/bin/A.dll')
        self.bus.kill()
        self.assertEqual(self.ended(), 0)
        self.assertEqual((self.compilers(), self.queued()), ([], 'a\n'))
        self.start(wait=False)
        self.assertEqual(self.ended(), 0)
        self.assertEqual(self.count('name lost(org.kivor.vorna)'), 2)


world.main()
