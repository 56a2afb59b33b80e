"""The built broker, the bare programs beside it, and what Linux tells of their processes."""
import contextlib
import functools
import mmap
import os
import pathlib
import re
import signal
import subprocess
import threading
import time

HERE = pathlib.Path(__file__).resolve().parent
SESSION_SCRIPT = HERE / "wine" / "session"
BROKER = "CameraVirtualVextraMF.exe"

PATIENCE_S = 20
LEASE_ID = 0x42454E4348
STATE_STOPPED, STATE_LIVE = 0, 2

# Wine's coarse clock may lag the kernel's by up to 17 ms, and a heartbeat in the future does not count.
CLOCK_LAG_MS = 20


class HarnessError(Exception):
    pass


def say(text):
    print(f"-- {text} (load {os.getloadavg()[0]:.1f})", flush=True)


def wait_for(condition, what, timeout_s=PATIENCE_S, pause_s=0.002):
    deadline = time.monotonic() + timeout_s
    while not (value := condition()):
        if time.monotonic() > deadline:
            raise HarnessError(f"waited {timeout_s} s for {what}")
        time.sleep(pause_s)
    return value


# --- Linux's view of a process ------------------------------------------------------------------------------


@functools.cache
def tick_ms():
    return 1000 / os.sysconf("SC_CLK_TCK")


def cpu_ms(pid):
    """User and kernel time of the process, ended threads included."""
    fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()
    return (int(fields[11]) + int(fields[12])) * tick_ms()


def threads(pid):
    """By id: name, voluntary switches, and CPU time in ns."""
    found = {}
    for task in pathlib.Path(f"/proc/{pid}/task").iterdir():
        with contextlib.suppress(FileNotFoundError):
            switches = re.search(r"^voluntary_ctxt_switches:\s*(\d+)", (task / "status").read_text(), re.M)
            found[int(task.name)] = ((task / "comm").read_text().strip(), int(switches[1]),
                                     int((task / "schedstat").read_text().split()[0]))
    return found


def memory(pid):
    """Private: clean and dirty pages. Clean ones of a library become shared when another process maps it too, so
    that growth shows in the dirty ones alone. The larger of two sums: once in a thousand times one comes out as a
    small part of what is there, for a reason that is not known."""
    texts = [pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text() for _ in range(2)]
    mib = max(({key: int(kib) / 1024 for key, kib in re.findall(r"^(\w+):\s*(\d+) kB", text, re.M)} for text in texts),
              key=lambda sums: sums["Rss"])
    return {"privateMib": mib["Private_Clean"] + mib["Private_Dirty"], "dirtyMib": mib["Private_Dirty"]}


def thread_rates(pid, seconds):
    """Per thread that lived through the time: name, switches and CPU ms per second."""
    before, start = threads(pid), time.monotonic()
    time.sleep(seconds)
    after, elapsed = threads(pid), time.monotonic() - start
    return {tid: {"name": name, "switches": (switches - before[tid][1]) / elapsed,
                  "cpuMs": (cpu_ns - before[tid][2]) / 1e6 / elapsed}
            for tid, (name, switches, cpu_ns) in after.items() if tid in before}


def tick_now():
    """What GetTickCount64 tells under Wine, which is up to CLOCK_LAG_MS behind."""
    return time.clock_gettime_ns(time.CLOCK_MONOTONIC_RAW) // 1_000_000


# --- The session --------------------------------------------------------------------------------------------


def windows_path(path):
    return "Z:" + str(path.resolve()).replace("/", "\\")


