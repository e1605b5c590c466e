# SPDX-License-Identifier: MIT
"""vorna-pkg killed before each system call that changes something, in every kind of change."""
import collections
import os
import re
import signal
import subprocess
import unittest

from pkg_world import APPS, NEW, OLD, PKG, RECOVERY, WORK, PackageTest, tree

APP = APPS + '/org.app'
FILE = RECOVERY + '/vorna-pkg.org.app'
REPAIR = 'uninstall', 'org.absent'  # fails, after it has looked for what is to be repaired
CHANGES = ('mkdir,mkdirat,openat,write,copy_file_range,sendfile,ftruncate,fchmod,symlinkat,renameat2,'
           'unlinkat,fsync,syncfs,sendmsg').split(',')


class Killed(PackageTest):

    def kill(self, name, ordinal, arguments):
        killed = subprocess.run(
            ['strace', '-qqq', '-o', '/dev/null', '-e', f'inject={name}:signal=SIGKILL:when={ordinal}',
             PKG, *arguments], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.assertEqual(killed.returncode, -signal.SIGKILL)

    def steps(self, arguments, status=0):
        """The calls of an undisturbed run that change files or talk to the service, each with its
        ordinal among the calls of its name, and their text."""
        log = self.directory + '/strace'
        self.run_pkg(*arguments, status=status, before=(
            'strace', '-y', '-o', log, '-e', 'trace=' + ','.join(CHANGES)))
        seen, steps = collections.Counter(), []
        with open(log) as file:
            for line in file:
                name = line.split('(')[0]
                seen[name] += 1
                if name == 'openat' and 'O_CREAT' not in line or name == 'write' and APPS not in line:
                    continue
                if name in CHANGES:
                    steps.append((name, seen[name], line))
        return steps

    def kill_everywhere(self, prepare, arguments, before, after, first_line):
        prepare()
        steps = self.steps(arguments)
        finished = 0
        for name, ordinal, line in steps:
            self.clear()
            prepare()
            self.service.queue, self.service.compiled = [], False
            with self.subTest(line):
                self.kill(name, ordinal, arguments)
                now = tree(APP)
                self.assertIn(now, (before, after), 'neither the old version nor the new one')
                announced = os.path.exists(FILE) and os.path.getsize(FILE) > 0
                if announced:
                    with open(FILE) as file:
                        self.assertEqual(file.read().split('\n')[:3], [first_line, 'vorna-pkg', 'org.app'])
                if os.path.isdir(WORK) and os.listdir(WORK) not in ([], ['lock']):
                    self.assertTrue(announced, 'a change without its recovery file')
                self.run_pkg(*REPAIR, status=1)
                repaired = tree(APP)
                done = now == after or first_line == 'UNINSTALL' and announced
                self.assertEqual(repaired, after if done else before)
                self.assert_nothing_is_left()
                if repaired and (now == after or announced):
                    self.assertEqual(self.service.queue, ['org.app'], 'the service does not know')
                finished += done
        self.assertTrue(0 < finished < len(steps), 'the kills did not reach both sides')
        return [line for _, _, line in steps]

    def versions(self):
        sources = self.source('old', OLD, files=('App.runtimeconfig.json', 'only-old')), self.source('new', NEW)
        trees = []
        for source in sources:
            self.run_pkg('install', source, '--id', 'org.app')
            trees.append(tree(APP))
        self.clear()
        return sources, trees

    def test_an_update_leaves_the_old_or_the_new_version_and_is_durable_step_by_step(self):
        (old, new), (before, after) = self.versions()
        lines = self.kill_everywhere(lambda: self.run_pkg('install', old, '--id', 'org.app'),
                                     ('update', new), before, after, 'UPDATE')
        text = re.sub(r'\d+<', '<', ''.join(lines))
        order = [r'openat\(<\S*/.recovery>, "vorna-pkg.org.app", \S*O_CREAT', r'write\(<\S*/.recovery/',
                 r'fsync\(<\S*/.recovery/vorna', r'fsync\(<\S*/.recovery>', r'mkdirat\(<\S*/.vorna-pkg>',
                 r'symlinkat', r'syncfs', r'renameat2\(.*RENAME_EXCHANGE', r'fsync\(<\S*/apps>',
                 r'unlinkat\(<\S*/.vorna-pkg>', r'sendmsg', r'unlinkat\(<\S*/.recovery>', r'fsync\(<\S*/.recovery>']
        self.assertRegex(text, re.compile('.*'.join(order), re.S))
        self.assertNotRegex(text.split('O_CREAT')[0], 'mkdirat.*org.app')

    def test_a_first_installation_is_there_whole_or_not_at_all(self):
        (_, new), (_, after) = self.versions()
        self.kill_everywhere(lambda: None, ('install', new, '--id', 'org.app'), {}, after, 'INSTALL')

    def test_a_removal_that_was_announced_is_completed(self):
        (old, _), (before, _) = self.versions()
        self.kill_everywhere(lambda: self.run_pkg('install', old, '--id', 'org.app'),
                             ('uninstall', 'org.app'), before, {}, 'UNINSTALL')

    def test_a_repair_that_is_killed_is_made_by_the_next_run(self):
        (old, new), (before, after) = self.versions()
        for arguments, cut_off_at, expected in [(('update', new), 'syncfs', before), (('update', new), 'sendmsg', after),
                                                (('uninstall', 'org.app'), 'renameat2', {})]:
            def prepare():
                self.clear()
                self.run_pkg('install', old, '--id', 'org.app')
                self.kill(cut_off_at, 1, arguments)
                self.service.queue, self.service.compiled = [], False
            prepare()
            for name, ordinal, line in self.steps(REPAIR, status=1):
                prepare()
                with self.subTest(line, cut_off_at=cut_off_at):
                    self.kill(name, ordinal, REPAIR)
                    self.run_pkg(*REPAIR, status=1)
                    self.assertEqual((tree(APP), self.service.queue), (expected, ['org.app'] if expected else []))
                    self.assert_nothing_is_left()

    def test_a_recovery_file_of_others_is_left_alone_and_a_torn_one_does_nothing(self):
        (old, _), (before, _) = self.versions()
        self.run_pkg('install', old, '--id', 'org.app')
        torn = ['', 'UNINSTALL\n', 'UNINSTALL\nvorna-pkg\norg.app\n', 'UNINSTALL\nvorna-pkg\norg.app\nreplaces 1',
                'UNINSTALL\nx\norg.app\nreplaces 1\n', 'UNINSTALL\nvorna-pkg\n../org.app\nreplaces 1\n']
        for text in torn:
            for name in ('vorna-pkg.org.app', 'vorna-pkg.org.application', 'other'):
                with open(f'{RECOVERY}/{name}', 'w') as file:
                    file.write(text)
            os.symlink('/etc/passwd', RECOVERY + '/vorna-pkg.link')
            with self.subTest(text):
                self.run_pkg(*REPAIR, status=1)
                self.assertEqual((tree(APP), os.listdir(RECOVERY)), (before, ['other']))


if __name__ == '__main__':
    unittest.main(warnings='ignore')
