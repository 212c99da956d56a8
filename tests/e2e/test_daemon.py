"""Detaching, the guard against a second updater, and what a run and its surroundings must not do to each other."""
import contextlib
import glob
import os
import pathlib
import pty
import signal
import subprocess
import threading
import time
import unittest

from lab.certificates import make_authority, make_certificate, server_context
from lab.expected import expected_flash
from lab.module import BIN_DIR, NAMESPACE
from lab.packages import images
from lab.servers import ScriptedServer, header, serve
from lab.sim_module import SimModule

PACKAGE = images("system", 300_000, "sbl", 5_000)
DATA = PACKAGE.bytes()
HELD_AT = 100_000  # where the server pauses until it is told to go on


def until(condition, seconds=20):
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            raise AssertionError("waited in vain")
        time.sleep(0.01)


class DaemonTest(unittest.TestCase):
    def setUp(self):
        self.module = self.enterContext(SimModule())
        self.tmp, self.pid_file = self.module.folder / "tmp", self.module.folder / "run" / "tarvolin-sim.pid"
        self.go_on = threading.Event()
        script = [header(len(DATA)) + DATA[:HELD_AT], self.go_on, DATA[HELD_AT:]]
        self.server = self.enterContext(ScriptedServer(script))

    def start(self, script, *prefix, **streams):
        """A shell on the module; "$@" in its script is an update from the server, as far as that lets it."""
        update = f"/host{BIN_DIR}/tarvolin-sim", "--url", self.server.url()
        command = [*prefix, NAMESPACE, self.module.folder, "sh", "-c", script, "sh", *update]
        streams = {"stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE, "stderr": subprocess.STDOUT, **streams}
        process = subprocess.Popen(command, text=True, **streams)
        self.addCleanup(lambda: (process.kill(), self.end_updaters(), process.communicate()))
        return process

    def finish(self, script):
        process = self.start(script)
        return process.communicate(timeout=60)[0], process.returncode

    def start_on_terminal(self, script):
        """The shell, leader of a session, and the other end of its terminal."""
        terminal, end = pty.openpty()
        shell = self.start(script, "setsid", "--ctty", stdin=end, stdout=end, stderr=end)
        os.close(end)
        return shell, terminal

    def updaters(self):
        """The processes that are updaters on this test's module."""
        found = []
        for link in glob.glob("/proc/[0-9]*/exe"):
            with contextlib.suppress(OSError):
                path = os.readlink(link)
                if path.startswith(str(self.module.folder)) and path.endswith("/tarvolin-sim"):
                    found.append(int(link.split("/")[2]))
        return found

    def end_updaters(self):
        for pid in self.updaters():
            with contextlib.suppress(ProcessLookupError):
                os.kill(pid, signal.SIGKILL)

    def held_run(self):
        """The process of the one run that there is, once it is where the server holds it."""
        until(lambda: self.module.text("download_size") == str(HELD_AT))
        (pid,) = self.updaters()
        return pid

    def check_update(self):
        """Lets the run go on to its end."""
        self.go_on.set()
        until(lambda: not self.updaters())
        self.assertEqual(self.module.history(), ["IDLE", "DOWNLOAD", "CHECK", "INSTALL", "RESTORE", "RESTORE"])
        self.assertEqual(self.module.dumps(), expected_flash(PACKAGE, self.module))

    def test_detached(self):
        shell, terminal = self.start_on_terminal('cd /data; umask 077; "$@"; echo $? >/tmp/status; exec sleep 60')
        until(lambda: (self.tmp / "status").exists() and (self.tmp / "status").read_text() == "0\n")
        pid = self.held_run()
        process = pathlib.Path(f"/proc/{pid}")
        self.assertNotIn(os.getsid(pid), (pid, shell.pid, os.getsid(0)))
        self.assertTrue(os.path.samefile(process / "cwd", process / "root"))
        self.assertIn("Umask:\t0000\n", (process / "status").read_text())
        for fd in "012":
            self.assertTrue(os.path.samefile(process / "fd" / fd, "/dev/null"))
        self.assertEqual(self.pid_file.read_bytes(), str(pid).encode().ljust(128, b"\0"))
        os.close(terminal)
        self.assertEqual(shell.wait(20), -signal.SIGHUP)
        os.kill(pid, signal.SIGHUP)
        self.check_update()

    def test_second_starts(self):
        """Ten start at once and one runs; another one, started beside it, leaves everything as it is."""
        def snapshot():
            paths = self.pid_file, *self.module.run_dir.iterdir()
            return {path: (path.read_bytes(), path.stat().st_ino, path.stat().st_mtime_ns) for path in paths}

        self.start('for n in 0 1 2 3 4 5 6 7 8 9; do (o=$("$@" --debug); echo "$?$o" >/tmp/$n.end) & done; wait')

        def ends():
            return list(filter(None, (path.read_text() for path in self.tmp.glob("*.end"))))

        until(lambda: len(ends()) == 9)
        for text in ends():
            self.assertRegex(text, r"^1\[\d+\] tarvolin-sim lock_set\n$")
        pid, before = self.held_run(), snapshot()
        self.assertEqual(self.finish('exec "$@"'), ("", 0))
        until(lambda: self.updaters() == [pid])
        self.assertEqual(snapshot(), before)
        self.check_update()
        until(lambda: "0" in [text[0] for text in ends()])
        self.assertEqual(len(self.server.requests), 1)

    def test_start_after_a_killed_run(self):
        self.finish('exec "$@"')
        os.kill(self.held_run(), signal.SIGKILL)
        until(lambda: not self.updaters())
        (self.module.run_dir / "fail_reason").write_text("old")
        (self.module.run_dir / "old.img").mkdir()
        self.go_on.set()
        output, status = self.finish('exec "$@" --debug')
        self.assertEqual(status, 0)
        self.assertIn(f"pid: {self.pid_file.read_text().rstrip(chr(0))}\n", output)
        self.assertFalse([path for path in self.module.run_dir.iterdir() if path.name in ("fail_reason", "old.img")])
        self.check_update()

    def test_terminal_that_ends_with_the_starter(self):
        self.go_on.set()
        for _ in range(10):
            shell, terminal = self.start_on_terminal('exec "$@"')
            self.assertEqual(shell.wait(20), 0)
            os.close(terminal)
            until(lambda: self.module.history()[-1:] == ["RESTORE"] and not self.updaters(), 20)
            self.finish("rm -r /tmp/tarvolin")

    def test_pid_file_that_cannot_be_opened(self):
        for script in "mount -t tmpfs -o ro tmpfs /run", "mkdir /run/tarvolin-sim.pid":
            output, status = self.finish(f'{script}; exec "$@" --debug')
            self.assertEqual(status, 1)
            self.assertRegex(output, r"^check_process_running\[\d+\], open\n$")
            self.assertFalse(self.module.run_dir.exists())

    def test_commands_inherit_no_descriptor(self):
        make_authority(self.tmp)
        make_certificate(self.tmp, "server")
        self.module.add_command("ubinfo", "ls /proc/self/fd >>/tmp/open; [ -e /tmp/detached ] || echo ubi2")
        self.module.add_command("ubidetach", "ls /proc/self/fd >>/tmp/open; touch /tmp/detached")
        for tls in None, server_context(self.tmp):
            with serve(DATA, tls=tls) as server:
                self.assertEqual(self.module.run(server.url()).status, 0)
            self.assertEqual((self.tmp / "open").read_text(), "0\n1\n2\n3\n" * 3)  # 3 is the listing's own
            self.finish("rm /tmp/open /tmp/detached")

    def test_closed_standard_descriptors(self):
        self.go_on.set()
        self.assertEqual(self.finish('exec "$@" --debug <&- >&- 2>&-'), ("", 0))
        self.assertEqual(len(self.pid_file.read_bytes()), 128)
        self.assertEqual([request.count(b"\r\n\r\n") for request in self.server.requests], [1])
        self.check_update()

    def test_descriptors_of_the_starter(self):
        self.finish('exec 3</data 9>/data/log "$@"')
        links = pathlib.Path(f"/proc/{self.held_run()}/fd").iterdir()
        self.assertFalse([link for link in links if "/data" in os.readlink(link)])
        self.check_update()

    def test_stopped_and_continued(self):
        """A socket with a time-out answers EINTR then."""
        self.start('exec "$@" --debug')
        pid = self.held_run()
        for number in signal.SIGSTOP, signal.SIGCONT:
            os.kill(pid, number)
            until(lambda: (" T (" in self.state(pid)) == (number == signal.SIGSTOP))
        time.sleep(0.1)
        self.check_update()

    @staticmethod
    def state(pid):
        return pathlib.Path(f"/proc/{pid}/status").read_text().replace("State:\t", " ")

    def test_closed_pipe(self):
        shell = self.start('"$@" --debug | head -1')
        self.held_run()
        self.check_update()
        self.assertEqual(shell.communicate(timeout=60)[0].count("\n"), 1)
