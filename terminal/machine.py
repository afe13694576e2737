"""The emulated terminal while it runs: a 32-bit ARM board with a card, a network and a port for commands."""

import json
import os
import re
import select
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import termios
import time
import tty

# The emulator ends with whoever started it, however that ends.
BOARD = ["setpriv", "--pdeathsig", "KILL", "qemu-system-arm", "-M", "virt,highmem=off", "-cpu", "cortex-a15"]
HOST = "10.0.2.2"  # this machine, as the terminal sees it
LEAVE = b"\x1d"  # Ctrl and ]


class MachineError(Exception):
    """The terminal did not do what was asked; the text ends with what its console said last."""


class Machine:
    """Ends with its scope, as if the power were cut.

    kernel is the folder of parts.kernel(). root and card are images that are written to; with keep_root=False what is
    written to the root is gone at the end. More disks, such as an archive of packages, are given as name: path.
    card_log is a file that gets all that is written to the card, in its order, for card.tear(). photograph is a file that
    a machine with the same options wrote: this one goes on from there.
    """

    def __init__(self, kernel, root, card=None, *, keep_root=True, disks=None, memory=128, append=(), card_bus="sd",
                 card_log=None, photograph=None):
        self.directory = tempfile.mkdtemp(prefix="terminal.")
        self.console = b""
        self.answers = b""
        self.number = 0
        self.status = None
        self.begin = time.monotonic()
        self.process = None
        command = [*BOARD, "-m", str(memory), "-nodefaults", "-display", "none", "-kernel", f"{kernel}/vmlinuz",
                   "-initrd", f"{kernel}/initrd", "-append", " ".join(["console=ttyAMA0 quiet panic=-1", *append])]
        for name, use in (("console", ["-serial", "chardev:console"]), ("agent", [])):
            command += ["-chardev", f"socket,id={name},path={self.directory}/{name},server=on,wait=off", *use]
        command += ["-qmp", f"unix:{self.directory}/control,server=on,wait=off", "-device", "virtio-serial-device",
                    "-device", "virtserialport,chardev=agent,name=agent"]
        disks = {"root": f"{root},snapshot={'off' if keep_root else 'on'}", **(disks or {})}
        for name, path in disks.items():
            command += ["-drive", f"if=none,id={name},format=raw,cache=writeback,file={path}",
                        "-device", f"virtio-blk-device,drive={name},serial={name}"]
        if card:
            command += self.card_drive(card, card_log)
            command += (["-device", "sdhci-pci", "-device", "sd-card,drive=card"] if card_bus == "sd" else
                        ["-device", "virtio-blk-device,drive=card,serial=card"])
        command += ["-netdev", "user,id=net", "-device", "virtio-net-device,netdev=net"]
        if photograph:
            command += ["-incoming", f"exec:cat {photograph}"]
        self.error = open(f"{self.directory}/error", "wb")
        try:
            self.process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=self.error, stderr=self.error)
            self.line = self.connect("console")
            self.port = self.connect("agent")
        except BaseException:
            self.cut()
            raise
        if photograph:
            self.until(lambda: self.control("query-status")["status"] != "inmigrate", 60, "the photograph to be read")
            self.control("cont")
            self.begin = time.monotonic()

    @staticmethod
    def card_drive(card, log):
        if not log:
            return ["-drive", f"if=none,id=card,format=raw,cache=writeback,file={card}"]
        open(log, "wb").close()
        return ["-blockdev", f"driver=file,filename={card},node-name=card-file",
                "-blockdev", "driver=raw,file=card-file,node-name=card-bytes",
                "-blockdev", f"driver=file,filename={log},node-name=log",
                "-blockdev", "driver=blklogwrites,file=card-bytes,log=log,node-name=card"]

    def __enter__(self):
        return self

    def __exit__(self, *unused):
        self.cut()

    def cut(self):
        """The power goes: what the terminal has not written is lost."""
        if self.process and self.process.poll() is None:
            self.process.send_signal(signal.SIGKILL)
            self.process.wait()
        self.error.close()
        shutil.rmtree(self.directory, ignore_errors=True)

    def connect(self, name):
        for _ in range(500):
            connection = socket.socket(socket.AF_UNIX)
            try:
                connection.connect(f"{self.directory}/{name}")
                return connection
            except OSError:
                connection.close()
                self.check_alive()
                time.sleep(0.02)
        raise MachineError(f"the emulator does not open its {name}")

    def check_alive(self):
        if self.process.poll() is not None:
            with open(f"{self.directory}/error", errors="replace") as file:
                raise MachineError(f"the emulator has ended: {file.read()}{self.tail()}")

    def tail(self):
        return "\n--- console ---\n" + self.console[-2000:].decode(errors="replace")

    def elapsed(self):
        return time.monotonic() - self.begin

    def pump(self, seconds=0.05):
        """Takes what console and port say."""
        readable, _, _ = select.select([self.line, self.port], [], [], seconds)
        for source in readable:
            data = source.recv(65536)
            if not data:
                time.sleep(0.05)
                self.check_alive()
            elif source is self.line:
                self.console += data
            else:
                self.answers += data

    def until(self, condition, seconds, what):
        end = time.monotonic() + seconds
        while not (result := condition()):
            self.check_alive()
            if time.monotonic() > end:
                raise MachineError(f"waited {seconds} s for {what}{self.tail()}")
            self.pump()
        return result

    def wait_console(self, text, seconds):
        self.until(lambda: text.encode() in self.console, seconds, f"'{text}' on the console")

    def wait_end(self, seconds):
        """The terminal switches itself off."""
        end = time.monotonic() + seconds
        while self.process.poll() is None:
            if time.monotonic() > end:
                raise MachineError(f"not off after {seconds} s{self.tail()}")
            self.pump_quietly()

    def pump_quietly(self):
        try:
            self.pump(0.2)
        except (MachineError, OSError):
            pass

    def wait_agent(self, seconds=300):
        self.take(rb"@@ ready 0\n", seconds, "the terminal's agent")

    def take(self, mark, seconds, what):
        found = self.until(lambda: re.search(mark, self.answers), seconds, what)
        text = self.answers[:found.start()]
        self.answers = self.answers[found.end():]
        return text, found

    def ask(self, command, seconds=120):
        """Runs a shell command in the terminal; its output. The exit status stands in status."""
        self.number += 1
        self.port.sendall(f"{self.number} {command}\n".encode())
        text, found = self.take(rb"\n@@ %d (\d+)\n" % self.number, seconds, f"the end of '{command}'")
        self.status = int(found.group(1))
        return text.decode(errors="replace").strip("\n")

    def do(self, command, seconds=120):
        """As ask(); a command that fails is an error."""
        text = self.ask(command, seconds)
        if self.status != 0:
            raise MachineError(f"'{command}' ends with status {self.status}: {text}")
        return text

    def write_file(self, path, content):
        """A small file into the terminal."""
        self.do(f": >{path}")
        text = "".join(f"\\{byte:03o}" for byte in content)
        for begin in range(0, len(text), 4 * 512):
            self.do(f"printf '{text[begin:begin + 4 * 512]}' >>{path}")

    def control(self, command, **arguments):
        """A command to the emulator itself."""
        with self.connect("control") as connection, connection.makefile("rw") as stream:
            stream.readline()
            for request in ({"execute": "qmp_capabilities"}, {"execute": command, "arguments": arguments}):
                stream.write(json.dumps(request) + "\n")
                stream.flush()
                while "event" in (answer := json.loads(stream.readline())):
                    pass
                if "error" in answer:
                    raise MachineError(f"{command}: {answer['error']['desc']}")
            return answer["return"]

    def write_photograph(self, path):
        """Stops the machine and writes its memory and devices to a file."""
        self.control("migrate-set-parameters", **{"max-bandwidth": 1 << 33})
        self.control("stop")
        self.control("migrate", uri=f"exec:cat >{path}")
        while (status := self.control("query-migrate").get("status")) not in ("completed", "failed"):
            time.sleep(0.1)
        if status == "failed":
            raise MachineError(f"no photograph{self.tail()}")

    def link(self, up):
        """Plugs the network in, or pulls it."""
        self.control("set_link", name="net", up=up)

    def processor_seconds(self):
        """Of the emulator: what the terminal has done, whatever else this machine did."""
        with open(f"/proc/{self.process.pid}/stat") as file:
            fields = file.read().rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    def talk(self):
        """Connects the terminal's console with standard input and output until the terminal is off or LEAVE comes."""
        keyboard = sys.stdin.fileno()
        saved = termios.tcgetattr(keyboard) if os.isatty(keyboard) else None
        sources = [keyboard, self.line]
        self.line.sendall(b"\n")
        try:
            if saved:
                tty.setraw(keyboard)
            while self.process.poll() is None:
                readable, _, _ = select.select(sources, [], [], 0.2)
                if self.line in readable:
                    sys.stdout.buffer.write(self.line.recv(65536))
                    sys.stdout.flush()
                if keyboard in readable:
                    data = os.read(keyboard, 4096)
                    if LEAVE in data:
                        return
                    if not data:
                        sources.remove(keyboard)
                    self.line.sendall(data)
        except (BrokenPipeError, ConnectionResetError):
            pass  # the terminal is off
        finally:
            if saved:
                termios.tcsetattr(keyboard, termios.TCSADRAIN, saved)
