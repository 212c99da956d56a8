"""The pages' tables and dumps against the programs and sources; their links, paths and `./dev` words against the tree."""
import json
import pathlib
import re
import subprocess
import tempfile
import unittest

from lab.expected import STORE_LIST
from lab.module import BIN_DIR, KIB, REPOSITORY
from lab.packages import Image, Package, images, no_images
from lab.servers import serve
from lab.sim_module import SimModule

PAGES = {path: path.read_text() for path in REPOSITORY.rglob("*.md")
         if not any(part == "build" or part[0] == "." for part in path.relative_to(REPOSITORY).parts)}
FOLDERS = "main download package store install mtd base sim tools tests lab demo bench packaging cmake docs".split()
SOURCES = "".join(path.read_text() for folder in FOLDERS[:7] for path in (REPOSITORY / folder).rglob("*.cpp"))
STRING, BLOCK = r'"((?:[^"\\]|\\.)*)"', 128 * KIB
# A failure reason's text: handed on as it is, put together first, or kept as a constant.
REASON = (r"(?:(?:tarv_write_fail_reason|REFUSE|give_reason)\(\s*|snprintf\(reason, sizeof reason,\s*|"
          rf"string_view k(?:NotFound|NoLength) = ){STRING}")


def section(page, title):
    return re.search(rf"^#+ {title}\n(.*?)(?=\n#+ |\Z)", PAGES[REPOSITORY / f"docs/{page}.md"], re.M | re.S)[1]


def rows(text):
    return [row.strip("|").split(" | ") for row in re.findall(r"^\|.*`.*(?=\n(?!\|--))", text, re.M)]


def codes(page, title):
    """What stands in backquotes in the first column of a section's table."""
    return [code for row in rows(section(page, title)) for code in re.findall("`([^`]+)`", row[0])]


def blank(text):
    """A text of the sources or of a page without what varies."""
    return re.sub(r"%[.0-9]*l*[a-z]|<[^>]*>", "<>", text.replace(r"\"", '"'))


def fields(table, data):
    """What a table of offsets finds in `data`, and its length; its fields have to follow each other without a gap."""
    values, at = {}, 0
    for offset, size, name in re.findall(r"^\| (\d+) \| (\d+) \| `?([\w\[\]]+)", table, re.M):
        assert int(offset) == at and name not in values, name
        piece, at = data[at:at + int(size)], at + int(size)
        is_text = name in ("img_version", "name", "file_name")
        values[name] = piece.partition(b"\0")[0].decode() if is_text else int.from_bytes(piece, "little")
    return values, at


def anchors(text):
    return {re.sub(r"[^\w\- ]", "", title.lower()).replace(" ", "-") for title in re.findall(r"^#+ (.*)", text, re.M)}


