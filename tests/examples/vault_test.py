"""vault as somebody meets it whose data is in it: backups, changes, restores, damage, kills, a wrong key, pruning."""
import hashlib
import os
import pathlib
import random
import re
import subprocess
import tempfile
import time

from programs import ProgramTest

VAULT = os.environ["VEX_VAULT"]
CHANGING = ["openat", "write", "pwrite64", "fsync", "fdatasync", "rename", "unlink", "mkdir"]


def contents(tree):
    """What a restore must bring back, as GNU tar sees it, owners, times, modes and links included."""
    tar = subprocess.run(["tar", "--sort=name", "--format=posix", "--pax-option=delete=atime,delete=ctime", "-C", tree, "-c", "."],
                         capture_output=True, check=True).stdout
    listing = subprocess.run(["tar", "-tv", "--full-time"], input=tar, capture_output=True, check=True).stdout
    return listing.decode().splitlines(), hashlib.sha256(tar).hexdigest()


def names(tree):
    return {str(path.relative_to(tree)) for path in pathlib.Path(tree).rglob("*")}


def failing(call, path, which="1+"):
    """Runs a program so that its calls on a file fail: all of them, or the one of a number."""
    return ["strace", "-f", "-qqq", "-o", "/dev/null", "-P", path, "-e", f"inject={call}:error=EIO:when={which}"]


