"""The examples of the families, run as their users run them; each result is checked by another program's or Python's."""
import base64
import binascii
import functools
import hashlib
import http.server
import json
import os
import sqlite3
import struct
import subprocess
import threading
import urllib.parse

from programs import ProgramTest

BIN = os.environ["VEX_EXAMPLES"]
WORDS = "to be or not to be that is the question be that as it may\n" * 40 + "é ü ÿ\n"


class FamiliesTest(ProgramTest):
    def run_one(self, family, *args, status=0, text=b""):
        return self.run_program(f"{BIN}/example_{family}", *args, status=status, data=text)

    def test_usage_and_common_switches(self):
        for family in "log text io config identity fs crypto os net clients".split():
            self.run_one(family, *(["--no-such-option"] if family == "config" else []), status=2)
        self.assertIn(b"Usage:", self.run_one("frame", "--help", status=1))

    def test_log_keeps_levels_and_rotates(self):
        lines = ["all is well", "ERROR: disk on fire", "warning: 100%n hot"] + [f"line {i}" for i in range(200)]
        self.run_one("log", "a.log", "2KiB", 7, text="\n".join(lines).encode())
        files = sorted(self.dir.glob("a.log*"), key=lambda p: (p.name == "a.log", p.name))
        self.assertGreater(len(files), 2)
        logged = "".join(p.read_text() for p in files).splitlines()
        self.assertEqual(lines, [next((e for e in lines if l.endswith(e)), None) for l in logged if "rotat" not in l])
        self.assertTrue(any("ERR: -1: ERROR: disk on fire" in l for l in logged))

    def test_text_forms(self):
        texts = ["", "a b/c?&=%", "Grüße ÿ"]
        for form, oracle in (("base64", lambda b: base64.b64encode(b).decode()),
                             ("hex", lambda b: binascii.hexlify(b).decode()),
                             ("url", lambda b: urllib.parse.quote(b, safe=""))):
            self.assertEqual([oracle(t.encode()) for t in texts], self.run_one("text", form, *texts).decode().split("\n")[:-1])
        self.assertEqual("Grüße ÿ\n".encode("latin1"), self.run_one("text", "latin1", "Grüße ÿ"))
        self.run_one("text", "latin1", "€", status=1)

    def test_io_drops_a_torn_record(self):
        for text in ("one", "", "drei"):
            self.run_one("io", "journal", text)
        journal = self.dir / "journal"
        whole = b"".join(struct.pack(">I", len(t)) + t for t in (b"one", b"", b"drei"))
        self.assertEqual(whole, journal.read_bytes())
        journal.write_bytes(whole + struct.pack(">I", 50) + b"torn")
        self.run_one("io", "journal", "after")
        self.assertEqual(b"one\n\ndrei\nafter\n", self.run_one("io", "journal"))
        self.assertEqual(whole + struct.pack(">I", 5) + b"after", journal.read_bytes())

    def test_frame_compares_versions(self):
        for status, version, least in ((0, "19.2", "19.1"), (1, "9", "10"), (0, "1.2.3", "1.2.3"), (0, "2.10", "2.9")):
            self.run_one("frame", version, least, "record", status=status)
        self.assertEqual("good\nold\ngood\ngood\n", (self.dir / "record").read_text())

    def test_config_layers_and_stores(self):
        ini = self.dir / "a.ini"
        ini.write_text("# kept\n[Service]\nName = file\nLoad = 12.5%\n[Other]\nx = 1\n")
        self.assertEqual(b"name demo\ncache 67108864\nload 0\nverbose 0\n", self.run_one("config"))
        self.assertEqual(b"name file\ncache 1024\nload 12.5\nverbose 1\n",
                         self.run_one("config", "-v", "--cache=1KiB", "--ini", ini, "--save"))
        self.assertEqual("# kept\n[Service]\nName=file\nLoad=12.5%\nCache=1024\n[Other]\nx=1\n", ini.read_text())
        ini.write_text("[Service]\nLoad = high\n")
        self.run_one("config", "--ini", ini, status=2)

    def test_identity_finds_repeats(self):
        contents = {"a": b"x" * 100000, "b": b"", "c": b"x" * 100000, "d": b"y"}
        for name, content in contents.items():
            (self.dir / name).write_bytes(content)
        for number in (1, 2):
            head, *lines = self.run_one("identity", "counter", *contents).decode().splitlines()
            self.assertRegex(head, rf"^report {number} 01[0-9a-f]{{30}}$|^report {number} [0-9a-f]{{12}}4[0-9a-f]{{19}}$")
            digest = {n: hashlib.new("sha512_256", c).hexdigest() for n, c in contents.items()}
            self.assertEqual([f"{digest[n]} {n}" + (" = a" if n == "c" else "") for n in contents], lines)
        self.run_one("identity", "counter", "a", "missing", status=1)

    def test_fs_mirrors(self):
        source = self.dir / "source"
        (source / "deep/er").mkdir(parents=True)
        (source / "deep/er/file").write_bytes(b"content")
        (source / "empty").touch(0o640)
        (source / "big").write_bytes(os.urandom(300000))
        self.assertEqual(b"3 files, 3 copied, 300007 bytes\n", self.run_one("fs", "source/", "mirror"))
        (source / "empty").write_bytes(b"no more")
        self.assertEqual(b"3 files, 1 copied, 7 bytes\n", self.run_one("fs", "source", "mirror"))
        self.run_program("diff", "-r", source, "mirror")
        self.run_one("fs", "missing", "mirror", status=1)

    def test_containers_count(self):
        self.assertEqual(b"120 be\n80 that\n80 to\n40 as\n40 is\n", self.run_one("containers", 5, text=WORDS.encode()))

    def test_crypto_seals(self):
        for data in (b"", WORDS.encode() * 2000, bytes(5 << 20) + os.urandom(3 << 20)):
            sealed = self.run_one("crypto", "seal", "key", text=data)
            self.assertEqual(data, self.run_one("crypto", "open", "key", text=sealed))
        self.run_one("crypto", "open", "key", text=sealed[:-1], status=1)

    def test_os_runs_one_job_at_a_time(self):
        self.assertEqual(b"", self.run_one("os", "lock", 20, "/bin/echo", "fine"))
        self.assertEqual(b"bad\n", self.run_one("os", "lock", 20, "/bin/sh", "-c", "echo bad; exit 3", status=3))
        self.run_one("os", "lock", 1, "/bin/sleep", "30", status=124)
        self.run_one("os", "lock", 20, "/no/such/program", status=127)
        # the inner one meets the lock of the outer one
        self.run_one("os", "lock", 20, f"{BIN}/example_os", "lock", "20", "/bin/true", status=75)

    def test_net_answers_whom_it_permits(self):
        for networks, status in (("127.0.0.0/8", 0), ("10.1", 1)):
            with subprocess.Popen([f"{BIN}/example_net", "serve", networks], stdout=subprocess.PIPE,
                                  stderr=subprocess.PIPE) as server:
                port = server.stdout.readline().split()[1].decode()
                answer = self.run_one("net", "ask", "127.0.0.1", port, "hello", status=status)
                self.assertEqual(b"5\n" if status == 0 else b"", answer)
                self.assertEqual((0, b""), (server.wait(20), server.stderr.read() if status == 0 else b""))
        self.run_one("net", "serve", "300.1", status=2)

    def test_clients_tell_what_is_new(self):
        files = functools.partial(http.server.SimpleHTTPRequestHandler, directory=self.dir)
        with http.server.ThreadingHTTPServer(("127.0.0.1", 0), files) as server:
            threading.Thread(target=server.serve_forever, daemon=True).start()
            self.addCleanup(server.shutdown)
            url = f"http://127.0.0.1:{server.server_port}/news"
            for version, word in (("1.0", b"new"), ("1.0", b"same"), ("2.0", b"new")):
                (self.dir / "news").write_text(json.dumps({"release": {"version": version}}))
                self.assertEqual(word + b" " + version.encode() + b"\n",
                                 self.run_one("clients", url, "/release/version", "news.db"))
            with sqlite3.connect(self.dir / "news.db") as database:
                self.assertEqual([("/release/version", "2.0")], database.execute("SELECT * FROM registry").fetchall())
            self.run_one("clients", url, "/no/such/member", "news.db", status=1)
            self.run_one("clients", url + "x", "/release/version", "news.db", status=1)
