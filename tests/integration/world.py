# SPDX-License-Identifier: MIT
"""The world of an integration test: the real daemon on a private bus, with a scripted platform.

Each test method runs alone in a private world (scripts/private-world), several worlds at once.
Threads: one reads the platform calls of a daemon, one waits for its end, one feeds /proc/stat, one
runs the bus clients' main loop. What they collect is guarded by World.changed.
"""
import array
import collections
import concurrent.futures
import contextlib
import glob
import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time
import unittest

import gi
gi.require_version('Gio', '2.0')
from gi.repository import Gio, GLib  # noqa: E402

SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
BUILD = os.environ.get('VORNA_BUILD_DIR', SOURCE + '/build/release')
DAEMON = BUILD + '/bin/vorna_server'
NAME, PATH = 'org.kivor.vorna', '/org/kivor/vorna'
APPS, RECOVERY = '/opt/usr/apps', '/opt/usr/apps/.recovery'
DATA = '/opt/usr/home/owner/share/.aot-daemon'
QUEUE = DATA + '/aot_queue.txt'
COMPILER = '/usr/share/dotnet.kivor/netcoreapp/crossgen2/crossgen2.dll'
PREFER_AOT = {'http://kivor.org/metadata/prefer_dotnet_aot': 'true'}
COMPILE = 'createNativeImagesUnderPackageRoot'
PATIENCE = 60  # seconds until an event that does not come counts as a hang
# Steps of the columns of /proc/stat: a load of 12.5 and of 87.5 per cent, in whatever intervals it
# is sampled; waiting for the disk is idle, what guests use is part of user already.
QUIET = [1, 1, 1, 20, 22, 1, 1, 1, 1000, 1000]
BUSY = [10, 10, 10, 3, 3, 5, 5, 2, 1000, 1000]
IDLE, RUNNING, STORAGE, WAITING_FOR_CPU, SINGLE = range(5)

SIGNATURES = {'AOTDaemonProcess': 'i', 'SetAOTDaemonPriority': 'i', 'GetAOTDaemonStatus': '',
              'CleanAOTQueue': '', 'EnableCPUUsageLogging': 'b', 'EnableCPUUsageMonitoring': 'b'}

# Operators search the log by these.
SOURCES = {('VORNA', 'thread_manager'), ('VORNA', 'tarrow_watchdog_notifier'),
           ('VORNA', 'recovery_file_watcher'), ('VORNA_SERVER', 'vorna_server'),
           ('VORNA_SERVER', 'vorna_interface'), ('VORNA_SERVER', 'metadata_utils'),
           ('VORNA_SERVER', 'kx_utils'), ('VORNA_SERVER', 'vorna_utils'), ('VORNA_PLATFORM', '')}

Line = collections.namedtuple('Line', 'priority tag source function text')
Call = collections.namedtuple('Call', 'function arguments')


class Hold:
    """A platform call that waits for the test."""

    def __init__(self, world, function, first):
        self.world, self.function, self.first = world, function, first
        self.call = self.channel = None

    def wait(self):
        self.world.wait(lambda: self.call, f'call of {self.function} {self.first}')
        return self.call

    def become_compiler(self, assembly, *before):
        """The call now waits for a child that looks like the compiler; returns its pid."""
        self.wait()
        argv = [*before, COMPILER, '-r', '/usr/share/dotnet', assembly]
        self.channel.sendall(('spawn ' + ' '.join(argv) + '\n').encode())
        return int(self.channel.makefile().readline())

    def release(self, answer=''):
        self.wait()
        with self.channel:
            try:
                self.channel.sendall((str(answer) + '\n').encode())
            except BrokenPipeError:
                pass


