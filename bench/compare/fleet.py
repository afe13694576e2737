"""Many daemons side by side against one web server, at the daemon's speed limit; and what that means for more."""

import os
import time

from services import Terminal, WebServer, wait_for

TIME_SCALE = 20  # of the timers; transfers keep their real speed
BYTES_PER_SECOND = 25000  # the daemon's speed limit
SECONDS_PER_REQUEST = 3  # ticks of the timers between two requests
TIMEOUT_SECONDS = 900


def peak_transfers(requests):
    edges = []
    for request in requests:
        edges.append((request["time"] - request["duration"], 1))
        edges.append((request["time"], -1))
    peak = running = 0
    for _, step in sorted(edges, key=lambda edge: (edge[0], -edge[1])):
        running += step
        peak = max(peak, running)
    return peak


def measure(binaries, directory, image, record, count):
    """One update of `count` terminals that begin together. Figures per terminal."""
    with WebServer(os.path.join(directory, "web"), os.path.dirname(image)) as server:
        terminals = []
        try:
            for number in range(count):
                terminal = Terminal(binaries, os.path.join(directory, f"terminal{number}"), record, TIME_SCALE)
                terminals.append(terminal)
                terminal.configure("1.04 3", "1", "5", "7", server.url(os.path.basename(image)))
            before = server.processor_seconds()
            start = time.monotonic()
            for terminal in terminals:
                terminal.start()
            waiting = list(terminals)

            def all_ready():
                if waiting and waiting[0].is_ready():
                    waiting.pop(0)
                return not waiting

            wait_for(all_ready, TIMEOUT_SECONDS, "the fleet's update")
            seconds = time.monotonic() - start
            processor = server.processor_seconds() - before
            memory = server.resident_kb()
        finally:
            for terminal in terminals:
                terminal.stop()
        requests = server.requests()
    return {
        "terminals": count,
        "seconds": seconds,
        "requests": len(requests) / count,
        "connections": len({request["connection"] for request in requests}) / count,
        "sent_bytes": sum(request["sent"] for request in requests) / count,
        "header_bytes_per_request": sum(r["sent"] - r["body"] for r in requests) / len(requests),
        "received_bytes": sum(request["received"] for request in requests) / count,
        "transfers_at_once": peak_transfers(requests),
        "server_processor_ms": 1000 * processor / count,
        "server_resident_kb": memory,
        "failed_requests": sum(request["status"] != 206 for request in requests),
    }


def estimate(figures, terminals, needed_bytes, elements, needed):
    """What a web server has to do when so many terminals, an update of so many bytes each, begin together."""
    requests = 1 + elements + needed
    sent = needed_bytes + requests * (512 + figures["header_bytes_per_request"])
    seconds = sent / BYTES_PER_SECOND + SECONDS_PER_REQUEST * requests
    per_byte = figures["server_processor_ms"] / figures["sent_bytes"]  # requests and their bytes taken together
    return {
        "terminals": terminals,
        "requests": requests * terminals,
        "gigabytes": sent * terminals / 1e9,
        "hours": seconds / 3600,
        "connections_per_hour": requests * terminals / max(seconds / 3600, 1),
        "megabits_per_second": terminals * BYTES_PER_SECOND * 8 / 1e6,
        "server_processor_share": per_byte * sent * terminals / 1000 / seconds,
    }
