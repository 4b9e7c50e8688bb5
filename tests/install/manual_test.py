"""The manual pages hold what the headers and the library hold: prototypes, headers, names; their examples run."""
import concurrent.futures
import glob
import os
import pathlib
import re
import subprocess
import tempfile
import unittest

SOURCE = os.environ["VEX_SOURCE"]
FLAGS = os.environ["VEX_FLAGS"].split()  # what a program on the library is compiled and linked with
PAGES = sorted(glob.glob(f"{SOURCE}/man/*.[1-9]"))


def read(path):
    return pathlib.Path(path).read_text(encoding="utf-8")


def compiled(text, language, folder, name):
    """Compiles a program; the compiler's complaints, or its path."""
    source, program = f"{folder}/{name}.{language}", f"{folder}/{name}"
    pathlib.Path(source).write_text(text, encoding="utf-8")
    compiler = ["cc", "-std=gnu11"] if language == "c" else ["c++", "-std=c++17"]
    done = subprocess.run([*compiler, "-Wall", "-Wextra", "-Werror", source, *FLAGS, "-o", program], capture_output=True,
                          text=True, check=False)
    return (done.stderr, program)


def prototypes(page):
    """The declarations of a page's synopsis: .Ft, then .Fn name "argument"..., or .Fo with .Fa lines."""
    page = re.sub(r'\.Fo (\w+)\n((?:\.Fa .*\n)*)\.Fc', lambda m: f".Fn {m[1]} {m[2].replace('.Fa ', '')}".replace("\n", " "),
                  page)
    for result, name, rest in re.findall(r"^\.Ft (.*)\n\.Fn (\w+) (.*)", page, re.MULTILINE):
        arguments = ", ".join(quoted or plain for quoted, plain in re.findall(r'"([^"]*)"|(\S+)', rest))
        yield name, f"{result} {name}({arguments});"


class ManualTest(unittest.TestCase):
    maxDiff = None

    def test_every_page_is_clean_and_what_it_refers_to_is_there(self):
        done = subprocess.run(["mandoc", "-Tlint", "-Wwarning", *PAGES], capture_output=True, text=True, check=False)
        self.assertEqual("", done.stdout + done.stderr)
        own = {os.path.basename(path).replace(".", " ") for path in PAGES}
        overview = set(re.findall(r"\bXr (\w+ 3)", read(f"{SOURCE}/man/libvex.3"))) | {"libvex 3"}
        self.assertEqual({page for page in own if page.endswith("3")}, overview)
        for path in PAGES:
            referred = {page for page in re.findall(r"\bXr (\w+ [1-9])", read(path)) if page.startswith(("vex", "libvex"))}
            self.assertLessEqual(referred, own, path)

    def test_the_pages_name_every_header_and_prototypes_as_they_stand_there(self):
        named = re.findall(r"^\.In (\S+)", "\n".join(map(read, PAGES)), re.MULTILINE)
        headers = {f"vex/{os.path.basename(path)}" for path in glob.glob(f"{SOURCE}/include/vex/*.h")}
        self.assertEqual(headers, set(named))
        exported = set(read(f"{SOURCE}/tests/abi/exported_symbols.txt").split())
        declared = [prototype for path in PAGES for prototype in prototypes(read(path))]
        self.assertEqual(set(), {name for name, _ in declared} - exported)
        # a second declaration of a C function must agree with the header's
        text = '#include <netdb.h>\n#include <vex/vex.h>\nextern "C" {\n' + "\n".join(line for _, line in declared) + "\n}\n"
        with tempfile.TemporaryDirectory() as folder:
            complaints, _ = compiled(text + "int main() {}\n", "cc", folder, "declarations")
        self.assertEqual("", complaints)

    def test_every_example_compiles_and_runs(self):
        def attempt(path):
            example = re.search(r"^\.Sh EXAMPLES\n.*?\.Bd -literal\n(.*?)^\.Ed", read(path), re.MULTILINE | re.DOTALL)
            if example is None:
                return f"{path}: no example"
            text = example[1].replace("\\e", "\\")
            with tempfile.TemporaryDirectory() as folder:
                complaints, program = compiled(text, "cc" if "<c" in text or "::" in text else "c", folder, "example")
                if complaints or "argc" in text:  # what takes arguments needs a world around it
                    return complaints
                done = subprocess.run([program], capture_output=True, text=True, cwd=folder, timeout=30, check=False)
                return "" if done.returncode == 0 else f"{path}: {done}"
        with concurrent.futures.ThreadPoolExecutor(2) as pool:
            pages = [path for path in PAGES if path.endswith("3")]
            for path, problem in zip(pages, pool.map(attempt, pages)):
                with self.subTest(os.path.basename(path)):
                    self.assertEqual("", problem)
