# SPDX-License-Identifier: MIT
"""What the tests of vorna-pkg stand on: sources of packages, and a service that only takes notes.

Runs in a private world (scripts/private-world). The service's calls are served by one thread of
their own; what it notes is a test's to read once the program that called has ended.
"""
import glob
import os
import shutil
import struct
import subprocess
import tempfile
import threading
import unittest

import gi
gi.require_version('Gio', '2.0')
from gi.repository import Gio, GLib  # noqa: E402

SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
PKG = os.environ.get('VORNA_BUILD_DIR', SOURCE + '/build/release') + '/bin/vorna-pkg'
NAME, PATH = 'org.kivor.vorna', '/org/kivor/vorna'
APPS = '/opt/usr/apps'
RECOVERY, WORK = APPS + '/.recovery', APPS + '/.vorna-pkg'
PREFER_AOT = 'http://kivor.org/metadata/prefer_dotnet_aot'
INTERFACE = f'''<node><interface name="{NAME}">
  <method name="IsPackageInAOTQueue"><arg type="s" direction="in"/><arg type="b" direction="out"/></method>
  <method name="GetPackageAOTStatus"><arg type="s" direction="in"/><arg type="i" direction="out"/>
    <arg type="i" direction="out"/></method>
  <method name="AddPackageToAOTQueue"><arg type="s" direction="in"/><arg type="i" direction="out"/></method>
  <method name="RemovePackageFromAOTQueue"><arg type="s" direction="in"/><arg type="i" direction="out"/>
  </method></interface></node>'''


def facade(name):
    """A small real assembly, of intermediate language only."""
    roots = [os.environ.get('DOTNET_ROOT', ''), '/usr/share/dotnet', '/usr/lib/dotnet']
    return sum((sorted(glob.glob(f'{root}/shared/Microsoft.NETCore.App/*/{name}.dll'))
                for root in roots), [])[-1]


OLD, NEW = facade('System.Numerics'), facade('System.Web')


def mvid(path):
    with open(path, 'rb') as file:
        data = file.read()
    metadata = data.index(b'BSJB')
    offset, = struct.unpack_from('<I', data, data.index(b'#GUID\0', metadata) - 8)
    return data[metadata + offset:metadata + offset + 16].hex()


def tree(root):
    """What there is below a directory, as text; the contents of files included."""
    found = {}
    for directory, directories, files in os.walk(root):
        for name in directories + files:
            path = os.path.join(directory, name)
            if os.path.islink(path):
                found[path[len(root):]] = '-> ' + os.readlink(path)
            elif os.path.isfile(path):
                with open(path, 'rb') as file:
                    found[path[len(root):]] = file.read()
            else:
                found[path[len(root):]] = '/'
    return found


class Service:
    """Owns the service's name; `queue` is its queue, `calls` what it was asked to change."""

    def __init__(self, address):
        self.queue, self.calls, self.result, self.compiled = [], [], 0, True
        flags = Gio.DBusConnectionFlags
        self.bus = Gio.DBusConnection.new_for_address_sync(
            address, flags.AUTHENTICATION_CLIENT | flags.MESSAGE_BUS_CONNECTION, None, None)
        self.bus.register_object(PATH, Gio.DBusNodeInfo.new_for_xml(INTERFACE).interfaces[0],
                                 self._serve, None, None)
        self.own(True)

    def own(self, owns):
        self.bus.call_sync('org.freedesktop.DBus', '/org/freedesktop/DBus', 'org.freedesktop.DBus',
                           *(('RequestName', GLib.Variant('(su)', (NAME, 0))) if owns else
                             ('ReleaseName', GLib.Variant('(s)', (NAME,)))), None, 0, -1, None)

    def _serve(self, _bus, _sender, _path, _interface, method, parameters, invocation):
        package = parameters.unpack()[0]
        if method == 'IsPackageInAOTQueue':
            reply = GLib.Variant('(b)', (package in self.queue,))
        elif method == 'GetPackageAOTStatus':
            reply = GLib.Variant('(ii)', (0, 1 if self.compiled else 2))
        else:
            self.calls.append(('add' if method.startswith('Add') else 'remove', package))
            if method.startswith('Add'):
                self.queue += [package] if self.result == 0 and package not in self.queue else []
            else:
                self.queue.remove(package)
            reply = GLib.Variant('(i)', (self.result,))
        invocation.return_value(reply)


class PackageTest(unittest.TestCase):
    """One bus and one service for the program; each test begins with nothing installed."""

    @classmethod
    def setUpClass(cls):
        cls.directory = tempfile.mkdtemp(prefix='vorna-pkg-test-')
        cls.addClassCleanup(shutil.rmtree, cls.directory)
        config, address = cls.directory + '/bus.conf', f'unix:path={cls.directory}/bus'
        with open(config, 'w') as file:
            file.write(f'<busconfig><listen>{address}</listen><policy context="default"><allow user="*"/>'
                       '<allow own="*"/><allow send_destination="*"/><allow receive_sender="*"/></policy></busconfig>')
        bus = subprocess.Popen(['dbus-daemon', '--config-file=' + config, '--nofork', '--print-address'],
                               stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        cls.addClassCleanup(bus.stdout.close)
        cls.addClassCleanup(bus.wait)
        cls.addClassCleanup(bus.kill)
        bus.stdout.readline()
        os.environ['DBUS_SYSTEM_BUS_ADDRESS'] = address
        cls.service = Service(address)
        threading.Thread(target=GLib.MainLoop().run, daemon=True).start()

    def setUp(self):
        self.clear()

    def clear(self):
        for name in os.listdir(APPS):
            shutil.rmtree(f'{APPS}/{name}')
        self.service.queue, self.service.calls = [], []
        self.service.result, self.service.compiled = 0, True

    def source(self, name='published', assembly=OLD, manifest=None, files=('App.runtimeconfig.json',)):
        """A directory as `dotnet publish` leaves it."""
        root = f'{self.directory}/{name}'
        shutil.rmtree(root, ignore_errors=True)
        os.makedirs(root + '/data')
        shutil.copy(assembly, root + '/App.dll')
        for path in ('data/text',) + tuple(files):
            with open(f'{root}/{path}', 'w') as file:
                file.write('{}')
        os.symlink('../data/text', root + '/data/link')
        if manifest is not None:
            with open(root + '/package.ini', 'w') as file:
                file.write(manifest)
        return root

    def run_pkg(self, *arguments, status=0, before=()):
        # A leak checker and strace, both tracers, exclude each other.
        environment = dict(os.environ, ASAN_OPTIONS='detect_leaks=0') if before else None
        ended = subprocess.run([*before, PKG, *arguments], stdin=subprocess.DEVNULL, text=True,
                               stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=environment)
        self.assertEqual(ended.returncode, status, (arguments, ended.stdout, ended.stderr))
        return ended.stdout + ended.stderr

    def assert_nothing_is_left(self):
        self.assertEqual((os.listdir(RECOVERY), os.listdir(WORK)), ([], ['lock']))