class Client:
    """A connection to the bus; `begin` returns the reply's future, the others wait for it."""

    def __init__(self, address):
        flags = Gio.DBusConnectionFlags
        self.bus = Gio.DBusConnection.new_for_address_sync(
            address, flags.AUTHENTICATION_CLIENT | flags.MESSAGE_BUS_CONNECTION, None, None)
        self.bus.set_exit_on_close(False)

    def begin(self, method, *arguments):
        future = concurrent.futures.Future()

        def finish(bus, result):
            try:
                reply = bus.call_finish(result)
                future.set_result((reply.get_type_string(), reply.unpack()))
            except GLib.Error as error:
                future.set_exception(error)
        types = SIGNATURES.get(method, 's')
        self.bus.call(NAME, PATH, NAME, method, GLib.Variant(f'({types})', arguments), None,
                      Gio.DBusCallFlags.NONE, PATIENCE * 1000, None, finish)
        return future

    def typed(self, method, *arguments):
        return self.begin(method, *arguments).result()

    def call(self, method, *arguments):
        result = self.typed(method, *arguments)[1]
        return result[0] if len(result) == 1 else result

    def bus_call(self, method, signature='()', *arguments):
        return self.bus.call_sync('org.freedesktop.DBus', '/org/freedesktop/DBus',
                                  'org.freedesktop.DBus', method,
                                  GLib.Variant(signature, arguments), None, 0, -1, None).unpack()


