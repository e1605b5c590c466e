# SPDX-License-Identifier: MIT
"""The queue, its file and the worker that empties it."""
import os
import signal

import subprocess

import world
from world import (APPS, COMPILE, DATA, PREFER_AOT, QUEUE, RECOVERY, RUNNING, WAITING_FOR_CPU,
                   World)

KIVOR = 'http://kivor.org'


class Queue(World):

    def test_order_duplicates_and_blank_lines_survive_kill_and_restart(self):
        self.keep_busy()
        self.queue('a', 'b', 'a', '', 'end')
        with open(QUEUE, 'r+') as file:
            file.truncate(os.path.getsize(QUEUE) - 1)
        self.start()
        self.wait_log('Waiting until CPU is low')
        for method, argument, expected in [
                ('GetAOTDaemonStatus', (), ('(sibi)', ('a', 5, False, WAITING_FOR_CPU))),
                ('AddPackageToAOTQueue', ('b',), ('(i)', (0,))),
                ('AddPackageToAOTQueue', ('c',), ('(i)', (0,))),
                ('IsPackageInAOTQueue', ('c',), ('(b)', (True,))),
                ('RemovePackageFromAOTQueue', ('a',), ('(i)', (0,))),
                ('IsPackageInAOTQueue', ('a',), ('(b)', (True,))),
                ('RemovePackageFromAOTQueue', ('unknown',), ('(i)', (14,))),
                ('IsPackageInAOTQueue', ('unknown',), ('(b)', (False,))),
                ('GetPackageAOTStatus', ('unknown',), ('(ii)', (6, 3)))]:
            self.assertEqual(self.client.typed(method, *argument), expected, method)
        self.assertEqual(self.queued(), 'b\na\n\nend\nc\n')
        self.assertEqual(self.ended(signal.SIGKILL), -signal.SIGKILL)

        self.start()
        self.assertEqual(self.client.call('GetAOTDaemonStatus')[:2], ('b', 5))
        self.assertEqual(self.client.typed('CleanAOTQueue'), ('(i)', (0,)))
        self.assertEqual(self.client.call('GetAOTDaemonStatus')[:3], ('Queue is Empty!', 0, False))
        self.assertEqual(self.queued(), '')
        os.symlink('/tmp/elsewhere', DATA + '/aot_queue_temp.txt')
        self.assertEqual(self.client.call('AddPackageToAOTQueue', 'kept'), 0)
        self.assertEqual(self.client.call('GetAOTDaemonStatus')[:2], ('kept', 1))
        self.assertEqual((self.queued(), os.path.lexists('/tmp/elsewhere')), ('', False))

    def test_queue_file_that_is_a_link_stops_the_start(self):
        os.makedirs(DATA)
        os.symlink('/etc/passwd', QUEUE)
        self.start(wait=False)
        self.assertEqual(self.ended(), 255)
        self.assertEqual(self.lines('priority', 'source', 'function', 'text')[-1],
                         ('E', 'vorna_server', 'main', 'fail init aot queue file'))

    def test_status_and_priority_answers_have_the_documented_types_and_values(self):
        self.package('org.plain', {})
        self.package('org.new')
        self.package('org.compiled', files=('bin/A.dll', 'bin/.native_image/A.ni.dll'))
        self.package('org.coba', {KIVOR + '/kivor/metadata/support-bpi': 'true'},
                     files=('bin/A.dll', 'shared/res/B.dll'))
        self.package('org.deep', files=('bin/1/2/3/A.dll',))
        self.package('org.nothing', {**PREFER_AOT, KIVOR: 'True'}, files=('bin/A.txt',))
        self.package('org.broken')
        self.results['app_info_foreach_metadata', 'org.broken'] = -1
        os.makedirs('/usr/share/aot-daemon', exist_ok=True)
        with open('/usr/share/aot-daemon/aot_priority_package.txt', 'w') as file:
            file.write('org.first\norg.blank \norg.last')
        self.start()
        for method, argument, expected in [
                ('GetPackageAOTStatus', 'org.plain', ('(ii)', (0, 0))),
                ('GetPackageAOTStatus', 'org.new', ('(ii)', (0, 2))),
                ('GetPackageAOTStatus', 'org.compiled', ('(ii)', (0, 1))),
                ('GetPackageAOTStatus', 'org.coba', ('(ii)', (0, 2))),
                ('GetPackageAOTStatus', 'org.deep', ('(ii)', (0, 1))),
                ('GetPackageAOTStatus', 'org.nothing', ('(ii)', (0, 1))),
                ('GetPackageAOTStatus', 'org.broken', ('(ii)', (4, 3))),
                ('IsPackageHighLaunchPriority', 'org.first', ('(b)', (True,))),
                ('IsPackageHighLaunchPriority', 'org.blank', ('(b)', (False,))),
                ('IsPackageHighLaunchPriority', 'org.last', ('(b)', (True,))),
                ('CleanAOTInPackage', 'org.compiled', ('(i)', (0,))),
                ('GetPackageAOTStatus', 'org.compiled', ('(ii)', (0, 2))),
                ('CleanAOTInPackage', 'org.unknown', ('(i)', (11,))),
                ('AOTDaemonProcess', 2, ('(i)', (13,))),
                ('AOTDaemonProcess', -1, ('(i)', (13,))),
                ('EnableCPUUsageLogging', True, ('(i)', (0,))),
                ('SetAOTDaemonPriority', 19, ('(i)', (0,)))]:
            self.assertEqual(self.client.typed(method, argument), expected, (method, argument))
        self.wait_log('Keeping server alive')
        self.assertIn(('I', 'is_cpu_utilization_high'), self.lines('priority', 'function'))


