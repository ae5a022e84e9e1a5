"""The libraries that the message sockets load: a peer of an engine needs the sockets, but not the framework."""

import os
import pathlib
import subprocess
import unittest


def loaded_by(library):
    """The file names of all libraries that the loader loads with this one, directly or indirectly."""
    output = subprocess.run(["ldd", library], check=True, capture_output=True, text=True).stdout
    return {pathlib.Path(line.split()[0]).name for line in output.splitlines() if line.strip()}


class TheSockets(unittest.TestCase):
    def test_need_no_framework(self):
        libraries = os.environ["LIBRARIES"].split(":")
        self.assertEqual(len(libraries), 2)
        for library in libraries:
            with self.subTest(library=pathlib.Path(library).name):
                loaded = loaded_by(library)
                self.assertTrue({name for name in loaded if name.startswith("libprotobuf")}, loaded)
                self.assertNotIn(os.environ["FRAMEWORK"], loaded)


if __name__ == "__main__":
    unittest.main()
