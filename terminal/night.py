"""A night of a terminal in a few minutes: notices, a link and a server that come and go, two updates, and no hand."""

import random
import time

import card
import images
from machine import MachineError
from parts import say

FIRST_HOUR, SECOND = 0.5, 0.5  # when the updates are configured: in hours, and as a share of the night
NOTICE_MINUTES, OUTAGE_MINUTES = 7, 30  # between two, on average
OUTAGE_MINUTES_AT_MOST = 25
AFTERWARDS_SECONDS = 180  # in real time, for the second update
VERSIONS = ("1.5.7", "1.6.2")
GROWTH_KB = 1024  # of the daemon's own memory between the updates' ends


class Night:
    def __init__(self, desk, terminal, options):
        self.desk = desk
        self.terminal = terminal
        self.options = options
        self.random = random.Random(options.seed)
        self.minute = 60 / options.scale
        self.end = options.hours * 60 * self.minute
        self.counts = {"notices": 0, "link": 0, "server": 0}
        self.flags = []
        self.sources = []
        for version in VERSIONS:
            self.sources.append(f"{desk.served}/{version}.zemp")
            images.make_image(self.sources[-1], options.mb * 1000000, version)

    def wants(self, number):
        """An operator configures an update; the one before is installed by then."""
        url = self.desk.url(f"{VERSIONS[number]}.zemp")
        values = images.configuration(self.sources[number], url)
        if number:
            values["state.suu.currentset.version"] = "1.05 7"
        self.terminal.configure(url, values)

    def notice(self):
        self.counts["notices"] += 1
        self.terminal.do("vexctl signal send " + self.random.choice(["evt.confd.updated"] * 4 + ["evt.confd.push"]))

    def outage(self, kind, off):
        self.counts[kind] += off
        if kind == "link":
            self.terminal.link(not off)
        elif off:
            self.desk.server.stop()
        elif self.desk.server.process.poll() is not None:
            self.desk.server.start()

    def plan(self):
        """Moments in real seconds, each with what happens then."""
        events = [(FIRST_HOUR * 60 * self.minute, lambda: self.wants(0)), (SECOND * self.end, lambda: self.wants(1))]
        moment = 0
        while (moment := moment + self.random.expovariate(1 / NOTICE_MINUTES) * self.minute) < self.end:
            events.append((moment, self.notice))
        if self.options.gone:  # from the second update on
            begin = SECOND * self.end + self.minute
            events += [(begin, lambda: self.outage("server", True)),
                       (begin + self.options.gone * 60 * self.minute, lambda: self.outage("server", False))]
            self.end = max(self.end, events[-1][0])
            return sorted(events, key=lambda event: event[0])
        moment = 0
        while (moment := moment + self.random.expovariate(1 / OUTAGE_MINUTES) * self.minute) < self.end:
            kind = self.random.choice(["link", "server"])
            events.append((moment, lambda kind=kind: self.outage(kind, True)))
            moment += self.random.uniform(0.5, OUTAGE_MINUTES_AT_MOST) * self.minute
            events.append((moment, lambda kind=kind: self.outage(kind, False)))
        return sorted(events, key=lambda event: event[0])

    def look(self):
        flag = self.terminal.value("cfg.fw_ready_for_install")
        if flag and flag not in self.flags:
            self.flags.append(flag)
            say(f"ready after {(time.monotonic() - self.begin) / self.minute / 60:.1f} h of the night: {flag}; "
                f"the daemon's own memory is {self.memory()} kB")

    def memory(self):
        return int(self.terminal.do("sed -n 's/^RssAnon:[^0-9]*\\([0-9]*\\).*/\\1/p' /proc/$(cat /run/fw_download.pid)/status"))

    def pass_by(self):
        events = self.plan()
        self.begin = time.monotonic()
        while (now := time.monotonic() - self.begin) < self.end or events:
            while events and events[0][0] <= now:
                events.pop(0)[1]()
            self.look()
            self.terminal.pump(min(1.0, max(0.01, (events[0][0] if events else self.end) - now)))
        limit = time.monotonic() + AFTERWARDS_SECONDS
        while len(self.flags) < 2 and time.monotonic() < limit:
            self.look()
            self.terminal.pump(1)

    def judge(self):
        log = self.terminal.log().splitlines()
        ends = self.terminal.restarts()
        say(f"{self.options.hours} h with {self.counts['notices']} notices, {self.counts['link']} losses of the link, "
            f"{self.counts['server']} of the server; the service was started again {ends} times; {len(log)} lines of log; "
            f"the daemon's own memory is {self.memory()} kB")
        if len(self.flags) != 2:
            raise MachineError("an update did not come: " + "\n".join([f"flagged were {self.flags}", *log[-30:]]))
        if self.terminal.systemd() and (failed := self.terminal.ask("systemctl --failed -q")):
            raise MachineError(f"services have failed: {failed}")
        self.terminal.cut()
        look = card.Look(self.desk.card)
        if not look.sound:
            raise MachineError(f"the card's file system has faults: {look.findings}")
        if fault := images.fault(look.image(self.flags[1]) or b"", self.sources[1], self.desk.record):
            raise MachineError(f"the image on the card is wrong: {fault}")
        say("both updates were made ready, the second is on the card and right")


def night(desk, terminal, options):
    one = Night(desk, terminal, options)
    one.pass_by()
    one.judge()
