"""One service serves many hosts, at once and one after another."""

import os
import signal
import unittest

import zmq

from programs_support import CORES, ENGINE, SUPERVISOR, ProgramsTest, clip, cores_of_threads, processes_below, wait_until


class OneService(ProgramsTest):
    def test_runs_eight_engines_of_eight_hosts_at_once(self):
        service, endpoint = self.service()
        # They pause, so that all of them run until they are stopped.
        hosts = [self.host("--input", clip(), "--loudness", "--audio-filter", f"volume={0.5 ** number}",
                           "--at", 2.5, "Pause", "--service", endpoint) for number in range(8)]
        wait_until(lambda: all(host.lines().count("CommandDone") == 2 or host.has_ended() for host in hosts),
                   lambda: "\n".join(host.everything() for host in hosts), 60)
        names = list(processes_below(service.pid).values())
        self.assertEqual((names.count(SUPERVISOR), names.count(ENGINE)), (8, 8))
        for host in hosts:
            host.interrupt()
        for number, host in enumerate(hosts):
            self.expect_exit(host, 130)
            # Each receives only its own engine's notifications: half the volume is 6 dB less.
            done = [n["values"]["command"] for n in host.notifications() if n["line"] == "CommandDone"]
            self.assertEqual(done, ["Resume", "Pause"])
            self.assertEqual(host.lines().count("Started"), 1)
            momentary = next(n["values"]["momentary"] for n in host.notifications() if n["line"] == "Loudness")
            if number == 0:
                first = momentary
            self.assertAlmostEqual(momentary, first - 6.02 * number, delta=0.3)
        wait_until(lambda: not processes_below(service.pid), "engines are left")

    @unittest.skipIf(len(CORES) < 2, "there is one core only")
    def test_gives_each_engine_that_of_its_cores_which_the_fewest_have(self):
        first, second = sorted(CORES)[-2:]
        service, endpoint = self.service("--engine-cores", f"{first},{second}")
        for engines in (1, 2, 3):
            self.running_host("--service", endpoint)
            of_engines = [cores_of_threads(engine, "ZMQbg")[0] for engine in processes_below(service.pid, ENGINE)]
            self.assertEqual(len(of_engines), engines)
            self.assertTrue(all(cores in ({first}, {second}) for cores in of_engines), of_engines)
            self.assertLessEqual(abs(of_engines.count({first}) - of_engines.count({second})), 1)

    def test_refuses_to_serve_with_cores_that_it_cannot_use(self):
        service = self.start("QOR_ENGINE_SERVICE", "--endpoint", f"ipc://{self.folder / 'none'}",
                             "--engine-cores", f"{min(CORES)},1000000")
        self.expect_exit(service, 1)
        self.assertIn("--engine-cores: core 1000000 cannot be used: expected one of ", service.errors())

    def service_with_a_start_that_hangs(self, *arguments):
        """A service, its endpoint, and a host whose engine program never becomes ready: that of engine 99."""
        program = self.folder / "engine"
        program.write_text(f"""#!/bin/sh
case " $* " in *" --engine-id=99 "*) trap 'exit 1' TERM; touch hanging; while :; do sleep 0.05; done;; esac
exec '{os.environ["TAMB_ENGINE"]}' "$@"
""")
        program.chmod(0o755)
        service, endpoint = self.service("--engine-program", program, *arguments)
        workflow = self.file("hanging.json", {"engineId": 99, "engine": {"engine": "test"}})
        host = self.host(workflow, "--service", endpoint)
        wait_until((self.folder / "hanging").exists, "the engine's program is not started")
        return service, endpoint, host

    def test_starts_others_while_one_start_hangs(self):
        _, endpoint, hanging = self.service_with_a_start_that_hangs()
        workflow = self.faulty_engine_workflow(notifications=1)
        hosts = [self.host(workflow, "--service", endpoint) for _ in range(10)]
        for host in hosts:
            host.wait_for_notification("Tick")
        # Not timed: all of them have their engines while the first one is still waiting for its answer.
        self.assertFalse(hanging.has_ended(), hanging.everything())
        self.assertNotIn("cannot start", hanging.errors())
        for host in hosts:
            host.interrupt()
        for host in hosts:
            self.expect_exit(host, 130)
        # The start that hangs is given up after 25 s.
        self.expect_exit(hanging, 4, 60)
        self.assertIn("its process did not report within 25 s", hanging.errors())

    def test_counts_starts_that_are_under_way(self):
        service, endpoint, hanging = self.service_with_a_start_that_hangs("--maximum-engines", 1)
        refused = self.host(self.faulty_engine_workflow(), "--service", endpoint)
        self.expect_exit(refused, 4)
        self.assertIn("too many engines: 0 are running and 1 are starting, and the limit is 1", refused.errors())
        self.assertFalse(hanging.has_ended())
        # A waiting host gets a reply, and the start is ended.
        service.signal(signal.SIGTERM)
        self.expect_exit(service, 0)
        self.expect_exit(hanging, 4)
        self.assertIn("the service is shutting down", hanging.errors())

    def test_serves_on_when_a_host_is_killed_whose_engine_is_being_started(self):
        service, endpoint, hanging = self.service_with_a_start_that_hangs()
        hanging.signal(signal.SIGKILL)
        hanging.wait()
        self.expect_exit(self.host("--input", clip(), "--service", endpoint), 0)
        service.signal(signal.SIGTERM)
        self.expect_exit(service, 0)
        self.assertIn("Cannot answer a submission: ", service.errors())

    def test_starts_engines_that_serve_their_host_and_no_other_reader(self):
        service, endpoint = self.service()
        host = self.running_host("--service", endpoint)
        for channel in ("status", "notification"):
            stranger = zmq.Context.instance().socket(zmq.SUB)
            self.addCleanup(stranger.close, linger=0)
            stranger.subscribe(b"")
            stranger.connect(f"ipc://{next(self.temporary.glob('*/' + channel))}")
            service.wait_for_errors(f"/{channel}?readers=1): refused a subscriber, process {os.getpid()}: ")
            self.assertEqual(stranger.poll(300), 0)
            stranger.close(linger=0)
        self.expect_exit(host, 0)
        self.assertEqual(len(service.errors().split("refused a subscriber")), 3, service.errors())

    def test_keeps_running_the_others_when_one_engine_dies(self):
        _, endpoint = self.service()
        others = [self.running_host("--service", endpoint) for _ in range(2)]
        dying = self.host(self.faulty_engine_workflow(behaviour="kill", when="run"), "--service", endpoint)
        self.expect_exit(dying, 3)
        for host in others:
            self.expect_exit(host, 0)

    def test_does_not_grow_over_twenty_engines_one_after_another(self):
        service, endpoint = self.service()

        def descriptors():
            return len(os.listdir(f"/proc/{service.pid}/fd"))

        def threads():
            return len(os.listdir(f"/proc/{service.pid}/task"))

        def live(number):
            # Every fourth dies instead of finishing.
            if number % 4 == 3:
                workflow = self.faulty_engine_workflow(behaviour="exit", when="run")
                self.expect_exit(self.host(workflow, "--service", endpoint), 3)
            else:
                self.expect_exit(self.host("--input", clip(), "--service", endpoint), 0)
            # The service has noticed the end of each.
            wait_until(lambda: service.errors().count(" ended after ") == number + 1, service.errors)

        for number in range(4):
            live(number)
        self.assertEqual(processes_below(service.pid), {})
        # The hosts' connections are closed soon, but not before the hosts have exited.
        idle = wait_until(lambda: descriptors() <= 20 and descriptors(), lambda: f"{descriptors()} descriptors")
        its_threads = threads()
        for number in range(4, 20):
            live(number)
        wait_until(lambda: descriptors() <= idle, lambda: f"{idle} descriptors have become {descriptors()}")
        self.assertLessEqual(threads(), its_threads)
        self.expect_exit(self.host("--input", clip(), "--service", endpoint), 0)


if __name__ == "__main__":
    unittest.main()
