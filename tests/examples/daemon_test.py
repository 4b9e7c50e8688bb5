"""counterd as an operator meets it: started, asked, reloaded, killed, started again, stopped."""
import contextlib
import os
import pwd
import signal
import socket
import subprocess
import time

from programs import ProgramTest

COUNTERD = os.environ["VEX_COUNTERD"]


class DaemonTest(ProgramTest):
    def setUp(self):
        super().setUp()
        self.root = os.geteuid() == 0
        os.chmod(self.dir, 0o755)
        if self.root:
            os.chown(self.dir, pwd.getpwnam("nobody").pw_uid, -1)
        self.configure("ticket")
        self.addCleanup(self.kill)

    def path(self, name):
        return str(self.dir / name)

    def configure(self, label, **more):
        values = {"Socket": self.path("socket"), "Counter": self.path("counter"), "PidFile": self.path("pid"),
                  "User": "nobody" if self.root else "", "Label": label, **more}
        lines = "".join(f"{key} = {value}\n" for key, value in values.items())
        (self.dir / "ini").write_text(f"[Daemon]\n{lines}[Logging]\nLogging = verbose\nLogPath = {self.dir}\n")

    def start(self, status=0, *options):
        self.run_program(COUNTERD, "--ini", "ini", *options, status=status)
        return self.error

    def pid(self):
        return int((self.dir / "pid").read_text())

    def kill(self):
        with contextlib.suppress(FileNotFoundError, ProcessLookupError):
            os.kill(self.pid(), signal.SIGKILL)

    def ask(self, question):
        with socket.socket(socket.AF_UNIX) as client:
            client.connect(self.path("socket"))
            client.sendall(question.encode() + b"\n")
            return client.makefile().read().rstrip("\n")

    def soon(self, condition):
        deadline = time.monotonic() + 10
        while not condition() and time.monotonic() < deadline:
            time.sleep(0.02)
        self.assertTrue(condition())

    def test_it_serves_reloads_survives_a_kill_and_stops_cleanly(self):
        self.start()
        first = self.pid()
        if self.root:
            self.assertEqual(pwd.getpwnam("nobody").pw_uid, os.stat(f"/proc/{first}").st_uid)
        self.assertEqual(["ticket 1", "ticket 2", "answered 2"], [self.ask(q) for q in ("next", "next", "status")])
        self.assertIn("error: ask for", self.ask("nonsense"))
        self.assertIn(f"already running with pid {first}", self.start(1))
        self.configure("number")
        os.kill(first, signal.SIGHUP)
        self.soon(lambda: self.ask("next").startswith("number"))
        os.rename(self.path("ini"), self.path("away"))
        os.kill(first, signal.SIGHUP)
        self.assertIn("number", self.ask("next"), "a reload that fails changes nothing")
        os.rename(self.path("away"), self.path("ini"))
        before = int(self.ask("next").split()[1])
        os.kill(first, signal.SIGKILL)
        self.soon(lambda: not os.path.exists(f"/proc/{first}"))
        self.start()
        self.assertEqual(f"number {before + 1}", self.ask("next"))
        os.kill(self.pid(), signal.SIGTERM)
        self.soon(lambda: not os.path.exists(self.path("pid")))
        self.assertFalse(os.path.exists(self.path("socket")))
        text = (self.dir / "counterd.log").read_text()
        self.assertRegex(text, "(?s)serving on.*settings read again.*cannot read.*serving on.*stopped")

    def test_without_standard_descriptors_the_pid_file_stays_locked(self):
        for status in (0, 1):
            closed = ["sh", "-c", 'exec "$0" --ini ini <&- >&- 2>&-', COUNTERD]
            self.assertEqual(status, subprocess.run(closed, cwd=self.dir, timeout=20, check=False).returncode)

    def test_what_keeps_it_from_serving_reaches_the_starter(self):
        for key in ("Counter", "PidFile", "User"):
            self.configure("x", **{key: self.path("no/such")})
            self.assertNotEqual("", self.start(1), key)
        os.remove(self.path("ini"))
        self.assertIn("cannot read", self.start(1))
        self.start(2, "--nonsense")

    def test_in_the_foreground_a_service_manager_hears_of_it(self):
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as manager:
            manager.bind(self.path("notify"))
            os.chmod(self.path("notify"), 0o777)
            manager.settimeout(10)
            with subprocess.Popen([COUNTERD, "--foreground", "--ini", self.path("ini")],
                                  env={**os.environ, "NOTIFY_SOCKET": self.path("notify")}) as process:
                self.assertEqual(f"READY=1\nMAINPID={process.pid}\n", manager.recv(100).decode())
                process.send_signal(signal.SIGINT)
                self.assertEqual("STOPPING=1\n", manager.recv(100).decode())
                self.assertEqual(0, process.wait(10))
