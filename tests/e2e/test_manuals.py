"""Options: the programs, their manual pages and the shell completion have the same ones."""
import json
import pathlib
import re
import shlex
import subprocess
import unittest

from lab.module import BIN_DIR, REPOSITORY

COMMANDS = {  # of each tool, with what they cannot do without
    "tarv-watch": {}, "tarv-fetch": {}, "tarv-restore": {},
    "tarv-store": {"show": "", "verify": "", "extract": "0 -o x", "map": "", "dump": "x"},
    "tarv-pkg": {"create": "-o x", "show": "x", "check": "x", "diff": "x x", "digests": "x", "extract": "-o x x"}}
COMPLETE = """PATH='%s':$PATH; . '%s/packaging/completion.bash'; COMP_WORDS=(%s); COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
_tarv_complete "$COMP_WORDS" "${COMP_WORDS[-1]}"; printf '%%s\\n' "${COMPREPLY[@]}" """


def run(program, *arguments):
    return subprocess.run([BIN_DIR / program, *arguments], capture_output=True, text=True, timeout=60, check=False)


def helped(*words):
    return set(",".join(re.findall(r"^  (-\S+)", run(*words, "--help").stdout, re.M)).split(","))


def told(program):
    """Options in the manual page, by the heading that they stand under."""
    page, = (REPOSITORY / "docs/man").glob(f"{program}.*.scd")
    parts = re.split(r"^#+ (.*)\n", page.read_text(), flags=re.M)
    terms = {title: re.findall(r"^\*-.*", text, re.M) for title, text in zip(parts[1::2], parts[2::2])}
    return {title: set(re.findall(r"\*(-[-\w]+)\*", " ".join(lines))) for title, lines in terms.items()}


def offered(*words):
    """What the shell offers behind these words, of which the last may be begun."""
    shell = run("/bin/bash", "-uc", COMPLETE % (BIN_DIR, REPOSITORY, shlex.join(words)))
    assert shell.returncode == 0 and not shell.stderr, shell
    return set(shell.stdout.splitlines()) - {""}


class Manuals(unittest.TestCase):
    def refuses(self, status, *words):
        end = run(*words, "--nonsense")
        self.assertTrue(end.returncode == status and "--nonsense" in end.stderr, end)

    def test_tools(self):
        for tool, commands in COMMANDS.items():
            own, pages = helped(tool), told(tool)
            self.assertEqual((pages["OPTIONS"], offered(tool, "-")), (own, own), tool)
            self.assertEqual(offered(tool, ""), set(commands) or own)
            for command in commands:
                takes, too = helped(tool, command), own if tool == "tarv-store" else set()
                self.assertEqual((pages[command] | {"-h", "--help"}, offered(tool, command, "-")), (takes, takes | too))
            for command in ("", *commands):
                lines = run(tool, *command.split(), "--help").stdout.splitlines()
                self.assertTrue(len(lines) <= 24 and all(len(line) <= 80 for line in lines), lines)
            for command in ("", *commands):
                self.refuses(2, tool, *command.split())

    def test_updater(self):
        table = re.search(r"kOptions\[\] = {(.*?)\n};", (REPOSITORY / "main/options.cpp").read_text(), re.S)[1]
        rows = re.findall(r"{\"(\w+)\", (\w+), nullptr, (?:'(.)')?", table)
        takes = {f"--{long}" for long, _, _ in rows} | {f"-{short}" for _, _, short in rows if short}
        self.assertEqual((told("tarvolin")["OPTIONS"], offered("tarvolin", "-")), (takes, takes))
        for long, argument, _ in rows:  # behind one that takes a value, no option is offered
            self.assertEqual(offered("tarvolin", f"--{long}", ""), takes if argument == "no_argument" else set())
        self.refuses(255, "tarvolin")

    def test_versions(self):
        """Every program is of the version that the build files give; the updater says so in a note."""
        version, = re.findall(r"^project\(tarvolin VERSION ([\d.]+)", (REPOSITORY / "CMakeLists.txt").read_text(), re.M)
        note = re.search(r'Packaging Metadata: (.*)', run("/usr/bin/readelf", "-n", str(BIN_DIR / "tarvolin")).stdout)
        found = json.loads(note[1].rstrip("\0"))
        self.assertEqual((found["name"], found["version"]), ("tarvolin", version))
        for tool in COMMANDS:
            self.assertEqual(run(tool, "--version").stdout, f"{tool} {version} ({found['commit']})\n")

    def test_files_and_partitions(self):
        here = {path.name: path.is_dir() for path in pathlib.Path().iterdir()}
        for words, wanted in (
                ("tarv-pkg create boot =", {*here}), ("tarv-store --dumps ''", {name for name in here if here[name]}),
                ("tarv-pkg show test_m", {"test_manuals.py"}), ("tarv-pkg create --major ''", set()),
                ("tarv-pkg create rec", {"recovery=", "recoveryfs="})):
            self.assertEqual(offered(*shlex.split(words)), wanted, words)