class Session:
    def __init__(self, folder, out):
        self.folder, self.out = folder.resolve(), out.resolve()
        self.prefix = self.folder / "prefix"
        self.errors = open(self.folder / "errors.log", "w")
        (self.local_app_data,) = self.prefix.glob("drive_c/users/*/AppData/Local")
        environment = (self.folder / "session.env").read_text()
        self.server_pid = int(re.search(r"^SESSION_SERVER_PID=(\d+)", environment, re.M)[1])

    def write_profile(self, url, transport="tcp"):
        """What the installer does for a user: a broker without settings of its own takes its source from here."""
        profile = self.local_app_data / "Vextra" / "CameraVirtualMF" / "source.private.ini"
        profile.parent.mkdir(parents=True, exist_ok=True)
        profile.write_text(f"[source]\r\nurl={url}\r\ntransport={transport}\r\n", newline="")

    def start(self, program, *arguments, elevated=False, variables=None):
        options = ["--elevated"] if elevated else []
        for name, value in (variables or {}).items():
            options += ["--env", f"{name}={value}"]
        command = [SESSION_SCRIPT, "run", self.folder, *options, program, *arguments]
        return subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=self.errors,
                                text=True)

    def run(self, program, *arguments, timeout_s=PATIENCE_S, **how):
        process = self.start(program, *arguments, **how)
        try:
            output, _ = process.communicate(timeout=timeout_s)
        finally:
            end(process)
        if process.returncode != 0:
            raise HarnessError(f"{program.name} ended with {process.returncode}")
        return output

    def pids_of(self, name):
        """The Linux ids of the processes of the session that run a program of this name."""
        wanted = f"WINEPREFIX={self.prefix}".encode()
        found = []
        for folder in pathlib.Path("/proc").glob("[0-9]*"):
            with contextlib.suppress(OSError):
                # The kernel keeps 15 characters of the name.
                if (folder / "comm").read_text().strip() == name[:15] and \
                        wanted in (folder / "environ").read_bytes().split(b"\0"):
                    found.append(int(folder.name))
        return found

    def pid_of(self, program):
        """The Linux id of the one process of the session that runs this program."""
        return next(iter(self.pids_of(program.name)), None)

    def provision(self, root):
        self.run(self.tool("vextra-provision.exe"), "--open-demand-to-owner",
                 "--install-dir", windows_path(root), elevated=True)

    def tool(self, name):
        return self.out / "tools" / name

    def test_program(self, name):
        return self.out / "tests" / name


def end(process):
    """The launcher takes all that it started with it."""
    if process.poll() is None:
        process.send_signal(signal.SIGKILL)
    process.wait()


class Bridge:
    """The camera's side of both shared files."""

    def __init__(self, session):
        (folder,) = session.prefix.glob("drive_c/ProgramData/Vextra/CameraVirtualMFBeta/S-1-5-21-*")
        self.frame_path = folder / "latest.frame"
        self._frame = self._map(self.frame_path, mmap.PROT_READ)
        self._demand = self._map(folder / "demand.bin", mmap.PROT_READ | mmap.PROT_WRITE).cast("Q")

    @staticmethod
    def _map(path, protection):
        with open(path, "r+b") as file:
            return memoryview(mmap.mmap(file.fileno(), 0, prot=protection))

    @property
    def state(self):
        return self._frame[28:32].cast("I")[0]

    @property
    def frame_counter(self):
        return self._frame[40:48].cast("Q")[0]

    def look_at(self, look):
        """The frame counter, and what look tells of the pixels, of one whole update; None if the broker wrote
        meanwhile."""
        before = self._frame[0:4].cast("I")[0]
        if before % 2 != 0:
            return None
        seen = self.frame_counter, look(self._frame[128:])
        return seen if self._frame[0:4].cast("I")[0] == before else None

    def heartbeat(self, slot):
        """The tick of the slot's last heartbeat; 0 when it is released."""
        return self._demand[2 * slot + 1]

    def touch_pages(self):
        """So that the kernel counts the frame's pages as shared ones of the broker."""
        return sum(self._frame[::mmap.PAGESIZE])

    def _beat(self):
        self._demand[1] = tick_now() - CLOCK_LAG_MS

    @contextlib.contextmanager
    def lease(self):
        """Holds slot 0, the only lease of this session. The broker stops after the end of it."""
        released = threading.Event()

        def beat():
            while not released.wait(0.5):
                self._beat()

        heart = threading.Thread(target=beat)
        self._demand[0] = LEASE_ID
        self._beat()
        heart.start()
        try:
            yield
        finally:
            released.set()
            heart.join()
            self._demand[1] = 0
            self._demand[0] = 0
        wait_for(lambda: self.state == STATE_STOPPED, "the broker to stop")

    def wait_for_live(self, pause_s=0.002):
        wait_for(lambda: self.state == STATE_LIVE, "a live frame", pause_s=pause_s)


