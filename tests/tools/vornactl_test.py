# SPDX-License-Identifier: MIT
"""vornactl against the real daemon: what it asks for, what it says, and how it ends."""
import json
import os
import pty
import shutil
import signal
import subprocess
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), '../integration'))
import world  # noqa: E402
from world import APPS, COMPILE, PATIENCE, World  # noqa: E402

CTL = world.BUILD + '/bin/vornactl'
DONE, REFUSED, USAGE, UNREACHABLE, DENIED, NOT_DONE = range(6)
COMMANDS = ('status add remove compile pause resume priority clean watch cpu-log cpu-gate').split()
PRIORITY_LIST = '/usr/share/aot-daemon/aot_priority_package.txt'
CONFIG = '{"runtimeOptions":{"framework":{"name":"Microsoft.NETCore.App","version":"10.0.0"}}}'


class Ctl(World):

    def setUp(self):
        super().setUp()
        # With the host's platform library: the double's calls are the daemon's alone.
        self.own = {name: value for name, value in self.environment.items()
                    if name not in ('VORNA_DOUBLE_SOCKET', 'LD_LIBRARY_PATH')}

    def begin(self, *arguments, stdin=subprocess.DEVNULL, stderr=subprocess.PIPE):
        return subprocess.Popen([CTL, *arguments], env=self.own, stdin=stdin, text=True,
                                stdout=subprocess.PIPE, stderr=stderr)

    def finish(self, process, status, *texts):
        """Both outputs of a command that is to end so; each text stands in one of them."""
        out, err = process.communicate(timeout=PATIENCE)
        self.assertEqual(process.returncode, status, (process.args, out, err))
        for text in texts:
            self.assertIn(text, out + (err or ''), process.args)
        return out, err

    def ctl(self, *arguments, status=DONE, says=()):
        return self.finish(self.begin(*arguments), status, *says)

    def status(self, *packages, status=DONE):
        """The daemon's state and the packages', with the codes of the reasons."""
        answer = json.loads(self.ctl('status', '--json', *packages, status=status)[0])
        for package in answer['packages']:
            package['reasons'] = [reason['code'] for reason in package['reasons']]
        return answer['daemon'], answer['packages']

    def allow_activation(self):
        with open(self.directory + '/services/org.kivor.vorna.service', 'w') as file:
            file.write(f'[D-BUS Service]\nName={world.NAME}\nExec=/bin/false\n')
        self.client.bus_call('ReloadConfig')

    def test_wrong_usage_is_refused_before_the_bus_is_touched(self):
        self.own['DBUS_SYSTEM_BUS_ADDRESS'] = 'unix:path=/nowhere'
        for line in ('', 'frobnicate', 'add', 'remove', 'compile', 'priority', 'priority 20',
                     'priority low', 'cpu-log maybe', 'cpu-gate', 'status --no', 'add --stale x',
                     'pause now', 'watch x', 'clean'):
            out, err = self.ctl(*line.split(), status=USAGE)
            self.assertEqual((out, err.startswith('vornactl: ')), ('', True), line)
        for package in ('', 'two\nlines', '\x1b[2J'):
            self.ctl('add', package, status=USAGE)
        for command in COMMANDS:
            self.ctl(command, '--help', says=['Exit status:', 'refused by the daemon'])
        self.ctl('status', status=UNREACHABLE, says=['the system bus cannot be reached'])

    def test_status_starts_nothing_and_tells_what_the_files_tell(self):
        self.allow_activation()
        self.package('waits')
        self.package('ready', files=('bin/A.dll', 'bin/.native_image/A.ni.dll'))
        self.queue('other', 'waits')
        daemon, (waits, ready, absent) = self.status('waits', 'ready', 'absent',
                                                     status=UNREACHABLE)
        self.assertEqual(daemon, {'running': False, 'front': 'other', 'queue_length': 2})
        self.assertEqual((waits['queued'], waits['compiled'], waits['reasons']),
                         (True, False, ['daemon-not-running']))
        self.assertEqual((ready['queued'], ready['compiled'], ready['reasons']), (False, True, []))
        self.assertEqual((absent['installed'], absent['reasons']), (False, ['not-installed']))
        self.ctl('status', status=UNREACHABLE, says=['does not run'])
        self.ctl('status', '--activate', status=UNREACHABLE, says=['the bus cannot start'])

    def test_every_change_says_that_there_is_no_daemon(self):
        for line in ('add a', 'remove a', 'compile a', 'clean a', 'clean --yes', 'pause', 'resume',
                     'priority 5', 'cpu-log on', 'cpu-gate off'):
            out, err = self.ctl(*line.split(), status=UNREACHABLE)
            self.assertEqual((out, 'does not run; start it with' in err), ('', True), line)

    def test_settings_reach_the_daemon_and_say_that_they_will_be_forgotten(self):
        self.start()
        for line, reached in (
                ('pause', lambda: self.client.call('GetAOTDaemonStatus')[2]),
                ('cpu-log on', lambda: self.count('CPU Usage Logging is enabled')),
                ('cpu-gate off', lambda: self.count('CPU Usage Monitoring is disabled')),
                ('priority -7', lambda: os.getpriority(os.PRIO_PROCESS, self.daemon.pid) == -7)):
            self.ctl(*line.split(), says=['forgets this'])
            self.assertTrue(reached(), line)
        self.assertTrue(self.status()[0]['paused'])
        for line in ('resume', 'cpu-log off', 'cpu-gate on'):
            self.ctl(*line.split())
        self.wait_log('CPU Usage Monitoring is enabled')
        self.assertFalse(self.status()[0]['paused'])

    def test_refusals_show_the_result_in_words_and_as_a_number(self):
        self.package('plain', {})
        self.package('fails')
        self.results[COMPILE, 'fails'] = -9
        self.start()
        for line, words in (('remove absent', 'it is not in the queue (14)'),
                            ('compile absent', 'no such package (6)'),
                            ('compile plain', 'does not ask to be compiled (8)'),
                            ('compile fails', 'no native images could be made (9)'),
                            ('clean absent', 'the native-image library failed (11)'),
                            ('status absent', 'no such package is installed')):
            self.ctl(*line.split(), status=REFUSED, says=[words])

    def test_what_the_bus_forbids_has_an_exit_status_of_its_own(self):
        with open(self.directory + '/bus.conf') as file:
            config = file.read()
        with open(self.directory + '/bus.conf', 'w') as file:
            file.write(config.replace('</busconfig>', f'''<policy context="mandatory"><deny
                send_destination="{world.NAME}" send_interface="{world.NAME}"
                send_member="AOTDaemonProcess"/></policy></busconfig>'''))
        self.client.bus_call('ReloadConfig')
        self.start()
        self.ctl('pause', status=DENIED, says=['run it as root'])
        self.ctl('status')

    def test_status_gives_each_package_its_reason(self):
        for package in ('compiled', 'waits', 'idle', 'broken'):
            self.package(package)
        os.makedirs(APPS + '/compiled/bin/.native_image')
        shutil.copy(APPS + '/compiled/bin/A.dll', APPS + '/compiled/bin/.native_image/A.ni.dll')
        self.package('plain', {})
        self.package('fixed', area='/usr/apps')
        with open(APPS + '/broken/package.ini', 'w') as manifest:
            manifest.write('[Package]\nId=other\n')
        with open(PRIORITY_LIST, 'w') as file:
            file.write('waits\n')
        expected = {'compiled': (True, []), 'waits': (False, ['paused']),
                    'idle': (False, ['not-queued']), 'plain': (False, ['not-target']),
                    'fixed': (False, ['read-only']), 'broken': (None, ['not-installed'])}
        self.queue('waits')
        self.keep_busy()
        self.start()
        self.ctl('pause')
        daemon, packages = self.status(*expected, status=REFUSED)
        self.assertEqual((daemon['pid'], daemon['front'], daemon['queue_length'], daemon['compiling']),
                         (self.daemon.pid, 'waits', 1, None))
        self.assertEqual({package['id']: (package['compiled'], package['reasons'])
                          for package in packages}, expected)
        self.assertEqual([package['id'] for package in packages if package['high_launch_priority']],
                         ['waits'])
        self.ctl('status', 'broken', status=REFUSED, says=['broken/package.ini'])
        self.ctl('resume')
        self.wait_log('Waiting until CPU is low')
        self.assertEqual(self.status('waits')[1][0]['reasons'], ['waiting-for-cpu'])
        out, _ = self.ctl('status', 'waits', 'plain')
        self.assertIn('waiting until the CPU is less busy (3)', out)
        self.assertNotIn('\x1b', out)

    def test_compile_waits_and_tells_what_came_of_each_package(self):
        self.package('a')
        self.package('fixed', area='/usr/apps')
        self.start()
        out, err = self.ctl('compile', 'a', 'fixed', 'a', status=NOT_DONE)
        self.assertEqual([line.split(' in ')[0] for line in out.splitlines()], ['a: compiled'] * 2)
        self.assertIn('fixed: not compiled: it is installed read-only', err)
        self.assertIn('1 native image', out)
        self.ctl('clean', 'a', says=['native images removed'])
        self.assertFalse(os.path.exists(APPS + '/a/bin/.native_image'))

    def test_interrupted_compile_says_what_goes_on_and_leaves_the_daemon_to_it(self):
        for package in 'ab':
            self.package(package)
        self.start()
        compile_a = self.hold(COMPILE, 'a')
        ours, theirs = pty.openpty()
        process = self.begin('compile', 'a', 'b', stderr=theirs)
        os.close(theirs)
        shown = b''
        while b'a: compiling, ' not in shown:
            shown += os.read(ours, 4096)
        compile_a.wait()
        process.send_signal(signal.SIGINT)
        self.finish(process, 128 + signal.SIGINT)
        while b'\n' not in shown.partition(b'not asked for: b')[2]:
            shown += os.read(ours, 4096)
        self.assertIn(b'\r\x1b[Kvornactl: interrupted: the daemon goes on compiling a', shown)
        compile_a.release()
        self.wait_done('a')

    def test_daemon_that_ends_during_a_compile_is_told_of(self):
        self.package('a')
        self.start()
        compile_a = self.hold(COMPILE, 'a')
        process = self.begin('compile', 'a')
        compile_a.wait()
        self.daemon.kill()
        self.finish(process, UNREACHABLE, 'the daemon ended before it answered')
        self.daemon.wait()
        self.daemon = None

    def test_waiting_ends_for_dropped_packages_and_asks_no_more_about_them(self):
        self.package('a')
        self.package('plain', {})
        self.start()
        out, err = self.ctl('add', '--wait', 'a', 'plain', 'absent', status=NOT_DONE)
        self.assertIn('a: compiled\n', out)
        for text in ('plain: not compiled: it does not ask', 'absent: not compiled: no such package'):
            self.assertIn(text, err)
        for package in ('a', 'plain', 'absent'):
            self.assertEqual(self.count(f'package_id: {package}, in queue: 0'), 1)

    def test_cleaning_of_the_queue_is_asked_for(self):
        self.queue('a', 'b')
        self.keep_busy()
        self.start()
        self.ctl('clean', status=USAGE, says=['--yes'])
        for answer, status, left in ((b'n\n', NOT_DONE, 'a\nb\n'), (b'y\n', DONE, '')):
            ours, theirs = pty.openpty()
            os.write(ours, answer)
            self.finish(self.begin('clean', stdin=theirs), status, 'the queue of 2 packages?')
            self.assertEqual(self.queued(), left)
        self.ctl('add', 'c')
        self.ctl('remove', 'c')
        self.ctl('clean', '--yes', says=['the queue is empty'])

    def stale(self):
        """The packages that are queued by --stale; they leave the queue again."""
        out, err = self.ctl('add', '--stale')
        queued = self.queued().split()
        for package in queued:
            self.ctl('remove', package)
        return queued, out + err

    def test_only_packages_with_images_that_do_not_fit_are_stale(self):
        """The images' manifest is written as the compile of such a package leaves it."""
        framework = sorted(os.listdir('/usr/share/dotnet/shared/Microsoft.NETCore.App'))[-1]
        library = f'/usr/share/dotnet/shared/Microsoft.NETCore.App/{framework}/mscorlib.dll'
        for package, metadata in (('never', world.PREFER_AOT), ('plain', {}),
                                  ('made', world.PREFER_AOT)):
            root = self.package(package, metadata)
            shutil.copy(library, root + '/bin/A.dll')
            with open(root + '/bin/A.runtimeconfig.json', 'w') as file:
                file.write(CONFIG)
        images = APPS + '/made/bin/.native_image'
        os.mkdir(images)
        shutil.copy(library, images + '/A.ni.dll')
        code, image = os.stat(APPS + '/made/bin/A.dll'), os.stat(images + '/A.ni.dll')
        manifest = {'format': 1, 'compiler': framework, 'architecture': 'x64', 'options': [],
                    'frameworks': {'Microsoft.NETCore.App': framework}, 'assemblies': {'A.dll': {
                        'mvid': '', 'size': code.st_size, 'modified_ns': code.st_mtime_ns,
                        'changed_ns': code.st_ctime_ns, 'inode': code.st_ino, 'image': {
                            'size': image.st_size, 'modified_ns': image.st_mtime_ns, 'sha256': ''}}}}
        self.keep_busy()
        self.start()

        def written():
            with open(images + '/manifest.json', 'w') as file:
                json.dump(manifest, file)
            return self.stale()
        self.assertEqual(written()[0], ['never'])
        manifest['frameworks']['Microsoft.NETCore.App'] = '8.0.1'
        queued, said = written()
        self.assertEqual(queued, ['made', 'never'])
        self.assertIn('made: bin/A.dll: made for Microsoft.NETCore.App 8.0.1', said)
        shutil.rmtree(APPS + '/never')
        shutil.rmtree(APPS + '/made')
        self.assertIn('native images that fit', self.ctl('add', '--stale')[0])

    def test_watch_tells_of_the_daemon_over_its_end_and_return(self):
        self.package('a')
        watch = self.begin('watch', '--json')

        def until(**wanted):
            for line in watch.stdout:
                event = json.loads(line)
                if wanted.items() <= event.items():
                    return event
            self.fail(f'no {wanted}')
        for _ in range(2):
            until(event='daemon', running=False)
            self.start()
            until(event='daemon', running=True)
            compile_a = self.hold(COMPILE, 'a')
            self.client.call('AddPackageToAOTQueue', 'a')
            until(event='state', queue_length=1, front='a')
            compile_a.release()
            self.assertTrue(until(event='finished', package='a')['compiled'])
            self.assertEqual(self.ended(signal.SIGTERM), 0)
        watch.send_signal(signal.SIGINT)
        self.finish(watch, DONE)

    def test_watch_lets_an_idle_daemon_end(self):
        self.start()
        watch = self.begin('watch')
        self.assertEqual(self.ended(), 0)
        watch.terminate()
        self.finish(watch, DONE, 'the daemon does not run')


world.main()
