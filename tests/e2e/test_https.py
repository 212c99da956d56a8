"""HTTPS downloads: whom the updater trusts, how it proves itself, and what it reports when a server fails it."""
import pathlib
import re
import subprocess
import tempfile
import unittest

from lab.certificates import make_authority, make_certificate, server_context
from lab.expected import expected_flash
from lab.module import BIN_DIR
from lab.packages import HEAD_SIZE, images
from lab.servers import Nginx, Reset, ScriptedServer, header
from lab.sim_module import SimModule

PACKAGE = images("system", 300_000, "sbl", 5_000)
DATA = PACKAGE.bytes()
LEN = len(DATA)
WRITTEN = HEAD_SIZE + 200_000  # into the first image, so that flash has been written to

# What a module has in /data/cert: files there, and what they are copies of.
VERIFY, OWN_CA = {"ssl_verify": "ca.crt"}, {"ca.crt": "ca.crt"}
CERTIFICATE, KEY = {"client.crt": "client.crt"}, {"client.key": "client.key"}

# libcurl's errors.
PARTIAL = (18, "Transferred a partial file")
WRITE = (23, "Failed writing received data to disk/application")
TIMEOUT = (28, "Timeout was reached")
CONNECT = (35, "SSL connect error")
RECEIVE = (56, "Failure when receiving data from the peer")
UNTRUSTED = (60, "SSL peer certificate or SSH remote key was not OK")

# Makes the minute of patience with a slow server two seconds.
IMPATIENCE = """
#define _GNU_SOURCE
#include <dlfcn.h>
int curl_easy_setopt(void* curl, int option, long value) {
  int (*set)(void*, int, ...) = dlsym(RTLD_NEXT, "curl_easy_setopt");
  return set(curl, option, option == 20 /* CURLOPT_LOW_SPEED_TIME */ && value == 60 ? 2L : value);
}
"""


def setUpModule():
    global FOLDER
    FOLDER = pathlib.Path(unittest.enterModuleContext(tempfile.TemporaryDirectory(prefix="tarv-https-")))
    for name in "ca", "stranger":
        make_authority(FOLDER, name)
    for name, *others in ("server",), ("elsewhere", "DNS:elsewhere.test"), ("expired", "IP:127.0.0.1", -1), ("client",):
        make_certificate(FOLDER, name, *others)


def tls_nginx(certificate="server", listen="ssl", server=""):
    pair = f"ssl_certificate {FOLDER}/{certificate}.crt; ssl_certificate_key {FOLDER}/{certificate}.key;"
    return Nginx(listen=listen, server=f"{pair} {server}")


