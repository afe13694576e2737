"""Compares the daemon with public programs and the measured goals, prints one table, and writes it as JSON."""

import argparse
import datetime
import os
import platform
import shutil
import subprocess
import sys
import tempfile
import time

import fleet
import measure
import services
from inputs import UPDATE, UPDATE_NEEDED, UPDATE_NEEDED_BYTES, Inputs
from report import Report

STEPS = ("micro", "parse", "compile", "download", "fleet", "suppressed_line", "arm", "start", "idle_figures")
MONITOR_START_SECONDS = 185  # the configuration monitor's timer runs from then on
WAKE_UP_SECONDS = 20
DAEMON_THREADS = 5  # the last one is started just before the loop
LOG_LINES = 100000
CRC_KILOBYTES = 16


class Comparison:
    def __init__(self, options, directory):
        self.options = options
        self.directory = directory
        self.machine = measure.Machine(options.binaries, options.runs)
        self.inputs = Inputs(options.binaries, directory)
        self.report = Report()

    def path(self, name):
        return os.path.join(self.directory, name)

    def program(self, name):
        return self.machine.program(name)

    # --- one by one

    def micro(self):
        entries = measure.micro_benchmarks(self.machine.prefix, self.program("fw_bench"), self.options.runs)
        self.report.details["micro"] = {
            name: {"time": entry["real_time"], "processor": entry["cpu_time"], "unit": entry["time_unit"],
                   "bytes_per_second": entry.get("bytes_per_second")} for name, entry in entries.items()}
        for size, name in ((16 << 10, "16 KiB"), (75 << 20, "75 MiB")):
            ours, library = (entries[f"{routine}/{size}"]["bytes_per_second"] / 1e9
                             for routine in ("crcCalc", "crcLibdeflate"))
            self.report.ratio(f"crc32_calc, {name}", ours, library, "GB/s", 0.95,
                              ["crc32_calc()", "libdeflate_crc32()"], at_least=True)

    def parse(self):
        one_core = ["taskset", "-c", str(min(os.sched_getaffinity(0)))]  # as many terminals have
        ours = [*one_core, self.program("fw_download"), "-f"]
        cat = [*one_core, "cat"]
        commands = [[*ours, self.inputs.large], [*ours, self.inputs.small], [*cat, self.inputs.large],
                    [*cat, self.inputs.small]]
        large, small, cat, nothing = self.machine.in_turn(commands)
        self.report.ratio("parse 75 MiB, wall, one core", 1e3 * (large.median_wall - small.median_wall),
                          1e3 * (cat.median_wall - nothing.median_wall), "ms", 1.6,
                          ["fw_download -f IMAGE", "cat IMAGE >/dev/null"])
        self.report.limit("parse 75 MiB, memory above 1 kB", (large.peak_kb - small.peak_kb) / 1024, 16, "MiB",
                          ["fw_download -f IMAGE"])
        self.report.details["parse"] = {
            "processor_ms": 1e3 * (large.median_processor - small.median_processor),
            "cat_processor_ms": 1e3 * (cat.median_processor - nothing.median_processor)}

    def compile(self):
        peaks = {}
        processor = []
        copies = []
        for image in (self.inputs.small, self.inputs.needed):
            directory = image + ".parts"
            os.makedirs(directory)
            self.machine.probe("cut", image, directory)
        self.machine.probe("compile", self.inputs.needed, self.inputs.needed + ".parts")
        for _ in range(self.options.runs):
            for image in (self.inputs.small, self.inputs.needed):
                seconds, peak = self.machine.probe("compile", image, image + ".parts")
                peaks[image] = int(peak) / 1024
            processor.append(float(seconds))
            copies.append(self._copy(self.inputs.needed) - self._copy(self.inputs.small))
        middle = len(processor) // 2
        self.report.ratio("compile 70 MiB, processor", 1e3 * sorted(processor)[middle],
                          1e3 * sorted(copies)[middle], "ms", 3.0, ["fw_probe compile IMAGE DIR", "cp IMAGE COPY"])
        self.report.ratio("compile 70 MiB, memory to 1 kB", peaks[self.inputs.needed],
                          peaks[self.inputs.small], "MiB", 1.1, ["fw_probe compile IMAGE DIR"])

    def _copy(self, image):
        copy = self.path("copy")
        if os.path.exists(copy):
            os.unlink(copy)
        return self.machine.run(["cp", image, copy])[1]

    def download(self):
        last = str(os.path.getsize(self.inputs.large) - 1)
        files = [self.path("ours"), self.path("curls")]

        def remove():
            for file in files:
                if os.path.exists(file):
                    os.unlink(file)

        with services.WebServer(self.path("download"), self.directory) as server:
            url = server.url(os.path.basename(self.inputs.large))
            commands = [[self.program("fw_probe"), "download", url, last, files[0]],
                        ["curl", "-s", "-r", f"0-{last}", url, "-o", files[1]]]
            ours, curl = self.machine.in_turn(commands, before=remove)
        self.report.ratio("download 75 MiB, processor", 1e3 * ours.median_processor, 1e3 * curl.median_processor,
                          "ms", 1.0, ["fw_probe download URL LAST FILE", "curl -s -r 0-LAST URL -o FILE"])

    def fleet(self):
        figures = fleet.measure(self.options.binaries, self.path("fleet"), self.inputs.update, self.inputs.record,
                                self.options.fleet)
        self.report.details["fleet"] = figures
        headers = len(UPDATE) + 1
        allowed = 1.02 * (UPDATE_NEEDED_BYTES + 512 * headers)
        self.report.ratio("bytes on the wire of an update", figures["sent_bytes"], allowed, "B", 1.0,
                          ["needed bodies + 512 per header and start + 2 %"])
        self.report.limit("requests of an update", figures["requests"],
                          2 * UPDATE_NEEDED + len(UPDATE) - UPDATE_NEEDED + 2, "", [])
        self.report.details["fleet_estimates"] = [
            fleet.estimate(figures, count, 70 << 20, len(UPDATE), UPDATE_NEEDED) for count in (100, 1000, 10000)]

    # --- idle and start

    def start_idle(self):
        self.idle = services.Terminal(self.options.binaries, self.path("idle"), self.inputs.record,
                                      curl=self.options.curl)
        self.idle.configure("1.04 3", "1", "4", "3", "http://127.0.0.1:9/none")
        self.idle.start()
        self.idle_since = time.monotonic()

    def idle_figures(self):
        if not self.options.quick:
            time.sleep(max(0.0, self.idle_since + MONITOR_START_SECONDS - time.monotonic()))
        pid = self.idle.daemon_pid()
        before = services.wake_ups(pid)
        time.sleep(WAKE_UP_SECONDS)
        wake_ups = (services.wake_ups(pid) - before) / WAKE_UP_SECONDS
        self.report.limit("idle, proportional memory", services.proportional_kb(pid) / 1000, 8, "MB",
                          ["/proc/PID/smaps_rollup"])
        self.report.limit("idle, wake-ups", wake_ups, 2.1, "1/s", ["/proc/PID/task/*/status"])

    def start(self):
        environment = self.idle.environment()
        environment["VEX_CONFIGDB"] = self.path("start.db")
        jobs = [["threads", str(DAEMON_THREADS), self.program("fw_download"), "-c"],
                ["until", "started", self.program("curl_start")],
                ["until", "started", self.program("library_start")]]
        ours, curl, libraries = self.machine.in_turn_probes(jobs, environment)
        self.report.ratio("start to running loop", 1e3 * ours, 1e3 * curl, "ms", 1.4,
                          ["fw_probe threads 5 fw_download -c", "fw_probe until started curl_start"])
        # What is left for the daemon's own work when the libraries that it links are loaded.
        self.report.details["start"] = {"daemon_ms": 1e3 * ours, "curl_ms": 1e3 * curl,
                                        "same_libraries_ms": 1e3 * libraries}

    # --- counts

    def suppressed_line(self):
        command = [self.program("fw_probe"), "log-suppressed"]
        counts = [measure.instructions([*command, str(lines)]) for lines in (0, LOG_LINES)]
        self.report.limit("suppressed line, instructions", (counts[1] - counts[0]) / LOG_LINES, 10, "",
                          ["valgrind --tool=callgrind fw_probe log-suppressed N"])
        counts = [measure.allocations([*command, str(lines)]) for lines in (0, LOG_LINES)]
        self.report.limit("suppressed lines, allocations", counts[1] - counts[0], 0, "",
                          ["valgrind fw_probe log-suppressed N"])

    def arm(self):
        binaries = self.options.arm
        program = os.path.join(binaries, "fw_download")
        probe = os.path.join(binaries, "crc_probe")
        if not os.path.exists(program):
            self.report.missing("ARM, stripped size", "<= 250 kB", f"no {program}")
        else:
            stripped = self.path("stripped")
            subprocess.run(["arm-linux-gnueabihf-strip", "-o", stripped, program], check=True)
            self.report.limit("ARM, stripped size", os.path.getsize(stripped) / 1000, 250, "kB",
                              ["arm-linux-gnueabihf-strip fw_download"])
        if not os.path.exists(probe) or not shutil.which("qemu-arm-static"):
            self.report.missing("ARM, crc32_calc instructions", "<= 0.65 x", f"no {probe} or no emulator")
            return
        counts = {}
        for routine in ("library", "bytewise"):
            lengths = [measure.emulated_instructions(self.options.sysroot, [probe, routine, str(size)],
                                                     self.path("trace")) for size in (0, CRC_KILOBYTES)]
            counts[routine] = (lengths[1] - lengths[0]) / (CRC_KILOBYTES * 1024)
        self.report.ratio("ARM, crc32_calc instructions per byte", counts["library"], counts["bytewise"], "",
                          0.65, ["qemu-arm -singlestep -d exec crc_probe library|bytewise KB"])

    def run(self):
        self.start_idle()
        try:
            for step in self.options.only or STEPS:
                print(f"bench: {step} ...", file=sys.stderr, flush=True)
                getattr(self, step)()
        finally:
            self.idle.stop()


