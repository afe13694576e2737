"""Command line of script/terminal."""

import argparse
import os
import signal
import subprocess
import sys
import time

import card
import images
import parts
from figures import figures
from machine import MachineError
from night import night
from parts import PROJECT, output, say
from terminal import SETTINGS, Desk, boot_to_end
from upkeep import upkeep

BYTES_PER_SECOND = 25000  # at level 6 and below
POLL_SECONDS = 2
SERIAL = 42  # of the sealed release
SCALES = {"night": 100, "packages": 10}
# What puts a fault back into the installed service, as commands of the terminal.
DROP_IN = "mkdir -p /etc/systemd/system/fw-download.service.d && printf '[Service]\\n{}\\n' " \
    ">/etc/systemd/system/fw-download.service.d/fault.conf && systemctl daemon-reload"
FAULTS = {
    "suidsgid": DROP_IN.format("RestrictSUIDSGID=yes"),
    "memory": DROP_IN.format("MemoryMax=64M"),  # shows with --mb 66 --level 7 --memory 256
    "directory": "rm -r /var/lib/vex /usr/lib/tmpfiles.d/libvex-host.conf",
}


def words():
    parser = argparse.ArgumentParser(prog="script/terminal", description="Boots an emulated 32-bit ARM terminal, installs the "
                                     "project's packages in it, and gives a shell or runs one update.")
    parser.add_argument("verb", nargs="?", choices=["shell", "update", "night", "packages", "figures", "build"], default="shell",
                        help="night: a night's events in minutes; packages: upgraded, cut, removed, purged; figures: for "
                        "docs/performance.md; build only makes what is kept below build/terminal")
    parser.add_argument("--flavour", choices=parts.FLAVOURS, default="systemd",
                        help="systemd with the unit, or busybox init with the init script")
    parser.add_argument("--image", help="the image to update to; without it one that the terminal needs all of")
    parser.add_argument("--installed", metavar="RECORD", help="host configuration record of what the terminal has")
    parser.add_argument("--mb", type=int, default=1, help="size of the image that is made (%(default)s)")
    parser.add_argument("--level", type=int, help="of the daemon's log; at 7 it downloads at full speed")
    parser.add_argument("--scale", type=float, help="makes the daemon's timers so many times faster")
    parser.add_argument("--memory", type=int, default=128, help="of the terminal in MiB (%(default)s)")
    parser.add_argument("--tmp", metavar="SIZE", help="of /tmp, which is memory, for example 16M; without it half of the memory")
    parser.add_argument("--card", type=int, default=256, metavar="MIB", help="size of the card, a power of two (%(default)s)")
    parser.add_argument("--packages", metavar="DIRECTORY", help="of armhf packages, in place of those of these sources")
    parser.add_argument("--curl", choices=["small"], help="with a libcurl of HTTP and one TLS library alone")
    parser.add_argument("--seal", action="store_true", help="seal the image, and give the terminal the key")
    parser.add_argument("--put-back", choices=FAULTS, help="a fault that the service once had; the update fails then")
    parser.add_argument("--hours", type=float, default=10, help="of the night (%(default)s)")
    parser.add_argument("--gone", type=float, metavar="HOURS", help="the server is gone for so long, in place of other losses")
    parser.add_argument("--cuts", type=int, default=0, help="so often the power goes while packages are upgraded (%(default)s)")
    parser.add_argument("--seed", type=int, default=1, help="of what is random in a night, and of the cuts (%(default)s)")
    parser.add_argument("--keep", metavar="DIRECTORY", help="leave card, root and logs there")
    options = parser.parse_args()
    options.scale = options.scale or SCALES.get(options.verb)
    if options.verb == "packages" and options.flavour != "systemd":
        parser.error("packages need the systemd flavour, the other has no package manager")
    return options


