"""What an emulated terminal is made of: kernel, initial file system, root file systems, the project's packages.

Each part is made once and kept below build/terminal, under a name that changes with what it is made from. No root is
needed: files get their owners from fakeroot, Debian's packages are unpacked here and configured by the terminal itself,
on its first boot. The machine's own packages are left alone.
"""

import glob
import hashlib
import os
import shutil
import subprocess
import tempfile

PROJECT = os.path.dirname(os.path.dirname(os.path.realpath(__file__)))
BUILD = os.path.join(PROJECT, "build", "terminal")
GUEST = os.path.join(PROJECT, "terminal", "guest")
FLAVOURS = ("systemd", "busybox")

# What a terminal has whatever is installed on it; what the project's packages need of Debian is read from them.
PACKAGES = {
    "systemd": ["?essential", "usr-is-merged", "systemd", "systemd-sysv", "dbus", "udev", "kmod", "procps", "apt",
                "e2fsprogs", "ca-certificates"],
    "busybox": ["busybox-static", "dbus-daemon", "dbus-system-bus-common", "ca-certificates"],
}
# Needed by maintainer scripts only, which a terminal without a package manager does not run.
BUSYBOX_DOES_WITHOUT = ("debconf_", "openssl_", "libdb5.3_", "perl-base_", "init-system-helpers_")
MODULES = ["virtio_mmio", "virtio_blk", "ext4", "crc32c_generic", "virtio_net", "virtio_console", "sdhci_pci"]
ROOT_MIB = {"systemd": 400, "busybox": 64}
DOES_WITHOUT = ["usr/share/doc", "usr/share/man", "usr/share/locale", "usr/share/lintian", "usr/share/bug"]


def run(*command, **options):
    return subprocess.run(command, check=True, **options)


def output(*command, **options):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True, **{"stderr": subprocess.PIPE, **options}).stdout


def say(text):
    print(f"terminal: {text}", flush=True)


def key(*things):
    """A short name of what a part is made from: texts, and the files below folders."""
    digest = hashlib.sha256()
    for thing in things:
        if os.path.isdir(thing):
            files = sorted(glob.glob(f"{thing}/**", recursive=True))
        else:
            files = [thing]
        for file in files:
            digest.update(file.removeprefix(PROJECT).encode())
            if os.path.isfile(file):
                with open(file, "rb") as stream:
                    digest.update(stream.read())
    return digest.hexdigest()[:12]


def kept(name, make):
    """The path of a part, made now when it is not there; parts of that name made from other things go."""
    path = os.path.join(BUILD, name)
    if not os.path.exists(path):
        os.makedirs(BUILD, exist_ok=True)
        kind, _, _ = name.partition("@")
        for old in glob.glob(f"{BUILD}/{glob.escape(kind)}@*"):
            shutil.rmtree(old) if os.path.isdir(old) else os.remove(old)
        with tempfile.TemporaryDirectory(prefix="making.", dir=BUILD) as work:
            made = os.path.join(work, "made")
            make(made, work)
            os.rename(made, path)
    return path


def fetch(directory, packages, alone=False):
    run(f"{PROJECT}/script/armhf-packages", *(["--alone"] if alone else []), directory, *packages)
    return sorted(glob.glob(f"{directory}/*.deb"))


def unpack(package, root, only=()):
    """Into a root whose /bin, /sbin and /lib may be links. Only files that match, when asked for."""
    archive = subprocess.Popen(["dpkg-deb", "--fsys-tarfile", package], stdout=subprocess.PIPE)
    run("tar", "-x", "-C", root, "--keep-directory-symlink", *(["--wildcards", *only] if only else []),
        stdin=archive.stdout)
    archive.stdout.close()
    if archive.wait() != 0:
        raise RuntimeError(f"{package} cannot be unpacked")


