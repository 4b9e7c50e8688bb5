"""Writes a receipt for a file, and seals a copy of it: what receipt.c does and more, from another language.

    python3 receipt.py SETTINGS FILE [KEYFILE SEALED]

Plain functions of the library have C linkage, so ctypes calls them; references are pointers.
KEYFILE is what "vex keygen" makes, and "vex open" opens what was sealed.
"""
import ctypes
import os
import sys

vex = ctypes.CDLL("libvex.so.6", use_errno=True)
INTERFACE_VERSION = b"6.0.0.0"
LOG_STDERR_SEVERE = 0x2000
CIPHER_AES_256_CTR = 3
PATH_SIZE = 4096


def function(name, result, *arguments):
    """A function of the library with its types: without them ctypes would cut pointers and sizes to int."""
    found = getattr(vex, name)
    found.restype, found.argtypes = result, arguments
    return found


text, number = ctypes.c_char_p, ctypes.c_int
log_load = function("vexLogLoadA", number, text, text, text, text, ctypes.c_size_t, text, ctypes.c_void_p)
log_set = function("vexLogSet", number, text, number, number)
get_path = function("InifileGetPathA", number, text, text, text, number, text, text)
ini_error = function("InifileErrorA", None, text, text, text, text, text)
fingerprint = function("SHA256FromFile_r", text, text, text, ctypes.c_size_t)
uid_generate = function("VexUIDGenerate", ctypes.c_void_p, ctypes.c_void_p, ctypes.c_uint)
uid_serialize = function("VexUIDSerialize", ctypes.c_size_t, ctypes.c_void_p, ctypes.c_size_t, ctypes.c_void_p,
                         ctypes.c_bool)
lock_acquire = function("VexLockFileAcquire", number, text, number)
id_write = function("WriteIdToPath", number, text, text, ctypes.c_uint64)
id_open = function("OpenId", number, text, text, ctypes.POINTER(ctypes.c_uint64), ctypes.c_uint64)
id_next = function("NextId", number, text, text, ctypes.POINTER(ctypes.c_uint64), number)
size_text = function("sizetostr", text, text, ctypes.c_size_t, ctypes.c_uint64)
# the key is passed by reference: 32 bytes and a terminator
seal_buffer = function("dcpEncryptDataToBuffer", ctypes.c_long, text, ctypes.c_ubyte, text, ctypes.c_ulong,
                       ctypes.c_void_p, ctypes.c_ulong, ctypes.c_ulong)


class Failed(Exception):
    """The library has logged why."""


def check(good):
    if not good:
        raise Failed


def next_number(path):
    lock = lock_acquire(path + b".lock", -1)  # writers of one counter take turns
    check(lock >= 0)
    try:
        value = ctypes.c_uint64()
        check(os.path.exists(path) or id_write(path, b"receipt", 0) == 0)
        fd = id_open(path, b"receipt", ctypes.byref(value), 0)
        check(fd >= 0)
        try:
            check(id_next(path, b"receipt", ctypes.byref(value), fd) == 0)
        finally:
            os.close(fd)
        return value.value
    finally:
        vex.VexLockFileRelease(lock)


def write_receipt(ini, path):
    buffer = ctypes.create_string_buffer(PATH_SIZE)
    flags = log_load(ini, b"Receipt", b"LogPath", buffer, PATH_SIZE, b"receipt.log", None)
    check(flags >= 0)
    log_set(buffer.value, flags | LOG_STDERR_SEVERE, 0)
    if get_path(b"Receipt", b"Counter", buffer, PATH_SIZE, None, ini) <= 0:
        ini_error(ini, b"Receipt", b"Counter", None, b"the path of an Id file is needed")
        raise Failed
    counter = buffer.value

    digest, uid, uid_text = (ctypes.create_string_buffer(size) for size in (65, 16, 33))
    check(fingerprint(path, digest, len(digest)))
    check(uid_generate(uid, 1))
    check(uid_serialize(uid_text, len(uid_text), uid, False))
    value = next_number(counter)
    size = size_text(ctypes.create_string_buffer(24), 24, os.path.getsize(path))
    print(value, uid_text.value.decode(), size.decode(), digest.value.decode(), os.fsdecode(path))
    vex.InfoA(-1, b"receipt %lu for '%s'", ctypes.c_ulong(value), path)


def seal(path, key_file, sealed):
    with open(key_file, encoding="ascii") as file:
        key = bytes.fromhex(file.read()) + b"\0"
    with open(path, "rb") as file:
        data = file.read()
    out = ctypes.create_string_buffer(len(data) + len(data) // 20 + 101)
    size = seal_buffer(key, CIPHER_AES_256_CTR, data, len(data), out, len(out), 0)
    check(size >= 0)
    with open(sealed, "xb") as file:
        file.write(out.raw[:size])


def main(arguments):
    if len(arguments) not in (2, 4):
        print(__doc__, file=sys.stderr)
        return 2
    vex._VexLibInit(b"receipt.py", INTERFACE_VERSION)
    try:
        write_receipt(*map(os.fsencode, arguments[:2]))
        if len(arguments) == 4:
            seal(*arguments[1:])
        return 0
    except Failed:
        return 1
    finally:
        vex.VexLibDestroy()


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
