#!/usr/bin/env python3
"""Measures examples/vault against pipes of standard tools on the same data, warm, in one run.

usage: vault_bench.py VAULT [WORKDIR]   (VAULT: build/release/bin/vault; needs lzop and openssl, 10 GB of room)

Prints the rates of the first backup, of a second one over unchanged data and of a restore, each beside its peer, and
the peak memory. The data is real: headers, documentation, compilers and libraries of the machine, 1 GiB.
"""
import os
import shutil
import statistics
import subprocess
import sys
import time

SOURCES = ["/usr/include", "/usr/share/doc", "/usr/lib/gcc", "/usr/lib/python3", "/usr/share/perl",
           "/usr/lib/x86_64-linux-gnu", "/usr/bin", "/usr/share"]
SIZE = 1 << 30
ROUNDS = 3


def collect(target):
    """Copies about SIZE bytes of files; returns bytes and files."""
    total = count = 0
    for source in SOURCES:
        for directory, _, names in os.walk(source):
            for name in names:
                path = os.path.join(directory, name)
                if os.path.islink(path) or not os.path.isfile(path) or os.path.getsize(path) > 64 << 20:
                    continue
                place = target + path
                if os.path.exists(place):
                    continue
                os.makedirs(os.path.dirname(place), exist_ok=True)
                shutil.copy2(path, place)
                total, count = total + os.path.getsize(place), count + 1
                if total >= SIZE:
                    return total, count
    return total, count


def run(command, shell=False):
    """Seconds and peak kilobytes of a command."""
    os.sync()
    start = time.monotonic()
    process = subprocess.Popen(command, shell=shell, stdout=subprocess.DEVNULL, executable="/bin/bash" if shell else None)
    _, status, usage = os.wait4(process.pid, 0)
    if status != 0:
        sys.exit(f"{command} failed with {status}")
    return time.monotonic() - start, usage.ru_maxrss


def main():
    vault = os.path.abspath(sys.argv[1])
    work = os.path.abspath(sys.argv[2] if len(sys.argv) > 2 else "/tmp/vault-bench")
    shutil.rmtree(work, ignore_errors=True)
    source, store = f"{work}/source", f"{work}/v"
    size, count = collect(source)
    megabytes = size / 1e6
    subprocess.run(f"tar -C {work} -cf - source | cat >/dev/null", shell=True, check=True)  # warm
    key = "00" * 32
    seal = f"set -o pipefail; tar -C {work} -cf - source | lzop | openssl enc -aes-256-ctr -K {key} -iv {key[:32]} > {work}/peer"
    rows = {"first backup": [], "tar|lzop|openssl": [], "second backup": [], "restore": [], "openssl|lzop -d|tar": []}
    memory = 0
    for turn in range(ROUNDS):
        # what was restored stays until the end: deleting it would slow down whoever comes next
        unsealed, restored = f"{work}/unsealed{turn}", f"{work}/restored{turn}"
        unseal = (f"set -o pipefail; mkdir {unsealed}; openssl enc -d -aes-256-ctr -K {key} -iv {key[:32]} < {work}/peer | "
                  f"lzop -d | tar -C {unsealed} -xf -")
        for path in (store, store + ".ini", store + ".key", store + ".log"):
            shutil.rmtree(path, ignore_errors=True) if os.path.isdir(path) else os.path.exists(path) and os.unlink(path)
        run([vault, "init", store])
        rows["tar|lzop|openssl"].append(run(seal, shell=True)[0])
        for row in ("first backup", "second backup"):
            seconds, kilobytes = run([vault, "backup", store, source])
            rows[row].append(seconds)
            memory = max(memory, kilobytes)
        rows["openssl|lzop -d|tar"].append(run(unseal, shell=True)[0])
        seconds, kilobytes = run([vault, "restore", store, "latest", restored])
        rows["restore"].append(seconds)
        memory = max(memory, kilobytes)
    rate = {name: megabytes / statistics.median(seconds) for name, seconds in rows.items()}
    stored = sum(os.path.getsize(os.path.join(d, n)) for d, _, names in os.walk(store) for n in names)
    output = subprocess.run([vault, "verify", store], capture_output=True, text=True, check=True).stdout
    chunks = int(output.split()[0])
    print(f"{count} files, {megabytes:.0f} MB; stored {stored / 1e6:.0f} MB, the pipe's file {os.path.getsize(work + '/peer') / 1e6:.0f} MB")
    for name, value in rate.items():
        print(f"{name:20} {value:8.1f} MB/s   ({', '.join(f'{s:.2f} s' for s in rows[name])})")
    print(f"first backup / pipe   {rate['first backup'] / rate['tar|lzop|openssl']:.2f}  (at least 0.8)")
    print(f"second / first        {rate['second backup'] / rate['first backup']:.2f}  (at least 5)")
    print(f"restore / pipe        {rate['restore'] / rate['openssl|lzop -d|tar']:.2f}  (at least 0.8)")
    print(f"memory                {memory / 1024:.1f} MiB  (at most {64 + 96 * chunks / 2**20:.1f}, for {chunks} chunks)")
    shutil.rmtree(work)


if __name__ == "__main__":
    main()
