"""tarv-watch beside runs of the updater: before, during and after them, with and without a terminal."""
import json
import os
import re
import signal
import subprocess
import termios
import unittest

from lab.module import BIN_DIR, without
from lab.packages import Image, Package, images
from lab.servers import ScriptedServer, header
from lab.sim_module import SimModule

DATA = images("system", 300_000).bytes()
FAILURES = ((10, "download", b"no package" * 400), (12, "install", images("sbl", 5000).bytes()),
            (11, "check", Package([Image("system", b"x" * 9000, crc=1)]).bytes()))


class TarvWatch(unittest.TestCase):
    def setUp(self):
        self.module = self.enterContext(SimModule(without("sbl")))

    def watch(self, *options, out=subprocess.PIPE, no_colour="1"):
        pid_file = self.module.folder / "run" / "tarvolin-sim.pid"
        command = [BIN_DIR / "tarv-watch", "--dir", self.module.run_dir, "--pid-file", pid_file, *options]
        environment = {**os.environ, "TERM": "xterm", "NO_COLOR": no_colour}
        process = subprocess.Popen(command, text=True, stdout=out, stderr=subprocess.PIPE, env=environment)
        self.addCleanup(lambda: (process.kill(), process.wait(), process.stderr.close()))
        return process

    def check_end(self, process, status, pattern="^"):
        output, errors = process.communicate(timeout=20)
        self.assertEqual(process.returncode, status, errors)
        self.assertRegex(output or "", pattern)
        return output

    def update(self, data=DATA, pause=0):
        with ScriptedServer([header(len(data)) + data[:-2000], pause, data[-2000:-1], pause, data[-1:]]) as server:
            self.module.run(server.url())

    def test_live_run(self):
        terminals = [(20, "1", *os.openpty()), (40, "1", *os.openpty()), (200, "", *os.openpty())]
        for columns, _, _, end in terminals:
            termios.tcsetwinsize(end, (24, columns))
        watches = [self.watch(out=end, no_colour=no_colour) for _, no_colour, _, end in terminals]
        plain, program = self.watch(), self.watch("--json", "--wait", "20")
        self.assertEqual((plain.stdout.readline(), json.loads(program.stdout.readline())["run"]), ("waiting\n", 0))
        self.update(pause=0.7)
        self.check_end(plain, 0, r"(?s)\ndownload, 99 %, 29[46]..*\ncheck  .*\nrestore pending in")
        self.check_end(self.watch(), 0, "^restore pending.*\n$")  # when it is over
        self.check_end(self.watch("--new", "--wait", "0.5"), 20, "no run has begun")
        news = [json.loads(line) for line in self.check_end(program, 0).splitlines()]
        statuses = list(dict.fromkeys(n["status"] for n in news))
        self.assertEqual(statuses, ["idle", "download", "check", "install", "restore"])
        self.assertTrue(all((n["percent"] == 100) == (n["status"] in ("install", "restore")) for n in news), news)
        self.assertEqual([n["exit_status"] for n in news], [None] * (len(news) - 1) + [0])
        for watch, (columns, no_colour, mine, _) in zip(watches, terminals):
            self.check_end(watch, 0)
            text = os.read(mine, 65536).decode()
            *lines, outcome = re.sub(r"\033\[\d*[mK]", "", text).splitlines()
            self.assertLess(max(map(len, lines)), columns)
            more = {20: r"^download 99 %$", 40: r"\[#+-+\] 99 %  296.4/296.4 KiB$",
                    200: r"\[#+-+\] 99 %  296.4/296.4 KiB  0:01 left  .* KiB/s"}[columns]
            self.assertRegex("\n".join(lines).replace("\r", "\n"), "(?m)" + more)
            self.assertEqual(("\033[3" in text, "100 %" in text, outcome[:15]), (not no_colour, False, "restore pending"))

    def test_failures(self):
        self.check_end(self.watch("--wait", "0"), 20, "^waiting\nno run has begun\n$")
        for status, stage, data in FAILURES:
            watch = self.watch("--new")
            self.assertEqual(watch.stdout.readline(), "waiting\n")
            self.update(data)
            for process, beginning in ((watch, r"(?s).*\n"), (self.watch(), "^")):
                self.check_end(process, status, rf"{beginning}failed in the {stage} stage: .+\n$")
        with open("/dev/full", "w") as full:
            self.check_end(self.watch("--json", out=full), 1)

    def test_files_that_contradict(self):
        """The status decides. A contradiction is reported; what is no run directory or pid file is refused."""
        names = ["IDLE", "DOWNLOAD", "CHECK", "INSTALL", "RESTORE", "SUCCESS", "FAILED"]
        folder = self.module.folder
        (folder / "dead").write_bytes(b"123".ljust(128, b"\0"))
        os.mkfifo(folder / "pipe")
        self.module.run_dir.mkdir()
        cases = [  # "status", the last words of "status_str", options, exit status, words
            ("6", 5, "", 12, "install stage SUCCESS"), ("5", 6, "", 0, "success FAILED"),
            ("5", None, "", 0, "success status_str"), ("6", None, "", 10, "download stage"),
            ("", None, "--pid-file dead", 21, "gone room"), ("1", 1, "--pid-file dead", 21, "download stage without"),
            ("1", 1, "--pid-file none", 1, '"none" missing --pid-file'), ("1", 1, "--pid-file pipe", 1, '"pipe" regular'),
            ("1", 1, "--pid-file /etc/passwd", 1, "no pid file"), ("1", 1, "--dir dead", 1, '"dead" Not a directory'),
            ("1", 1, "--wait nan", 2, '"nan" 999999999'), ("1", 1, "--wait 0x10", 2, "0x10"), ("1", 1, "--wait 1e3", 2, "1e3")]
        for status, last, options, returned, words in cases:
            (self.module.run_dir / "status").write_text(status)
            history = self.module.run_dir / "status_str"
            history.unlink(missing_ok=True)
            if last is not None:
                order = [*range(min(last, 4)), last]
                history.write_text("".join(f"TARV_STATUS_{names[n]}\n" for n in order))
            where = [] if "--dir" in options else ["--dir", "tmp/tarvolin"]
            run = subprocess.run([BIN_DIR / "tarv-watch", *where, *options.split()], cwd=folder, capture_output=True,
                                 text=True, timeout=20)
            self.assertEqual(run.returncode, returned, (options, run.stdout, run.stderr))
            self.assertFalse([word for word in words.split() if word not in run.stdout + run.stderr], run)
        (self.module.run_dir / "download_size").write_text("9")
        (self.module.run_dir / "file_size").write_text("-7")
        (self.module.run_dir / "status").write_text("5")
        shown = [json.loads(line) for line in self.check_end(self.watch("--json"), 0).splitlines()]
        self.assertEqual([(n["status"], n["download_size"], n["file_size"]) for n in shown], [("success", 9, -7)])

    def test_ends_without_outcome(self):
        with ScriptedServer([header(len(DATA)) + DATA[:100_000], 60]) as server:
            command = [*self.module.command("tarvolin-sim"), "--debug", "--url", server.url()]
            with subprocess.Popen(command, stdout=subprocess.DEVNULL) as updater:
                unread, interrupted, left = watches = [self.watch() for _ in range(3)]
                self.assertTrue(all(any(", 32 %" in line for line in watch.stdout) for watch in watches))
                unread.stdout.close()
                self.assertEqual(unread.wait(5), 1)
                interrupted.send_signal(signal.SIGINT)
                self.check_end(interrupted, 130)
                self.assertIsNone(left.poll())
                updater.kill()
            self.check_end(left, 21, "gone: .* download stage")