class Worker(World):

    def test_each_unfit_package_is_dropped_for_its_reason_and_the_rest_compiled(self):
        self.package('no.wish', {KIVOR + '/metadata/prefer_dotnet_aot': 'True'})
        self.package('read.only', area='/usr/apps')
        self.package('no.app')
        self.results['app_info_get', 'no.app'] = -1
        self.package('stuck', files=('bin/A.dll', 'bin/.native_image/A.ni.dll'))
        self.results['removeNativeImagesUnderPackageRoot', 'stuck'] = -1
        self.package('fails')
        self.results[COMPILE, 'fails'] = -9
        self.package('inhouse', app_type='dotnet-inhouse')
        self.package('shared', {**PREFER_AOT, KIVOR + '/tv/metadata/d.pc/type': 'morlaxtv',
                                KIVOR + '/kivor/metadata/support-view-plugin': 'true'},
                     files=('bin/A.dll', 'shared/res/B.dll'))
        tpa = '/opt/usr/home/owner/share/dotnet/TPA.txt'
        os.makedirs(os.path.dirname(tpa))
        open(tpa, 'w').close()
        label = self.hold('smack_getlabel', APPS + '/inhouse/bin/.native_image')
        self.queue('', 'unknown', 'no.wish', 'read.only', 'no.app', 'stuck', 'fails', 'inhouse',
                   'shared')
        self.results['initNativeImageCommon', ''] = -4
        self.start()
        self.wait_log('initializeNICommon fail, AOT process stopped')
        del self.results['initNativeImageCommon', '']
        label.release('0 System::Privileged')
        self.wait_done('fails', 'inhouse', 'shared', 'inhouse')
        self.wait_log('queue process completed')
        texts = [text for text, in self.lines('text')]
        reasons = ['Package  not found', 'Package unknown not found',
                   'Package no.wish does not have prefer_dotnet_aot with value true',
                   'Package is RO App, Skipping AOT',
                   'Error in retrieving metadata for package no.app',
                   'Failed to remove dlls for given package [stuck], remove NI failed.',
                   'AOT failed to create ni under pkg root [fails]',
                   'Type is dotnet-inhouse, input bubble enabled',
                   'NI dir SMACK=System::Privileged. '
                   'Recompiling (deleting NI dir & readding pkg to queue)']
        self.assertEqual([text for text in texts if text in reasons],
                         reasons + reasons[7:8])
        self.assertEqual(self.seen(COMPILE), [
            ['fails', str(0x2080), '1', '19'], ['inhouse', str(0x2090), '1', '19'],
            ['shared', str(0x2080), '1', '19'], ['inhouse', str(0x2090), '1', '19']])
        shared = f'{APPS}/shared//shared/res'
        self.assertEqual(self.seen('createNativeImagesUnderDirs'),
                         [[f'{shared}:{shared}/d.pc', str(0x2010), '1', '19']])
        self.assertEqual((os.path.exists(tpa), self.queued()), (False, ''))
        registered = self.seen('tarrow_register_watchdog_service')[-1]
        self.assertEqual(registered[0], '3600')
        self.wait(lambda: registered[1:] in self.seen('tarrow_unregister_watchdog_service'),
                  'end of the watch over the worker')
        self.assertEqual(self.seen('tarrow_watchdog_notify')[-1], registered[1:])

    def test_killed_compiler_puts_its_package_at_the_end_of_the_queue(self):
        self.package('a')
        self.package('b')
        self.queue('a', 'b')
        compile_a = self.hold(COMPILE, 'a')
        self.start()
        os.kill(compile_a.become_compiler(APPS + '/a/bin/A.dll'), signal.SIGTERM)
        self.wait_done('a', 'b', 'a')
        self.wait_log('queue process completed')
        self.assertEqual(self.queued(), '')

    def test_removal_during_compile_kills_the_compiler_and_keeps_the_rest_of_the_queue(self):
        for package in 'abcd':
            self.package(package)
        self.queue(*'abcd')
        compile_a, compile_b = self.hold(COMPILE, 'a'), self.hold(COMPILE, 'b')
        self.start()
        # Strangers that match the search, before the compiler and after it, are passed over.
        strange = [f'less {world.COMPILER} {APPS}/a/notes', '60']
        before = subprocess.Popen(strange, executable='/bin/sleep')
        compiler = compile_a.become_compiler(APPS + '/a/bin/A.dll', '/usr/bin/corerun')
        after = subprocess.Popen(strange, executable='/bin/sleep')
        self.assertEqual(self.client.call('RemovePackageFromAOTQueue', 'c'), 0)
        self.assertEqual(self.compilers(), [compiler])
        self.assertEqual(self.client.call('RemovePackageFromAOTQueue', 'a'), 0)
        self.assertEqual((self.compilers(), before.poll(), after.poll()), ([], None, None))
        self.assertEqual(self.queued(), 'b\nd\n')
        # An update that ends quickly: what is popped after the compile must not be the new entry.
        compile_b.wait()
        self.assertEqual(self.client.call('RemovePackageFromAOTQueue', 'b'), 0)
        self.assertEqual(self.client.call('RemovePackageFromAOTQueue', 'd'), 0)
        self.assertEqual(self.client.call('AddPackageToAOTQueue', 'b'), 0)
        compile_b.release()
        self.wait_done('a', 'b', 'b')
        self.wait_log('queue process completed')
        self.assertEqual(self.count('Process aborted'), 2)
        self.assertEqual(self.count('but package has already been AOT compiled.'), 1)

    def test_cleaning_the_queue_during_a_compile_leaves_no_compiler_and_no_pause(self):
        for package in 'ab':
            self.package(package)
        self.queue(*'ab')
        compile_a = self.hold(COMPILE, 'a')
        self.start()
        compile_a.become_compiler(APPS + '/a/bin/A.dll')
        self.assertEqual(self.client.call('CleanAOTQueue'), 0)
        self.assertEqual((self.compilers(), self.queued()), ([], ''))
        self.wait_log('queue process completed')
        self.assertEqual(self.client.call('GetAOTDaemonStatus')[:3], ('Queue is Empty!', 0, False))

    def test_paused_worker_waits_for_resume_and_gives_way_to_a_halt(self):
        self.package('a')
        self.package('b')
        self.queue('a')
        self.start()
        self.assertEqual(self.client.call('AOTDaemonProcess', 1), 0)
        self.wait_log('Wait on pause')
        self.assertEqual(self.client.call('GetAOTDaemonStatus'), ('a', 1, True, RUNNING))
        self.assertEqual(self.client.call('PerformPackageAOT', 'b'), 0)
        self.assertEqual(self.client.call('GetAOTDaemonStatus')[:3], ('a', 1, True))
        self.wait_log('Process halted')
        self.wait_log('Wait on pause', 2)
        self.assertEqual(self.client.call('AOTDaemonProcess', 0), 0)
        self.wait_done('b', 'a')

    def test_busy_processor_stops_the_worker_until_monitoring_is_off(self):
        self.package('a')
        self.package('b')
        self.queue('a', 'b')
        compile_a = self.hold(COMPILE, 'a')
        self.start()
        compile_a.wait()
        self.busy = True
        self.wait_log('CPU Utilization is too high (87.500000), Max: 50.000000')
        self.assertGreater(self.count('Recent CPU Utilization: 12.500000, Max: 50.000000'), 0)
        compile_a.release()
        self.wait_log('Quitting worker thread')
        self.wait_log('Waiting until CPU is low')
        self.assertEqual(self.client.call('GetAOTDaemonStatus'), ('b', 1, False, WAITING_FOR_CPU))
        self.assertEqual(self.client.call('EnableCPUUsageMonitoring', False), 0)
        self.wait_done('a', 'b')

    def test_full_disk_drops_one_package_and_ends_the_daemon_with_status_0(self):
        self.package('a')
        os.mkdir(APPS + '/small')
        subprocess.check_call(['mount', '-t', 'tmpfs', '-o', 'size=1m', 'small', APPS + '/small'])
        self.package('small')
        self.queue('small', 'a')
        self.start()
        self.assertEqual(self.client.call('PerformPackageAOT', 'small'), 7)
        self.assertEqual(self.ended(), 0)
        self.assertEqual(self.queued(), 'a\n')
        self.assertEqual(self.count('Insufficient storage, exit vorna_server'), 1)


