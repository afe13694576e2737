"""What befalls a terminal in a round besides the loss of power.

A trouble may change the card that the round begins with, what happens from a start to the cut, and the card after it.
events() is asked at each start, when the terminal runs and /data is not mounted yet; what it gives are moments, in seconds
from then, each with what happens then. In the last start of a round all comes right in the end, without a hand.
"""

import os
import random
import re

import card
from parts import output

MOMENT_SECONDS = 12.0  # within this time something happens
KEPT = 256 << 10  # bytes that stay free on the full card, for the configuration database
RESERVED = 50  # one block of so many is kept by the kernel for itself
MOUNTED = "until mountpoint -q /data; do sleep 0.1; done; "


class Trouble:
    """None."""

    logs_card = False

    def __init__(self, desk, chance, wanted):
        self.desk = desk
        self.random = chance
        self.wanted = wanted  # bytes of the image

    def soon(self):
        return self.random.uniform(0.1, MOMENT_SECONDS)

    def fill(self, make):
        """make(files) makes the card that the round begins with, with more files in /data."""
        make({})

    def events(self, terminal, last):
        del terminal, last
        return []

    def after(self, before, log):
        """The power is cut; before is the card as it was at the start. What there is to tell, if anything."""
        del before, log
        return ""


class Torn(Trouble):
    """Of the sector that was being written only the first half is new."""

    logs_card = True

    def after(self, before, log):
        place = card.tear(self.desk.card, before, log)
        return f"torn at {place}, " if place else ""


class ReadOnly(Trouble):
    """The kernel finds an error of the file system and makes it read-only, as /etc/fstab says; a boot mends it."""

    def events(self, terminal, last):
        fail = "echo 1 >/sys/fs/ext4/$(basename $(readlink -f /dev/mmcblk0p6))/trigger_fs_error"
        return [] if last else [(self.soon(), lambda: terminal.do(MOUNTED + fail))]


class Full(Trouble):
    """Somebody else's file takes the card but for less than the update needs; it goes while the terminal runs."""

    def fill(self, make):
        make({})
        described = output("/sbin/dumpe2fs", "-h", f"{self.desk.card}?offset={card.DATA}")
        blocks, free, size = (int(re.search(name + r":\s+(\d+)", described).group(1))
                              for name in ("Block count", "Free blocks", "Block size"))
        path = f"{self.desk.folder}/fill"
        room = blocks * size // RESERVED + self.random.randrange(KEPT, 2 * self.wanted)
        with open(path, "wb") as file:  # less some blocks that point to the file's
            file.write(random.Random(0).randbytes(int(free * size * 0.995) - room))
        make({"fill": path})
        os.remove(path)

    def events(self, terminal, last):
        return [(self.soon(), lambda: terminal.do(MOUNTED + "rm -f /data/fill"))] if last else []


class Clock(Trouble):
    """It begins in 1970, and jumps to the present some time later."""

    def events(self, terminal, last):
        now = int(terminal.do("date +%s"))
        terminal.do("date -s @1000")
        return [(self.soon(), lambda: terminal.do(f"date -s @{now}"))]


class Offline(Trouble):
    """No network at the start; it comes later, and in all starts but the last it goes again."""

    def events(self, terminal, last):
        terminal.link(False)
        come = self.soon()
        events = [(come, lambda: terminal.link(True))]
        return events if last else [*events, (come + self.soon(), lambda: terminal.link(False))]


class NoAddress(Trouble):
    """The cable is in; the address comes late."""

    def events(self, terminal, last):
        lose, come = (("networkctl down eth0", "networkctl up eth0") if terminal.systemd() else
                      ("ip addr flush dev eth0; ip route flush dev eth0", "killall -USR1 udhcpc"))
        terminal.do(lose)
        return [(self.soon(), lambda: terminal.do(come))]


class Gone(Trouble):
    """Nobody serves at the start and again later; in the last start the server comes back."""

    def events(self, terminal, last):
        server = self.desk.server
        server.stop()
        come = self.soon()
        events = [(come, server.start)]
        return events if last else [*events, (come + self.soon(), server.stop)]

    def after(self, before, log):
        if self.desk.server.process.poll() is not None:
            self.desk.server.start()
        return ""


TROUBLES = {"none": Trouble, "torn": Torn, "readonly": ReadOnly, "full": Full, "clock": Clock, "offline": Offline,
            "noaddress": NoAddress, "gone": Gone}
