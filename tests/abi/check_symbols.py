"""usage: check_symbols.py LIBRARY LIST HEADERS   holds what the shared library exports against the list and the headers

A new name is added to the list on purpose: it must be declared with VEX_API, and stays for as long as the major version.
"""
import glob
import re
import subprocess
import sys

library, list_path, headers = sys.argv[1:]
problems = []


def output(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout


def read(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


def expect_none(problem, names):
    problems.extend(f"{problem}: {name}" for name in sorted(names))


symbols = [line.split()[1:] for line in output("nm", "-D", "--defined-only", library).splitlines()]
symbols = [(kind, *name.split("@", 1)) for kind, name in symbols if kind != "A"]
exported, listed = {name for _, name, _ in symbols}, set(read(list_path).split())
expect_none("exported and not listed", exported - listed)
expect_none("listed and not exported", listed - exported)
expect_none("not of version VEX_6", {name for _, name, version in symbols if version != "@VEX_6"})
expect_none("unique, so that the library can never be unloaded", {name for kind, name, _ in symbols if kind == "u"})
if "Library soname: [libvex.so.6]" not in output("readelf", "-d", library):
    problems.append("the soname is not libvex.so.6")

# comments and macros' definitions aside; a class is marked as a whole
text = "\n".join(map(read, glob.glob(f"{headers}/*.h")))
text = re.sub(r"^#(?:.*\\\n)*.*", "", re.sub(r"/\*.*?\*/|//[^\n]*", "", text, flags=re.S), flags=re.M)
classes = set(re.findall(r"\b(?:class|struct)\s+VEX_API\s+(\w+)", text))
functions = set(re.findall(r"\bVEX_API\b(?!\s+\w+\s*(?:\{|:[^:]))[^;{}()]*?(\w+)\s*(?:\[\d*\]\s*)?(?=[;(])", text))
plain = output("c++filt", *sorted(exported)).splitlines()
paths = [re.sub(r"^(?:typeinfo|typeinfo name|vtable) for ", "", name).split("(")[0].split("::") for name in plain]
expect_none("exported and not declared with VEX_API",
            {name for name, path in zip(plain, paths) if not (classes | functions) & set(path)})
expect_none("declared with VEX_API and not exported", (classes | functions) - {part for path in paths for part in path})
print("\n".join(problems) or "exported symbols: as listed and as declared")
sys.exit(bool(problems))
