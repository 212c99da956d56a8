"""Packages and command lines that are refused, and stages that fail: exact reasons, statuses and files."""
import unittest

from lab.module import KIB, without
from lab.packages import Image, Package, images, no_images, noise
from lab.servers import ScriptedServer, header, serve
from lab.sim_module import SimModule
from lab.store_record import RESTORE

ALL_ONES, HALF = 0xFFFFFFFF, 0x80000000
ROOM, FIRST_ROOM = 39 * 128 * KIB, 15 * 128 * KIB  # bytes that the store, its first partition, take of good flash
DATA, LARGE = noise(9000), noise(307200, 2)  # whole pieces of what the checks read
HEAD_TAKEN = ["head", "download_size"]


def table(*names_and_sizes, **fields):
    """A package that announces images; the head is refused before their data matters, so none belongs to it."""
    names, sizes = names_and_sizes[::2], names_and_sizes[1::2]
    return Package([Image(name, b"", "file", size) for name, size in zip(names, sizes)], **fields)


def length(package):
    return 3536 + sum(len(i.data) if i.size is None else i.size for i in package.images) & ALL_ONES


LONG_VERSION, LONG_REVID = b"31406" + b"x" * 59, "31405" + "y" * 1500
# What the head check refuses, once each, and which fault goes before which; the unit test package_format_test has all
# rules for an entry. The failure reason, the package, and: the announced length, options, the log line when it is
# another, the files beside those of every refusal, the module.
REFUSALS = (
    ("head magic not match.", table("x", 1, magic=0x7665786E, head_size=0, image_num=33, head_crc=0), {"revid": None}),
    ("image num error: 33", table(image_num=33, head_size=0)),
    ("package len error: 3536/3537", table("boot", 1), {"length": 3536, "revid": None}),
    ("package len error: 4294967295/3536", table("boot", ALL_ONES, "sbl", 1), {"length": -1}),
    ("Can not get revid.", table("boot", 1, version="31406"), {"revid": None}),
    ("Project type not match cur: 3140, pkg: 31406", table("boot", 1, version="31406", head_size=0),
     {"options": ("--version", "3140")}),
    (f"Project type not match cur: {LONG_REVID[:63]}, pkg: {LONG_VERSION.decode()}",
     table("boot", 1, version=LONG_VERSION), {"revid": LONG_REVID}),
    ("head meta_hdr_sz not match.", table("boot", 1, head_size=3537, head_crc=0)),
    ("header_crc32 error", table("userdata", 1, head_crc=1), {"log": "header_crc32 error, head crc: 1, calculate"}),
    *((f"unsupport upgrade partition type: {name}", table("boot", 1, name, 1))
      for name in ("userdata", "b" * 32, "\x1b[2J\n[20260101_000000] done")),
    ("unsupport recovery image in package: recovery", table("system", 1, "recovery", 1)),
    *((f"image file name error: {name}", Package([Image("boot", b"d", name)])) for name in ("x" * 68, "%s%n/")),
    ("too many store images: 9", table(*("system", 1) * 9)),
    (f"No enough size, {ROOM + 1}/{ROOM}", table("system", ROOM, "boot", 5, "modem", 1),
     {"log": f"No enough size for this file store. file_len: {ROOM + 1}, valid_size: {ROOM}"}),
    (f"No enough size, -1/{ROOM}", table("system", ALL_ONES, "boot", 101), {"log": "file_len: -1, "}),
    (f"No enough size, {FIRST_ROOM + 1}/{FIRST_ROOM}", table("system", FIRST_ROOM + 1),
     {"log": f"valid_size: {FIRST_ROOM}", "partitions": without("recoveryfs")}),
    (None, table("recovery", 1, "boot", 1), {"log": "in recovery mode unsupport type: boot", "files": HEAD_TAKEN}),
    (None, no_images("nothing"), {"log": "unsupport file partition: nothing, error", "files": HEAD_TAKEN}),
    (None, table("recovery", 1), {"log": "can't write mtd partition recovery", "files": [*HEAD_TAKEN, "pt_type"],
                                  "partitions": without("recovery")}),
)
# Stages that fail: exit status, log line, images, fault plan. Among them are packages made to deceive: sizes whose sum
# wraps, so that the download is whole and no image is; partitions that are named twice.
STAGE_FAILURES = (
    (255, "vexo_tarv_http_download failed", [Image("system", DATA)], "program at 2 fail always"),
    (254, "image[1] modem crc check failed, head crc[1], calc", [Image("system", DATA), Image("modem", DATA, crc=1)]),
    (254, "image[0] boot crc check failed, head crc[1], calc", [Image("boot", DATA, crc=1)]),
    (254, "image[0] system crc check failed, head crc[0], calc crc[ffffffff]", [Image("system", b"", crc=0)]),
    (254, "image[0] recovery crc check failed", [Image("recovery", LARGE), Image("recovery", DATA)]),
    (254, "mtd_read_data error", [Image("recovery", LARGE, size=ALL_ONES), Image("recoveryfs", b"", size=307201)]),
    (254, "file open /tmp/tarvolin/file error", [Image("boot", LARGE, size=ALL_ONES), *table("sbl", 307201).images]),
    (254, "mtd_read_data error", [Image("system", LARGE, size=HALF), *table("system", HALF, "modem", 307200).images]),
    (253, "tarv_install_file error", [Image("boot", DATA), Image("sbl", LARGE)]),
    (253, "can't write mtd partition tz", [Image("boot", DATA), Image("tz", DATA)]),
    (253, "image[0] boot crc check failed", [Image("boot", LARGE), Image("boot", DATA, "b")]),
    (253, "image[0] boot crc check failed", [Image("boot", LARGE)], "read at 4 corrupt"),
    (253, "store head record is not in its place", [Image("system", DATA)], "erase in userdata 0 after 1 fail always"),
)
# A block of the head record that takes none: fault plan, what is said of the store before.
HEAD_FAULTS = (
    ("erase in userdata 0 fail always", "the earlier armed store still stands"),
    ("program in userdata 0 refused always", "no armed store was found"),
    ("program in userdata 0 short always\nerase in userdata 0 after 2 fail always", "no armed store was found"),
    ("badblock in userdata 0 fail always", "no armed store was found"),
)
USAGE = r"\n\*{63}\nUsage: \S+ --type=<type> --url=<url>\nPARAMS:\n\n(.*\n){4}\n.*/tmp/tarvolin\n\*{63}\n"
# Options behind an acceptable --url, exit status, what is printed on standard output and on standard error.
COMMAND_LINES = (
    (("--url", "u" * 256), 255, "", r"[^\n]*--url[^\n]*255[^\n]*\n"),
    (("--version", "v" * 64), 255, "", r"[^\n]*--version[^\n]*63[^\n]*\n"),
    (("--url", ""), 255, "", ""),
    (("-h",), 0, USAGE, ""),
    (("--unknown",), 255, USAGE, r"[^\n]*--unknown[^\n]*\n"),
    (("-u",), 255, USAGE, r"[^\n]* 'u'\n"),
)


