"""The registry of engines, as users of the programs see it."""

import json
import os
import pathlib
import unittest

from programs_support import TEST_ENGINES, ProgramsTest, wait_until

OWN_ENGINES = TEST_ENGINES.parent / "engines.d"


class Registry(ProgramsTest):
    def registry(self, name, **files):
        """A folder of registrations, by their names without ".json"."""
        folder = self.folder / name
        folder.mkdir(parents=True)
        for file, content in files.items():
            text = content if isinstance(content, str) else json.dumps(content)
            (folder / f"{file}.json").write_text(text)
        return folder

    def printed(self, *arguments, code=0):
        """The output and the errors of tamb-host."""
        host = self.start("TAMB_HOST", *arguments)
        self.expect_exit(host, code)
        return host.output(), host.errors()

    def test_lists_its_engines(self):
        output, errors = self.printed("engines")
        self.assertRegex(output, r"^media  \S.*\n$")
        self.assertEqual(errors, "")
        output, _ = self.printed("engines", "--engines", TEST_ENGINES)
        self.assertEqual([line.split()[0] for line in output.splitlines()], ["media", "test"])

    def test_lists_its_engines_as_json(self):
        output, _ = self.printed("engines", "--json", f"--engines={TEST_ENGINES}")
        listed = json.loads(output)
        self.assertEqual(listed["problems"], [])
        self.assertEqual([engine["name"] for engine in listed["engines"]], ["media", "test"])
        for engine in listed["engines"]:
            self.assertTrue(os.path.isfile(engine["library"]), engine)
            self.assertEqual(json.loads(pathlib.Path(engine["file"]).read_text())["name"], engine["name"])

    def test_reports_bad_files_with_their_places_and_offers_the_others(self):
        folder = self.registry("bad", broken='{\n  "name": oops\n}', gone={"name": "gone", "library": "gone.so"})
        output, errors = self.printed("engines", "--engines", folder)
        self.assertRegex(output, "^media ")
        self.assertEqual(len(errors.splitlines()), 2, errors)
        self.assertIn(f"tamb-host: {folder}/broken.json:2:11: invalid JSON", errors)
        self.assertIn(f"tamb-host: {folder}/gone.json:1:29: ", errors)
        output, errors = self.printed("engines", "--json", "--engines", folder)
        self.assertEqual(errors, "")
        self.assertEqual(len(json.loads(output)["problems"]), 2)
        # The user is told wherever the engine is looked up.
        workflow = self.file("workflow.json", {"engine": {"engine": "gone"}})
        _, endpoint = self.service("--engines", folder)
        for place in (["--local", "--engines", folder], ["--engines", folder], ["--service", endpoint]):
            host = self.host(workflow, *place)
            self.expect_exit(host, 4)
            self.assertIn('"gone"', host.errors())
            self.assertIn(f"{folder}/gone.json:1:29: ", host.errors())

    def test_is_reported_on_by_a_service_that_starts(self):
        folder = self.registry("bad", broken="oops")
        service, _ = self.service("--engines", folder)
        wait_until(lambda: f"{folder}/broken.json:1:1: " in service.errors(), service.everything)

    def test_begins_with_the_folders_asked_for_then_with_the_users(self):
        library = json.loads((OWN_ENGINES / "media.json").read_text())["library"]
        media = {"name": "media", "library": str((OWN_ENGINES / library).resolve())}
        user = self.registry("data/tamb/engines.d", own={**media, "summary": "the user's"})
        self.assertEqual(self.printed("engines")[0], "media  the user's\n")
        asked = self.registry("asked", own={**media, "summary": "asked for"})
        self.assertEqual(self.printed("engines", "--engines", asked)[0], "media  asked for\n")
        self.assertEqual(self.printed("engines", "--engines", user, "--engines", asked)[0], "media  the user's\n")

    def test_needs_the_folders_that_are_asked_for(self):
        _, errors = self.printed("engines", "--engines", self.folder / "nowhere", code=2)
        self.assertRegex(errors, r"^tamb-host: --engines: .*nowhere.*; see --help\n$")

    def test_describes_an_engine(self):
        output, errors = self.printed("engine", "media")
        self.assertEqual(errors, "")
        for text in ("Name                  media", "input               : ", "location, required",
                     'one of "skip", "fail", default: "skip"', "FilterCommand       : ", "target: UTF8String",
                     "Progress            : ", "speed: Double", "libtamb_engine_media.so\n",
                     f"Registered by:\n  {OWN_ENGINES}/media.json\n"):
            self.assertIn(text, output)

    def test_describes_an_engine_as_json(self):
        engine = json.loads(self.printed("engine", "test", "--json", "--engines", TEST_ENGINES)[0])
        self.assertEqual(engine["file"], f"{TEST_ENGINES}/test.json")
        manual = engine["manual"]
        self.assertEqual([key["name"] for key in manual["keys"]], ["behaviour", "when", "notifications", "prints",
                                                                 "startsThread", "leavesProcess"])
        self.assertEqual(manual["keys"][1]["default"], "run")
        self.assertEqual([command["name"] for command in manual["commands"]], ["Fault"])
        self.assertIn("Tick", [notification["line"] for notification in manual["notifications"]])

    def test_has_no_engine_that_it_does_not_list(self):
        output, errors = self.printed("engine", "warp", code=4)
        self.assertEqual(output, "")
        self.assertEqual(errors, 'tamb-host: unknown engine "warp"; expected one of "media"\n')

    def test_names_a_library_that_cannot_be_loaded(self):
        library = pathlib.Path(os.environ["TAMB_MULTIPROCESS"]).parent / "libqor_utils.so"
        folder = self.registry("bad", fake={"name": "fake", "library": str(library)})
        _, errors = self.printed("engine", "fake", "--engines", folder, code=4)
        self.assertRegex(errors, r'^tamb-host: cannot load the engine library ".*": it is not an engine library: .*\n$')
        workflow = self.file("workflow.json", {"engine": {"engine": "fake"}})
        for place in ([], ["--local"]):
            host = self.host(workflow, "--engines", folder, *place)
            self.expect_exit(host, 4)
            self.assertIn("it is not an engine library", host.errors())

    def test_survives_a_library_that_dies_while_it_is_loaded(self):
        folder = self.registry("bad", dying={"name": "dying", "library": os.environ["DYING_LIBRARY"]})
        host = self.host(self.file("workflow.json", {"engine": {"engine": "dying"}}), "--engines", folder)
        self.expect_exit(host, 4)
        self.assertRegex(host.errors(), r"tamb-host: cannot start the engine: engine process \d+ died: signal 6 ")


if __name__ == "__main__":
    unittest.main()
