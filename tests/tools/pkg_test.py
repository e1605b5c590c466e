# SPDX-License-Identifier: MIT
"""vorna-pkg: what it installs, what it refuses, and what it says."""
import fcntl
import hashlib
import json
import os
import shutil
import socket
import subprocess
import unittest

from pkg_world import (APPS, NEW, OLD, PKG, PREFER_AOT, RECOVERY, WORK, PackageTest, mvid, tree)

APP = APPS + '/org.app'


class Packages(PackageTest):

    def test_an_update_keeps_the_manifest_and_nothing_else_of_the_old_version(self):
        self.run_pkg('install', self.source(), '--id', 'org.app', '--type', 'dotnet-inhouse',
                     '--metadata', 'a=b=c')
        os.makedirs(APP + '/bin/.native_image')
        new = self.source('new', NEW, files=('App.runtimeconfig.json', 'X.ni.dll', 'tool'))
        os.makedirs(new + '/.native_image')
        os.chmod(new + '/tool', 0o775)
        os.chmod(new + '/data', 0o2777)
        self.assertIn('org.app is updated', self.run_pkg('update', new))
        installed = tree(APP)
        self.assertEqual(sorted(installed), [
            '/.installed.json', '/bin', '/bin/App.dll', '/bin/App.runtimeconfig.json', '/bin/data',
            '/bin/data/link', '/bin/data/text', '/bin/tool', '/package.ini'])
        with open(NEW, 'rb') as file:
            self.assertEqual(installed['/bin/App.dll'], file.read())
        self.assertEqual([os.stat(f'{APP}/{path}').st_mode & 0o7777 for path in
                          ('', 'bin/data', 'bin/App.dll', 'bin/tool', 'package.ini')],
                         [0o755, 0o755, 0o644, 0o755, 0o644])
        shown = json.loads(self.run_pkg('show', 'org.app', '--json'))
        self.assertEqual((shown['applications'], shown['images']), ([
            {'id': 'org.app', 'type': 'dotnet-inhouse', 'executable': 'bin/App.dll',
             'metadata': {'a': 'b=c', PREFER_AOT: 'true'}}], {'missing': 1}))
        self.run_pkg('update', new, '--no-compile')
        listed = json.loads(self.run_pkg('list', '--json'))
        self.assertEqual(listed, [{'id': 'org.app', 'area': 'read-write', 'type': 'dotnet-inhouse',
                                   'asks_for_compilation': False}])
        self.run_pkg('uninstall', 'org.app')
        self.assertEqual(self.run_pkg('list'), '')
        self.assertIn('no package org.app', self.run_pkg('update', new, '--id', 'org.app', status=1))
        self.assert_nothing_is_left()

    def test_what_a_manifest_leaves_out_is_derived_and_what_it_says_is_kept(self):
        package = self.directory + '/package'
        shutil.copytree(self.source(manifest='# mine\n[Package]\nId=org.app\n'), package + '/bin', True)
        os.rename(package + '/bin/package.ini', package + '/package.ini')
        self.addCleanup(shutil.rmtree, package)
        for directory in (package, self.directory + '/published'):
            self.run_pkg('install', directory)
            with open(APP + '/package.ini') as file:
                self.assertEqual(file.read(), '# mine\n\n[Package]\nId=org.app\nMainApplication=org.app\n\n'
                                 '[Application org.app]\nExecutable=bin/App.dll\nType=dotnet\n\n'
                                 f'[Metadata org.app]\n{PREFER_AOT}=true\n')
        text = (f'[Package]\nId=org.app\nMainApplication=x\n#\n[Application x]\nType=t\n'
                f'Executable=bin/App.dll\n[Metadata x]\n{PREFER_AOT}=false')
        self.run_pkg('install', self.source(manifest=text))
        with open(APP + '/package.ini') as file:
            self.assertEqual(file.read(), text)

    def test_hostile_or_unclear_sources_are_refused_with_their_cause_and_change_nothing(self):
        self.run_pkg('install', self.source(), '--id', 'org.app')
        before, recovery = tree(APPS), os.stat(RECOVERY).st_mtime_ns
        manifest = '[Package]\nId=org.new\nMainApplication=org.new\n[Application org.new]\nExecutable='

        def no_config(root):
            os.remove(root + '/App.runtimeconfig.json')

        def fifo(root):
            os.mkfifo(root + '/data/pipe')

        def endpoint(root):
            with socket.socket(socket.AF_UNIX) as server:
                server.bind(root + '/s')

        def link(target, through=None):
            def make(root):
                os.symlink(target, root + '/data/evil')
                if through:
                    os.symlink(through, root + '/data/s')
            return make

        def as_root(root):
            os.chmod(root + '/App.dll', 0o4755)

        def not_managed(root):
            shutil.copy('/bin/true', root + '/App.dll')

        def deep(root):
            os.makedirs(root + '/d' * 40)
        plain = ('--id', 'org.new')
        for arguments, options, spoil, expected in [
                (('--id', '../org.x'), {}, None, '"../org.x" is no package id'),
                (('--id', '.hidden'), {}, None, '".hidden" is no package id'),
                (('--id', 'x' * 129), {}, None, 'is no package id'),
                (('--id', 'a\nb'), {}, None, '"a\\nb" is no package id'),
                (plain + ('--metadata', 'a\n[b]=c'), {}, None, 'cannot stand in a manifest'),
                (plain + ('--metadata', 'a=b\nc'), {}, None, 'cannot stand in a manifest'),
                (plain + ('--main', '../App.dll'), {}, None, 'there is no file ../App.dll'),
                (plain, {'files': ('A.runtimeconfig.json', 'B.runtimeconfig.json')}, None,
                 'any of A, B: name it with --main'),
                (plain, {}, no_config, 'there is no *.runtimeconfig.json'),
                (plain, {}, not_managed, 'App.dll: it is no .NET assembly'),
                (plain, {}, fifo, 'data/pipe: it is a FIFO'),
                (plain, {}, endpoint, '/s: it is a socket'),
                (plain, {}, as_root, 'App.dll: it would run as another user'),
                (plain, {}, deep, 'nested as deep'),
                (plain, {}, link('/etc/passwd'), 'data/evil: the link leads out of the package'),
                (plain, {}, link('../../x'), 'data/evil: the link leads out of the package'),
                (plain, {}, link('s/../../etc', '..'), 'data/evil: the link leads out of the package'),
                (plain, {}, link('nowhere'), 'data/evil: the link leads nowhere'),
                (plain, {'files': ('App.runtimeconfig.json', 'a\nb')}, None, 'no text of one line'),
                (('--id', 'org.other'), {'manifest': manifest}, None, 'package.ini:2: the Id is "org.new"'),
                ((), {'manifest': '[Package]\nId=../../etc'}, None, 'package.ini:2: "../../etc" is no'),
                ((), {'manifest': '[Package]\n# x\nwhat?\nId=a'}, None, 'package.ini:3: '),
                ((), {'manifest': '\nId=a'}, None, 'package.ini:2: '),
                ((), {'manifest': '[Package]\nId=\\q'}, None, 'package.ini:2: '),
                ((), {'manifest': '[Package]\nId=a\nMainApplication=x\\ny'}, None, 'package.ini:3: '),
                ((), {'manifest': manifest + '../../bin/sh'}, None, 'package.ini:5: "../../bin/sh" is no path'),
                ((), {'manifest': manifest + '/bin/sh'}, None, 'package.ini:5: "/bin/sh" is no path'),
                ((), {'manifest': manifest + 'bin/X.dll'}, None, 'package.ini:5: there is no file bin/X.dll'),
                ((), {'manifest': manifest + '\n[Application org.app]'}, None,
                 'org.app belongs to the installed package org.app'),
                (('--metadata', 'a'), {}, None, 'is not KEY=VALUE')]:
            root = self.source('hostile', **options)
            if spoil:
                spoil(root)
            with self.subTest(expected):
                status = 2 if 'KEY=VALUE' in expected else 1
                said = self.run_pkg('install', root, *arguments, status=status)
                self.assertIn(expected, said)
                self.assertNotIn('CRITICAL', said)
                self.assertEqual(tree(APPS), before)
        self.assertEqual(os.stat(RECOVERY).st_mtime_ns, recovery, 'the service was disturbed')
        for command in ('uninstall', 'show', 'verify'):
            self.assertIn('is no package id', self.run_pkg(command, '../apps', status=1))

    def test_a_full_disk_leaves_the_old_version_and_a_package_can_still_be_uninstalled(self):
        subprocess.check_call(['mount', '-t', 'tmpfs', '-o', 'size=2m,nr_inodes=40', 'x', APPS])
        self.addCleanup(subprocess.check_call, ['umount', APPS])
        self.run_pkg('install', self.source(), '--id', 'org.app')
        before = tree(APPS)
        many = tuple(str(number) for number in range(40)) + ('App.runtimeconfig.json',)
        big = self.source('big')
        with open(big + '/large', 'wb') as file:
            file.truncate(3 << 20)
        for root, expected in ((big, 'make room'), (self.source('many', files=many), 'No space left')):
            self.assertIn(expected, self.run_pkg('update', root, status=1))
            self.assertEqual(tree(APPS), before)
        filler = os.open(APP + '/bin/filler', os.O_WRONLY | os.O_CREAT)
        self.addCleanup(os.close, filler)
        with self.assertRaises(OSError):
            while os.write(filler, bytes(4096)):
                pass
        self.run_pkg('uninstall', 'org.app')
        self.assertFalse(os.path.exists(APP))
        self.assert_nothing_is_left()

    def test_an_interrupted_copy_is_taken_back_and_runs_wait_for_each_other(self):
        self.run_pkg('install', self.source(), '--id', 'org.app')
        before = tree(APPS)
        for signal in ('SIGINT', 'SIGTERM'):
            said = self.run_pkg('update', self.source('new', NEW), status=1, before=(
                'strace', '-qqq', '-o', '/dev/null', '-e', f'inject=copy_file_range:signal={signal}:when=2'))
            self.assertIn('interrupted', said)
            self.assertEqual(tree(APPS), before)
        with open(WORK + '/lock') as lock:
            fcntl.flock(lock, fcntl.LOCK_EX)
            waiting = subprocess.Popen([PKG, 'uninstall', 'org.app'], stderr=subprocess.PIPE,
                                       stdout=subprocess.DEVNULL, text=True)
            self.assertIn('waiting for another', waiting.stderr.readline())
            self.assertTrue(os.path.exists(APP))
        waiting.communicate()
        self.assertEqual((waiting.returncode, os.path.exists(APP)), (0, False))

    def test_verify_tells_what_is_damaged_and_which_images_are_stale(self):
        self.run_pkg('install', self.source(files=('App.runtimeconfig.json', 'odd')), '--id', 'org.app')
        self.assertIn('missing  bin/App.dll: not compiled', self.run_pkg('verify', 'org.app', status=4))
        images, assembly = APP + '/bin/.native_image', os.stat(APP + '/bin/App.dll')
        os.mkdir(images)

        def compiled(change=None, **extra):
            with open(images + '/App.ni.dll', 'wb') as file:
                file.write(b'image')
            manifest = {
                'format': 1, 'compiler': '', 'architecture': '', 'options': [],
                'frameworks': {'Microsoft.NETCore.App': '10.0.0'}, 'assemblies': {'App.dll': {
                    'mvid': mvid(OLD), 'size': assembly.st_size, 'modified_ns': assembly.st_mtime_ns,
                    'changed_ns': assembly.st_ctime_ns, 'inode': assembly.st_ino,
                    'image': {'size': 5, 'sha256': hashlib.sha256(b'image').hexdigest(),
                              'modified_ns': os.stat(images + '/App.ni.dll').st_mtime_ns}}}, **extra}
            if change:
                change(manifest['assemblies'])
            with open(images + '/manifest.json', 'w') as file:
                json.dump(manifest, file)

        def forged():
            compiled()
            status = os.stat(images + '/App.ni.dll')
            with open(images + '/App.ni.dll', 'r+b') as file:
                file.write(b'X')
            os.utime(images + '/App.ni.dll', ns=(status.st_atime_ns, status.st_mtime_ns))
        bubble = {'id': '1', 'members': [APP + '/bin/App.dll', APP + '/bin/Gone.dll']}
        for make, status, expected in [
                (compiled, 0, 'fresh    bin/App.dll'),
                (lambda: compiled(lambda a: a['App.dll'].pop('image') and a['App.dll'].update(no_image='odd')),
                 0, 'none     bin/App.dll: odd'),
                (lambda: compiled(lambda a: a['App.dll'].update(mvid=mvid(NEW))), 4,
                 'stale    bin/App.dll: the assembly changed'),
                (lambda: compiled(lambda a: a.clear()), 4, 'missing  bin/App.dll: added since'),
                (lambda: compiled(frameworks={}), 4, 'stale    bin/App.dll: made for no framework'),
                (lambda: compiled(bubble=bubble), 4, 'stale    bin/App.dll: another member'),
                (forged, 4, 'damaged  bin/App.dll: the image\'s bytes'),
                (lambda: compiled() or os.truncate(images + '/App.ni.dll', 1), 4, 'damaged  bin/App.dll: the image'),
                (lambda: compiled() or os.remove(images + '/App.ni.dll'), 4, 'missing  bin/App.dll: the image'),
                (lambda: os.truncate(images + '/manifest.json', 9), 4, 'damaged  bin/App.dll: the images\' man'),
                (lambda: compiled() or os.truncate(APP + '/bin/odd', 0), 3, 'damaged  bin/odd: it changed'),
                (lambda: os.remove(APP + '/bin/odd') or os.mkfifo(APP + '/bin/odd'), 3, 'damaged  bin/odd'),
                (lambda: os.remove(APP + '/bin/data/link'), 3, 'damaged  bin/data/link'),
                (lambda: os.truncate(APP + '/package.ini', 12), 3, 'package.ini:2: ')]:
            make()
            with self.subTest(expected):
                self.assertIn(expected, self.run_pkg('verify', 'org.app', status=status))
        self.assertIn('broken: ', self.run_pkg('list'))
        self.run_pkg('update', self.source(), '--id', 'org.app')
        self.assertIn('good ', self.run_pkg('verify', 'org.app', status=4))

    def test_the_service_compiles_the_new_version_even_while_it_has_the_old_in_hand(self):
        added, removed = ('add', 'org.app'), ('remove', 'org.app')
        install = ('install', self.source(), '--id', 'org.app')
        self.assertIn('is queued for compilation', self.run_pkg(*install))
        self.run_pkg('update', self.source())
        self.assertEqual(self.service.calls, [added, removed, added])
        self.service.queue.clear()
        for compiled, expected in ((True, []), (False, [added])):
            self.service.calls, self.service.compiled = [], compiled
            self.run_pkg('update', self.source(), status=1, before=(
                'strace', '-qqq', '-o', '/dev/null', '-e', 'inject=syncfs:error=EIO'))
            self.assertEqual(self.service.calls, expected)
        self.service.calls = []
        self.run_pkg(*install, '--no-compile')
        self.assertEqual(self.service.calls, [])
        os.environ['DBUS_SYSTEM_BUS_ADDRESS'], address = 'unix:path=/gone', os.environ['DBUS_SYSTEM_BUS_ADDRESS']
        try:
            self.assertIn('warning: org.app is not queued', self.run_pkg(*install))
        finally:
            os.environ['DBUS_SYSTEM_BUS_ADDRESS'] = address
        self.service.queue, self.service.result = [], 6
        self.assertIn('not queued for compilation: the service answers 6', self.run_pkg(*install))
        self.service.own(False)
        self.addCleanup(self.service.own, True)
        self.assertIn('warning: org.app is not queued', self.run_pkg(*install))
        self.assert_nothing_is_left()


if __name__ == '__main__':
    unittest.main(warnings='ignore')