class Broker:
    """A running broker: hidden unless told otherwise, with the synthetic source unless the profile counts. With an
    evidence folder, which must exist, it logs the hash of every frame, and logs there."""

    def __init__(self, session, root, visible=False, synthetic=True, variables=None, evidence=None):
        self.session, self.root, self.executable = session, root, root / "bin" / BROKER
        self.variables = variables
        self.options = ([] if visible else ["--background"]) + (["--test-pattern"] if synthetic else [])
        data = session.local_app_data / "Vextra" / "CameraVirtualMFBeta"
        self.log, self.lock = data / "diagnostic.log", data / "app.lock"
        if evidence:
            self.options += ["--evidence-dir", windows_path(evidence)]
            self.log = evidence / "app.log"

    def __enter__(self):
        # Only the installed broker can be told to shut down.
        self.session.provision(self.root)
        self.log.unlink(missing_ok=True)
        self.process = self.session.start(self.executable, *self.options, variables=self.variables)
        try:
            wait_for(lambda: self.log.exists() and "AUTOMATIC_IDLE_READY" in self.log.read_text(),
                     "the broker to be ready")
            self.pid = wait_for(lambda: self.session.pid_of(self.executable), "the broker's process")
        except BaseException:
            end(self.process)
            raise
        return self

    def __exit__(self, kind, *_):
        try:
            if kind is None:
                self.session.run(self.executable, "--shutdown-broker")
                status = self.process.wait(PATIENCE_S)
                if status != 0:
                    raise HarnessError(f"the broker ended with {status}")
        finally:
            end(self.process)

    @property
    def windows_pid(self):
        return int.from_bytes(self.lock.read_bytes(), "little")

    def probe(self):
        output = self.session.run(self.session.test_program("bench-handle-count.exe"), str(self.windows_pid))
        return {"handles": int(output.partition("=")[2]), "threads": len(threads(self.pid)),
                **memory(self.pid)}


class BareReader:
    """bare_reader_win.cpp, running. What it printed is read as it comes, with the time."""

    def __init__(self, session, decoder, url=None, frames=None, transport="tcp", codes=False):
        self.session, self.program = session, session.test_program("bench-bare-reader.exe")
        self.arguments = [windows_path(decoder)]
        self.arguments += ["--url", url] if url else []
        self.arguments += ["--frames", str(frames)] if frames else []
        self.arguments += ["--transport", transport] + (["--codes", "yes"] if codes else [])
        self.variables = None
        self.first_byte_ms = self.first_frame_ms = self.first_frame_at = None
        self.frame, self.frame_at = 0, 0.0
        self.codes = []  # (moment, code) of every frame

    def __enter__(self):
        self.process = self.session.start(self.program, *self.arguments, variables=self.variables)
        self.reader = threading.Thread(target=self._read)
        self.reader.start()
        try:
            wait_for(lambda: self.first_frame_ms, "the bare reader's first frame")
            self.pid = self.session.pid_of(self.program)
        except BaseException:
            self.__exit__()
            raise
        return self

    def _read(self):
        for line in self.process.stdout:
            key, _, value = line.strip().partition("=")
            if key == "code":
                self.codes.append((time.monotonic(), int(value, 16)))
            elif key == "first_byte_ms":
                self.first_byte_ms = float(value)
            elif key == "first_frame_ms":
                self.first_frame_at = time.monotonic()
                self.first_frame_ms = float(value)
            elif key == "frame":
                self.frame, self.frame_at = int(value), time.monotonic()

    def __exit__(self, *_):
        end(self.process)
        self.reader.join()

    def next_report(self):
        seen = self.frame
        wait_for(lambda: self.frame != seen, "the bare reader's next frames")
        return self.frame, self.frame_at


class BarePlayer(BareReader):
    """bare_gstreamer_win.cpp, running."""

    def __init__(self, session, url, variables):
        super().__init__(session, decoder=session.out)
        self.program, self.arguments = session.test_program("bench-bare-gstreamer.exe"), [url]
        self.variables = variables
