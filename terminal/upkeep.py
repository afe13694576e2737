"""The packages on a terminal, whose own dpkg runs their maintainer scripts: installed, upgraded amid an update, upgraded with
the power cut, removed, installed again, purged."""

import glob
import os
import random
import re
import shutil
import time

import card
import images
from machine import MachineError
from parts import run, say
from terminal import BOOT_SECONDS, SETTINGS, Terminal, archive

NEXT = "+next"
AMID = 200000  # bytes of a part, when the upgrade comes
UPDATE_SECONDS = 240
HEADERS = 4096  # of parts, which may be asked for twice


def next_packages(packages, directory):
    """The same files under a higher version."""
    os.makedirs(directory)
    for package in packages:
        tree = f"{directory}/tree"
        run("dpkg-deb", "-R", package, tree)
        with open(f"{tree}/DEBIAN/control") as file:
            control = file.read()
        version = re.search(r"^Version: (.*)$", control, re.MULTILINE).group(1)
        with open(f"{tree}/DEBIAN/control", "w") as file:
            file.write(re.sub(rf"(^Version: |\(>?= ){re.escape(version)}", rf"\g<0>{NEXT}", control, flags=re.MULTILINE))
        run("dpkg-deb", "--root-owner-group", "-b", tree, f"{directory}/{os.path.basename(package)}", capture_output=True)
        shutil.rmtree(tree)
    return sorted(glob.glob(f"{directory}/*.deb"))