def kernel():
    """A folder with vmlinuz, initrd and VERSION."""

    def make(made, work):
        say("fetching the kernel")
        meta, = fetch(f"{work}/meta", ["linux-image-armmp"], alone=True)
        image = next(name.split()[0] for name in output("dpkg-deb", "-f", meta, "Depends").split(",")
                     if name.strip().startswith("linux-image-"))
        package, = fetch(f"{work}/debs", [image], alone=True)
        busybox, = fetch(f"{work}/busybox", ["busybox-static"], alone=True)
        version = image.removeprefix("linux-image-")
        modules = f"{work}/tree"
        os.makedirs(modules)
        unpack(package, modules, ["./boot/vmlinuz-*", "./lib/modules/*"])
        unpack(busybox, modules, ["./bin/busybox"])
        run("/sbin/depmod", "-b", modules, version)
        initial = f"{work}/initial"
        for folder in ("bin", "proc", "sys", "dev", "root", "modules"):
            os.makedirs(f"{initial}/{folder}")
        shutil.copy(f"{modules}/bin/busybox", f"{initial}/bin")
        shutil.copy(f"{GUEST}/init", initial)
        order = []
        for module in MODULES:
            shown = output("/sbin/modprobe", "-d", modules, "-S", version, "--show-depends", module)
            order += [line.split()[1] for line in shown.splitlines() if line.startswith("insmod ")]
        with open(f"{initial}/modules/order", "w") as file:
            for path in dict.fromkeys(order):
                shutil.copy(path, f"{initial}/modules")
                file.write(os.path.basename(path) + "\n")
        os.makedirs(made)
        run("sh", "-c", 'cd "$1" && find . | sort | cpio --quiet -o -H newc --owner=+0:+0 | gzip -9n >"$2"', "-",
            initial, f"{made}/initrd")
        shutil.copy(f"{modules}/boot/vmlinuz-{version}", f"{made}/vmlinuz")

    return kept(f"kernel@{key(str(MODULES), GUEST + '/init')}", make)


def needed(packages):
    """What packages need that is not among them, by name."""
    def field(package, name):
        return output("dpkg-deb", "-f", package, name).strip()

    ours = {field(package, "Package") for package in packages}
    depends = [clause for package in packages for clause in field(package, "Depends").split(",")]
    choices = [[choice.split()[0] for choice in clause.split("|")] for clause in depends]
    return sorted({names[0] for names in choices if not ours.intersection(names)})


def base_root(flavour, packages, boot):
    """A root file system with all that the project's packages need but not themselves. boot(image, **options) boots a
    machine to the end."""
    wanted = sorted({*PACKAGES[flavour], *needed(packages)})
    made_from = key(str(wanted), str(ROOT_MIB), f"{GUEST}/common", f"{GUEST}/{flavour}",
                    f"{PROJECT}/terminal/populate")

    def make(made, work):
        say(f"fetching the packages of the {flavour} root")
        fetched = fetch(f"{work}/debs", wanted)
        if flavour == "busybox":
            fetched = [package for package in fetched
                       if not os.path.basename(package).startswith(BUSYBOX_DOES_WITHOUT)]
        image = f"{work}/root.img"
        command = [f"{PROJECT}/terminal/populate", flavour, GUEST, f"{work}/root", image, str(ROOT_MIB[flavour]), *fetched]
        run(*([] if os.geteuid() == 0 else ["fakeroot", "--"]), *command)
        if flavour == "systemd":
            say("first boot: the terminal configures its packages")
            boot(image, ["init=/sbin/second-stage"], "second stage done", 900)
        os.rename(image, made)

    return kept(f"root-{flavour}@{made_from}", make)


def for_terminal(directory):
    """What of the project's packages a terminal installs: none of those for the desk and for compilers."""
    return sorted(package for name in ("fw-download", "fw-download-bin", "libvex-host", "vexctl")
                  for package in glob.glob(f"{directory}/{name}_*_armhf.deb"))


def build(preset, targets, log):
    for command in (["cmake", "--preset", preset, "--log-level=WARNING"],
                    ["cmake", "--build", "--preset", preset, "--target", *targets, "--", "--quiet"]):
        run(*command, cwd=PROJECT, stdout=log)


def our_programs():
    """Those of this machine that make images and look at databases, of the sources as they are now."""
    with open(os.path.join(PROJECT, "build", "terminal.log"), "w") as log:
        build("release", ["vexctl", "zemp"], log)


def our_packages():
    """The project's armhf packages, of the sources as they are now."""
    run(f"{PROJECT}/script/arm-sysroot")
    directory = os.path.join(BUILD, "packages")
    with open(os.path.join(PROJECT, "build", "terminal.log"), "a") as log:
        build("arm", ["package-files"], log)
        shutil.rmtree(directory, ignore_errors=True)
        run("cpack", "-B", directory, cwd=os.path.join(PROJECT, "build", "arm"), stdout=log)
    shutil.rmtree(os.path.join(directory, "_CPack_Packages"), ignore_errors=True)
    return for_terminal(directory)


def in_directory(directory):
    """The armhf packages of a directory; None for none, which means our_packages()."""
    return for_terminal(directory) if directory else None
