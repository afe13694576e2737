"""What a daemon needs around it: message bus, configuration database, web server, private file system."""

import json
import os
import shutil
import socket
import subprocess
import time

BUS_CONFIGURATION = """<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:path={socket}</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
"""

NGINX_CONFIGURATION = """daemon off;
master_process off;
pid {directory}/nginx.pid;
error_log {directory}/error.log;
events {{ worker_connections 4096; }}
http {{
    log_format bench escape=json '{{"time":$msec,"duration":$request_time,"connection":$connection,'
        '"range":"$http_range","status":$status,"sent":$bytes_sent,"body":$body_bytes_sent,'
        '"received":$request_length}}';
    access_log {directory}/access.log bench;
    sendfile on;
    client_body_temp_path {directory}/temp;
    proxy_temp_path {directory}/temp;
    fastcgi_temp_path {directory}/temp;
    uwsgi_temp_path {directory}/temp;
    scgi_temp_path {directory}/temp;
    server {{
        listen 127.0.0.1:{port} backlog=4096 sndbuf=64k;
        location / {{ root {root}; }}
    }}
}}
"""

START_SECONDS = 10


def wait_for(condition, seconds, what):
    deadline = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > deadline:
            raise RuntimeError(f"{what} takes longer than {seconds} s")
        time.sleep(0.02)


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class Service:
    """A process that ends with its scope, and may be stopped and started again before."""

    def __init__(self, command, **options):
        self.command = command
        self.options = options
        self.start()

    def start(self):
        self.process = subprocess.Popen(self.command, stdin=subprocess.DEVNULL, **self.options)

    def stop(self):
        if self.process.poll() is None:
            self.process.terminate()
            try:
                self.process.wait(START_SECONDS)
            except subprocess.TimeoutExpired:
                self.process.kill()
        self.process.wait()

    def __enter__(self):
        return self

    def __exit__(self, *unused):
        self.stop()


class Bus(Service):
    def __init__(self, directory):
        self.socket = os.path.join(directory, "bus")
        configuration = os.path.join(directory, "bus.conf")
        with open(configuration, "w") as file:
            file.write(BUS_CONFIGURATION.format(socket=self.socket))
        super().__init__(["dbus-daemon", "--nofork", "--nosyslog", f"--config-file={configuration}"],
                         stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        wait_for(lambda: os.path.exists(self.socket), START_SECONDS, "the bus")


class WebServer(Service):
    def __init__(self, directory, root):
        os.makedirs(directory)
        self.directory = directory
        self.port = free_port()
        configuration = os.path.join(directory, "nginx.conf")
        with open(configuration, "w") as file:
            file.write(NGINX_CONFIGURATION.format(directory=directory, root=root, port=self.port))
        program = shutil.which("nginx") or "/usr/sbin/nginx"
        error_log = os.path.join(directory, "error.log")
        super().__init__([program, "-e", error_log, "-p", directory, "-c", configuration])
        wait_for(lambda: os.path.exists(os.path.join(directory, "nginx.pid")), START_SECONDS, "the web server")

    def url(self, name):
        return f"http://127.0.0.1:{self.port}/{name}"

    def requests(self):
        with open(os.path.join(self.directory, "access.log")) as file:
            return [json.loads(line) for line in file]

    def processor_seconds(self):
        with open(f"/proc/{self.process.pid}/stat") as file:
            fields = file.read().rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    def resident_kb(self):
        return status_value(self.process.pid, "VmRSS")


class Terminal:
    """The daemon in console mode, with bus, configuration and file system of its own."""

    def __init__(self, binaries, directory, record, time_scale=1, verbosity=6, curl=None):
        """curl: directory with a libcurl of its own"""
        self.binaries = binaries
        self.curl = curl
        self.directory = directory
        for name in ("tmp", "fw", "run"):
            os.makedirs(os.path.join(directory, name))
        shutil.copy(record, os.path.join(directory, "tmp", "hostcfg.backup"))
        self.database = os.path.join(directory, "config.db")
        self.log = os.path.join(directory, "log")
        self.time_scale = time_scale
        self.verbosity = verbosity
        self.bus = Bus(directory)
        self.daemon = None

    def environment(self):
        own = {"LD_LIBRARY_PATH": self.curl} if self.curl else {}
        return dict(os.environ, VEX_CONFIGDB=self.database, VEX_TIME_SCALE=str(self.time_scale),
                    VEX_CBUS_ADDRESS=f"unix:path={self.bus.socket}", **own)

    def vexctl(self, *arguments):
        command = [os.path.join(self.binaries, "vexctl"), "config", *arguments]
        result = subprocess.run(command, env=self.environment(), capture_output=True, text=True)
        return result.stdout.strip()

    def configure(self, installed, major, minor, build, url):
        key = "cfg.device.configuration."
        self.vexctl("set", "state.suu.currentset.version", installed, key + "major_version", major,
                    key + "minor_version", minor, key + "build_label", build, key + "sw_update_url", url,
                    "cfg.config.status", "complete")

    def command(self):
        """In a box: the machine's programs read-only, and directories of its own."""
        box = ["bwrap", "--die-with-parent", "--dev", "/dev", "--proc", "/proc"]
        for tree in ("/usr", "/bin", "/sbin", "/lib", "/lib64", "/etc"):
            if os.path.islink(tree):
                box += ["--symlink", os.readlink(tree), tree]
            elif os.path.isdir(tree):
                box += ["--ro-bind", tree, tree]
        for source, target in (("fw", "/data/fw"), ("tmp", "/tmp"), ("", "/box")):
            box += ["--bind", os.path.join(self.directory, source), target]
        libraries = os.path.join(os.path.dirname(self.binaries), "lib")
        box += ["--ro-bind", self.binaries, "/build/bin", "--ro-bind", libraries, "/build/lib",
                "--ro-bind", self.curl or libraries, "/build/curl",
                "--setenv", "LD_LIBRARY_PATH", "/build/curl:/build/lib", "--setenv", "VEX_CONFIGDB", "/box/config.db",
                "--setenv", "VEX_CBUS_ADDRESS", "unix:path=/box/bus"]
        return box + ["/build/bin/fw_download", "-c", "-v", str(self.verbosity)]

    def start(self):
        with open(self.log, "a") as log:
            self.daemon = Service(self.command(), env=self.environment(), stdout=log, stderr=log)

    def daemon_pid(self):
        """The box has one child, the daemon."""
        pid = self.daemon.process.pid
        with open(f"/proc/{pid}/task/{pid}/children") as file:
            children = file.read().split()
        return int(children[0]) if children else pid

    def is_ready(self):
        if self.daemon.process.poll() is not None:
            raise RuntimeError(f"the daemon of {self.directory} has ended")
        return bool(self.vexctl("get", "cfg.fw_ready_for_install"))

    def stop(self):
        if self.daemon:
            self.daemon.stop()
        self.bus.stop()


def status_value(pid, name, task=None):
    path = f"/proc/{pid}/task/{task}/status" if task else f"/proc/{pid}/status"
    with open(path) as file:
        for line in file:
            if line.startswith(name + ":"):
                return int(line.split()[1])
    return 0


def proportional_kb(pid):
    with open(f"/proc/{pid}/smaps_rollup") as file:
        return next(int(line.split()[1]) for line in file if line.startswith("Pss:"))


def wake_ups(pid):
    tasks = os.listdir(f"/proc/{pid}/task")
    return sum(status_value(pid, "voluntary_ctxt_switches", task) for task in tasks)