class Refusals(unittest.TestCase):
    def refuse(self, module, package, status, files, log, announced, options=()):
        with ScriptedServer([header(announced) + package.bytes()]) as server:
            run = module.run(server.url(), *options)
        self.assertEqual(run.status, status, module.log()[-2000:])
        history = ["IDLE", "DOWNLOAD", "CHECK", "INSTALL"][: 257 - status] + ["FAILED"]
        self.assertEqual((module.history(), module.text("status")), (history, "6"))
        self.assertEqual(set(module.files()), {"tarv_log", "http_header", "file_size", "status", "status_str", *files})
        self.assertIn(log, module.log())

    def test_flash_is_left_alone(self):
        for reason, package, *more in REFUSALS:
            others = {"length": length(package), "options": (), "files": ["fail_reason"], "log": f"): {reason}"}
            others.update(*more)
            asked = [others.pop(name) for name in ("files", "log", "length", "options")]
            with self.subTest(asked[1]), SimModule(**others) as module:
                self.refuse(module, package, 255, *asked)
                self.assertEqual(module.text("fail_reason"), reason and reason + "\n")
                self.assertTrue(module.is_untouched())

    def test_stages(self):
        for status, log, contents, *faults in STAGE_FAILURES:
            with self.subTest(log, images=[i.name for i in contents]), SimModule(faults="".join(faults)) as module:
                files = HEAD_TAKEN + ["download_time"] * (status < 255) + ["check_time"] * (status == 253)
                files += [i.saved_name() for i in contents if i.name in ("boot", "sbl", "tz") and i.data]
                files += ["pt_type"] * (contents[0].name == "recovery")
                self.refuse(module, Package(contents), status, files, log, length(Package(contents)))
                self.assertFalse(module.dump("userdata").startswith(RESTORE.to_bytes(4, "little")))
                changed = {name for name in module.partitions if module.dump(name) != module.initial(name)}
                self.assertLessEqual(changed, {"userdata", *(i.name for i in contents if i.name != "system")})

    def test_head_record_that_is_not_taken(self):
        """Over the armed store of this very package: nothing behind the record's block changes, and none is armed anew."""
        package = images("system", 300_000, "boot", 5_000)
        for faults, store in HEAD_FAULTS:
            with self.subTest(faults), SimModule() as module, serve(package.bytes()) as server:
                self.assertEqual(module.run(server.url()).status, 0)
                before = module.dumps()
                module.set_faults(faults)
                self.assertEqual(module.run(server.url()).status, 255)
                reason = f"userdata takes no head record; {store}; /data is unmounted\n"
                self.assertEqual(module.text("fail_reason"), reason)
                changed = [name for name in before if module.dump(name)[module.block:] != before[name][module.block:]]
                self.assertEqual(changed, [])
                is_armed = module.dump("userdata").startswith(RESTORE.to_bytes(4, "little"))
                self.assertEqual(is_armed, "erase in userdata 0 fail" in faults or "badblock" in faults)

    def test_command_line(self):
        for options, status, output, errors in COMMAND_LINES:
            with self.subTest(options), SimModule() as module:
                run = module.run("http://127.0.0.1:1/pkg.img", *options)
                self.assertEqual(run.status, status)
                self.assertRegex(run.output, rf"\A{output}\Z")
                self.assertRegex(run.errors, rf"\A{errors}\Z")
                self.assertFalse(module.run_dir.exists() or list((module.folder / "run").iterdir()))
