"""A test that leaves a process behind fails, and the process is killed."""

import os
import subprocess
import sys
import unittest

from processes import Process, ProcessTest, processes_below

# Starts a child that keeps running, prints its id, and exits before it.
ORPHAN = "import subprocess; print(subprocess.Popen(['sleep', '1000']).pid, flush=True)"
DEAF = "import signal, time; signal.signal(signal.SIGTERM, signal.SIG_IGN); print(1, flush=True); time.sleep(1000)"


class Leaves(ProcessTest):
    script = None
    found = None

    def runTest(self):
        process = self.watched(Process([sys.executable, "-c", self.script]))
        self.wait_until(lambda: process.output().endswith("\n"), "it does not start")
        type(self).found = sorted(processes_below(os.getpid()))
        self.expect_nothing_left(seconds=0.1)


class LeavesAnOrphan(Leaves):
    script = ORPHAN


class LeavesAProcess(Leaves):
    script = DEAF


class Leftovers(unittest.TestCase):
    def expect_noticed(self, test):
        result = unittest.TestResult()
        unittest.TestSuite([test()]).run(result)
        (_, trace), = result.failures + result.errors
        self.assertIn("left behind: ", trace)
        self.assertEqual(processes_below(os.getpid()), {})
        # None remains as a zombie either.
        with self.assertRaises(ChildProcessError):
            os.waitpid(-1, os.WNOHANG)

    def test_of_which_the_parent_has_exited(self):
        self.expect_noticed(LeavesAnOrphan)

    def test_that_ignore_a_polite_signal(self):
        self.expect_noticed(LeavesAProcess)

    def test_are_not_seen_where_there_are_none(self):
        class LeavesNothing(ProcessTest):
            def runTest(self):
                process = self.watched(Process(["cat"], stdin=subprocess.PIPE))
                process.begin("one line")
                self.wait_until(lambda: process.output() == "one line\n", "it does not answer")
                process.kill()
                self.expect_nothing_left()

        result = unittest.TestResult()
        unittest.TestSuite([LeavesNothing()]).run(result)
        self.assertTrue(result.wasSuccessful(), result.errors + result.failures)


def load_tests(loader, _tests, _pattern):
    """The other tests run those that leave something."""
    return loader.loadTestsFromTestCase(Leftovers)


if __name__ == "__main__":
    unittest.main()
