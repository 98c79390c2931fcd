"""Builds one mutant of the library and lets the tests run on it, for scripts/mutate."""

import fcntl
import json
import os
import re
import shlex
import shutil
import signal
import subprocess
import threading
import time
from pathlib import Path

CONFIGURE = ["-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release", "-DCMAKE_CXX_FLAGS=-w",
             "-DVELKORA_PRECOMPILE=ON", "-DVELKORA_CORE_SHARED=ON"]
LIBRARY = "libvelkora_core.so"
SUITE = re.compile(r"^(?:TEST|TEST_F|TEST_P|TYPED_TEST)\(\s*(\w+)", re.MULTILINE)
FAILED_TEST = re.compile(r"\[  FAILED  \] ([\w/]+\.[\w/]+)")
MEMORY_KIB = 8 << 20  # of one test program
SANITIZE = ["-fsanitize=address,undefined", "-fno-sanitize-recover=all"]


class Stopped(Exception):
    """The run is to end."""


class Commands:
    """Runs programs, each in a process group of its own, and ends them all on demand."""

    def __init__(self):
        self._lock = threading.Lock()
        self._running = set()
        self._stopped = False

    def run(self, command, seconds, **options):
        """Returns the exit status, or None when the time is over."""
        with self._lock:
            if self._stopped:
                raise Stopped
            process = subprocess.Popen(command, start_new_session=True, **options)
            self._running.add(process)
        try:
            return process.wait(seconds)
        except subprocess.TimeoutExpired:
            return None
        finally:
            with self._lock:
                self._end(process)
                self._running.discard(process)
            if self._stopped:
                raise Stopped

    def stop(self):
        with self._lock:
            self._stopped = True
            for process in self._running:
                self._end(process)

    @staticmethod
    def _end(process):
        """The program and what it has started and left."""
        try:
            os.killpg(process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        process.wait()


class Build:
    """The folder with the test programs, which load the library when they start."""

    def __init__(self, root, folder):
        self.root, self.folder = root, folder

    def lock(self):
        """Keeps other runs out of the folder as long as the result lives."""
        self.folder.mkdir(parents=True, exist_ok=True)
        file = (self.folder / "mutate.lock").open("w")
        try:
            fcntl.flock(file, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError:
            raise SystemExit(f"another run uses {self.folder}") from None
        return file

    def make(self, jobs, stages):
        programs = sorted({stage.program for stage in stages})
        for words in (["cmake", "-S", self.root, "-B", self.folder, *CONFIGURE],
                      ["ninja", "-C", self.folder, f"-j{jobs}", *programs]):
            done = subprocess.run(words, check=False, capture_output=True, text=True)
            if done.returncode != 0:
                raise SystemExit(done.stdout + done.stderr + "the tests cannot be built")
        self._read_commands()
        self._list_variables()

    def _list_variables(self):
        """The library's variables, of which a test program has the only copy."""
        table = subprocess.run(["nm", "-D", "--defined-only", self.folder / "src" / LIBRARY],
                               check=True, capture_output=True, text=True).stdout
        names = [f"{line.split()[2]};" for line in table.splitlines() if line.split()[1] in "BDGS"]
        self.variables = self.folder / "variables.list"
        self.variables.write_text("{ " + " ".join(names) + " };\n")

    def _read_commands(self):
        """The compilation of each of the library's sources, and the headers that it reads."""
        self.commands, self.objects = {}, {}
        for entry in json.loads((self.folder / "compile_commands.json").read_text()):
            words = shlex.split(entry["command"])
            output = words[words.index("-o") + 1]
            if "velkora_core.dir" not in output or output.endswith(".gch"):
                continue
            words = words[[word.endswith("c++") for word in words].index(True):]  # without ccache
            source = os.path.relpath(entry["file"], self.root)
            self.commands[source], self.objects[source] = words, output
        lines = subprocess.run(["ninja", "-C", self.folder, "-t", "deps", *self.objects.values()],
                               check=True, capture_output=True, text=True).stdout.splitlines()
        sources, self.users = {to: name for name, to in self.objects.items()}, {}
        for line in lines:
            if ": #deps" in line:
                source = sources[line.split(":")[0]]
            elif line.startswith(" "):
                path = os.path.normpath(self.folder / line.strip())
                self.users.setdefault(os.path.relpath(path, self.root), set()).add(source)

    def sources_of(self, path):
        """What is compiled when this file changes."""
        return [path] if path in self.commands else sorted(self.users.get(path, ()))


class Suites:
    """Which suites of the unit tests are those of a source, by the names of the files."""

    def __init__(self, root):
        self._suites = {path.name: sorted(set(SUITE.findall(path.read_text())))
                        for path in (root / "tests/unit").glob("*_test.cpp")}

    def of(self, path):
        stem = Path(path).stem
        return [suite for name, suites in self._suites.items() if name.startswith(stem)
                for suite in suites]


class Stage:
    """One run of a test program."""

    def __init__(self, name, program, gtest_filter="*"):
        self.name, self.program, self.filter = name, program, gtest_filter


def stages_for(suites, units=False):
    """The cheapest first: the unit tests of the namesake, the other ones, whole conversions."""
    patterns = ":".join(f"{suite}.*:*/{suite}.*" for suite in suites)
    own = [Stage("unit", "unit_tests", patterns)] if suites else []
    rest = Stage("other units", "unit_tests", f"*-{patterns}" if suites else "*")
    if units:
        return own + [rest]
    return own + [rest, Stage("conversions", "conversion_tests"),
                  Stage("campaign", "fault_campaign")]


class Limits:
    """The CPU seconds that a stage may take, kept in the build folder for a program as it is."""

    def __init__(self, build):
        self._build, self._path, self._seconds = build, build.folder / "limits.json", {}

    def _key(self, stage):
        program = self._build.folder / "tests" / stage.program
        return f"{stage.program} {program.stat().st_mtime_ns}"

    def measure(self, stage, worker):
        if not self._seconds and self._path.exists():
            self._seconds = json.loads(self._path.read_text())
        if self._key(stage) not in self._seconds:
            used, wall = worker.seconds_of(stage)
            print(f"{stage.program}: {wall:.1f} s without a mutant, {used:.1f} s of a processor",
                  flush=True)
            self._seconds[self._key(stage)] = used * 3 + 10
            self._path.write_text(json.dumps(self._seconds))

    def of(self, stage):
        return self._seconds[self._key(stage)]


class Worker:
    """One job: a folder with a library and with the images of the tests."""

    def __init__(self, number, build, commands, images, sanitize=False):
        self.build, self.commands, self.sanitize = build, commands, sanitize
        self.folder = build.folder / "mutants" / str(number)
        self.images = Path(images) / f"velkora-mutants-{os.getpid()}-{number}"
        self.folder.mkdir(parents=True, exist_ok=True)

    def compile(self, mutant):
        """Returns whether the mutant is a program; its library then lies in the folder."""
        copies = self.folder / "changed"
        shutil.rmtree(copies, ignore_errors=True)
        text = (self.build.root / mutant.path).read_text()
        copy = copies / mutant.path
        copy.parent.mkdir(parents=True)
        copy.write_text(text[:mutant.begin] + mutant.after + text[mutant.end:])
        objects = dict(self.build.objects)
        for number, source in enumerate(self.build.sources_of(mutant.path)):
            objects[source] = str(self.folder / f"{number}.o")
            if not self._compile_source(source, copies, copy, mutant, objects[source]):
                return False
        return self.link(objects)

    def _compile_source(self, source, copies, copy, mutant, output):
        words = list(self.build.commands[source])
        words[words.index("-o") + 1] = output
        for option in ("-MT", "-MF"):
            if option in words:
                del words[words.index(option):words.index(option) + 2]
        words = [word for word in words if word not in ("-MD", "-MMD")]
        original = words.index("-c") + 1
        if source == mutant.path:
            words[original] = str(copy)
        words[1:1] = [*(SANITIZE if self.sanitize else ()), "-iquote", str(copies / "src"),
                      "-iquote", str((self.build.root / source).parent)]
        return self._run_builder(words)

    def link(self, objects):
        """Binds all but variables inside: a test's copy of an inline function is not taken."""
        options = [*(SANITIZE if self.sanitize else ()),
                   f"-Wl,--dynamic-list={self.build.variables}"]
        return self._run_builder(["c++", "-shared", *options, "-o", str(self.folder / LIBRARY),
                                  *sorted(objects.values())])

    def _run_builder(self, words):
        return self.commands.run(words, 120, cwd=self.build.folder, stdout=subprocess.DEVNULL,
                                 stderr=subprocess.DEVNULL) == 0

    def run(self, stage, seconds):
        """Returns what noticed a difference, or an empty text."""
        shutil.rmtree(self.images, ignore_errors=True)
        self.images.mkdir(parents=True)
        log = self.folder / "tests.log"
        memory = "unlimited" if self.sanitize else MEMORY_KIB
        limits = (f"ulimit -c 0; ulimit -t {int(seconds)}; ulimit -v {memory}; "
                  f'{self._preload()} exec "$0" --gtest_filter="$1"')
        program = str(self.build.folder / "tests" / stage.program)
        environment = {**os.environ, "LD_LIBRARY_PATH": str(self.folder), "GTEST_BRIEF": "1",
                       "GTEST_FAIL_FAST": "1", "GTEST_COLOR": "no", "VELKORA_LONG_TESTS": "0",
                       "TMPDIR": str(self.images)}
        try:
            with log.open("w") as output:
                status = self.commands.run(["sh", "-c", limits, program, stage.filter],
                                           seconds * 4 + 30, cwd=self.folder, env=environment,
                                           stdin=subprocess.DEVNULL, stdout=output,
                                           stderr=subprocess.STDOUT)
        finally:
            shutil.rmtree(self.images, ignore_errors=True)
        return self._judge(status, log)

    def _preload(self):
        if not self.sanitize:
            return ""
        runtime = subprocess.run(["c++", "-print-file-name=libasan.so"], check=True,
                                 capture_output=True, text=True).stdout.strip()
        return f"LD_PRELOAD={shlex.quote(runtime)} ASAN_OPTIONS=detect_leaks=0"

    @staticmethod
    def _judge(status, log):
        if status == 0:
            return ""
        if status is None or status in (-signal.SIGXCPU, 128 + signal.SIGXCPU, -signal.SIGKILL):
            return "time limit"
        failed = FAILED_TEST.search(log.read_text(errors="replace"))
        return failed.group(1) if failed else f"exit status {status}"

    def seconds_of(self, stage):
        """How long the stage takes without a mutant, as CPU time of it and its children."""
        before = os.times()
        begin = time.monotonic()
        noticed = self.run(stage, 3600)
        after = os.times()
        if noticed:
            raise SystemExit(f"{stage.program} fails without a mutant: {noticed}")
        used = (after.children_user - before.children_user
                + after.children_system - before.children_system)
        return used, time.monotonic() - begin
