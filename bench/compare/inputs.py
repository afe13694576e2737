"""The images, records and part files that are measured; bytes of a fixed pseudo-random row."""

import os
import random
import subprocess

MIB = 1 << 20
LARGE_BYTES = 75 * MIB - 868  # of bodies: the image is the largest that the daemon accepts
NEEDED_BYTES = 70 * MIB

HEAD = """[release]
version = "1.5.7"
name = "REL-1.05-7"
text = "Release 1.05-7\\n"
"""

LINE = """[[manifest.line]]
index = {index}
pool = "{name}"
version = "{version}"
platform = "{platform}"
"""

PART = """[[part]]
name = "{name}"
version = "{version}"
build-id = "{name}-build"
file = "{file}"
"""

RECORD = """active-set = "A"
[[release]]
name = "REL-1.04-3"
version = "1.4.3"
[[set]]
name = "A"
release = "REL-1.04-3"
"""

PARTITION = """[[partition]]
pool = "{name}"
version = "{version}"
"""

# Index, name, platform, bytes, version in the image, version installed. Kernel and root are needed.
UPDATE = [
    (2, "kernel", "4813", 400000, "1.5.7", "1.4.3"),
    (3, "kernel4812", "4812", 390000, "1.5.7", None),
    (4, "root", "-", 800000, "1.5.7", "1.4.3"),
    (5, "app", "-", 600000, "2.0.1", "2.0.1"),
    (6, "3rdapp", "-", 300000, "1.0.9", "1.0.9"),
]
UPDATE_NEEDED = 2
UPDATE_NEEDED_BYTES = 1200000


class Inputs:
    def __init__(self, binaries, directory):
        self.zemp = os.path.join(binaries, "zemp")
        self.directory = directory
        kernel = 4 * MIB
        self.large = self.image("large.zemp", [(2, "kernel", "4813", kernel, "1.5.7"),
                                               (4, "root", "-", LARGE_BYTES - kernel, "1.5.7")])
        self.small = self.image("small.zemp", [(2, "kernel", "4813", 200, "1.5.7"),
                                               (4, "root", "-", 200, "1.5.7")])
        self.needed = self.image("needed.zemp", [(2, "kernel", "4813", kernel, "1.5.7"),
                                                 (4, "root", "-", NEEDED_BYTES - kernel, "1.5.7")])
        self.update = self.image("update.zemp", [part[:5] for part in UPDATE])
        self.record = self.installed("hostcfg")

    def path(self, name):
        return os.path.join(self.directory, name)

    def image(self, name, parts):
        description = HEAD
        for index, part, platform, _, version in parts:
            description += LINE.format(index=index, name=part, version=version, platform=platform)
        for _, part, _, size, version in parts:
            body = f"{name}.{part}"
            with open(self.path(body), "wb") as file:
                file.write(random.Random(body).randbytes(size))
            description += PART.format(name=part, version=version, file=body)
        return self._build(["build", "--no-check"], name, description)

    def installed(self, name):
        description = RECORD
        for _, part, _, _, _, version in UPDATE:
            if version:
                description += PARTITION.format(name=part, version=version)
        return self._build(["hostcfg", "build"], name, description)

    def _build(self, command, name, description):
        with open(self.path(name + ".toml"), "w") as file:
            file.write(description)
        subprocess.run([self.zemp, *command, self.path(name + ".toml"), "-o", self.path(name)], check=True,
                       stdout=subprocess.DEVNULL)
        return self.path(name)
