# SPDX-License-Identifier: MIT
"""The privileged road on real parts: a message bus, polkitd, the helper as root behind socket
activation, an agent that answers as it is told, and programs of an ordinary user.

usage: rig.py HELPER POLICY-FILE POLICY-AGENT COMMAND...

runs the command there as an ordinary user who is granted every right. All of it runs in namespaces of its
own and is gone with them. Needs root.
"""
import contextlib
import ctypes
import os
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading

from waiting import wait_until

TIME_LIMIT = 60  # a watchdog
USER = 65534
SESSION = "1"
# Where processes of a login session are: in its own cgroup, or in that of its user's services.
IN_SESSION = f"/user.slice/user-{USER}.slice/session-{SESSION}.scope"
IN_USER_SERVICE = f"/user.slice/user-{USER}.slice/user@{USER}.service/app.slice"
LABEL = "io.github.morvaneoperation"
SOCKET = f"/run/{LABEL}.PrivilegedHelper.sock"
KEPT = f"/run/{LABEL}.PrivilegedHelper"
CLOCK = "/run/morvane-test-clock"
LOG = "/run/systemd/journal/dev-log"
POLKITD = next((p for p in ("/usr/lib/polkit-1/polkitd", "/usr/libexec/polkitd") if os.path.exists(p)),
               "polkitd")
AS_USER = ["setpriv", f"--reuid={USER}", f"--regid={USER}", "--clear-groups"]


def enter_namespaces():
    """Runs this program again where what it mounts and starts is its own."""
    if os.environ.get("MORVANE_RIG") == "inside":
        return
    if os.getuid() != 0:
        sys.exit("the privileged road needs root: it starts the helper and polkitd")
    os.environ["MORVANE_RIG"] = "inside"
    os.execvp("unshare", ["unshare", "--mount", "--propagation", "private", "--net", "--pid", "--fork",
                          "--kill-child=KILL", "--mount-proc", sys.executable, *sys.argv])


def mount(folder):
    os.makedirs(folder, exist_ok=True)
    subprocess.run(["mount", "-t", "tmpfs", "-o", "mode=755", "tmpfs", folder], check=True)


def listens(path):
    """Whether somebody listens there, which is after the path has come into being."""
    with open("/proc/net/unix", encoding="ascii") as f:
        sockets = [line.split() for line in f][1:]
    return any(socket[3] == "00010000" and socket[-1].endswith(path) for socket in sockets)


def stop(process):
    """Stops a process and returns once it stands still."""
    os.kill(process.pid, signal.SIGSTOP)
    os.waitid(os.P_PID, process.pid, os.WSTOPPED)


def start_stopped(command, launcher=(), **options):
    """Starts a program, by way of a launcher, that stands still before its first step until SIGCONT."""
    process = subprocess.Popen([*launcher, "sh", "-c", 'kill -STOP $$; exec "$@"', "sh", *command], **options)
    os.waitid(os.P_PID, process.pid, os.WSTOPPED)
    return process


