"""The terminal's card: an image file with a partition table, the host configuration record, and /data."""

import os
import re
import shutil
import struct
import subprocess
import tempfile

from parts import PROJECT, output, run

MIB = 1 << 20
SECTOR = 512
SUPERBLOCK = 1024
MENDED = 1
LOG_DISCARDS = 4
DATA_MIB = 6  # where the partition of /data begins
DATA = DATA_MIB * MIB
RECORD_MIB = 5
VEXCTL = f"{PROJECT}/build/release/bin/vexctl"

TABLE = """label: gpt
start=1MiB, size=1MiB, name=boot
start=2MiB, size=1MiB, name=a
start=3MiB, size=1MiB, name=b
start=4MiB, size=1MiB, name=environment
start=5MiB, size=1MiB, name=hostcfg
start=6MiB, size={data}MiB, name=data
"""


def make(path, mib, record, files=None):
    """A card of so many MiB, a power of two as cards are. files: what lies in /data, as name: path."""
    with open(path, "wb") as file:
        file.truncate(mib * MIB)
    run("/sbin/sfdisk", "-q", path, input=TABLE.format(data=mib - DATA_MIB - 1), text=True)
    with open(path, "r+b") as card, open(record, "rb") as file:
        card.seek(RECORD_MIB * MIB)
        card.write(file.read())
    with tempfile.TemporaryDirectory() as tree:
        for name, source in (files or {}).items():
            os.makedirs(os.path.dirname(os.path.join(tree, name)), exist_ok=True)
            shutil.copy(source, os.path.join(tree, name))
        run("/sbin/mke2fs", "-q", "-t", "ext4", "-m", "0", "-E", f"offset={DATA},root_owner=0:0", "-d", tree, path,
            f"{mib - DATA_MIB - 1}M")


def written(log):
    """What a machine wrote to its card, in its order: where, and the bytes, from the log of the emulator."""
    with open(log, "rb") as file:
        file.seek(SECTOR)
        while len(head := file.read(SECTOR)) == SECTOR:
            sector, sectors, flags, _ = struct.unpack("<QQQQ", head[:32])
            data = b"" if flags & LOG_DISCARDS else file.read(sectors * SECTOR)
            if len(data) == sectors * SECTOR and sectors:
                yield sector * SECTOR, data


def superblocks(card):
    """Places of the sectors that the file system and its journal have no second try for: a card has to write them whole."""
    where = f"{card}?offset={DATA}"
    size = int(re.search(r"Block size:\s+(\d+)", output("/sbin/dumpe2fs", "-h", where, stderr=subprocess.DEVNULL)).group(1))
    journal = int(output("/sbin/debugfs", "-R", "bmap <8> 0", where, stderr=subprocess.DEVNULL)) * size
    return {DATA + begin + half for begin in (SUPERBLOCK, journal) for half in (0, SECTOR)}


def tear(path, before, log):
    """Of the sector that was written last only the first half is new; before is the card as it was when it was started.
    Its place; None if nothing was written, or one of the superblocks last, which stays whole."""
    found = None
    old = {}
    for place, data in written(log):
        for begin in range(0, len(data), SECTOR):
            if found:
                old[found[0]] = found[1]
            found = place + begin, data[begin:begin + SECTOR]
    if not found or found[0] in superblocks(before):
        return None
    place, new = found
    if place not in old:
        with open(before, "rb") as file:
            file.seek(place)
            old[place] = file.read(SECTOR)
    with open(path, "r+b") as file:
        file.seek(place)
        file.write(new[:SECTOR // 2] + old[place][SECTOR // 2:])
    return place


def checked(image):
    """Does with a file system what a boot does; whether its journal had to be replayed, and the faults that are left."""
    boot = subprocess.run(["/sbin/e2fsck", "-p", image], capture_output=True, text=True)
    check = subprocess.run(["/sbin/e2fsck", "-fn", image], capture_output=True, text=True)
    fault = boot.returncode not in (0, MENDED) or check.returncode != 0
    return "recovering journal" in boot.stdout, (boot.stdout + boot.stderr + check.stdout)[-1000:] if fault else ""


def faults(image):
    """Of a file system that fills an image, which is left as it is."""
    with tempfile.TemporaryDirectory() as directory:
        run("cp", "--sparse=always", image, f"{directory}/image")
        return checked(f"{directory}/image")[1]


class Look:
    """What is on a card whose power was cut; the card itself is left as it is.

    replayed: the file system's journal had to be. sound: the file system is without a fault then. files: name in the
    download directory: bytes. values: the configuration database, where it is on the card, None if it cannot be read.
    """

    def __init__(self, card, database="vex/config.db"):
        with tempfile.TemporaryDirectory() as directory:
            data = f"{directory}/data"
            # The partition by itself: what mends file systems does not find its way in the card once it has replayed.
            run("dd", "status=none", "bs=1M", "conv=sparse", f"skip={DATA_MIB}", f"if={card}", f"of={data}")
            self.replayed, self.findings = checked(data)
            self.sound = not self.findings
            tree = f"{directory}/tree"
            os.mkdir(tree)
            subprocess.run(["/sbin/debugfs", "-R", f"rdump /fw {tree}", data], capture_output=True)
            subprocess.run(["/sbin/debugfs", "-R", f"rdump /{os.path.dirname(database)} {tree}", data], capture_output=True)
            self.files = {}
            self.contents = {}
            for name in sorted(os.listdir(f"{tree}/fw")) if os.path.isdir(f"{tree}/fw") else []:
                with open(f"{tree}/fw/{name}", "rb") as file:
                    self.contents[name] = file.read()
                self.files[name] = len(self.contents[name])
            self.values = None
            path = f"{tree}/{database}"
            if os.path.exists(path):
                listed = subprocess.run([VEXCTL, "config", "list"], capture_output=True, text=True,
                                        env=dict(os.environ, VEX_CONFIGDB=path))
                if listed.returncode == 0:
                    self.values = dict(line.split("=", 1) for line in listed.stdout.splitlines() if "=" in line)

    def image(self, flag):
        """The bytes of the update image that a value of the database names, None if it is not there."""
        return self.contents.get(os.path.basename(flag))
