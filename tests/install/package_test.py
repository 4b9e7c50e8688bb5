"""The Debian packages: what is in them, that they install and go without a trace, and that programs live on them."""
import glob
import os
import shutil
import subprocess
import tempfile
import unittest

SOURCE, BUILD, VERSION = (os.environ[name] for name in ("VEX_SOURCE", "VEX_BUILD", "VEX_VERSION"))
# a user who is not root becomes one in a namespace: dpkg unpacks with owners
AS_ROOT = [] if os.geteuid() == 0 else ["unshare", "--map-root-user"]
# the maintainer has no mail host on purpose
LINTIAN = ["lintian", "--fail-on", "error,warning", "--allow-root", "--suppress-tags",
           "bogus-mail-host,bogus-mail-host-in-debian-changelog"]
CONTENTS = {  # where the files of a package may be, and some that must
    "libvex6": (("usr/lib/x86_64-linux-gnu/libvex.so.6", "usr/share/doc/libvex6/"),
                ("usr/lib/x86_64-linux-gnu/libvex.so.6", "usr/share/doc/libvex6/copyright")),
    "libvex-dev": (("usr/include/vex/", "usr/lib/x86_64-linux-gnu/libvex.so", "usr/lib/x86_64-linux-gnu/cmake/vex/",
                    "usr/lib/x86_64-linux-gnu/pkgconfig/vex.pc", "usr/share/doc/libvex/", "usr/share/doc/libvex-dev/",
                    "usr/share/man/man3/"),
                   ("usr/include/vex/vex.h", "usr/share/doc/libvex/README.md", "usr/share/doc/libvex/docs/formats/ini.md",
                    "usr/share/doc/libvex/examples/receipt/receipt.py", "usr/share/doc/libvex-dev/copyright",
                    "usr/share/man/man3/vex_log.3.gz", "usr/share/man/man3/InfoA.3.gz")),
    "vex-tools": (("usr/bin/", "usr/share/man/man1/", "usr/share/bash-completion/completions/",
                   "usr/share/zsh/vendor-completions/_", "usr/share/fish/vendor_completions.d/",
                   "usr/share/doc/vex-tools/"),
                  ("usr/bin/vex", "usr/share/man/man1/vex.1.gz", "usr/share/bash-completion/completions/vex",
                   "usr/share/zsh/vendor-completions/_vex", "usr/share/fish/vendor_completions.d/vex.fish")),
}


def run(*command, **more):
    done = subprocess.run(command, capture_output=True, text=True, check=False, timeout=300, **more)
    assert done.returncode == 0, f"{command}: {done.returncode}\n{done.stdout}{done.stderr}"
    return done.stdout


def files(root):
    return sorted(os.path.relpath(os.path.join(at, name), root) for at, folders, names in os.walk(root)
                  for name in folders + names)


class PackageTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.dir = cls.enterClassContext(tempfile.TemporaryDirectory())
        run("cpack", "--config", f"{BUILD}/CPackConfig.cmake", "-B", f"{cls.dir}/packages")
        cls.packages = {os.path.basename(path).split("_")[0]: path for path in glob.glob(f"{cls.dir}/packages/*.deb")}

    def test_each_package_says_what_it_is_and_holds_its_part(self):
        self.assertEqual(set(CONTENTS), set(self.packages))
        run(*LINTIAN, *self.packages.values())
        for name, (places, needed) in CONTENTS.items():
            with self.subTest(name):
                unpacked = f"{self.dir}/{name}"
                run("dpkg-deb", "--raw-extract", self.packages[name], unpacked)
                control = run("dpkg-deb", "--field", self.packages[name])
                for line in (f"Version: {VERSION}", "Maintainer: libvex developers <libvex@localhost>", "Architecture: amd64"):
                    self.assertIn(line + "\n", control)
                run("md5sum", "--check", "--quiet", "DEBIAN/md5sums", cwd=unpacked)
                held = [path for path in files(unpacked) if not path.startswith("DEBIAN")
                        and (os.path.islink(f"{unpacked}/{path}") or not os.path.isdir(f"{unpacked}/{path}"))]
                self.assertEqual([], [path for path in held if not path.startswith(places)])
                self.assertLessEqual(set(needed), set(held))
                if name != "libvex6":
                    self.assertIn(f"Depends: libvex6 (= {VERSION}), ", control)
        self.assertRegex(run("dpkg-deb", "--field", self.packages["libvex6"], "Depends"), "libcurl4 .*libssl3 .*zlib1g ")
        for name, text in (("triggers", "activate-noawait ldconfig\n"), ("shlibs", f"libvex 6 libvex6 (>= {VERSION})\n")):
            with open(f"{self.dir}/libvex6/DEBIAN/{name}", encoding="ascii") as file:
                self.assertEqual(text, file.read())
        self.assertFalse(glob.glob(f"{self.dir}/libvex6/DEBIAN/p*"), "nothing runs as root when the package comes and goes")

    def test_they_install_carry_programs_and_go_without_a_trace(self):
        # a dpkg of its own: what the machine has installed counts for dependencies, and the machine stays as it is
        root, database = f"{self.dir}/root", f"{self.dir}/dpkg"
        for name in (root, f"{database}/info", f"{database}/updates", f"{database}/triggers"):
            os.makedirs(name)
        shutil.copy("/var/lib/dpkg/status", database)

        def dpkg(*arguments):
            # PATH: dpkg looks for the programs that maintainer scripts need
            run(*AS_ROOT, "dpkg", f"--instdir={root}", f"--admindir={database}", f"--log={self.dir}/log", *arguments,
                env={**os.environ, "PATH": os.environ["PATH"] + ":/usr/sbin:/sbin"})
        dpkg("--install", *self.packages.values())
        self.check_programs(f"{root}/usr")
        dpkg("--purge", *self.packages)
        self.assertEqual([], files(root))

    def check_programs(self, usr):
        """The examples build with CMake and pkg-config; one needs no compiler and works with the command."""
        examples, vex = f"{usr}/share/doc/libvex/examples", f"{usr}/bin/vex"
        run(f"{SOURCE}/tests/consumer/run.sh", usr, examples)
        work = f"{self.dir}/work"
        shutil.copytree(f"{examples}/receipt", work)

        def program(*command):
            return run(*command, cwd=work, env={**os.environ, "LD_LIBRARY_PATH": f"{usr}/lib/x86_64-linux-gnu"})

        program(vex, "keygen", "key")
        line = program("python3", "receipt.py", "receipt.ini", vex, "key", "sealed").split()
        self.assertEqual(["1", program(vex, "digest", vex).split()[0], vex], [line[0], *line[3:]])
        self.assertEqual("1\n", program(vex, "id", "show", "receipt.id"))
        program(vex, "open", "--key-file", "key", "sealed", "opened")
        program("cmp", vex, "opened")
