"""Cuts the power of an emulated terminal at random moments of an update, and looks at the card.

Booting takes half a minute, so it is done once: the terminal is photographed with its packages installed, before /data is
mounted and the service started. A round begins with a fresh card and goes on, cut by cut, until an update has come through.
"""

import argparse
import collections
import os
import random
import signal
import statistics
import subprocess
import sys
import time

import card
import images
import parts
from machine import MachineError
from parts import BUILD, PROJECT, run, say
from terminal import BOOT_SECONDS, Desk, Terminal, archive, root_copy
from troubles import TROUBLES, Trouble

LAST_SECONDS = 180  # for an update that is not cut
CUTS_AT_MOST = 4  # in a round, then the update may come to its end
SETTLED_SECONDS = 1.0  # after the flag the power goes within this time
CARD_MIB = 128
NO_SYNC = "/usr/lib/terminal-nosync.so"


def words():
    parser = argparse.ArgumentParser(prog="script/powercut", description=__doc__.splitlines()[0])
    parser.add_argument("rounds", nargs="?", type=int, default=10, help="(%(default)s)")
    parser.add_argument("seed", nargs="?", type=int, default=None, help="of the moments; without it a new one, which is told")
    parser.add_argument("--flavour", choices=parts.FLAVOURS, default="systemd")
    parser.add_argument("--bus", choices=["sd", "virtio"], default="sd", help="of the card (%(default)s)")
    parser.add_argument("--mb", type=int, default=4, help="size of the image (%(default)s)")
    parser.add_argument("--scale", type=float, default=10, help="of the daemon's timers (%(default)s)")
    parser.add_argument("--trouble", choices=[*TROUBLES, "all"], default="none",
                        help="what befalls the terminal besides, terminal/troubles.py tells; with all they take turns")
    parser.add_argument("--control", action="store_true",
                        help="with the daemon's syncs of the download directory off: ends well when a fault was found")
    parser.add_argument("--packages", metavar="DIRECTORY", help="of armhf packages, in place of those of these sources")
    return parser.parse_args()