class HttpsTest(unittest.TestCase):
    def check(self, url, files, error=None, reason=None, lines=(), absent="\0", untouched=True, program="tarvolin-sim"):
        """One run. `error` is libcurl's; its text is the failure reason where no other is given. PAGE stands for the
        length of what the server sent."""
        with SimModule() as module, self.subTest(url=url, files=files):
            (module.folder / "data" / "cert").mkdir()
            for name, source in files.items():
                (module.folder / "data" / "cert" / name).write_bytes((FOLDER / source).read_bytes())
            run = module.run(url, program=program)
            page = "".join(re.findall(r"Content-Length: (\d+)\n", module.text("http_header") or "")[-1:])
            if error or reason:
                reason = (reason or error[1]).replace("PAGE", page)
                self.assertEqual((run.status, module.history()), (255, ["IDLE", "DOWNLOAD", "FAILED"]))
                self.assertEqual(module.is_untouched(), untouched)
            else:
                self.assertEqual((run.status, module.history()[-1]), (0, "RESTORE"))
                self.assertEqual(module.dumps(), expected_flash(PACKAGE, module))
            self.assertEqual(module.text("fail_reason"), reason)
            errors = re.findall(r"Curl perform error,error code\[(\d+)\]\[(.*)\]\n", module.log())
            self.assertEqual(errors, [(str(error[0]), error[1])] if error else [])
            for line in ("Download file over https protocol", f"Redirect to[{url}]", *lines):
                self.assertIn(f": {line}\n".replace("PAGE", page), module.log())
            self.assertNotIn(absent, module.log())

    def test_trust(self):
        loaded, fine, bad = "load /data/cert/ca.crt", "peer verification[fine]", "peer verification[BAAAD]"
        for certificate, files, error, lines in (
            ("stranger", {}, None, ["not verify the peer", bad]),
            ("expired", OWN_CA, None, ["not verify the peer", loaded, bad]),
            ("elsewhere", {}, None, ["not verify the peer"]),
            ("server", {**VERIFY, **OWN_CA}, None, ["verify the peer", loaded, fine, f"Download {LEN} bytes"]),
            ("server", {**VERIFY, "ca.crt": "stranger.crt"}, UNTRUSTED, ["verify the peer", loaded, bad]),
            ("server", VERIFY, UNTRUSTED, ["verify the peer", bad]),
            ("elsewhere", {**VERIFY, **OWN_CA}, UNTRUSTED, ["verify the peer", bad, "download last: 0/0"]),
            ("expired", {**VERIFY, **OWN_CA}, UNTRUSTED, ["verify the peer", bad, "download last: 0/0"]),
        ):
            with tls_nginx(certificate) as server:
                self.check(server.put("pkg.img", DATA), files, error, lines=lines)

    def test_client_certificate(self):
        loaded = "load [/data/cert/client.crt] [/data/cert/client.key]"
        with tls_nginx(server=f"ssl_verify_client on; ssl_client_certificate {FOLDER}/ca.crt;") as server:
            url = server.put("pkg.img", DATA)
            self.check(url, {**VERIFY, **OWN_CA, **CERTIFICATE, **KEY}, lines=[loaded])
            for files in {}, CERTIFICATE, KEY:
                self.check(url, files, WRITE, "download stop: 0/PAGE\n", absent="load [")

    def test_tls_version(self):
        for protocol, error, texts in (
            ("TLSv1.2", None, ["tlsv1.2", "TLSV1.2", "tlsv1.2\n", "tlsv1.3"]),
            ("TLSv1.2", CONNECT, ["tlsv1.0", "TLSv1.1"]),
            ("TLSv1.3", None, ["tlsv1.2\n", " tlsv1.2", "tlsv1.1\n"]),
            ("TLSv1.3", CONNECT, ["tlsv1.2", "TLSV1.2"]),
        ):
            with tls_nginx(server=f"ssl_protocols {protocol};") as server:
                url = server.put("pkg.img", DATA)
                for text in texts:
                    (FOLDER / "version").write_text(text)
                    self.check(url, {"cust_tls_version.txt": "version"}, error, lines=[f"TLS version[{text}]"])

    def test_answers(self):
        locations = "location /broken { return 500; } location /moved { return 302 /pkg.img; }"
        with tls_nginx(listen="ssl http2", server=locations) as server:
            url = server.put("pkg.img", DATA)
            self.check(url, {}, lines=[f"file size[{LEN}]", f"download last: {LEN}/{LEN}"], absent="TLS version[")
            self.check(url.replace("pkg.img", "none"), {}, WRITE, lines=["404 Not Found", "download last: 0/0"])
            for page in "broken", "moved":
                self.check(url.replace("pkg.img", page), {}, WRITE, "download stop: 0/PAGE\n",
                           ["ginfo->file_len: PAGE, error", "download last: 0/PAGE"])
        with ScriptedServer([header(LEN, "500 Broken") + DATA], tls=server_context(FOLDER)) as server:
            self.check(server.url(), {}, (22, "HTTP response code said error"), f"download stop: 0/{LEN}\n")
        with ScriptedServer([header(LEN, "302 Found", ["Location: /"]) + DATA], tls=server_context(FOLDER)) as server:
            self.check(server.url(), {})  # taken for what it holds: no redirect is followed

    def test_cut(self):
        head = header(LEN)
        for script, error, counts in (
            ([head + DATA[:WRITTEN]], PARTIAL, f"{WRITTEN}/{LEN}"),
            ([head + DATA[:WRITTEN], Reset], RECEIVE, f"{WRITTEN}/{LEN}"),
            ([head + DATA[:1000]], PARTIAL, f"0/{LEN}"),
            ([head[:50]], None, "0/0"),  # libcurl takes half a header for a whole answer
            ([], (52, "Server returned nothing (no headers, no data)"), None),
            ([Reset], RECEIVE, None),
        ):
            with ScriptedServer(script, tls=server_context(FOLDER)) as server:
                self.check(server.url(), {}, error, counts and f"download stop: {counts}\n",
                           [f"download last: {counts or '0/0'}"], untouched=counts != f"{WRITTEN}/{LEN}")

    def test_stall(self):
        (FOLDER / "impatience.c").write_text(IMPATIENCE)
        subprocess.run(["cc", "-shared", "-fPIC", "-o", "impatience.so", "impatience.c"], cwd=FOLDER, check=True)
        impatient = FOLDER / "impatient"
        impatient.write_text(f"""#!/bin/sh
            export LD_PRELOAD=/host{FOLDER}/impatience.so ASAN_OPTIONS=verify_asan_link_order=0
            exec /host{BIN_DIR.resolve()}/tarvolin-sim "$@"\n""")
        impatient.chmod(0o755)
        below, above = ([step for at in range(0, 20 * n, n) for step in (0.5, DATA[at:at + n])] for n in (10, 30))
        for script, error, reason in (
            ([20], TIMEOUT, None),
            ([header(LEN), *below], TIMEOUT, f"download stop: 0/{LEN}\n"),
            ([header(LEN), *above[:10], DATA[150:]], None, None),
        ):
            with ScriptedServer(script, tls=server_context(FOLDER)) as server:
                self.check(server.url(), {}, error, reason, program=impatient)
