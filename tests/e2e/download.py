#!/usr/bin/env python3
"""Plays the country file's download server on this machine: geoip-update without a file, over TLS.

usage: download.py VESK-ADMIN, under scripts/with-postgres. Runs in mount and network namespaces of
its own, where the server's name and the system's certificates are the test's; exits with 77 where
namespaces are not allowed, or the database cannot be reached from them.
"""

import contextlib
import datetime
import gzip
import http.server
import os
import ssl
import subprocess
import sys
import threading

HOST = "download.db-ip.com"
SKIPPED = 77


def enter_namespaces():
    """Goes on in namespaces where the loopback device and mounts can be changed."""
    probe = "ip link set lo up && mount -t tmpfs none /mnt && ls /etc/hosts /etc/ssl/certs $PGHOST"
    for options in ([], ["--map-root-user"]):
        unshare = ["unshare", "--mount", "--net", *options]
        if subprocess.run([*unshare, "sh", "-c", probe], capture_output=True).returncode == 0:
            os.environ["IN_NAMESPACES"] = "1"
            os.execvp(unshare[0], unshare + [sys.executable] + sys.argv)
    print("skipped: network and mount namespaces cannot be made here, or there is no /etc/hosts")
    sys.exit(SKIPPED)


if "IN_NAMESPACES" not in os.environ:
    enter_namespaces()

import vesk  # which makes a folder


def make_certificate(name):
    """Signed by itself, for the server's name."""
    subject = ["-subj", f"/CN={HOST} {name}", "-addext", f"subjectAltName=DNS:{HOST}"]
    files = ["-keyout", f"{name}.key", "-out", f"{name}.pem"]
    command = ["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2"]
    subprocess.run(command + subject + files, cwd=vesk.FOLDER, check=True, capture_output=True)


def take_over_the_names():
    (vesk.FOLDER / "hosts").write_text(f"127.0.0.1 {HOST} localhost\n")
    (vesk.FOLDER / "certs").mkdir()
    (vesk.FOLDER / "certs/server.pem").write_text((vesk.FOLDER / "server.pem").read_text())
    subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
    for source, target in (("hosts", "/etc/hosts"), ("certs", "/etc/ssl/certs")):
        subprocess.run(["mount", "--bind", vesk.FOLDER / source, target], check=True)


class Handler(http.server.BaseHTTPRequestHandler):
    def do_GET(self):
        status, headers, body = self.server.answers.get(self.path, (404, {}, b"nothing here"))
        self.send_response(status)
        for key, value in ({"Content-Length": str(len(body))} | headers).items():
            self.send_header(key, value)
        self.end_headers()
        self.wfile.write(body)

    def log_message(self, *_):
        pass


@contextlib.contextmanager
def serving(certificate, answers):
    """Answers on port 443 with status, headers and body by path."""
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(vesk.FOLDER / f"{certificate}.pem", vesk.FOLDER / f"{certificate}.key")
    with http.server.ThreadingHTTPServer(("127.0.0.1", 443), Handler) as server:
        server.answers = answers
        server.socket = context.wrap_socket(server.socket, server_side=True)
        threading.Thread(target=server.serve_forever, daemon=True).start()
        yield
        server.shutdown()


for name in ("server", "stranger"):
    make_certificate(name)
take_over_the_names()
database = vesk.Database("download")
path = f"/free/dbip-country-lite-{datetime.date.today():%Y-%m}.csv.gz"
ranges = (b"10.0.%d.%d,10.9.9.9,DE\n" % (i // 256, i % 256) for i in range(3000))
archive = gzip.compress(b"".join(ranges))
success = "loaded 3000 country ranges (IP data by DB-IP, CC BY 4.0)\n"
refusal = "that does not look like a DB-IP country file\n"

for name, answer, certificate, expected in (
    ("404", (404, {}, archive), "server", "download failed: Error transferring"),
    ("truncated archive", (200, {}, archive[:-9]), "server", refusal),
    ("untrusted certificate", (200, {}, archive), "stranger", "download failed: "),
    ("redirect", (302, {"Location": "/moved.csv.gz"}, b""), "server", success),
    ("200", (200, {}, archive), "server", success),
):
    database.sql("TRUNCATE vesk.geo_country")
    database.sql("INSERT INTO vesk.geo_country VALUES ('1.0.0.0', '1.1.1.1', 'AU')")
    with serving(certificate, {path: answer, "/moved.csv.gz": (200, {}, archive)}):
        run = database.admin("geoip-update")
    status, stored = (0, "3000") if expected == success else (1, "1")
    assert run.stdout.startswith(expected) and run.stdout.count("\n") == 1, (name, run)
    assert run.returncode == status and run.stderr == "", (name, run)
    assert database.sql("SELECT count(*) FROM vesk.geo_country") == stored, name
