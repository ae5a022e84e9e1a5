"""A program that needs /proc reports its absence. AddressSanitizer needs /proc as well."""

import os
import unittest

from programs_support import Program, ProgramsTest


class MissingProc(ProgramsTest):
    def test_is_reported_in_one_line(self):
        without = ["unshare", "--map-root-user", "--mount", "sh", "-c", 'mount -t tmpfs none /proc && exec "$@"', "sh"]
        for program, arguments, code in (("TAMB_HOST", ["run", str(self.faulty_engine_workflow())], 4),
                                         ("QOR_ENGINE_SERVICE", ["--endpoint", f"ipc://{self.folder / 'none'}"], 1)):
            started = self.watched(Program([*without, os.environ[program], *arguments], self.folder, self._environment))
            self.expect_exit(started, code)
            self.assertRegex(started.errors(), r"^(tamb-host|qor-engine-service): .*/proc/self/exe cannot be read.*\n$")


if __name__ == "__main__":
    unittest.main()