class World(unittest.TestCase):
    """One test; `start` begins a life of the daemon, the end of the test ends the last one."""

    def setUp(self):
        self.changed = threading.Condition()
        self.log, self.calls, self.done, self.holds, self.results = [], [], [], [], {}
        self.directory = tempfile.mkdtemp(prefix='vorna-test-')
        self.addCleanup(shutil.rmtree, self.directory)
        self.ask, self.busy, self.ticks, self.daemon = [], False, [0] * 10, None
        self.stderr = tempfile.TemporaryFile()
        self.owners, self.on_name_lost = [], lambda: None
        self.stat = os.open(self.directory + '/stat', os.O_RDWR | os.O_CREAT)
        with open('/proc/stat', 'rb') as file:
            self.real_stat = file.read().split(b'\n', 1)[1]
        self._advance()
        subprocess.check_call(['mount', '--bind', self.directory + '/stat', '/proc/stat'])
        threading.Thread(target=self._feed, daemon=True).start()
        self._start_bus()
        self.client = Client(self.address)
        threading.Thread(target=GLib.MainLoop().run, daemon=True).start()
        self.client.bus.signal_subscribe(NAME, NAME, 'AOTCompileDone', PATH, None, 0, self._on_done)
        self.client.bus.signal_subscribe('org.freedesktop.DBus', None, 'NameOwnerChanged', None,
                                         NAME, 0, self._on_owner)
        listener = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        listener.bind(self.directory + '/double')
        listener.listen(8)
        threading.Thread(target=self._accept, args=(listener,), daemon=True).start()
        self.addCleanup(self._end)

    # The world's furniture.

    def _advance(self, busy_since_boot=False):
        with self.changed:
            if busy_since_boot:
                self.ticks, self.busy = [0] * 10, True
            self.ticks = [was + more for was, more in zip(self.ticks, BUSY if self.busy else QUIET)]
            line = 'cpu ' + ''.join(f' {ticks:012}' for ticks in self.ticks) + '\n'
            os.pwrite(self.stat, line.encode() + self.real_stat, 0)

    def keep_busy(self):
        """Closes the gate from the first sample on: no worker starts."""
        self._advance(busy_since_boot=True)

    def _feed(self):
        while not threading.Event().wait(0.2):
            self._advance()

    def _start_bus(self):
        config = self.directory + '/bus.conf'
        os.mkdir(self.directory + '/services')
        with open(config, 'w') as file:
            file.write(f'''<busconfig><listen>unix:path={self.directory}/bus</listen>
                <auth>EXTERNAL</auth><servicedir>{self.directory}/services</servicedir>
                <policy context="default"><allow user="*"/><allow own="*"/>
                <allow send_destination="*"/><allow receive_sender="*"/></policy></busconfig>''')
        self.address = f'unix:path={self.directory}/bus'
        self.environment = dict(os.environ, DBUS_SYSTEM_BUS_ADDRESS=self.address,
                                VORNA_DOUBLE_SOCKET=self.directory + '/double',
                                LD_LIBRARY_PATH=BUILD + '/lib/double')
        self.bus = subprocess.Popen(
            ['dbus-daemon', '--config-file=' + config, '--nofork', '--print-address'],
            stdout=subprocess.PIPE, env=self.environment, stderr=self.stderr)
        self.bus.stdout.readline()

    def _watch(self, daemon):
        daemon.wait()
        with self.changed:
            self.changed.notify_all()

    def _on_done(self, _bus, _sender, _path, _interface, _signal, parameters):
        with self.changed:
            self.done.append(parameters.unpack()[0])
            self.changed.notify_all()

    def _on_owner(self, _bus, _sender, _path, _interface, _signal, parameters):
        with self.changed:
            self.owners.append(parameters.unpack()[2])
            self.changed.notify_all()
        if not self.owners[-1]:
            self.on_name_lost()

    def _accept(self, listener):
        while True:
            threading.Thread(target=self._read, args=(listener.accept()[0],), daemon=True).start()

    def _read(self, connection):
        while True:
            packet, control, _, _ = connection.recvmsg(1 << 21, socket.CMSG_SPACE(4))
            if not packet:
                return
            channel = None
            for _, _, data in control:
                channel = socket.socket(fileno=array.array('i', data)[0])
            function, *arguments = packet.decode(errors='surrogateescape').split('\0')
            with self.changed:
                if function == 'log_print':
                    self._note_line(*arguments)
                else:
                    self.calls.append(Call(function, arguments))
                if channel:
                    self._answer(function, arguments, channel)
                self.changed.notify_all()

    def _note_line(self, priority, tag, text):
        found = re.match(r'(\w+): ([~\w()]+)\(\d+\) > (.*)', text, re.S)
        where_and_what = found.groups() if found else ('', '', text)
        self.log.append(Line('DIWE'[int(priority) - 3], tag, *where_and_what))

    def _answer(self, function, arguments, channel):
        is_line = function == 'log_print'
        text = arguments[-1] if is_line else ''.join(arguments[:1])
        for hold in self.holds:
            if hold.function == function and (hold.first == text or is_line and hold.first in text):
                self.holds.remove(hold)
                hold.channel, hold.call = channel, Call(function, arguments)
                return
        with channel:
            if (function, text) in self.results:
                channel.sendall(f'{self.results[function, text]}\n'.encode())

    # What tests do.

    def hold(self, function, first):
        """The next such call with this first argument waits; a log line (see `ask`), by a part."""
        hold = Hold(self, function, first)
        self.addCleanup(lambda: hold)  # a call is let go with its hold
        with self.changed:
            self.holds.append(hold)
        return hold

    def wait(self, predicate, what):
        def settled():
            return predicate() or self.daemon and self.daemon.returncode is not None
        with self.changed:
            self.changed.wait_for(settled, PATIENCE)
            if not predicate():
                self.fail('waited in vain for ' + what)

    def wait_log(self, text, times=1):
        self.wait(lambda: self.count(text) >= times, f'{times} log line(s): {text}')

    def count(self, text):
        with self.changed:
            return sum(text in line.text for line in self.log)

    def lines(self, *fields):
        """The log as tuples of the named fields."""
        with self.changed:
            return [tuple(getattr(line, field) for field in fields) for line in self.log]

    def seen(self, function):
        with self.changed:
            return [call.arguments for call in self.calls if call.function == function]

    def wait_done(self, *packages):
        self.wait(lambda: len(self.done) >= len(packages), f'AOTCompileDone of {packages}')
        self.assertEqual(self.done, list(packages))

    def package(self, package_id, metadata=PREFER_AOT, area=APPS, app_type='dotnet',
                files=('bin/A.dll',)):
        root = f'{area}/{package_id}'
        for file in files:
            os.makedirs(os.path.dirname(f'{root}/{file}'), exist_ok=True)
            with open(f'{root}/{file}', 'wb') as assembly:
                assembly.write(b'MZ' + bytes(0x3a) + b'\x40' + bytes(99))
        pairs = '\n'.join(f'{key}={value}' for key, value in metadata.items())
        with open(root + '/package.ini', 'w') as manifest:
            manifest.write(f'[Package]\nId={package_id}\nMainApplication={package_id}\n\n'
                           f'[Application {package_id}]\nType={app_type}\nExecutable=bin/A.dll\n\n'
                           f'[Metadata {package_id}]\n{pairs}\n')
        return root

    def queue(self, *package_ids):
        """Writes the queue file as the last life of the daemon left it."""
        os.makedirs(DATA, exist_ok=True)
        with open(QUEUE, 'w', errors='surrogateescape') as file:
            file.write(''.join(package + '\n' for package in package_ids))

    def queued(self):
        with open(QUEUE, errors='surrogateescape') as file:
            return file.read()

    def start(self, wait=True):
        self.environment['VORNA_DOUBLE_ASK'] = '|'.join(self.ask)
        self.daemon = subprocess.Popen([DAEMON], env=self.environment, stderr=self.stderr)
        threading.Thread(target=self._watch, args=(self.daemon,), daemon=True).start()
        if wait:
            self.wait_log('name acquired', self.count('name acquired') + 1)

    def ended(self, sent=None):
        """Waits for the end of the daemon, after a signal if one is given; its exit status."""
        if sent:
            self.daemon.send_signal(sent)
        try:
            status = self.daemon.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            self.daemon.send_signal(signal.SIGABRT)
            self.daemon.wait()
            status = 'hangs'
        self.daemon = None
        return status

    def compilers(self):
        """The processes with the compiler's path among their arguments."""
        found = []
        for path in glob.glob('/proc/[0-9]*/cmdline'):
            with contextlib.suppress(OSError), open(path, 'rb') as file:
                if COMPILER.encode() in file.read().split(b'\0'):
                    found.append(int(path.split('/')[2]))
        return found

    def _end(self):
        status = self.ended(signal.SIGTERM) if self.daemon else 0
        self.bus.kill()
        self.bus.wait()
        self.stderr.seek(0)
        stderr = self.stderr.read().decode(errors='replace')
        report = 'Sanitizer' in stderr or 'runtime error' in stderr
        outcome = self._outcome.result
        if status != 0 or report or outcome.failures or outcome.errors:
            for line in self.log:
                print(f'{line.priority}/{line.tag} {line.function}: {line.text[:200]}')
            print(stderr, flush=True)
        self.assertLessEqual({(line.tag, line.source) for line in self.log}, SOURCES)
        self.assertEqual(status, 0, 'exit status of the daemon')
        self.assertFalse(report, 'a sanitizer reported')