class Docs(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))

    def tool(self, name, *arguments, status=0):
        run = subprocess.run([BIN_DIR / name, *arguments], cwd=self.folder, stdout=subprocess.PIPE, text=True, timeout=60)
        self.assertEqual(run.returncode, status, (name, arguments))
        return run.stdout

    def check_format(self, page, title, list_at, data, at, shown):
        """The page's tables and its dump against `data`, and against what a tool shows of the head that begins at `at`."""
        head, entry = section(page, title).split("One entry of")
        (values, _), length = fields(head, data[at:]), fields(entry, b"")[1]
        self.assertLessEqual({n: v for n, v in values.items() if n not in ("image", "images")}.items(), shown.items())
        for n, image in enumerate(shown["images"]):
            found = fields(entry, data[at + list_at + n * length:])[0]
            self.assertEqual(found, {name: image[name] for name in found})
        for where, row in re.findall(r"^ +([0-9a-f]{8})  ((?:[0-9a-f]{2} +)+)\|", section(page, "Worked example"), re.M):
            start = int(where, 16) + (at if int(where, 16) < BLOCK else 0)
            self.assertTrue(data[start:].startswith(bytes.fromhex(row)), (page, where))
        return length

    def test_package_format(self):
        program = re.search("```python\n(.*?)```", section("package-format", "Worked example"), re.S)[1]
        subprocess.run(["python3", "-c", program], cwd=self.folder, check=True)
        data = (self.folder / "package.img").read_bytes()
        shown = json.loads(self.tool("tarv-pkg", "show", "--json", "package.img"))
        self.assertEqual(self.check_format("package-format", "The head", 76, data, 0, shown), 108)

    def test_store_format(self):
        text, bad = section("store-format", "Worked example"), {"userdata": {0, 5}, "recoveryfs": {3}}
        sizes = {name: int(n) * BLOCK for name, n in re.findall(r'^\| "(\w+)" \| (\d+) \| \d+ \| ', text, re.M)}
        package = Package([Image(name, (f"{name}\n".encode() * int(size))[:int(size)])
                           for name, size in re.findall(r"yes (\w+) \| head -c (\d+)", text)])
        with SimModule(sizes, bad) as module, serve(package.bytes()) as server:
            self.assertEqual(module.run(server.url(), "--rmrfnvbak").status, 0, module.log())
            for name in STORE_LIST:
                (self.folder / f"{name}.bin").write_bytes(module.dump(name))
                (self.folder / f"{name}.bad").write_text("\n".join(map(str, bad.get(name, ()))))
        shown = json.loads(self.tool("tarv-store", "show", "--json", "--dumps", "."))["record"]
        data = (self.folder / "userdata.bin").read_bytes()
        self.assertEqual(self.check_format("store-format", "The head record", 44, data, BLOCK, shown), 44)
        drawn = self.tool("tarv-store", "map", "--dumps", ".")
        self.assertIn(drawn, section("store-format", "Looking at a store").replace("\n    ", "\n"))

    def test_reasons_and_log_lines(self):
        written = {blank(text) for text in re.findall(REASON, SOURCES)}
        self.assertEqual(sorted(map(blank, codes("troubleshooting", "Reasons"))), sorted(written))
        # libcurl's text is the only one beside them.
        arguments = re.findall(r"tarv_write_fail_reason\((\w+)\)", SOURCES)
        self.assertEqual(set(arguments), {"kNotFound", "kNoLength", "reason", "text"})
        texts = blank("\n".join(re.findall(STRING, SOURCES)))
        for title in "Failures without a reason", "Flash":
            for line in codes("troubleshooting", title):
                self.assertTrue(blank(line) in texts, line)

    def test_outcomes(self):
        for text, returned, status, *_ in rows(section("troubleshooting", "How it ended"))[:7]:
            text = text.strip(" `").replace("<n>", "7").replace("<stage>", "check")
            word, stage = text.split()[0].upper(), re.search(r"(\w+) stage", text)
            history = ["IDLE", "DOWNLOAD", "CHECK", "INSTALL"]
            history = history[:history.index(stage[1].upper()) + 1] if stage else history
            files = {"status_str": "".join(f"TARV_STATUS_{name}\n" for name in history + [word] * (word != "GONE")),
                     "status": "2" if word == "GONE:" else status, "pid": "1\0", "total_time": "7",
                     "fail_reason": "<reason>" * ("<reason>" in text)}
            for name, content in files.items():
                (self.folder / name).write_text(content)
            shown = self.tool("tarv-watch", "--dir", ".", "--pid-file", "pid", "--wait", "1", status=int(returned))
            self.assertEqual(shown.splitlines()[-1], text)

    def test_run_directory(self):
        left = {"tarv_log_bak"}  # there when a log has grown beyond what these runs write
        for package in images("recovery", 9), images("boot", 9, "system", 9), Package(magic=0), no_images():
            with SimModule() as module, serve(package.bytes()) as server:
                module.run(server.url())
                left |= {*module.files()} - {image.saved_name() for image in package.images}
        self.assertEqual(sorted(codes("run-directory", "The run directory")), sorted(left))

    def test_links_paths_and_words(self):
        words, linked = set(re.findall(r"^dev_(\w+)\(", (REPOSITORY / "dev").read_text(), re.M)), set()
        for path, text in PAGES.items():
            for target, anchor in re.findall(r"\]\((?!\w+://)([^)#\s]*)#?([^)\s]*)\)", text):
                file = (path.parent / target).resolve() if target else path
                linked |= {file} if path.parent == REPOSITORY else set()
                self.assertTrue(file.exists() and (not anchor or anchor in anchors(PAGES[file])), (path, target, anchor))
            for name in re.findall(rf"`((?:{'|'.join(FOLDERS)})/[\w./-]+)`", text):
                self.assertTrue([*REPOSITORY.glob(name.rstrip("/") + "*")], (path, name))
            self.assertLessEqual(set(re.findall(r"\./dev (\w+)", text)), words, path)
        self.assertEqual({path for path in PAGES if path.parent.name == "docs"} - linked, set(), "not in the README")
