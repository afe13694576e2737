"""Figures of whole processes, through fw_probe, which reads the system's own accounting."""

import json
import os
import re
import statistics
import subprocess


class Figures:
    """Medians and minima over several runs of one command."""

    def __init__(self, runs):
        self.wall = [run[0] for run in runs]
        self.processor = [run[1] for run in runs]
        self.peak_kb = max(run[2] for run in runs)

    @property
    def median_wall(self):
        return statistics.median(self.wall)

    @property
    def median_processor(self):
        return statistics.median(self.processor)


class Machine:
    """Runs programs for measurement: in turn, so that a machine that slows down does so for all of them."""

    def __init__(self, binaries, runs):
        self.binaries = binaries
        self.runs = runs
        self.prefix = self._real_time()

    @staticmethod
    def _real_time():
        """Real-time priority keeps other programs of a busy machine out of the figures, where it is allowed."""
        prefix = ["chrt", "-f", "10"]
        try:
            allowed = subprocess.run(prefix + ["true"], capture_output=True).returncode == 0
        except FileNotFoundError:
            allowed = False
        return prefix if allowed else []

    def program(self, name):
        return os.path.join(self.binaries, name)

    def probe(self, *arguments, environment=None):
        command = self.prefix + [self.program("fw_probe"), *arguments]
        result = subprocess.run(command, capture_output=True, text=True, env=environment)
        if result.returncode != 0:
            raise RuntimeError(f"{' '.join(command)}: {result.stderr.strip()}")
        return result.stdout.split()

    def run(self, command, environment=None):
        wall, processor, peak, status = self.probe("run", *command, environment=environment)
        if status != "0":
            raise RuntimeError(f"{' '.join(command)} ended with status {status}")
        return float(wall), float(processor), int(peak)

    def in_turn(self, commands, before=None):
        """One warm-up of each command, then the counted runs. A list of Figures."""
        runs = [[] for _ in commands]
        for turn in range(self.runs + 1):
            for index, command in enumerate(commands):
                if before:
                    before()
                figures = self.run(command)
                if turn > 0:
                    runs[index].append(figures)
        return [Figures(entry) for entry in runs]

    def in_turn_probes(self, jobs, environment):
        """The same for jobs of fw_probe that print a time first; medians, in seconds."""
        walls = [[] for _ in jobs]
        for turn in range(self.runs + 1):
            for index, job in enumerate(jobs):
                wall = float(self.probe(*job, environment=environment)[0])
                if turn > 0:
                    walls[index].append(wall)
        return [statistics.median(entry) for entry in walls]


def instructions(command):
    """Instructions of a whole process under callgrind."""
    tool = ["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null"]
    result = subprocess.run(tool + command, capture_output=True, text=True)
    return int(re.search(r"Collected : (\d+)", result.stderr).group(1))


def allocations(command):
    result = subprocess.run(["valgrind"] + command, capture_output=True, text=True)
    return int(re.search(r"total heap usage: ([\d,]+) allocs", result.stderr).group(1).replace(",", ""))


def emulated_instructions(sysroot, command, trace):
    """Instructions of a whole 32-bit ARM process, on a processor without CRC instructions."""
    emulator = ["qemu-arm-static", "-cpu", "cortex-a9", "-L", sysroot,
                "-singlestep", "-d", "nochain,exec", "-D", trace]
    subprocess.run(emulator + command, check=True, capture_output=True)
    with open(trace, "rb") as lines:
        count = sum(line.startswith(b"Trace") for line in lines)
    os.unlink(trace)
    return count


def micro_benchmarks(prefix, program, repetitions):
    """Google Benchmark's figures: name to median entry."""
    command = [*prefix, program, "--benchmark_format=json", f"--benchmark_repetitions={repetitions}",
               "--benchmark_report_aggregates_only=true", "--benchmark_min_time=0.1"]
    output = subprocess.run(command, capture_output=True, text=True, check=True).stdout
    entries = json.loads(output)["benchmarks"]
    return {entry["run_name"]: entry for entry in entries if entry["aggregate_name"] == "median"}