class Upkeep:
    def __init__(self, desk, options):
        self.desk = desk
        self.random = random.Random(options.seed)
        self.source = desk.serve(mib=options.mb)
        self.root = f"{desk.folder}/root.img"
        self.next = archive(next_packages(desk.packages, f"{desk.folder}/next"), f"{desk.folder}/next.tar")
        self.terminal = None
        self.seconds = 0.0  # of an upgrade

    def check(self, command, what):
        self.terminal.ask(command)
        if self.terminal.status != 0:
            raise MachineError(f"not so: {what} ({command})")

    def boot(self):
        self.terminal = self.desk.enter_context(Terminal(self.desk.flavour, self.root, self.desk.card,
                                                         disks={"packages": self.next}))
        self.terminal.wait_agent(BOOT_SECONDS)
        self.terminal.ask("systemctl is-system-running --wait", BOOT_SECONDS)

    def off(self):
        self.terminal.do("sync; (sleep 0.5; poweroff) >/dev/null 2>&1 & :")
        self.terminal.wait_end(60)
        self.terminal.cut()

    def begin_update(self):
        self.terminal.configure(self.desk.url(), images.configuration(self.source, self.desk.url()))

    def amid(self):
        """Waits until a body is being fetched."""
        self.terminal.do(f"until [ -n \"$(find /data/fw -name 'ContentPart-*' -size +{AMID}c)\" ]; do sleep 0.2; done",
                         UPDATE_SECONDS)

    def end_update(self):
        self.terminal.do("until vexctl config get cfg.fw_ready_for_install >/dev/null 2>&1; do sleep 0.5; done", UPDATE_SECONDS)
        return self.terminal.value("cfg.fw_ready_for_install")

    def installed(self):
        self.check("systemctl is-active -q fw-download && systemctl is-enabled -q fw-download", "the service runs and is enabled")
        self.check("test -d /var/lib/vex -a -d /run/fw_download -a -d /data/fw", "all directories are there")
        say("installed: the service runs, and is enabled")

    def upgraded_amid(self):
        self.terminal.do(f"echo FW_TRIED=yes >>{SETTINGS}")
        self.begin_update()
        self.amid()
        before = self.terminal.do("cat /run/fw_download.pid")
        self.upgrade()
        moment = time.time()  # the old daemon has ended, the new one looks at the configuration some time after its start
        kept = int(self.terminal.do("cat /data/fw/ContentPart-* | wc -c"))
        self.check(f"[ $(cat /run/fw_download.pid) != {before} ]", "a new daemon runs")
        self.check(f"grep -q FW_TRIED=yes {SETTINGS}", "settings are kept")
        flag = self.end_update()
        asked = 0  # what the link held is lost with the old daemon, so bytes sent say nothing
        for request in self.desk.server.requests():
            if request["time"] - request["duration"] > moment and "-" in request["range"]:
                first, last = request["range"].removeprefix("bytes=").split("-")
                asked += int(last) - int(first) + 1
        size = os.path.getsize(self.source)
        if asked + kept > size + HEADERS:
            raise MachineError(f"{asked} of {size} bytes were asked for, although {kept} were there")
        say(f"upgraded amid an update: settings kept; {kept} of {size} bytes were there, {asked} were asked for then; {flag}")

    def upgrade(self):
        self.terminal.do("rm -rf /root/packages")
        self.terminal.take_packages()
        begin = time.monotonic()
        self.terminal.do("cd /root/packages && dpkg -i *.deb", 300)
        self.seconds = time.monotonic() - begin
        self.check(f"dpkg-query -W -f '${{Version}}' fw-download | grep -qF {NEXT}", "the next version is installed")
        self.terminal.wait_service()

    def removed(self):
        self.terminal.do("dpkg -r fw-download", 120)
        self.check("! pidof fw_download && [ ! -e /lib/systemd/system/fw-download.service ]", "daemon and unit are gone")
        self.check("ls /data/fw/fw_download_update.zemp-*", "the download directory is left alone")
        self.terminal.do("cd /root/packages && dpkg -i fw-download_*.deb", 120)
        self.terminal.wait_service()
        self.check("systemctl is-enabled -q fw-download", "the service is enabled again")
        say("removed, and installed again: the image stays, the service runs")

    def purged(self):
        self.terminal.do("dpkg -P fw-download fw-download-bin vexctl libvex-host", 120)
        self.check("! pidof fw_download", "the daemon has ended")
        left = self.terminal.ask("ls -d /etc/*/*fw-download* /etc/*/*/*fw-download* /etc/fw_download /lib/systemd/system/fw-download* "
                                 "/run/fw_download /var/lib/systemd/deb-systemd-helper-*/fw-download* 2>/dev/null; dpkg --audit")
        if left:
            raise MachineError(f"a purge leaves\n{left}")
        self.check("ls /data/fw/fw_download_update.zemp-* /var/lib/vex/config.db", "image and database are left alone")
        self.check("systemctl is-system-running", "no service has failed")
        say("purged: nothing of the packages is left, image and database are")

    def cut_upgrade(self, number):
        """The power goes while dpkg upgrades and an update is fetched."""
        self.restore()
        self.boot()
        self.begin_update()
        self.amid()
        self.terminal.do("rm -rf /root/packages")
        self.terminal.take_packages()
        self.terminal.do("(cd /root/packages && dpkg -i *.deb) >/dev/null 2>&1 & :")
        seconds = self.random.uniform(0, 1.2 * self.seconds)
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            self.terminal.pump(0.02)
        self.terminal.cut()
        if findings := card.faults(self.root):
            raise MachineError(f"the root's file system has faults: {findings}")
        self.boot()
        half = self.terminal.ask("dpkg --audit | grep -c '^ '")
        self.terminal.ask("systemctl is-active fw-download")
        alone = "runs by itself" if self.terminal.status == 0 else "waits for dpkg"
        self.terminal.do("dpkg --configure -a", 300)
        self.upgrade()
        flag = self.end_update()
        self.terminal.cut()
        look = card.Look(self.desk.card)
        if not look.sound:
            raise MachineError(f"the card's file system has faults: {look.findings}")
        if fault := images.fault(look.image(flag) or b"", self.source, self.desk.record):
            raise MachineError(f"the image on the card is wrong: {fault}")
        say(f"cut {number} of an upgrade, after {seconds:.1f} of {self.seconds:.1f} s: {half} packages half done, the service "
            f"{alone}; upgrade and update came to their ends")

    def keep(self):
        """What restore() begins with: the packages are installed, nothing is configured."""
        self.off()
        for path in (self.root, self.desk.card):
            run("cp", "--sparse=always", path, f"{path}.kept")
        self.boot()

    def restore(self):
        for path in (self.root, self.desk.card):
            run("cp", "--sparse=always", f"{path}.kept", path)


def upkeep(desk, terminal, options):
    one = Upkeep(desk, options)
    one.terminal = terminal
    one.installed()
    one.keep()
    one.upgraded_amid()
    one.removed()
    one.purged()
    one.terminal.cut()
    for number in range(1, options.cuts + 1):
        one.cut_upgrade(number)