class Recovery(World):

    def recovery_file(self, name, operation, package_id):
        """Written in place, as package management does it."""
        with open(f'{RECOVERY}/{name}', 'w') as file:
            file.write(f'{operation}\nsomewhere\n{package_id}\n')

    def test_package_under_change_leaves_the_queue_and_an_updated_one_comes_back(self):
        for package in 'abcd':
            self.package(package)
        self.queue(*'abc')
        self.recovery_file('1', 'OTHER', 'c')
        self.recovery_file('2', 'UPDATE', 'b')
        compile_a, compile_b = self.hold(COMPILE, 'a'), self.hold(COMPILE, 'b')
        self.start()
        compile_a.become_compiler(APPS + '/a/bin/A.dll')
        self.recovery_file('3', 'UNINSTALL_UPDATE', 'a')
        compile_b.wait()
        self.assertEqual(self.queued(), 'c\n')
        uninstalled, compile_c = self.hold(COMPILE, 'd'), self.hold(COMPILE, 'c')
        compile_b.release()
        compile_c.wait()
        self.assertEqual(self.queued(), 'c\n')
        os.unlink(RECOVERY + '/3')
        self.wait_log('Calling on_recovery_file_deleted_ for a')
        os.unlink(RECOVERY + '/2')
        self.wait_log('Calling on_recovery_file_deleted_ for b')
        self.client.call('AddPackageToAOTQueue', 'd')
        self.assertEqual(self.queued(), 'c\na\nb\nd\n')
        compile_c.release()
        uninstalled.become_compiler(APPS + '/d/bin/A.dll')
        self.recovery_file('4', 'UNINSTALL', 'd')
        self.wait_done(*'abcabd')
        os.unlink(RECOVERY + '/4')
        self.wait_log('Calling on_recovery_file_deleted_ for d')
        self.wait_log('queue process completed')
        self.assertEqual(self.queued(), '')

    def test_missing_recovery_directory_does_not_stop_the_compile(self):
        os.rmdir(RECOVERY)
        self.package('a')
        self.queue('a')
        self.start()
        self.wait_done('a')
        self.wait_log('queue process completed')
        self.assertEqual(self.queued(), '')


world.main()
