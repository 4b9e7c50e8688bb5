"""What the companion command promises: its output, its exit statuses, and what a failure leaves on disk."""
import concurrent.futures
import hashlib
import http.server
import json
import os
import signal
import socket
import subprocess
import threading
import termios
import time
import unittest.mock

from programs import VEX, CommandTest


class ToolTest(CommandTest):
    def vex(self, *args, **options):
        return super().vex(*args, **options).decode()

    def write(self, name, data):
        (self.dir / name).write_bytes(data)

    def read(self, name):
        return (self.dir / name).read_bytes()

    def test_wrong_command_lines_exit_with_2_and_point_to_the_help(self):
        for line in ("", "nonsense", "digest", "digest --nonsense x", "uid x", "uid -n x", "size", "id show", "id step x",
                     "id write x -1", "id write x 18446744073709551616", "ini get x s", "ini set x s k", "ini delete x",
                     "net", "net listen 65536", "walk", "walk --type x .", "uid --ini", "http nonsense url"):
            args = line.split()
            with self.subTest(args):
                self.assertEqual("", self.vex(*args, status=2, says="'vex --help'"))
        self.assertEqual([], os.listdir(self.dir))

    def test_common_switches_exit_with_1_and_the_help_names_every_command(self):
        for switch, text in (("--version", b"This is vex, Version "), ("--help", b"Usage: vex [--ini FILE] COMMAND"),
                             ("--features", b"libvex Version"), ("--copyrights", b"Copyright")):
            self.assertIn(text, self.run_program(VEX, "uid", switch, status=1))

    def test_os_tells_what_python_knows(self):
        one = {min(os.sched_getaffinity(0))}
        facts = json.loads(self.vex("os", "--json", preexec_fn=lambda: os.sched_setaffinity(0, one)))
        system = os.uname()
        self.assertEqual([system.sysname, system.release, 1, os.cpu_count()],
                         [facts["system"], facts["release"], facts["processors"]["allowed"], facts["processors"]["online"]])
        self.assertGreater(facts["memory"]["total"], facts["memory"]["available"])
        self.assertIn("Deployment   : ", self.vex("os"))

    def test_http_moves_files_and_tells_of_failures(self):
        seen = []

        class Handler(http.server.BaseHTTPRequestHandler):
            def handle_any(self):
                sent = self.rfile.read(int(self.headers.get("Content-Length", 0)))
                seen.append(" ".join(filter(None, (self.command, self.headers.get("X-Test"), sent.decode()))))
                self.send_response({"/absent": 404, "/moved": 302}.get(self.path, 200))
                body = b"" if self.command == "HEAD" else b"body"
                self.send_header("Content-Length", str(len(body)))
                self.end_headers()
                self.wfile.write(body)
            do_GET = do_PUT = do_POST = do_HEAD = do_DELETE = handle_any

            def log_message(self, *_):
                pass

        with http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler) as server:
            threading.Thread(target=server.serve_forever, daemon=True).start()
            url = f"http://127.0.0.1:{server.server_port}/"
            self.write("up", b"uploaded")
            self.assertEqual("body", self.vex("http", "get", url))
            self.vex("http", "get", "--header", "X-Test: 1", url, "down")
            self.assertEqual(b"body", self.read("down"))
            for name, status in (("absent", 404), ("moved", 302)):
                self.vex("http", "get", url + name, "down", status=1, says=f"status {status}")
            self.assertEqual(b"body", self.read("down"))
            self.vex("http", "put", url, "up")
            self.vex("http", "put", url, "-", data=b"of unknown size", status=1)
            self.assertEqual("body", self.vex("http", "post", url, data=b"posted"))
            self.assertTrue(self.vex("http", "head", url).startswith("200\n"))
            self.vex("http", "delete", url)
            server.shutdown()
        self.assertEqual(["GET", "GET 1", "GET", "GET", "PUT uploaded", "POST posted", "HEAD", "DELETE"], seen)
        self.vex("http", "get", "--retries", "0", url, status=1)

    def test_net_talks_with_other_programs_and_with_itself(self):
        with subprocess.Popen([VEX, "net", "listen", "0", "127.0.0.1"], stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL, text=True) as listener:
            self.addCleanup(listener.kill)
            port = listener.stdout.readline().split("listening on port ")[1].strip()
            with socket.create_connection(("127.0.0.1", int(port)), timeout=5) as other, other.makefile("rw") as lines:
                lines.write("one line\n")
                lines.flush()
                self.assertEqual("one line", lines.readline().strip())
                own = other.getsockname()[1]
            self.assertEqual(f"127.0.0.1 port {own}\n", listener.stdout.readline())
            self.assertEqual("hello there\n", self.vex("net", "connect", "127.0.0.1", port, "hello there"))
            listener.kill()
        self.vex("net", "connect", "127.0.0.1", port, status=1, says="Connection refused")
        for line, said in (("resolve 0:0::1", "::1\n"), ("local 127.0.0.1", "local\n"),
                           ("range 10.0.0.0/8,192.168.1.0/24 192.168.1.7", "inside\n")):
            self.assertEqual(said, self.vex("net", *line.split()))
        self.vex("net", "range", "10.0.0.0/8", "11.0.0.1", status=1)

    def test_registry_and_cloud_keep_their_values(self):
        for name, value in (("name", "value"), ("also", "x y")):
            self.vex("registry", "set", "db", name, value)
            self.assertEqual(value + "\n", self.vex("registry", "get", "db", name))
        self.assertEqual("also = x y\nname = value\n", self.vex("registry", "list", "db"))
        self.write("junk", b"no database" * 1000)
        self.vex("registry", "list", "junk", status=1, says="'junk' is damaged")
        for database in ("db", "absent"):
            self.vex("registry", "get", database, "x", status=1)
        self.write("cloud.json", b'{"settings": {"enabled": false, "StoragePath": "/s", "CacheSizeGB": 1, "MaxFileSizeMB": 2}}')
        self.write("registry", f"[CloudConfig]\nConfigFilePath={self.dir}/cloud.json\n".encode())
        with unittest.mock.patch.dict(os.environ, ZQREGISTRY=f"{self.dir}/registry"):
            self.assertEqual("changed\n", self.vex("cloud", "enable"))
            self.assertEqual("as it was\n", self.vex("cloud", "enable"))
            self.assertEqual("changed\n", self.vex("cloud", "cache-size", "7"))
            self.assertEqual({"file": f"{self.dir}/cloud.json", "enabled": True, "storage_path": "/s",
                              "cache_size_gb": 7, "max_file_size_mb": 2}, json.loads(self.vex("cloud", "show")))
            os.remove(self.dir / "cloud.json")
            self.vex("cloud", "disable", status=1)

    def test_digests_agree_with_the_usual_tools_and_their_lists_with_the_usual_checkers(self):
        names = ["empty", "large", "back\\slash", "new\nline"]
        contents = [b"", bytes(range(256)) * 2000, b"b", b"n"]
        for name, content in zip(names, contents):
            self.write(name, content)
        listing = self.vex("digest", "--md5", *names)
        self.assertEqual(self.run_program("md5sum", *names).decode(), listing)
        if "sha512_256" in hashlib.algorithms_available:
            for name, content in zip(names, contents):
                expected = hashlib.new("sha512_256", content).hexdigest()
                self.assertEqual({"file": name, "algorithm": "sha512-256", "digest": expected},
                                 json.loads(self.vex("digest", "--json", name)))
                self.assertEqual(expected + "  -\n", self.vex("digest", "-", data=content))
        both = self.vex("digest", *names) + listing
        self.assertEqual(8, self.vex("digest", "--check=-", data=both.encode()).count(": OK\n"))

    def test_check_tells_changed_missing_and_unreadable_entries(self):
        for name in ("a", "b", "c"):
            self.write(name, name.encode())
        listing = self.vex("digest", "a", "b", "c")
        self.write("list", listing.upper().replace("  A", "  a").replace("  B", " *b").replace("  C", "  c").encode())
        self.write("b", b"changed")
        os.remove(self.dir / "c")
        self.assertEqual("a: OK\nb: FAILED\nc: FAILED open or read\n",
                         self.vex("digest", "--check", "list", status=1, says="1 of 3 files differ"))
        self.assertEqual("a: OK\n", self.vex("digest", "--check", "list", "a"))
        self.assertEqual({"file": "b", "result": "FAILED"},
                         json.loads(self.vex("digest", "--json", "--check", "list", "b", status=1)))
        self.vex("digest", "--check", "list", "a", "elsewhere", status=1)
        for broken in (b"", b"00  a\n", listing[:64].encode() + b" a\n", listing.splitlines()[0].encode() + b"\nx\n"):
            self.write("broken", broken)
            self.vex("digest", "--check", "broken", status=1)
        self.assertEqual(1, self.vex("digest", "a", "missing", ".", status=1).count("\n"))

    def test_the_index_counts_lines_and_duplicates(self):
        digests = [hashlib.sha512(str(n % 900).encode()).hexdigest() for n in range(1000)]
        self.write("list", "".join(f"{d}  name\n" for d in digests).encode())
        found = json.loads(self.vex("index", "--json", "list", "list"))
        self.assertEqual((2000, 900, 1100), (found["lines"], found["records"], found["duplicates"]))
        self.assertGreater(found["memory"], 900 * 80)
        self.assertLess(found["depth"], 12)
        self.assertIn("duplicates  1\n", self.vex("index", "--files", "list", "list"))
        self.write("bad", b"a" * 32 + b"  x\nzz  y\n")
        self.vex("index", "bad", status=1, says="line 2 of 'bad'")
        self.vex("index", "--bits", "30", "list", status=2)

    def test_identifiers_are_valid_and_differ(self):
        uids = self.vex("uid", "-n", "100").split() + [json.loads(self.vex("uid", "--json"))["uid"]]
        self.assertEqual(101, len(set(uids)))
        self.assertRegex("".join(uids), "^(01[0-9a-f]{30}|[0-9a-f]{12}4[0-9a-f]{3}[89ab][0-9a-f]{15})+$")

    def test_counters_step_durably_and_concurrent_steps_never_share_a_number(self):
        self.vex("id", "next", "counter", status=1)
        self.assertEqual([], os.listdir(self.dir))
        self.vex("id", "write", "counter", "41")
        running = [subprocess.Popen([VEX, "id", "next", "counter"], cwd=self.dir, stdout=subprocess.PIPE)
                   for _ in range(12)]
        self.assertEqual(list(range(42, 54)), sorted(int(each.communicate()[0]) for each in running))
        self.assertEqual("53\n", self.vex("id", "show", "counter"))
        good = self.read("counter")
        self.write("counter", bytes([good[0] ^ 1]) + good[1:])
        self.vex("id", "next", "counter", status=1)
        self.vex("id", "write", "counter", "18446744073709551615")
        self.vex("id", "next", "counter", status=1)
        self.write("other", b"a file of another kind")
        self.vex("id", "write", "other", "1", status=1)
        self.assertEqual(b"a file of another kind", self.read("other"))

    def test_configuration_is_read_and_changed_on_disk(self):
        self.write("x.ini", b"; kept\n[One]\nkey=old\nkey=new\n\n[Two]\nlong=" + b"v" * 9000 + b"\n")
        self.vex("ini", "set", "x.ini", "one", "Other", "a b")
        self.assertIn(b"; kept", self.read("x.ini"))
        self.assertEqual("[One]\nkey=new\nOther=a b\n[Two]\nlong=" + "v" * 9000 + "\n",
                         self.vex("ini", "list", "x.ini"))
        self.assertEqual("new\nold\n", self.vex("ini", "list", "x.ini", "one", "key"))
        self.assertEqual("new\n", self.vex("ini", "get", "x.ini", "ONE", "KEY"))
        self.assertEqual("", self.vex("ini", "get", "x.ini", "one", "absent", status=1))
        for status in (0, 1):
            self.vex("ini", "delete", "x.ini", "two", status=status)
        self.vex("ini", "delete", "x.ini", "one", "key")
        self.assertEqual("[One]\nOther=a b\n", self.vex("ini", "list", "x.ini"))
        for line in ("get missing.ini s k", "list missing.ini", "delete missing.ini s"):
            self.vex("ini", *line.split(), status=1)
        with concurrent.futures.ThreadPoolExecutor(8) as pool:
            list(pool.map(lambda i: self.vex("ini", "set", "x.ini", "many", f"k{i}", "v"), range(32)))
        self.assertEqual(32, len(self.vex("ini", "list", "x.ini", "many").splitlines()))
        self.write("broken.ini", b"[s]\nno entry\nk=v\n")
        self.vex("ini", "set", "broken.ini", "s", "k", "w", status=1)
        self.assertEqual(b"[s]\nno entry\nk=v\n", self.read("broken.ini"))

    def test_passwords_come_back_and_old_keys_do_not_open_new_texts(self):
        for args in (["encrypt", "x"], ["encode", "--key-file", "keys", "x"], ["encode", "x", "y"], ["hash"]):
            self.vex("passwd", *args, status=2)
        self.vex("passwd-store", "init", "keys")
        self.vex("passwd-store", "init", "keys", status=1)
        key = ("--key-file", "keys")
        for text in ("", "secret", "p\u00e4ss w\\ord "):
            for there, back, options in (("encode", "decode", ()), ("encrypt", "decrypt", key)):
                kept = self.vex("passwd", there, *options, data=text.encode() + b"\n").strip()
                self.assertNotEqual(text or "-", kept)
                self.assertEqual(text + "\n", self.vex("passwd", back, *options, kept))
        old = self.vex("passwd", "encrypt", *key, "secret").strip()
        self.vex("passwd-store", "rotate", "keys")
        self.assertEqual("", self.vex("passwd", "decrypt", *key, old, status=1))
        self.assertNotIn("secret", self.error)
        for args, data in ((["encrypt", *key, "s" * 496], b""), (["decode", "?"], b""), (["encode"], b"a\0b"),
                           (["encode"], b"x" * 5000), (["encrypt", "--key-file", "absent", "x"], b"")):
            self.assertEqual("", self.vex("passwd", *args, status=1, data=data))

    def test_an_interrupted_prompt_gives_the_terminal_its_echo_back(self):
        master, slave = os.openpty()
        with subprocess.Popen([VEX, "passwd", "encode"], stdin=slave, stdout=slave, stderr=subprocess.PIPE) as process:
            self.assertEqual(b"Text: ", process.stderr.read(6))
            while termios.tcgetattr(slave)[3] & termios.ECHO:
                time.sleep(0.001)
            process.send_signal(signal.SIGTERM)
        self.assertEqual(-signal.SIGTERM, process.returncode)
        self.assertTrue(termios.tcgetattr(slave)[3] & termios.ECHO)
        os.close(master)
        os.close(slave)

    def test_walk_lists_what_is_wanted_and_tells_what_it_cannot_read(self):
        os.makedirs(self.dir / "t/d/e")
        self.write("t/big\n", b"x" * 2000)
        self.write("t/d/\udcff.log", b"x")
        os.symlink("..", self.dir / "t/d/up")
        for args, paths in (([], ["t", "t/big\n", "t/d", "t/d/e", "t/d/up", "t/d/\udcff.log"]), (["--depth", "0"], ["t"]),
                            (["--type", "dl"], ["t", "t/d", "t/d/e", "t/d/up"]), (["--name", "*.log"], ["t/d/\udcff.log"]),
                            (["--larger", "1K", "--delay", "1", "--same-device"], ["t/big\n"])):
            listed = super().vex("walk", "--sorted", "--null", *args, "t")
            self.assertEqual(paths, os.fsdecode(listed).split("\0")[:-1])
        facts = [json.loads(line) for line in self.vex("walk", "--json", "--stat", "--follow", "t").splitlines()]
        self.assertEqual([2000], [fact["size"] for fact in facts if fact["path"] == "t/big\n"])
        self.assertEqual(["t/d/up"], [fact["path"] for fact in facts if fact["type"] == "cycle"])
        self.assertRegex(self.vex("walk", "--stat", "--name", "big*", "t"), r"^-rw.{7} +2000 \d{4}-\d\d-\d\dT[\d:]{8}Z t/big\n")
        self.vex("walk", "missing", status=1)

    def test_sizes_show_bytes_and_both_texts(self):
        self.assertEqual("10737418240  10GiB  10 GiB\n1500  1500  1.46 KiB\n", self.vex("size", "10GiB", "1500"))
        self.assertEqual({"bytes": 10000000000, "exact": "10GB", "rounded": "9.31 GiB"},
                         json.loads(self.vex("size", "--json", "10G")))
        for text in ("", "K", "1x", "99999999999999999999", "19000P"):
            self.assertEqual("5  5  5 bytes\n", self.vex("size", text, "5", status=1))

    def test_the_log_goes_where_the_configuration_says_and_each_failure_is_shown_once(self):
        self.write("vex.ini", b"[vex]\nLogging=long\nLogPath=" + str(self.dir).encode() + b"/log\n")
        for line in ("--ini vex.ini digest missing", "digest --ini=vex.ini missing"):
            self.vex(*line.split(), status=1)
            self.assertEqual(1, self.error.count("\n"), self.error)
        self.assertEqual(2, self.read("log/vex.log").count(b"'missing' (No such file or directory)"))
        self.write("bad.ini", b"[vex]\nLogging=nonsense\n")
        for ini in ("absent.ini", "bad.ini"):
            self.vex("--ini", ini, "uid", status=1)

    def test_output_that_is_not_written_is_a_failure(self):
        self.run_program("sh", "-c", '"$0" uid >/dev/full', VEX, status=1, says="vex: ")
