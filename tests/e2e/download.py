#!/usr/bin/env python3
"""Plays the country file's download server on this machine: geoip-update without a file, over TLS.

usage: download.py VESK-ADMIN, under scripts/with-postgres. Runs in mount and network namespaces of its
own, where the server's name and the system's certificates are the test's; exits with 77 where
namespaces are not allowed.
"""

import datetime
import gzip
import http.server
import os
import pathlib
import ssl
import subprocess
import sys
import tempfile
import threading

HOST = "download.db-ip.com"
SKIPPED = 77


def enter_namespaces():
    """Goes on in namespaces where the loopback device and mounts can be changed."""
    probe = "ip link set lo up && mount -t tmpfs none /mnt && test -e /etc/hosts -a -d /etc/ssl/certs"
    for options in ([], ["--map-root-user"]):
        unshare = ["unshare", "--mount", "--net", *options]
        if subprocess.run([*unshare, "sh", "-c", probe], capture_output=True).returncode == 0:
            os.environ["IN_NAMESPACES"] = "1"
            os.execvp(unshare[0], unshare + [sys.executable] + sys.argv)
    print("skipped: network and mount namespaces cannot be made here, or there is no /etc/hosts")
    sys.exit(SKIPPED)


def openssl(folder, *arguments):
    subprocess.run(["openssl", *arguments], cwd=folder, check=True, capture_output=True)


def make_certificates(folder):
    """ca.pem signs server.pem; stranger.pem is signed by nobody that the system trusts."""
    (folder / "names").write_text(f"subjectAltName=DNS:{HOST}\n")
    for name in ("ca", "stranger"):
        openssl(folder, "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj", f"/CN={HOST} {name}",
                "-addext", f"subjectAltName=DNS:{HOST}", "-keyout", f"{name}.key", "-out", f"{name}.pem")
    openssl(folder, "req", "-newkey", "rsa:2048", "-nodes", "-subj", f"/CN={HOST}", "-keyout", "server.key", "-out", "server.csr")
    openssl(folder, "x509", "-req", "-in", "server.csr", "-CA", "ca.pem", "-CAkey", "ca.key", "-CAcreateserial",
            "-days", "2", "-extfile", "names", "-out", "server.pem")


def take_over_the_names(folder):
    (folder / "hosts").write_text(f"127.0.0.1 {HOST} localhost\n")
    (folder / "certs").mkdir()
    (folder / "certs" / "ca.pem").write_text((folder / "ca.pem").read_text())
    subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
    for source, target in (("hosts", "/etc/hosts"), ("certs", "/etc/ssl/certs")):
        subprocess.run(["mount", "--bind", folder / source, target], check=True)


class Server:
    """Answers on port 443 with what `answers` holds by path: status, headers and body."""

    def __init__(self, folder, name, answers):
        self.requests = []
        server = self

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_GET(self):
                server.requests.append(self.path)
                status, headers, body = answers.get(self.path, (404, {}, b"nothing here"))
                self.send_response(status)
                for key, value in headers.items():
                    self.send_header(key, value)
                self.send_header("Content-Length", str(len(body)))
                self.end_headers()
                self.wfile.write(body)

            def log_message(self, *_):
                pass

        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(folder / f"{name}.pem", folder / f"{name}.key")
        self.http = http.server.ThreadingHTTPServer(("127.0.0.1", 443), Handler)
        self.http.socket = context.wrap_socket(self.http.socket, server_side=True)

    def __enter__(self):
        threading.Thread(target=self.http.serve_forever, daemon=True).start()
        return self

    def __exit__(self, *_):
        self.http.shutdown()
        self.http.server_close()


def main(folder):
    program = sys.argv[1]
    make_certificates(folder)
    take_over_the_names(folder)
    config = folder / "vesk.ini"
    config.write_text(f"[database]\nhost={os.environ['PGHOST']}\nname=postgres\nuser={os.environ['PGUSER']}\n")

    def sql(statement):
        return subprocess.run(["psql", "-XAtc", statement], check=True, capture_output=True, text=True).stdout.strip()

    def admin(*arguments):
        return subprocess.run([program, "-c", config, *arguments], capture_output=True, text=True)

    assert admin("migrate").returncode == 0
    sql("INSERT INTO vesk.geo_country VALUES ('1.0.0.0', '1.0.0.255', 'AU')")

    path = f"/free/dbip-country-lite-{datetime.date.today():%Y-%m}.csv.gz"
    csv = "".join(f"10.{i // 256}.{i % 256}.0,10.{i // 256}.{i % 256}.255,DE\n" for i in range(3000))
    archive = gzip.compress(csv.encode())
    refusal = "that does not look like a DB-IP country file\n"

    def check(name, answer, expected, status=1, count="1", certificate="server"):
        """The program's output and what is stored, with `answer` in the place of the file."""
        with Server(folder, certificate, {path: answer, "/moved.csv.gz": (200, {}, archive)}) as server:
            run = admin("geoip-update")
        assert run.stdout.startswith(expected) and run.stdout.count("\n") == 1, (name, run)
        assert run.returncode == status and run.stderr == "", (name, run)
        assert sql("SELECT count(*) FROM vesk.geo_country") == count, name
        print("ok:", name)
        return server.requests

    check("404", (404, {}, archive), "download failed: Error transferring")
    check("truncated archive", (200, {}, archive[:-9]), refusal)
    check("other content", (200, {}, gzip.compress(b"a,b,c\n" * 2000)), refusal)
    check("redirect to plain HTTP", (302, {"Location": f"http://{HOST}/x"}, b""), "download failed: ")
    check("untrusted certificate", (200, {}, archive), "download failed: ", certificate="stranger")
    run = admin("geoip-update")
    assert (run.returncode, run.stdout) == (1, "download failed: Connection refused\n"), run

    success = "loaded 3000 country ranges (IP data by DB-IP, CC BY 4.0)\n"
    assert check("redirect", (302, {"Location": "/moved.csv.gz"}, b""), success, 0, "3000") == [path, "/moved.csv.gz"]
    sql("TRUNCATE vesk.geo_country")
    assert check("200", (200, {}, archive), success, 0, "3000") == [path]
    assert sql("SELECT value FROM vesk.settings WHERE key = 'geoip_month'") == f"{datetime.date.today():%Y-%m}"


if "IN_NAMESPACES" not in os.environ:
    enter_namespaces()
with tempfile.TemporaryDirectory() as name:
    main(pathlib.Path(name))