class Rig:
    def __init__(self, helper, policies, agent, clock=None):
        """With `clock`, a library to be preloaded, the time of programs can be set forward, the helper's first."""
        self.helper_program, self.agent, self.clock = helper, agent, clock
        for folder in ("/run", "/usr/share/polkit-1/actions", "/etc/polkit-1/rules.d",
                       "/usr/share/dbus-1/system-services"):
            mount(folder)
        for folder in ("/run/dbus", "/run/lock"):
            os.mkdir(folder)
        os.mkdir(KEPT, 0o700)
        shutil.chown("/run/dbus", "messagebus")
        self.log_in()
        for policy in policies:
            shutil.copy(policy, "/usr/share/polkit-1/actions")
        with open("/etc/polkit-1/rules.d/10-test.rules", "w", encoding="ascii") as f:
            f.write('polkit.addAdminRule(function() { return ["unix-user:root"]; });\n')
        self.start_bus()
        self.start_polkitd()
        self.start_helper()

    def log_in(self):
        """Opens a login session of the ordinary user, as the login manager's files tell it."""
        if not os.listdir("/sys/fs/cgroup"):  # polkitd looks for sessions only where cgroups are
            subprocess.run(["mount", "-t", "cgroup2", "cgroup2", "/sys/fs/cgroup"], check=True)
        for folder in ("sessions", "users", "seats", "machines"):
            os.makedirs(f"/run/systemd/{folder}")
        for path, text in (
                (f"sessions/{SESSION}", f"UID={USER}\nACTIVE=1\nSTATE=active\nCLASS=user\nSEAT=seat0\n"),
                (f"users/{USER}", f"STATE=active\nDISPLAY={SESSION}\nSESSIONS={SESSION}\n"),
                ("seats/seat0", f"ACTIVE={SESSION}\nSESSIONS={SESSION}\n")):
            with open(f"/run/systemd/{path}", "w", encoding="ascii") as f:
                f.write(text)

    def take_log(self):
        """Takes what programs tell the system's log, instead of the log itself."""
        # A folder of devices that has a log.
        mount("/run/dev")
        for name in ("full", "null", "random", "tty", "urandom", "zero", "pts", "shm"):
            (os.mkdir if os.path.isdir(f"/dev/{name}") else os.mknod)(f"/run/dev/{name}")
            subprocess.run(["mount", "--bind", f"/dev/{name}", f"/run/dev/{name}"], check=True)
        for name, target in (("fd", "/proc/self/fd"), ("log", LOG), ("ptmx", "pts/ptmx")):
            os.symlink(target, f"/run/dev/{name}")
        subprocess.run(["mount", "--move", "/run/dev", "/dev"], check=True)
        os.makedirs(os.path.dirname(LOG))
        log = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        log.bind(LOG)
        self.logged, self.hold_log = [], lambda line: None

        def take():
            while True:
                line = log.recv(65536).decode(errors="replace")
                self.logged.append(line)
                self.hold_log(line)

        # Who tells a log that nobody empties has to wait.
        threading.Thread(target=take, daemon=True).start()

    @contextlib.contextmanager
    def log_stopped_at(self, text):
        """Nothing more is taken from the log once a line has the text, which the event that this yields tells. Soon
        whoever tells the log more has to wait, until the end."""
        reached, ended = threading.Event(), threading.Event()

        def hold(line):
            if text in line:
                reached.set()
                ended.wait()
        self.hold_log = hold
        try:
            yield reached
        finally:
            self.hold_log = lambda line: None
            ended.set()

    def set_password(self, user, password):
        """For as long as the rig stands; what the machine has is left alone."""
        crypt = ctypes.CDLL("libcrypt.so.1").crypt
        crypt.restype = ctypes.c_char_p
        hashed = crypt(password.encode(), b"$6$morvane$").decode()
        with open("/etc/shadow", encoding="utf-8") as f:
            lines = [f"{user}:{hashed}:19000:0:99999:7:::\n" if line.startswith(user + ":") else line for line in f]
        with tempfile.NamedTemporaryFile("w", dir="/run", encoding="utf-8") as f:
            f.writelines(lines)
            f.flush()
            subprocess.run(["mount", "--bind", f.name, "/etc/shadow"], check=True)

    def place(self, process, cgroup):
        """Shows the process in a cgroup, which need not exist, whatever the machine's hierarchy. Its
        children are not there."""
        with tempfile.NamedTemporaryFile("w", dir="/run", encoding="ascii") as f:
            f.write(f"1:name=systemd:{cgroup}\n0::{cgroup}\n")
            f.flush()
            os.chmod(f.name, 0o444)
            subprocess.run(["mount", "--bind", f.name, f"/proc/{process.pid}/cgroup"], check=True)

    def start_bus(self):
        self.bus = subprocess.Popen(["dbus-daemon", "--system", "--nofork", "--nopidfile", "--nosyslog"],
                                    stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        wait_until(lambda: listens("/run/dbus/system_bus_socket"), "the bus")

    def kill_bus(self):
        """polkitd goes with it."""
        self.bus.kill()
        self.bus.wait()
        os.unlink("/run/dbus/system_bus_socket")
        self.kill_polkitd()

    @contextlib.contextmanager
    def rules(self, **answers):
        """An administrator's rules: what a right, by the end of its name, is answered with."""
        path = "/etc/polkit-1/rules.d/00-answers.rules"
        with open(path, "w", encoding="ascii") as f:
            f.writelines(f'polkit.addRule(function(action) {{ if (action.id == "{LABEL}.{right}") return "{answer}"; }});'
                         for right, answer in answers.items())
        self.kill_polkitd()
        self.start_polkitd()
        try:
            yield
        finally:
            os.unlink(path)
            self.kill_polkitd()
            self.start_polkitd()

    def start_polkitd(self):
        self.polkitd = subprocess.Popen([POLKITD, "--no-debug"], stdout=subprocess.DEVNULL,
                                        stderr=subprocess.DEVNULL)
        wait_until(lambda: b"boolean true" in subprocess.run(
            ["dbus-send", "--system", "--print-reply", "--dest=org.freedesktop.DBus", "/",
             "org.freedesktop.DBus.NameHasOwner", "string:org.freedesktop.PolicyKit1"],
            capture_output=True).stdout, "polkitd")

    def kill_polkitd(self):
        self.polkitd.kill()
        self.polkitd.wait()

    def start_helper(self, *launcher):
        """Returns once clients find the socket; the helper starts with the first of them, by way of a launcher."""
        self.set_clock_forward(0)
        preload = [word for variable in self.with_clock() for word in ("-E", variable)]
        # It inherits more than it needs.
        self.helper = subprocess.Popen(
            ["setpriv", "--inh-caps=+setuid", "--ambient-caps=+setuid",
             "systemd-socket-activate", "-l", SOCKET, "--fdname=helper", "-E", f"RUNTIME_DIRECTORY={KEPT}",
             *preload, *launcher, self.helper_program],
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        wait_until(lambda: listens(SOCKET), "the helper's socket")
        os.chmod(SOCKET, 0o666)

    def stop_helper(self):
        self.helper.kill()
        self.helper.wait()
        os.unlink(SOCKET)

    def set_clock_forward(self, seconds):
        with open(CLOCK, "w", encoding="ascii") as f:
            f.write(str(seconds))

    def with_clock(self):
        """The environment of a program whose time follows set_clock_forward()."""
        return [f"LD_PRELOAD={self.clock}"] if self.clock else []

    def connections(self):
        """How many clients the helper has, those included that it has not accepted yet."""
        with open("/proc/net/unix", encoding="ascii") as f:
            return sum(line.rstrip().endswith(" " + SOCKET) for line in f) - 1

    def serves_a_client(self):
        """Whether the helper has taken a client's connection, and has given itself its capabilities."""
        with open("/proc/net/unix", encoding="ascii") as f:
            inodes = {line.split()[6] for line in f if line.rstrip().endswith(" " + SOCKET)}
        folder = f"/proc/{self.helper.pid}/fd"
        targets = [os.readlink(f"{folder}/{descriptor}") for descriptor in os.listdir(folder)]
        return sum(target[len("socket:["):-1] in inodes for target in targets) == 2

    def start(self, command, agent=None, cgroup=None, **options):
        """Starts the command as an ordinary user, with an agent that allows, denies, cancels or hangs.

        With a `cgroup` of the login session it is in that session, and so is its agent."""
        return Program(self, command, agent, cgroup, options)


class Program:
    """A program of the ordinary user, with the agent for it."""

    def __init__(self, rig, command, agent, cgroup, options):
        # Stands still before it becomes the program, so that the agent can be there for it first.
        self.process = start_stopped(command, AS_USER,
                                     **{"stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE,
                                        "stderr": subprocess.PIPE, **options})
        if cgroup:
            rig.place(self.process, cgroup)
        self.rig, self.in_session, self.agent, self.prompts = rig, cgroup is not None, None, []
        if agent:
            self.start_agent(agent)
        self.process.send_signal(signal.SIGCONT)

    def start_agent(self, answer):
        """Has the prompts answered so from now on."""
        self.stop_agent()
        subject = f"session:{SESSION}" if self.in_session else str(self.process.pid)
        self.agent = start_stopped([self.rig.agent, subject, answer], stdout=subprocess.PIPE, text=True)
        if self.in_session:
            self.rig.place(self.agent, IN_SESSION)
        self.agent.send_signal(signal.SIGCONT)
        assert self.agent.stdout.readline() == "ready\n"

    def stop_agent(self):
        if self.agent:
            self.agent.kill()
            self.prompts += self.agent.communicate()[0].splitlines()
        self.agent = None

    def wait_for_prompt(self):
        self.prompts.append(self.agent.stdout.readline().rstrip())

    def finish(self, limit=TIME_LIMIT):
        """Waits for its end; then `code`, `output`, `message` and `prompts` tell all."""
        output, message = self.process.communicate(timeout=limit)
        self.code = self.process.returncode
        self.output = (output or b"").decode()
        self.message = (message or b"").decode()
        self.stop_agent()
        return self


if __name__ == "__main__":
    enter_namespaces()
    helper, policy, agent = map(os.path.abspath, sys.argv[1:4])
    sys.exit(Rig(helper, [policy], agent).start(sys.argv[4:], "allow", stdin=None, stdout=None, stderr=None)
             .finish(limit=None).code)
