"""What the tests of the companion command share. VEX_TOOL is its path."""
import os
import pathlib
import subprocess
import tempfile
import unittest

VEX = os.environ["VEX_TOOL"]


class CommandTest(unittest.TestCase):
    def setUp(self):
        self.dir = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))

    def vex(self, *args, status=0, says="", data=b"", **options):
        """Runs the command in the test's folder; a failure must say something, a success nothing."""
        done = subprocess.run([VEX, *map(str, args)], input=data, capture_output=True, cwd=self.dir, timeout=120,
                              check=False, **options)
        self.assertEqual((status, status != 0), (done.returncode, b"vex: " in done.stderr), (args, done.stderr))
        self.error = done.stderr.decode()
        self.assertIn(says, self.error)
        return done.stdout