def prepare(terminal, options):
    """Installed and running, with the settings that were asked for."""
    begin = time.monotonic()
    terminal.install()
    values = {}
    if options.level is not None:
        values["FW_DOWNLOAD_OPTIONS"] = f'"-v {options.level}"'
    if options.scale:
        values["VEX_TIME_SCALE"] = options.scale
    if options.tmp:
        terminal.do(f"mount -o remount,size={options.tmp} /tmp")
    if options.put_back:
        say(f"put back: {options.put_back}")
        terminal.do(FAULTS[options.put_back])
    if values:
        terminal.settings(**values)
    if options.curl:
        terminal.take_curl()
    if values or options.curl or options.put_back:
        terminal.service("restart")
    terminal.wait_service()
    say(f"packages installed and service running after {time.monotonic() - begin:.0f} s")


def update(desk, terminal, options):
    """One update through the installed service; raises if it is not right. The power is cut when the image is flagged."""
    source = desk.serve(options.image, options.mb)
    record = options.installed or desk.record
    bytes_needed = os.path.getsize(source)
    if options.seal:
        key = " ".join(f"'{line}'" for line in images.seal(source, SERIAL).splitlines())
        terminal.do(f"printf '%s\\n' {key} >/etc/fw_download/keys.d/maker.pub")
        terminal.service("restart")
        terminal.wait_service()
    seconds = 420 / (options.scale or 1) + 60 + bytes_needed / (BYTES_PER_SECOND if options.level != 7 else 500000) * 1.5
    terminal.configure(desk.url(), images.configuration(source, desk.url()) if options.image else None)
    begin = time.monotonic()
    while not (flag := terminal.value("cfg.fw_ready_for_install")):
        if time.monotonic() - begin > seconds or terminal.restarts():
            reason = "the service has ended and was started again" if terminal.restarts() else f"no image after {seconds:.0f} s"
            raise MachineError(f"{reason}; the daemon's log ends with\n" + "\n".join(terminal.log().splitlines()[-30:]))
        time.sleep(POLL_SECONDS)
    say(f"update of {bytes_needed} bytes ready after {time.monotonic() - begin:.0f} s: {flag}")
    if options.seal:
        if (serial := terminal.ask("cat /var/lib/fw_download/serial").strip()) != str(SERIAL):
            raise MachineError(f"the serial that is kept is {serial}, not {SERIAL}")
        say("the release was sealed, and its serial is kept")
    peak = terminal.ask("cat /sys/fs/cgroup/system.slice/fw-download.service/memory.peak 2>/dev/null")
    if peak:
        say(f"most memory of the service, page cache and /tmp included: {int(peak) / 2**20:.1f} MiB")
    terminal.cut()
    look = card.Look(desk.card)
    if not look.sound:
        raise MachineError(f"the card's file system has faults: {look.findings}")
    compiled = look.image(flag)
    if compiled is None:
        raise MachineError(f"the card does not hold {flag}, but {look.files}")
    if fault := images.fault(compiled, source, record):
        raise MachineError(f"the image on the card is wrong: {fault}")
    if options.seal:
        with open(f"{source}.seal", "rb") as file:
            if look.image(f"{flag}.seal") != file.read():
                raise MachineError("the seal is not beside the image on the card")
    say(f"the image on the card is right: {len(compiled)} bytes")


def shell(desk, terminal, options):
    desk.serve(options.image, options.mb)
    say(f"an image is served at {desk.url()}; settings of the service are in {SETTINGS}")
    say("'poweroff' or Ctrl and ] ends the terminal")
    terminal.talk()


def main():
    options = words()
    signal.signal(signal.SIGTERM, lambda *unused: sys.exit(1))  # leaves the scopes
    try:
        more = [output(f"{PROJECT}/script/small-curl", "armhf").strip()] if options.curl else []
        with Desk(options.flavour, parts.in_directory(options.packages), options.keep, options.card, more) as desk:
            if options.verb == "build":
                parts.base_root(options.flavour, desk.packages, boot_to_end)
                return
            terminal = desk.boot(record=options.installed, memory=options.memory)
            prepare(terminal, options)
            verbs = {"shell": shell, "update": update, "night": night, "packages": upkeep, "figures": figures}
            verbs[options.verb](desk, terminal, options)
    except (MachineError, OSError, RuntimeError, subprocess.CalledProcessError) as error:
        said = getattr(error, "stderr", None) or b""
        sys.exit(f"terminal: {error} {said if isinstance(said, str) else said.decode(errors='replace')}".rstrip())


if __name__ == "__main__":
    main()
