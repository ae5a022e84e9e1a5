"""Times that the documents promise, measured by the tests that use them.

Each time has two bounds. The generous one holds on a machine that has other work, and every run checks it. The promised
one holds where the machine is idle: every run prints what it measured beside it, and a run with PROMISED_TIMES=1 checks
it, with as many attempts as ATTEMPTS, for the best of them counts. Such a run first waits until the machine is idle, and
is skipped, with SKIPPED as the exit code, where it does not become so.
"""

import os
import sys
import time
import unittest

CHECKED = os.environ.get("PROMISED_TIMES") == "1"
ATTEMPTS = 3
SKIPPED = 77
# The share of the processors that others may use, and how long a run waits until they use less.
IDLE_SHARE = 0.15
IDLE_WITHIN = 60


class Bound(float):
    """The bound that is always checked, in seconds, and the promised time. Adding a number delays both."""

    def __new__(cls, seconds, promised):
        bound = super().__new__(cls, seconds)
        bound.promised = promised
        return bound

    def __add__(self, seconds):
        return Bound(float(self) + seconds, self.promised + seconds)

    __radd__ = __add__


class MissedPromise(AssertionError):
    pass


def busy_share(seconds=1):
    """The share of the processors' time that others use."""
    def times():
        with open("/proc/stat") as stat_file:
            values = list(map(int, stat_file.readline().split()[1:9]))
        # A processor that waits for a disk is idle, too.
        return sum(values), values[3] + values[4]

    total, idle = times()
    # Excludes the measurement itself.
    time.sleep(seconds)
    total_then, idle_then = times()
    return 1 - (idle_then - idle) / max(1, total_then - total)


def wait_until_idle():
    """Whether the machine becomes idle in time."""
    deadline = time.monotonic() + IDLE_WITHIN
    while (share := busy_share()) > IDLE_SHARE:
        if time.monotonic() > deadline:
            print(f"others use {share:.0%} of the processors: no promised time can be checked", file=sys.stderr)
            return False
    return True


class PromisesTest(unittest.TestCase):
    """A test that measures promised times."""

    def expect_within(self, bound, what, seconds):
        """Checks that an event which took that many seconds is in time."""
        promised = getattr(bound, "promised", None)
        if promised is not None:
            print(f"measured: {what}: {seconds:.3f} s, promised: {promised:g} s", flush=True)
        self.assertLess(seconds, bound, what)
        if CHECKED and promised is not None and seconds > promised:
            raise MissedPromise(f"{what}: {seconds:.3f} s, although {promised:g} s are promised")

    def run(self, result=None):
        if not CHECKED or result is None:
            return super().run(result)
        for _ in range(ATTEMPTS - 1):
            if not wait_until_idle():
                result.startTest(self)
                result.addSkip(self, "the machine is not idle")
                result.stopTest(self)
                return result
            attempt = unittest.TestResult()
            super().run(attempt)
            missed = [trace for _, trace in attempt.failures if "MissedPromise: " in trace]
            if not missed or len(missed) < len(attempt.failures) + len(attempt.errors):
                break
            print(f"again: {missed[-1].splitlines()[-1]}", flush=True)
        else:
            return super().run(result)
        return self._hand_over(attempt, result)

    def _hand_over(self, attempt, result):
        """The result of the attempt is the result of the test."""
        result.startTest(self)
        for problems in ("failures", "errors"):
            getattr(result, problems).extend(getattr(attempt, problems))
        for _, reason in attempt.skipped:
            result.addSkip(self, reason)
        if attempt.wasSuccessful() and not attempt.skipped:
            result.addSuccess(self)
        result.stopTest(self)
        return result


def main(**arguments):
    """Runs the tests of the program; exits with a skip code if all tests were skipped."""
    program = unittest.main(exit=False, **arguments)
    result = program.result
    if CHECKED and result.wasSuccessful() and len(result.skipped) == result.testsRun:
        sys.exit(SKIPPED)
    sys.exit(not result.wasSuccessful())


if __name__ == "__main__":
    # Tests of other modules, by their names.
    main(module=None, verbosity=2)
