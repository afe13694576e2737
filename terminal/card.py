"""The terminal's card: an image file with a partition table, the host configuration record, and /data."""

import os
import shutil
import subprocess
import tempfile

from parts import PROJECT, run

MIB = 1 << 20
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


class Look:
    """What is on a card whose power was cut; the card itself is left as it is.

    replayed: the file system's journal had to be. sound: the file system is without a fault then. files: name in the
    download directory: bytes. values: the configuration database, where it is on the card, None if it cannot be read.
    """

    def __init__(self, card, database="vex/config.db"):
        with tempfile.TemporaryDirectory() as directory:
            data = f"{directory}/data"
            run("cp", "--sparse=always", card, data)
            where = f"{data}?offset={DATA}"
            journal = subprocess.run(["/sbin/e2fsck", "-fy", "-E", "journal_only", where], capture_output=True, text=True)
            check = subprocess.run(["/sbin/e2fsck", "-fn", where], capture_output=True, text=True)
            self.replayed = "recovering journal" in journal.stdout
            self.sound = check.returncode == 0
            self.findings = "" if self.sound else check.stdout[-1000:]
            tree = f"{directory}/tree"
            os.mkdir(tree)
            subprocess.run(["/sbin/debugfs", "-R", f"rdump /fw {tree}", where], capture_output=True)
            subprocess.run(["/sbin/debugfs", "-R", f"rdump /{os.path.dirname(database)} {tree}", where], capture_output=True)
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
