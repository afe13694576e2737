"""Images that are served, and what the terminal has."""

import json
import os
import random
import re
import subprocess
import tempfile

from parts import PROJECT, output, run

ZEMP = f"{PROJECT}/build/release/bin/zemp"

RECORD = """active-set = "A"
[[release]]
name = "REL-1.04-3"
version = "1.4.3"
[[set]]
name = "A"
release = "REL-1.04-3"
bootable = true
references = 1
[[partition]]
pool = "kernel"
version = "1.1.3"
[[partition]]
pool = "root"
version = "2.9.4"
mountpoint = "/"
filesystem = "ext4"
"""
IMAGE = """[release]
version = "{version}"
name = "REL-{version}"
text = "Release {version}\\n"
[[manifest.line]]
index = 2
pool = "kernel"
version = "2.{of_parts}"
[[manifest.line]]
index = 4
pool = "root"
version = "3.{of_parts}"
mountpoint = "/"
filesystem = "ext4"
[[part]]
name = "kernel"
version = "2.{of_parts}"
build-id = "kernel-build"
file = "kernel.bin"
[[part]]
name = "root"
version = "3.{of_parts}"
build-id = "root-build"
file = "root.bin"
"""
INSTALLED = "1.04 3"


def body(path, size):
    with open(path, "wb") as file:
        file.write(random.Random(os.path.basename(path)).randbytes(size))


def make_image(path, size, version="1.5.7"):
    """An image with about so many bytes of bodies, all of which the terminal needs: a kernel and a root, whose versions
    follow from the image's."""
    directory = os.path.dirname(path)
    body(f"{directory}/kernel.bin", size * 3 // 10)
    body(f"{directory}/root.bin", size * 7 // 10)
    description = f"{path}.toml"
    with open(description, "w") as file:
        file.write(IMAGE.format(version=version, of_parts=version.partition(".")[2]))
    run(ZEMP, "build", description, "-o", path, capture_output=True)
    os.remove(f"{directory}/kernel.bin")
    os.remove(f"{directory}/root.bin")


def make_record(path):
    with open(f"{path}.toml", "w") as file:
        file.write(RECORD)
    run(ZEMP, "hostcfg", "build", f"{path}.toml", "-o", path, capture_output=True)


def listing(path):
    return json.loads(output(ZEMP, "list", "--json", path))["parts"]


def configuration(image, url):
    """Keys and values that make a terminal want the image."""
    major, minor, build = re.fullmatch(r"(\d+)\.(\d+)-(\d+)", listing(image)[0]["version"]).groups()
    key = "cfg.device.configuration."
    return {key + "major_version": int(major), key + "minor_version": int(minor), key + "build_label": int(build),
            key + "sw_update_url": url, key + "force_sw_update": 0, "state.suu.currentset.version": INSTALLED,
            "cfg.config.status": "complete"}


def fault(compiled, served, record):
    """What is wrong with a compiled update image, given as bytes, None if nothing: all that the terminal needs is there,
    byte for byte, the other parts as headers only, and nothing else."""
    with open(served, "rb") as file:
        source = file.read()
    if compiled == source:
        return None
    plan = json.loads(output(ZEMP, "plan", "--json", "--installed", record, served))
    if len(compiled) != plan["updateImageBytes"]:
        return f"{len(compiled)} bytes in place of {plan['updateImageBytes']}"
    spared = {element["pool"] for element in plan["elements"] if not element["needed"]}
    with tempfile.NamedTemporaryFile() as file:
        file.write(compiled)
        file.flush()
        found = listing(file.name)
    parts = listing(served)
    if [part["name"] for part in found] != [part["name"] for part in parts]:
        return "other parts than the served image"

    def bytes_of(image, part):
        return image[part["bodyOffset"]:part["bodyOffset"] + part["bodySize"]]

    for mine, theirs in zip(found[1:], parts[1:]):
        if theirs["name"] not in spared and bytes_of(compiled, mine) != bytes_of(source, theirs):
            return f"part {theirs['name']} differs from the served one"
    return None


def seal(image, serial):
    """Puts the seal of an image beside it, made as docs/walkthrough.md does. Returns the public key's file."""
    with tempfile.TemporaryDirectory() as folder:
        key, lines = f"{folder}/release", f"{folder}/release.lines"
        run("minisign", "-G", "-W", "-p", f"{key}.pub", "-s", f"{key}.sec", stdout=subprocess.DEVNULL)
        run(ZEMP, "digest", image, "-o", lines, stdout=subprocess.DEVNULL)
        with open(lines) as file:
            release = re.search(r"^release (\S+)$", file.read(), re.MULTILINE)[1]
        run("minisign", "-S", "-W", "-s", f"{key}.sec", "-m", lines, "-t", f"fw {release} serial {serial}",
            stdout=subprocess.DEVNULL)
        run(ZEMP, "seal", lines, f"{lines}.minisig", "--key", f"{key}.pub", "-o", f"{image}.seal", stdout=subprocess.DEVNULL)
        with open(f"{key}.pub") as file:
            return file.read()