class VaultTest(ProgramTest):
    def setUp(self):
        super().setUp()
        self.vault, self.tree = self.path("v"), self.path("tree")
        self.random = random.Random(7)
        self.vex("init", self.vault, "--chunk-size=4KiB")
        for name, size in {"a": 0, "b/one": 1, "b.c": 4096, "b/deep/er/ü \n": 70000, "big": 9 << 20}.items():
            self.write(name, self.random.randbytes(size))
        self.write("zeros", bytes(3 << 20))
        os.symlink("nowhere", f"{self.tree}/link")
        os.link(f"{self.tree}/b/one", f"{self.tree}/b/same")
        os.mkfifo(f"{self.tree}/pipe", 0o640)
        os.mkdir(f"{self.tree}/read only", 0o555)
        os.chmod(f"{self.tree}/b.c", 0o4711)
        for name, when in {"b": -1, "link": 1234567890123456789, "big": 1}.items():
            os.utime(f"{self.tree}/{name}", ns=(when, when), follow_symlinks=False)

    def path(self, *names):
        return os.path.join(self.dir, *names)

    def write(self, name, content):
        path = os.path.join(self.tree, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as file:
            file.write(content)

    def vex(self, *arguments, prefix=(), **more):
        return self.run_program(*prefix, VAULT, *arguments, **more).decode() + self.error

    def backup(self, **more):
        return re.search(r"snapshot (\w{32})", self.vex("backup", self.vault, self.tree, **more))[1]

    def restored(self, snapshot):
        with tempfile.TemporaryDirectory(dir=self.dir) as place:
            self.vex("restore", self.vault, snapshot, f"{place}/out")
            return contents(f"{place}/out/{self.tree}")

    def files(self):
        return [os.path.join(d, name) for d, _, names in os.walk(self.vault) for name in names if name != "lock"]

    def container_bytes(self):
        return sum(os.path.getsize(name) for name in self.files() if "/containers/" in name)

    def test_both_snapshots_come_back_and_unchanged_data_costs_nothing(self):
        first, before = self.backup(), contents(self.tree)
        stored = self.container_bytes()
        self.backup()
        self.assertEqual(stored, self.container_bytes())
        self.write("b.c", b"changed")
        big = pathlib.Path(self.tree, "big").read_bytes()
        self.write("big", b"inserted " + big)  # all chunks but the first are the same
        self.write("new/file", self.random.randbytes(100000))
        os.unlink(f"{self.tree}/a")
        second, after = self.backup(), contents(self.tree)
        self.assertLess(self.container_bytes() - stored, 200000)
        self.assertEqual(before, self.restored(first))
        self.assertEqual(after, self.restored(second[:12]))
        self.assertEqual(after, self.restored("latest"))
        self.vex("verify", self.vault)
        self.assertIn(second, self.vex("list", self.vault))
        self.assertIn("no snapshot", self.vex("restore", self.vault, "f" * 32, self.path("x"), status=1))
        self.assertIn("is there already", self.vex("restore", self.vault, first, self.tree, status=1))

    def test_files_that_cannot_be_read_are_named_and_the_rest_is_stored(self):
        if os.geteuid() != 0:
            os.chmod(f"{self.tree}/b.c", 0)
            self.assertIn("1 files are not in the backup", self.vex("backup", self.vault, self.tree, status=1))
        self.assertIn("cannot be backed up", self.vex("backup", self.vault, self.path("absent"), status=1))
        time.sleep(3)  # a younger file would be read again in any case
        full = os.path.getsize(f"{self.tree}/big")
        prefix = failing("read", f"{self.tree}/big", 2)
        self.assertIn("big is not in the backup: Input", self.vex("backup", self.vault, self.tree, status=1, prefix=prefix))
        self.assertLess(self.container_bytes(), full)
        self.assertEqual(contents(self.tree), self.restored(self.backup()))  # what was missing is read now
        inside = names(self.tree)
        self.vex("init", self.path("tree", "inner"))
        self.vex("backup", self.path("tree", "inner"), self.tree)  # leaves itself out
        self.vex("restore", self.path("tree", "inner"), "latest", self.path("out"))
        self.assertEqual(inside | {"inner.key", "inner.ini", "inner.log"}, names(self.path("out") + self.tree))

    def test_what_the_disk_refuses_is_never_reported_as_done(self):
        self.write("zeros", bytes(5 << 20))
        self.vex("init", self.path("wide"), "--chunk-size=1MiB")
        self.vex("backup", self.path("wide"), self.tree)  # a chunk of it is as large as a container
        prefix = failing("lseek", self.path("v", "tmp", "index"))
        self.assertIn("cannot be sorted", self.vex("backup", self.vault, self.tree, status=1, prefix=prefix))
        self.backup()
        prefix = failing("close", f"{self.path('out.partial')}{self.tree}/b.c")
        self.assertIn("b.c cannot be written", self.vex("restore", self.vault, "latest", self.path("out"), status=1, prefix=prefix))
        prefix = ["sh", "-c", 'exec "$0" "$@" >/dev/full']
        self.assertIn("answer cannot be written", self.vex("list", self.vault, status=1, prefix=prefix))

    def test_one_damaged_byte_in_any_file_is_found_and_the_file_named(self):
        self.backup()
        for name in self.files():
            size = os.path.getsize(name)
            for offset in {0, size // 3, size - 1}:
                with open(name, "r+b", buffering=0) as file:
                    byte = os.pread(file.fileno(), 1, offset)
                    os.pwrite(file.fileno(), bytes([byte[0] ^ 1]), offset)
                    said = self.vex("verify", self.vault, status=None)
                    self.assertEqual((True, True), (os.path.basename(name) in said, "damaged" in said), (offset, said))
                    os.pwrite(file.fileno(), byte, offset)
        self.vex("verify", self.vault)
        container = next(name for name in self.files() if "/containers/" in name)
        os.truncate(container, 1000)
        self.assertIn("are lost", self.vex("restore", self.vault, "latest", self.path("out"), status=1))
        self.assertTrue(os.path.exists(self.path("out.partial")))
        self.assertIn(f"{container} is missing or damaged", self.vex("backup", self.vault, self.tree, status=1))

    def test_a_kill_at_any_change_of_the_disk_loses_no_earlier_snapshot(self):
        self.write("big", b"small here, so that one container holds a run's chunks")
        os.unlink(f"{self.tree}/zeros")
        first, before = self.backup(), contents(self.tree)
        kills = 0
        for call in CHANGING:
            for number in range(1, 1000):
                self.write("changing", self.random.randbytes(5000))
                strace = ["strace", "-f", "-qqq", "-o", "/dev/null", "-e", f"trace={call}",
                          "-e", f"inject={call}:signal=KILL:when={number}"]
                output = self.vex("backup", self.vault, self.tree, status=None, prefix=strace)
                self.assertTrue("snapshot" in output or "ERROR" not in output, output)
                self.vex("verify", self.vault)
                self.assertIn(first, self.vex("list", self.vault))
                if re.search(r"snapshot \w{32}:", output):
                    break
                kills += 1
        self.assertGreater(kills, 60)
        self.assertEqual(before, self.restored(first))
        os.mkdir(self.path("v", "mine"))  # somebody else's, which stays
        self.backup()
        self.assertIn("forgot", self.vex("prune", self.vault, "--keep=1"))
        self.assertEqual(1, len(re.findall(r"^\w{32} ", self.vex("list", self.vault), re.M)))
        kinds = [os.path.relpath(file, self.vault).split("/")[0] for file in self.files()]
        self.assertEqual({"containers", "index", "sequence", "snapshots", "state"}, set(kinds))
        self.assertLessEqual(len(kinds), 6, kinds)  # nothing is left of the kills
        self.assertTrue(os.path.isdir(self.path("v", "mine")))

    def test_the_wrong_key_and_wrong_commands_get_a_clear_error(self):
        self.backup()
        self.vex("init", self.path("other"))
        self.vex("list", self.vault)
        for key, text in {self.path("other.key"): "wrong key", self.path("none"): "is no key file"}.items():
            for command in (["restore", self.vault, "-k", key, "latest", self.path("out")],
                            ["backup", self.vault, "-k", key, self.tree], ["verify", self.vault, "-k", key]):
                self.assertIn(text, self.vex(*command, status=1))
        self.assertFalse(os.path.exists(self.path("out.partial")))
        self.assertIn("is there already", self.vex("init", self.vault, status=1))
        self.assertIn("no empty directory", self.vex("init", self.tree, status=1))
        self.assertIn("is no vault", self.vex("list", self.tree, status=1))
        self.assertIn("no settings in /none: No such", self.vex("list", self.vault, "--ini=/none", status=2))
        self.assertIn("power of two", self.vex("list", self.vault, "--chunk-size=5000", status=2))
        self.assertIn("usage: vault restore", self.vex("restore", self.vault, status=2))

    def test_pruning_frees_what_nothing_needs_and_packs_the_rest_anew(self):
        self.write("keep", self.random.randbytes(1 << 20))
        self.backup()
        full = self.container_bytes()
        os.unlink(f"{self.tree}/big")
        last, after = self.backup(), contents(self.tree)
        self.vex("prune", self.vault)  # keeps all as long as nobody says how many
        self.assertEqual(full, self.container_bytes())
        self.assertIn("forgot 1 snapshots", self.vex("prune", self.vault, "--keep=1"))
        self.assertLess(self.container_bytes(), full // 3)
        self.vex("verify", self.vault)
        self.assertEqual(after, self.restored(last))
        self.backup()

    def test_two_backups_at_once_wait_for_each_other(self):
        running = [subprocess.Popen([VAULT, "backup", self.vault, self.tree], stdout=subprocess.DEVNULL) for _ in range(3)]
        self.assertEqual([0, 0, 0], [process.wait(60) for process in running])
        self.vex("verify", self.vault)
