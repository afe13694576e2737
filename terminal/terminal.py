"""A terminal with the project's packages: put together, booted, installed, updated."""

import contextlib
import os
import re
import shutil
import sys
import tempfile

import card
import images
import parts
from machine import HOST, Machine
from parts import PROJECT, run, say

sys.path.insert(0, f"{PROJECT}/bench/compare")
from services import WebServer  # noqa: E402

BOOT_SECONDS = 300
START_SECONDS = 60
SETTINGS = "/etc/default/fw-download"


def boot_to_end(image, append, text, seconds):
    with Machine(parts.kernel(), image, memory=256, append=append) as machine:
        machine.wait_console(text, seconds)
        machine.wait_end(60)


def root_copy(flavour, packages, path):
    run("cp", "--sparse=always", parts.base_root(flavour, packages, boot_to_end), path)
    return path


def documented(number):
    """The commands of a block of docs/installing.md: 0 installs with a package manager, 1 without, 2 configures."""
    with open(f"{PROJECT}/docs/installing.md") as file:
        block = re.findall(r"```console\n(.*?)```", file.read(), re.DOTALL)[number]
    return [line.removeprefix("# ") for line in block.splitlines()]


def archive(files, path):
    """Packages and what else is to be installed as a disk: an archive that tar reads from the device."""
    run("tar", "-c", "-f", path, *(word for file in files for word in ("-C", *os.path.split(file))))
    return path


class Terminal(Machine):
    """A machine of a flavour, and how that flavour does things."""

    def __init__(self, flavour, *arguments, **options):
        self.flavour = flavour
        super().__init__(parts.kernel(), *arguments, **options)

    def systemd(self):
        return self.flavour == "systemd"

    def take_packages(self):
        """The packages of the disk into /root/packages."""
        self.do("mkdir -p /root/packages && disk=$(grep -lx packages /sys/block/vd*/serial | cut -d/ -f4) && "
                "tar -x -f /dev/$disk -C /root/packages")

    def install(self):
        """As docs/installing.md says. With systemd the service is started; with busybox at the next boot."""
        self.take_packages()
        if self.systemd():
            return self.do(f"cd /root/packages && {documented(0)[0]}", 300)
        *commands, reboot = documented(1)
        for command in commands:
            self.do(f"cd /root/packages && {command}")
        self.answers = b""
        self.do(f"({reboot}) >/dev/null 2>&1 & :")
        self.wait_agent(BOOT_SECONDS)

    def take_curl(self):
        """The libcurl of the disk in place of Debian's."""
        self.do("cd /usr/lib/arm-linux-gnueabihf && rm libcurl.so.4 && cp /root/packages/libcurl.so.4 .")

    def service(self, verb):
        """start, stop or restart"""
        return self.do(f"systemctl {verb} fw-download" if self.systemd() else f"/etc/init.d/fw-download {verb}")

    def wait_service(self, seconds=START_SECONDS):
        running = "systemctl is-active --quiet fw-download && " if self.systemd() else ""
        self.do(f"n=0; until {running}kill -0 $(cat /run/fw_download.pid 2>/dev/null) 2>/dev/null; do n=$((n + 1)); "
                f"[ $n -lt {seconds * 5} ] || exit 1; sleep 0.2; done", seconds + 60)

    def log(self):
        """All that the daemon has logged."""
        return self.ask("journalctl -q -t fw_download -o cat --no-pager" if self.systemd()
                        else "grep fw_download /run/messages")

    def restarts(self):
        return int(self.do("systemctl show -P NRestarts fw-download")) if self.systemd() else 0

    def settings(self, **values):
        """Environment of the service, from its next start on."""
        lines = "".join(f"{name}={value}\\n" for name, value in values.items())
        self.do(f"printf '{lines}' >>{SETTINGS}")

    def configure(self, url, others=None):
        """As docs/installing.md says, whose image is the one that Desk.serve() makes; others are values that differ."""
        *settings, tell = documented(2)
        for command in settings:
            self.do(command.replace("http://server/update.zemp", url))
        for name, value in (others or {}).items():
            self.do(f"vexctl config set {name} '{value}'")
        self.do(tell)

    def value(self, name):
        """Of the configuration database; empty when there is none."""
        text = self.ask(f"vexctl config get {name}")
        return text if self.status == 0 else ""


class Desk(contextlib.ExitStack):
    """What one run needs around a terminal: a folder, a web server, images, a card, packages. All ends with its scope."""

    def __init__(self, flavour, packages, keep=None, card_mib=256, more=()):
        """more: files that come to the terminal beside the packages"""
        super().__init__()
        self.flavour = flavour
        self.keep = keep
        if keep:
            os.makedirs(keep, exist_ok=True)
        self.folder = keep or self.enter_context(tempfile.TemporaryDirectory(prefix="terminal."))
        os.makedirs(parts.BUILD, exist_ok=True)
        parts.our_programs()
        self.packages = packages or parts.our_packages()
        self.more = more
        self.served = f"{self.folder}/served"
        os.makedirs(self.served, exist_ok=True)
        self.record = f"{self.folder}/record"
        images.make_record(self.record)
        self.card_mib = card_mib
        self.card = f"{self.folder}/card.img"
        shutil.rmtree(f"{self.folder}/nginx", ignore_errors=True)
        self.server = self.enter_context(WebServer(f"{self.folder}/nginx", self.served))

    def serve(self, image=None, mib=1):
        """The image that is served as update.zemp: a file of the user's, or a new one of about so many MB."""
        path = f"{self.served}/update.zemp"
        if image:
            shutil.copy(image, path)
        else:
            images.make_image(path, mib * 1000000)
        return path

    def url(self, name="update.zemp"):
        return self.server.url(name).replace("127.0.0.1", HOST)

    def boot(self, record=None, **options):
        """A fresh terminal with an empty card, booted, and its packages on a disk."""
        card.make(self.card, self.card_mib, record or self.record)
        root = root_copy(self.flavour, self.packages, f"{self.folder}/root.img")
        disk = archive([*self.packages, *self.more], f"{self.folder}/packages.tar")
        terminal = self.enter_context(Terminal(self.flavour, root, self.card, disks={"packages": disk}, **options))
        terminal.wait_agent(BOOT_SECONDS)
        if terminal.systemd():
            terminal.do("systemctl is-system-running --wait || { systemctl --failed; exit 1; }", BOOT_SECONDS)
        say(f"{self.flavour} booted in {terminal.elapsed():.0f} s")
        return terminal
