"""Drives keygen, seal, open and info of the companion command."""
import json
import os
import pathlib
import random
import signal
import stat
import subprocess
import unittest

from programs import VEX, CommandTest

CIPHERS = ['blowfish', 'aes-256-cfb', 'aes-256-ofb', 'aes-256-ctr']
COMPRESSORS = ['lzo', 'deflate', 'none']
RANDOM = random.Random(1).randbytes(5 << 20)
TEXT = (b'all work and no play makes a dull file ' * 140000)[:5 << 20]
SANITIZED = os.environ.get('VEX_SANITIZED')  # whose memory cannot be bounded


class SealTest(CommandTest):
    def setUp(self):
        super().setUp()
        self.key = self.dir / 'key'
        self.vex('keygen', self.key)

    def seal(self, data, *args):
        (self.dir / 'in').write_bytes(data)
        self.vex('seal', '--key-file', self.key, *args, self.dir / 'in', self.dir / 'sealed')
        return (self.dir / 'sealed').read_bytes()

    def open(self, sealed, *args, status=0):
        """Opens; on failure what was there must stay, and nothing else be left."""
        (self.dir / 'sealed').write_bytes(sealed)
        out = self.dir / 'out'
        out.write_bytes(b'old')
        before = sorted(os.listdir(self.dir))
        self.vex('open', *args, self.dir / 'sealed', out, status=status)
        self.assertEqual(before, sorted(os.listdir(self.dir)))
        if status != 0:
            self.assertEqual(b'old', out.read_bytes())
        return self.error if status else out.read_bytes()

    def info(self, status=0):
        return json.loads(self.vex('info', '--json', self.dir / 'sealed', status=status))

    def test_keygen(self):
        self.assertRegex(self.key.read_text(), r'\A[0-9a-f]{64}\n\Z')
        self.assertEqual(0o600, self.key.stat().st_mode & 0o777)
        before = self.key.read_bytes()
        self.vex('keygen', self.key, status=1)
        self.assertEqual(before, self.key.read_bytes())
        raw = self.dir / 'raw'
        raw.write_bytes(bytes.fromhex(before.decode()))
        self.assertEqual(TEXT, self.open(self.seal(TEXT), '--key-file', raw))
        for bad in [b'', raw.read_bytes() + b'\n', b'g' * 64, before + b'\n', before[:63]]:
            raw.write_bytes(bad)
            self.assertIn('not a key file', self.open(b'', '--key-file', raw, status=1))

    def test_round_trips_tell_their_sizes(self):
        for cipher in CIPHERS + [None]:
            how = ['--cipher', cipher] if cipher else []
            for compress in COMPRESSORS:
                sizes = [0, 1, 131063, 131064, 131065, 131072, 143352] if cipher != 'blowfish' else [7, 131065]
                for data in [RANDOM[:n] for n in sizes] + [TEXT, bytes(5 << 20), RANDOM]:
                    with self.subTest(cipher=cipher, compress=compress, size=len(data)):
                        sealed = self.seal(data, '--compress', compress, *(how or ['--no-encrypt']))
                        self.assertEqual(data, self.open(sealed, *(how and ['--key-file', self.key, *how])))
                        told = self.info()
                        self.assertEqual(('complete', len(data), compress, cipher is not None),
                                         (told['state'], told['total'], told['compression'], told['encrypted']))

    def test_windows_and_levels_at_the_edge_of_the_buffers(self):
        # zeros give the most input per byte of output, which the driver must not run out of
        zeros = bytes((24 << 20) + 5)
        for compress, window, level in [('lzo', 12, 6), ('lzo', 22, 16), ('deflate', 12, 10), ('deflate', 17, 1),
                                        ('deflate', 22, 10), ('none', 12, 0), ('none', 22, 0)]:
            with self.subTest(compress=compress, window=window):
                extra = ['--level', level] if level else []
                for data in [zeros, RANDOM]:
                    sealed = self.seal(data, '--compress', compress, '--window', window, *extra)
                    self.assertEqual(data, self.open(sealed, '--key-file', self.key))

    def test_pipes_that_dribble(self):
        key, data = ('--key-file', self.key), RANDOM[:700001]  # which Python writes by 512 bytes
        self.assertEqual(data, self.vex('open', *key, '-', '-', data=self.vex('seal', *key, '-', '-', data=data)))

    def test_wrong_keys(self):
        other = self.dir / 'other'
        self.vex('keygen', other)
        for cipher in CIPHERS:
            sealed = self.seal(TEXT, '--cipher', cipher)
            self.assertIn('wrong key', self.open(sealed, '--key-file', other, '--cipher', cipher, status=1))
        self.assertIn('--key-file', self.open(sealed, status=1))

    def test_damage(self):
        for args in [['--compress', 'lzo'], ['--compress', 'deflate'], ['--compress', 'none', '--cipher', 'blowfish']]:
            sealed = self.seal(TEXT[:300000], *args)
            how = ['--key-file', self.key] + args[2:]
            for size in [0, 13, 14, 29, 30, 37, len(sealed) // 2, len(sealed) - 20, len(sealed) - 1]:
                with self.subTest(args=args, size=size):
                    self.assertRegex(self.open(sealed[:size], *how, status=1), 'cut short|no sealed file|wrong key')
                    self.assertNotEqual('complete', self.info(status=1)['state'])
            self.assertIn('behind its end', self.open(sealed + b'x', *how, status=1))
            told = self.info(status=1)
            self.assertEqual(('damaged', len(sealed)), (told['state'], told['damage_offset']))
            # the magic, the first block's length, the trailer's total
            for at in [0, 22 if 'blowfish' in args else 30, len(sealed) - 1]:
                flipped = bytearray(sealed)
                flipped[at] ^= 0x80
                self.assertIn('vex: ', self.open(bytes(flipped), *how, status=1))
                if 14 < at < 40:
                    self.assertIn('unknown', self.info(status=1)['cipher'])

    def test_usage(self):
        plain = 'seal --no-encrypt'
        for line in ['seal a b', plain + ' a', plain + ' --cipher x a b', plain + ' --compress zip a b',
                     plain + ' --level 5 a b', plain + ' --window 23 a b', 'open a', 'open --what a b', 'info', 'keygen']:
            self.vex(*line.split(), status=2)
        (self.dir / 'sealed').write_bytes(b'no such format at all')
        self.assertEqual('foreign', self.info(status=1)['state'])

    def test_output_keeps_links_modes_and_owners_and_goes_to_devices(self):
        real, link = self.dir / 'real', self.dir / 'link'
        real.write_bytes(b'old')
        real.chmod(0o640)
        if os.geteuid() == 0:
            os.chown(real, 1234, 1234)
        link.symlink_to('real')
        told = lambda: [os.stat(real)[field] for field in (stat.ST_MODE, stat.ST_UID, stat.ST_GID)]
        before = told()
        self.vex('seal', '--no-encrypt', '-', link, data=TEXT)
        self.assertTrue(link.is_symlink())
        self.assertEqual(before, told())
        self.vex('open', real, '/dev/null')
        self.assertTrue(pathlib.Path('/dev/null').is_char_device())
        self.vex('open', real, real)
        self.assertEqual(TEXT, real.read_bytes())

    def test_a_kill_leaves_the_old_file(self):
        out = self.dir / 'out'
        out.write_bytes(b'old')
        for signum in [signal.SIGTERM, signal.SIGKILL]:
            with subprocess.Popen([VEX, 'seal', '--key-file', self.key, '-', out], stdin=subprocess.PIPE) as process:
                process.stdin.write(RANDOM)  # more than the pipe and the first buffer hold
                process.stdin.flush()
                process.send_signal(signum)
            self.assertEqual(-signum, process.returncode)
            self.assertEqual(b'old', out.read_bytes())
            self.assertEqual(['key', 'out'], sorted(os.listdir(self.dir)))

    @unittest.skipIf(SANITIZED, 'sanitizers need memory of their own')
    def test_memory_stays_bounded(self):
        with open(self.dir / 'in', 'wb') as file:
            file.truncate(200 << 20)
        for args in [['seal', '--window', 22, '--key-file', self.key, self.dir / 'in', self.dir / 'sealed'],
                     ['open', '--key-file', self.key, self.dir / 'sealed', '/dev/null']]:
            _, status, usage = os.wait4(os.spawnl(os.P_NOWAIT, VEX, VEX, *map(str, args)), 0)
            self.assertEqual(0, status)
            self.assertLess(usage.ru_maxrss, 64 << 10)
