"""Figures of a whole terminal for docs/performance.md. Times of an emulator say little, so they are ratios to a command that
runs beside them; bytes, pages and wake-ups are counted by the terminal's own kernel."""

import json
import os
import time

import images
from machine import MachineError
from parts import PROJECT, output, say
from terminal import BOOT_SECONDS

PID = "$(cat /run/fw_download.pid)"
MONITOR_SECONDS = 190  # from the start until the monitor's timer runs too
WATCHED_SECONDS = 60
UPDATE_SECONDS = 600
PLATFORM = "libvex|libsqlite3|libsystemd"
RUNS = 5
VERSIONS = ("1.5.7", "1.6.2", "1.7.1")


class Figures:
    def __init__(self, desk, terminal):
        self.desk = desk
        self.terminal = terminal
        self.rows = []

    def tell(self, what, value):
        self.rows.append((what, value))
        say(f"{what}: {value}")

    def start(self):
        self.terminal.answers = b""
        self.terminal.do("(sleep 0.5; reboot) >/dev/null 2>&1 & :")
        self.terminal.wait_agent(BOOT_SECONDS)
        self.terminal.do("systemctl is-system-running --wait", BOOT_SECONDS)
        at = [int(self.terminal.do(f"systemctl show -P {what}TimestampMonotonic {unit}")) / 1e6
              for what, unit in (("InactiveExit", "fw-download"), ("ActiveEnter", "fw-download"), ("ActiveEnter", "multi-user.target"))]
        self.tell("boot, from the kernel's start", f"the service is started after {at[0]:.0f} s and runs after {at[1]:.0f} s; "
                  f"the whole terminal after {at[2]:.0f} s")

    def idle(self):
        time.sleep(MONITOR_SECONDS)
        rollup = dict(line.split(":") for line in self.terminal.do(f"tail -n +2 /proc/{PID}/smaps_rollup").splitlines())
        kb = {name: int(value.split()[0]) for name, value in rollup.items()}
        self.tell("idle, resident", f"{kb['Rss'] / 1024:.1f} MiB")
        self.tell("idle, proportional", f"{kb['Pss'] / 1024:.1f} MiB")
        self.tell("idle, private", f"{(kb['Private_Clean'] + kb['Private_Dirty']) / 1024:.1f} MiB")
        platform = self.terminal.do(f"awk '/^[0-9a-f]+-/ {{ name = $6 }} /^Pss:/ && name ~ /{PLATFORM}/ {{ sum += $2 }} "
                                    f"END {{ print sum }}' /proc/{PID}/smaps")
        self.tell("of it the platform's libraries (vex, SQLite, systemd)", f"{int(platform) / 1024:.1f} MiB")

    def wakes(self):
        count = f"cat /proc/{PID}/task/*/status | awk '/^voluntary/ {{ sum += $2 }} END {{ print sum }}'"
        before = int(self.terminal.do(count))
        time.sleep(WATCHED_SECONDS)
        self.tell("idle, wake-ups", f"{(int(self.terminal.do(count)) - before) / WATCHED_SECONDS:.1f} per s")

    def written(self):
        """Bytes that the card was told to write since the boot."""
        return 512 * int(self.terminal.do("sync; awk '{ print $7 }' /sys/block/mmcblk0/stat"))

    def listens(self):
        """How often a daemon began to listen to the bus; a signal before would be lost."""
        return self.terminal.log().count("logSwVer() state.suu")

    def update(self, number, mib, level):
        """A new version of so many MB, which is configured when the one before is installed."""
        version = VERSIONS[number]
        source = f"{self.desk.served}/{version}.zemp"
        images.make_image(source, mib * 1000000, version)
        self.terminal.settings(FW_DOWNLOAD_OPTIONS=f'"-v {level}"')
        starts = self.listens()
        self.terminal.service("restart")
        while self.listens() == starts:
            time.sleep(0.5)
        values = images.configuration(source, self.desk.url(f"{version}.zemp"))
        if number:
            before = VERSIONS[number - 1].split(".")
            values["state.suu.currentset.version"] = f"{before[0]}.0{before[1]} {before[2]}"
        self.terminal.do("vexctl config erase cfg.fw_ready_for_install >/dev/null 2>&1 || :")
        before = self.written()
        begin = time.monotonic()
        self.terminal.configure(self.desk.url(), values)
        wanted = "{}.0{}-{}".format(*version.split("."))
        while not self.terminal.value("cfg.fw_ready_for_install").endswith(wanted):
            if time.monotonic() - begin > UPDATE_SECONDS:
                raise MachineError("no update; the daemon's log ends with\n" + self.terminal.log()[-3000:])
            time.sleep(0.5)
        seconds = time.monotonic() - begin
        bodies = json.loads(output(images.ZEMP, "plan", "--json", "--installed", self.desk.record, source))["updateImageBytes"]
        return seconds, (self.written() - before) / bodies

    def peak(self):
        own = self.terminal.do(f"sed -n 's/^VmHWM:[^0-9]*\\([0-9]*\\).*/\\1/p' /proc/{PID}/status")
        group = self.terminal.ask("cat /sys/fs/cgroup/system.slice/fw-download.service/memory.peak")
        return f"{int(own) / 1024:.1f} MiB resident" + (f", {int(group) / 2**20:.1f} MiB of the service" if group else "")

    def updates(self):
        for number, (mib, level) in enumerate(((1, 6), (1, 7), (20, 7))):
            seconds, ratio = self.update(number, mib, level)
            self.tell(f"update of {mib} MB at level {level}", f"{seconds:.0f} s")
            self.tell("the same, bytes written to the card per byte needed", f"{ratio:.2f}")
            self.tell("the same, most memory, /tmp in memory", self.peak())

    def listing(self):
        self.terminal.do("cp $(vexctl config get cfg.fw_ready_for_install) /data/listed")
        ours, theirs = [], []
        for command, times in (("fw_download -f /data/listed", ours), ("cat /data/listed", theirs)) * (RUNS + 1):
            text = self.terminal.do(f"a=$(date +%s%N); {command} >/dev/null; b=$(date +%s%N); echo $(((b - a) / 1000))")
            times.append(int(text))
        ours, theirs = (sorted(times[1:])[RUNS // 2] / 1000 for times in (ours, theirs))
        self.tell("`fw_download -f` on 20 MB", f"{ours:.0f} ms, {ours / theirs:.1f} x `cat` ({theirs:.0f} ms)")


def figures(desk, terminal, options):
    del options
    one = Figures(desk, terminal)
    one.start()
    one.idle()
    one.wakes()
    one.updates()
    one.listing()
    print("| What | On the emulated terminal |\n|---|---|")
    for what, value in one.rows:
        print(f"| {what} | {value} |")
    with open(os.path.join(PROJECT, "build", "bench-terminal.json"), "w") as file:
        json.dump(dict(one.rows), file, indent=2)
