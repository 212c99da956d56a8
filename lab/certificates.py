"""Certificates made on the spot with openssl: NAME.crt and NAME.key in a folder."""
import ssl
import subprocess


def _openssl(folder, *arguments):
    subprocess.run(["openssl", *arguments], cwd=folder, check=True, stderr=subprocess.DEVNULL)


def _make_request(folder, name, *options):
    _openssl(folder, "req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-subj",
             f"/CN={name}", "-keyout", f"{name}.key", *options)


def make_authority(folder, name="ca"):
    _make_request(folder, name, "-x509", "-out", f"{name}.crt")


def make_certificate(folder, name, alternative_name="IP:127.0.0.1", days=2):
    """A certificate that the authority "ca" signs, for the given subjectAltName."""
    (folder / "extensions").write_text(f"subjectAltName={alternative_name}\n")
    _make_request(folder, name, "-out", "request")
    _openssl(folder, "x509", "-req", "-in", "request", "-CA", "ca.crt", "-CAkey", "ca.key", "-days", str(days),
             "-extfile", "extensions", "-out", f"{name}.crt")


def server_context(folder):
    """TLS for a server that is "server"."""
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(folder / "server.crt", folder / "server.key")
    return context