class Cuts:
    def __init__(self, desk, options):
        self.desk = desk
        self.options = options
        self.random = random.Random(options.seed)
        self.source = desk.serve(mib=options.mb)
        with open(self.source, "rb") as file:
            self.wanted = file.read()
        self.root = f"{desk.folder}/root.img"
        self.photograph = f"{desk.folder}/photograph"
        self.seen = collections.Counter()
        self.whole = []  # seconds of updates that were not cut
        self.faults = 0
        kinds = [kind for kind in TROUBLES if kind != "none"] if options.trouble == "all" else [options.trouble]
        self.troubles = {kind: TROUBLES[kind](desk, self.random, len(self.wanted)) for kind in kinds}

    def machine(self, root_options, **options):
        return Terminal(self.options.flavour, self.root, self.desk.card, card_bus=self.options.bus,
                        disks={"packages": self.disk}, **root_options, **options)

    def fresh_card(self, trouble):
        """Configured, with an empty download directory."""
        database = f"{self.desk.folder}/config.db"
        values = images.configuration(self.source, self.desk.url())
        run(card.VEXCTL, "config", "set", *(str(word) for pair in values.items() for word in pair),
            env=dict(os.environ, VEX_CONFIGDB=database))
        keep = f"{self.desk.folder}/keep"
        open(keep, "w").close()
        files = {"vex/config.db": database, "fw/.keep": keep}
        trouble.fill(lambda more: card.make(self.desk.card, CARD_MIB, self.desk.record, {**files, **more}))

    def prepare(self):
        """The photograph."""
        begin = time.monotonic()
        none = Trouble(self.desk, self.random, len(self.wanted))
        self.fresh_card(none)
        root_copy(self.options.flavour, self.desk.packages, self.root)
        self.disk = archive(self.desk.packages, f"{self.desk.folder}/packages.tar")
        with self.machine({}) as terminal:
            terminal.wait_agent(BOOT_SECONDS)
            self.install(terminal)
        with self.machine({}) as terminal:  # nothing of the installation is in memory
            terminal.wait_agent(BOOT_SECONDS)
            if terminal.systemd():
                terminal.do("systemctl is-system-running --wait || { systemctl --failed; exit 1; }", BOOT_SECONDS)
                terminal.do("journalctl -q -f -n all -o cat -t fw_download >/run/messages 2>&1 </dev/null & :")
            else:
                terminal.do("umount /data")
            # What the daemon runs with comes into memory; the card's controller cannot be photographed, so it goes.
            terminal.do("fw_download -h >/dev/null; vexctl --help >/dev/null; e2fsck -V 2>/dev/null; grep -q . /proc/mounts; "
                        "for device in /sys/bus/pci/devices/*; do [ $(cat $device/class) != 0x080501 ] || "
                        "echo 1 >$device/remove; done; sync")
            # A few MB would be enough for the kernel of so small a machine to write all of it early.
            terminal.do("echo 60 >/proc/sys/vm/dirty_background_ratio; echo 80 >/proc/sys/vm/dirty_ratio")
            terminal.write_photograph(self.photograph)
        say(f"photographed after {time.monotonic() - begin:.0f} s, {os.path.getsize(self.photograph) >> 20} MiB")

        self.whole_update(none)

    def whole_update(self, trouble):
        """Not cut: the moments of the cuts depend on how long it takes here."""
        self.fresh_card(trouble)
        ready, _, wrong = self.go_on(trouble, True)
        if not self.options.control:  # which may find its fault here
            wrong = wrong or self.judge(ready)[2]
        if wrong:
            raise MachineError(f"without a cut: {wrong}")
        say(f"an update takes {self.whole[0]:.1f} s")

    def install(self, terminal):
        """Packages and settings; from the next boot on the service is started by a round only."""
        terminal.install()
        terminal.wait_service()
        terminal.service("stop")
        settings = {"VEX_TIME_SCALE": self.options.scale, "FW_DOWNLOAD_OPTIONS": '"-v 7"'}
        if self.options.control:
            library = f"{self.desk.folder}/nosync.so"
            run("arm-linux-gnueabihf-gcc", "-Wall", "-Wextra", "-Werror", "-O2", "-shared", "-fPIC", "-o", library,
                f"{PROJECT}/terminal/nosync.c")
            with open(library, "rb") as file:
                terminal.write_file(NO_SYNC, file.read())
            settings["LD_PRELOAD"] = NO_SYNC
        terminal.settings(**settings)
        if terminal.systemd():
            terminal.do("systemctl disable fw-download && sed -i '/mmcblk0p6/d' /etc/fstab")
        else:
            terminal.do("rm /etc/rc.d/*")
        terminal.do("sync")
        terminal.do("(sleep 1; poweroff) >/dev/null 2>&1 & :")
        terminal.wait_end(60)

    def moment(self):
        """Seconds until the next cut."""
        return self.random.uniform(0.1, 1.1 * statistics.median(self.whole))

    def go_on(self, trouble, last):
        """From the photograph to the cut; whether the update was ready before, what the trouble tells, what went wrong."""
        seconds = LAST_SECONDS if last else self.moment()
        before, log = f"{self.desk.folder}/before.img", f"{self.desk.folder}/log"
        options = {"photograph": self.photograph}
        if trouble.logs_card:
            run("cp", "--sparse=always", self.desk.card, before)
            options["card_log"] = log
        with self.machine({"keep_root": False}, **options) as terminal:
            events = trouble.events(terminal, last)
            begin = terminal.elapsed()
            terminal.do(f"terminal-round {self.random.choice(['lazy', 'quick'])} </dev/null >/dev/null 2>&1 & :")
            while terminal.elapsed() - begin < seconds and b"round: ready" not in terminal.console:
                terminal.pump(0.01)
                while events and terminal.elapsed() - begin > events[0][0]:
                    events.pop(0)[1]()
                terminal.check_alive()
            ready = b"round: ready" in terminal.console
            if ready:
                self.whole.append(terminal.elapsed() - begin)
                time.sleep(self.random.uniform(0, SETTLED_SECONDS))
            wrong = "/data cannot be mounted" if b"cannot be mounted" in terminal.console else None
            if last and not ready:
                wrong = f"no update within {seconds} s; the daemon's log ends with\n{terminal.ask('tail -n 20 /run/messages')}"
        return ready, trouble.after(before, log), wrong

    def judge(self, ready):
        """What is on the card, in words, and what is wrong with it."""
        look = card.Look(self.desk.card)
        flag = (look.values or {}).get("cfg.fw_ready_for_install")
        wrong = None
        if not look.sound:
            wrong = f"the file system has faults: {look.findings}"
        elif look.values is None or look.values.get("cfg.config.status") != "complete":
            wrong = f"the configuration database cannot be read or has lost values: {look.values}"
        elif flag and look.image(flag) != self.wanted:
            found = look.image(flag)
            wrong = f"{flag} is flagged and " + ("not there" if found is None else f"wrong ({len(found)} bytes)")
        elif ready and not flag:
            wrong = "ready, and not flagged"
        state = ("flagged" if flag else "not flagged") + (", journal replayed" if look.replayed else "")
        return state, look.files, wrong

    def round(self, number):
        kind, trouble = list(self.troubles.items())[number % len(self.troubles)]
        self.fresh_card(trouble)
        for cut in range(CUTS_AT_MOST + 1):
            ready, told, wrong = self.go_on(trouble, cut == CUTS_AT_MOST)
            state, files, fault = self.judge(ready)
            wrong = wrong or fault
            self.seen[("ready" if ready else "amid") + ", " + state] += 1
            names = " ".join(f"{name}:{size}" for name, size in files.items() if name != ".keep")
            also = "" if kind == "none" else f" {kind},"
            print(f"{number}.{cut + 1}{also} {'ready' if ready else 'cut'}, {told}{state}: {names}", flush=True)
            if wrong:
                self.faults += 1
                kept = f"{BUILD}/powercut-{self.options.seed}-{number}.img"
                run("cp", "--sparse=always", self.desk.card, kept)
                print(f"FAULT: {wrong}\nThe card is kept as {kept}", flush=True)
                return
            if ready:
                return


def main():
    options = words()
    if options.seed is None:
        options.seed = random.SystemRandom().randrange(1000000)
    signal.signal(signal.SIGTERM, lambda *unused: sys.exit(1))  # leaves the scopes
    try:
        with Desk(options.flavour, parts.in_directory(options.packages)) as desk:
            cuts = Cuts(desk, options)
            cuts.prepare()
            begin = time.monotonic()
            number = 0
            while number < options.rounds and not (options.control and cuts.faults):
                number += 1
                cuts.round(number)
            ends = sum(cuts.seen.values())
            say(f"{number} rounds with {ends} ends of power in {time.monotonic() - begin:.0f} s, seed {options.seed}, "
                f"{cuts.faults} faults; an update takes {statistics.median(cuts.whole or [0]):.1f} s; {dict(cuts.seen)}")
    except (MachineError, OSError, RuntimeError, subprocess.CalledProcessError) as error:
        said = getattr(error, "stderr", None) or b""
        sys.exit(f"powercut: {error} {said if isinstance(said, str) else said.decode(errors='replace')}".rstrip())
    if options.control:
        sys.exit(None if cuts.faults else "powercut: the control found no fault, so the rounds prove nothing")
    sys.exit(1 if cuts.faults else 0)


if __name__ == "__main__":
    main()