def main():
    """Runs one test of the calling program in this world, or each in a world of its own."""
    os.umask(0o022)
    program = os.path.abspath(sys.argv[0])
    if len(sys.argv) == 3 and sys.argv[1] == '--inside':
        outcome = unittest.main(argv=[program, sys.argv[2]], exit=False, warnings='ignore').result
        sys.stderr.flush()
        os._exit(0 if outcome.wasSuccessful() and outcome.testsRun else 1)
    tests = [test.id().split('.', 1)[1] for suite in
             unittest.defaultTestLoader.loadTestsFromModule(sys.modules['__main__'])
             for test in suite if len(sys.argv) < 2 or re.search(sys.argv[1], test.id())]

    def run(test):
        started = time.monotonic()
        world = subprocess.run(
            [SOURCE + '/scripts/private-world', sys.executable, '-B', program, '--inside', test],
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        verdict = 'FAILED' if world.returncode else 'ok'
        report = world.stdout.decode(errors='replace') if world.returncode else ''
        sys.stdout.write(f'{verdict:7} {test} ({time.monotonic() - started:.1f} s)\n{report}')
        sys.stdout.flush()
        return world.returncode

    with concurrent.futures.ThreadPoolExecutor(int(os.environ.get('VORNA_WORLDS', 8))) as pool:
        sys.exit(1 if any(list(pool.map(run, tests))) or not tests else 0)
