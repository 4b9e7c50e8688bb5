"""Drives the companion command's sort; GNU sort is the oracle."""
import os, random, resource, subprocess
from programs import CommandTest

RANDOM = random.Random(1)


class SortTest(CommandTest):
    def sort(self, data, *args, status=0, **options):
        """Sorts a file onto itself; no temporary file may be left, and a failure must leave what was there."""
        path, temp = self.dir / 'file', self.dir / 'tmp'
        path.write_bytes(data)
        temp.mkdir(exist_ok=True)
        self.vex('sort', '--temp', temp, *args, path, path, status=status, **options)
        self.assertEqual(([], ['file', 'tmp']), (os.listdir(temp), sorted(os.listdir(self.dir))))
        if status:
            self.assertEqual(data, path.read_bytes())
        return self.error if status else path.read_bytes()

    def oracle(self, data, *args):
        return subprocess.run(['sort', *args], input=data, capture_output=True, check=True, env={'LC_ALL': 'C'}).stdout

    def test_lines_as_gnu_sort_does(self):
        words = [RANDOM.randbytes(RANDOM.randrange(40)).replace(b'\n', b'') for _ in range(20000)]
        for data in (b'', b'\n', b'b\n\na', b'\n'.join(RANDOM.choices(words, k=80000)), b'x' * (3 << 20)):
            for args in ((), ('--memory', '1MiB', '--merge', '2'), ('--memory', '1MiB', '--merge', '128')):
                self.assertEqual(self.oracle(data), self.sort(data, *args))
                self.assertEqual(self.oracle(data, '-u'), self.sort(data, *args, '--unique'))
        self.assertEqual(b'a\nb\n', self.vex('sort', '-', '-', data=b'b\na\n'))

    def test_records_by_a_key_inside_them(self):
        # keys of few values, then a counter that shows the order of the input
        data = b''.join(b'%06x-%02d-%08d\n' % (RANDOM.randrange(1 << 24), RANDOM.randrange(50), i) for i in range(60000))
        for args in ((), ('--memory', '1MiB', '--merge', '3')):
            keyed = ('--record', '19', '--key', '7:2', *args)
            self.assertEqual(self.oracle(data, '-s', '-k1.8,1.9'), self.sort(data, *keyed))
            self.assertEqual(self.oracle(data, '-s', '-u', '-k1.8,1.9'), self.sort(data, *keyed, '--unique'))
            self.assertEqual(self.oracle(data), self.sort(data, '--record', '19', *args))
        self.assertIn('ends within a record', self.sort(data + b'x', '--record', '19', status=1))

    def test_wrong_options_and_full_disks_leave_everything_as_it_was(self):
        for args in ('--key 0:1', '--record 8 --key 8:1', '--record 8 --key 0:0', '--record 8 --key 1', '--record 2GiB',
                     '--record 8 --key 1:18446744073709551615', '--memory 1000', '--merge 1', '--merge 129', 'extra'):
            self.assertIn("'vex --help'", self.sort(b'b\na\n', *args.split(), status=2))
        limit = lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (1 << 20, resource.RLIM_INFINITY))
        data = b''.join(b'%d\n' % RANDOM.randrange(1 << 30) for _ in range(200000))
        self.assertIn('make room in', self.sort(data, '--memory', '4MiB', status=1, preexec_fn=limit, restore_signals=False))
