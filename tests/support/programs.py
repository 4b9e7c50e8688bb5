"""What the tests that run programs share."""
import os
import pathlib
import subprocess
import tempfile
import unittest

VEX = os.environ.get("VEX_TOOL")


class ProgramTest(unittest.TestCase):
    """A test with a folder of its own, in which programs run."""
    maxDiff = None

    def setUp(self):
        self.dir = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory())).resolve()

    def run_program(self, *command, status=0, says="", data=b"", **options):
        """Runs a program that must end with the status, None for any, and say a word on standard error; its output."""
        done = subprocess.run([*map(str, command)], input=data, capture_output=True, cwd=self.dir, timeout=120,
                              check=False, **options)
        self.error = done.stderr.decode()
        self.assertEqual(done.returncode if status is None else status, done.returncode, (command, done.stdout, self.error))
        self.assertIn(says, self.error)
        return done.stdout


class CommandTest(ProgramTest):
    def vex(self, *args, status=0, **options):
        """Runs the companion command; a failure must say something, a success nothing."""
        output = self.run_program(VEX, *args, status=status, **options)
        self.assertEqual(status != 0, "vex: " in self.error, self.error)
        return output