def describe_machine(real_time):
    processor = next((line.split(":")[1].strip() for line in open("/proc/cpuinfo") if line.startswith("model name")),
                     platform.processor())
    return {"date": datetime.date.today().isoformat(), "processor": processor, "processors": os.cpu_count(),
            "system": f"{platform.system()} {platform.release()} {platform.machine()}", "real_time": real_time,
            "load": os.getloadavg()}


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    root = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
    parser.add_argument("--binaries", default=os.path.join(root, "build/release/bin"))
    parser.add_argument("--arm", default=os.path.join(root, "build/arm/bin"), help="programs of the ARM build")
    parser.add_argument("--sysroot", default=os.environ.get("FW_ARM_SYSROOT", os.path.join(root, "build/arm-sysroot")))
    parser.add_argument("--json", default=os.path.join(root, "build/bench.json"))
    parser.add_argument("--runs", type=int, default=7, help="of each measured command")
    parser.add_argument("--fleet", type=int, default=50, help="terminals against one web server")
    parser.add_argument("--only", nargs="+", choices=STEPS, help="steps to run; without it all")
    parser.add_argument("--quick", action="store_true", help="do not wait for the configuration monitor's timer")
    parser.add_argument("--curl", metavar="DIRECTORY", help="with a libcurl for the idle and starting daemon")
    options = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="fw_bench.") as directory:
        comparison = Comparison(options, directory)
        comparison.run()
    machine = describe_machine(bool(comparison.machine.prefix))
    comparison.report.write(options.json, machine)
    print(comparison.report.table())
    print(f"\n{machine['date']}, {machine['processors']} x {machine['processor']}, {machine['system']}; "
          f"medians of {options.runs} runs; as JSON in {os.path.relpath(options.json)}")


if __name__ == "__main__":
    main()
