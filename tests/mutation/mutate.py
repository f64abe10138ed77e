#!/usr/bin/env python3
"""Breaks the sources in small ways, one at a time, and tells which faults the tests do not see.

    mutate.py ROOM COUNT [--seed N] [--list] [TEXT...]

COUNT faults of the catalogue in faults.py are spread over the hand-written sources of the libraries and what the code
generator writes, larger files having more; with TEXTs, over the files whose names contain one of them. The seed chooses
which. ROOM is a directory for copies of the sources and their builds: the sources themselves are not touched.

A mutant is built without warnings and with little optimisation, and the test programs of its part of the sources run,
one after the other until one fails. What these do not notice goes through the same tests under the address and
undefined-behaviour sanitizers. Mutants that do not compile are not counted. What survives is printed, unless
equivalent.txt tells why it makes no difference. Fails when less than 95 % is caught or equivalent. Needs root, to give
test programs a place of their own for shared memory.
"""

import argparse
import collections
import concurrent.futures
import os
import pathlib
import queue
import random
import resource
import shutil
import signal
import subprocess
import sys
import threading
import time
from dataclasses import dataclass, field

import faults

HERE = pathlib.Path(__file__).resolve().parent
SOURCE = HERE.parent.parent
FRAMEWORK = "manageability/yang/framework"
GOAL = 95


@dataclass(frozen=True)
class Part:
    """Sources, and the tests that are about them: programs of a directory, and fuzz targets whose corpora are replayed."""

    sources: tuple
    tests: str
    replays: tuple = ()


PARTS = (
    Part((f"{FRAMEWORK}/src/quill/*.h", f"{FRAMEWORK}/gen/*.cpp"), "tests/quill", ("decode", "encode", "lifetime")),
    Part((f"{FRAMEWORK}/src/*.*", f"{FRAMEWORK}/src/nyx_*/*"), "tests/nyx", ("strings", "xpath", "dump")),
    Part(("platform/rcode/src/*",), "tests/rcode"),
    Part(("platform/safestr/src/*",), "tests/safestr"),
    Part(("platform/umbra/src/*",), "tests/umbra"),
    Part(("platform/skein/src/*",), "tests/skein", ("skein_reader",)),
)

# As released, but for what takes time to compile.
PLAIN = ["-DCMAKE_BUILD_TYPE=Release", "-DCMAKE_CXX_FLAGS_RELEASE=-O1 -DNDEBUG -w", "-DCMAKE_C_FLAGS_RELEASE=-O1 -w"]
SANITIZED = [
    "-DCMAKE_C_COMPILER=clang",
    "-DCMAKE_CXX_COMPILER=clang++",
    "-DCMAKE_BUILD_TYPE=Release",
    "-DCMAKE_CXX_FLAGS_RELEASE=-O1 -g1 -w",
    "-DCMAKE_C_FLAGS_RELEASE=-O1 -g1 -w",
    "-DNYX_SANITIZE=address,undefined",
]


# Test programs have a /dev/shm of their own, which goes with them: what a mutant leaves there, or fills it with, is not to
# fail the next one.
ALONE = ["unshare", "--mount", "sh", "-c", 'mount -t tmpfs -o size=1g,nr_inodes=100k tmpfs /dev/shm && exec "$0" "$@"']


class Broken(Exception):
    """The tests cannot be run at all."""


def limit_resources(limits_memory):
    """What a mutant may take: an endless loop that allocates or writes must not take the machine with it. Sanitizers need
    terabytes of addresses and have a limit of their own."""
    os.setsid()
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    resource.setrlimit(resource.RLIMIT_FSIZE, (1 << 30, 1 << 30))
    if limits_memory:
        resource.setrlimit(resource.RLIMIT_DATA, (8 << 30, 8 << 30))


def run(command, directory, timeout=None, limits_memory=True):
    """The exit code; None when the time was over. Whatever the command has started ends with it."""
    environment = dict(os.environ, GTEST_FAIL_FAST="1", GTEST_BRIEF="1", ASAN_OPTIONS="hard_rss_limit_mb=8000")
    with subprocess.Popen(
        command,
        cwd=directory,
        env=environment,
        stdin=subprocess.DEVNULL,
        stdout=subprocess.DEVNULL,
        stderr=subprocess.DEVNULL,
        preexec_fn=lambda: limit_resources(limits_memory),
    ) as process:
        try:
            return process.wait(timeout)
        except subprocess.TimeoutExpired:
            return None
        finally:
            end_group(process.pid)


def end_group(group):
    try:
        os.killpg(group, signal.SIGKILL)
    except ProcessLookupError:
        pass


@dataclass
class Program:
    command: list
    directory: pathlib.Path
    limits_memory: bool
    seconds: float = 0

    @property
    def name(self):
        return pathlib.Path(self.command[0]).name

    def passes(self, timeout=None):
        """An endless test does not, nor one that fails twice: once could be the machine's fault."""
        code = self.run(timeout)
        return code == 0 or (code is not None and self.run(timeout) == 0)

    def run(self, timeout):
        return run(ALONE + self.command, self.directory, timeout, self.limits_memory)


class Workshop:
    """A copy of the sources with a build, in which one mutant after the other is tried."""

    def __init__(self, room, options):
        self.source = room / "source"
        self.build = room / "build"
        self.log = room / "configure.log"
        self.programs = {}
        self.limits_memory = options is PLAIN
        copy_sources(self.source)
        command = ["cmake", "-S", self.source, "-B", self.build, "-G", "Ninja", "-DCMAKE_LINK_DEPENDS_NO_SHARED=ON"]
        with open(self.log, "w", encoding="utf-8") as log:
            if subprocess.run(command + options, stdout=log, stderr=log, check=False).returncode != 0:
                raise Broken(f"cannot configure, see {self.log}")

    def compiles(self, part):
        targets = [f"{part.tests}/all"] + [f"fuzz_replay_{name}" for name in part.replays]
        return run(["cmake", "--build", self.build, "--parallel", "2", "--target"] + targets, self.source) == 0

    def tests_of(self, part):
        """The quickest first. They have to pass as long as nothing is broken."""
        if part not in self.programs:
            if not self.compiles(part):
                raise Broken(f"cannot build {part.tests} in {self.build}")
            self.programs[part] = sorted(map(self.timed, self.find_programs(part)), key=lambda p: p.seconds)
        return self.programs[part]

    def find_programs(self, part):
        directory = self.build / part.tests
        for path in sorted(directory.glob("*_test")):
            if os.access(path, os.X_OK):
                yield Program([path], directory, self.limits_memory)
        for name in part.replays:
            command = [self.build / f"fuzz/fuzz_replay_{name}", SOURCE / f"fuzz/corpus/{name}"]
            yield Program(command, directory, self.limits_memory)

    @staticmethod
    def timed(program):
        began = time.monotonic()
        if not program.passes():
            raise Broken(f"{program.name} fails without a fault, in {program.directory}")
        program.seconds = time.monotonic() - began
        return program

    def trial(self, mutant, part):
        """What became of the mutant: "survived", "does not compile", or the program that noticed it."""
        programs = self.tests_of(part)
        path = self.source / mutant.path
        original = path.read_text(encoding="utf-8")
        path.write_text(mutant.applied(original), encoding="utf-8")
        try:
            if not self.compiles(part):
                return "does not compile"
            failed = next((p for p in programs if not p.passes(10 + 10 * p.seconds)), None)
            return "survived" if failed is None else failed.name
        finally:
            path.write_text(original, encoding="utf-8")


def tracked_files():
    listed = subprocess.run(
        ["git", "ls-files", "-z", "-co", "--exclude-standard"], cwd=SOURCE, stdout=subprocess.PIPE, check=True
    )
    return [name for name in listed.stdout.decode().split("\0") if name and (SOURCE / name).is_file()]


def copy_sources(to):
    """Files that are the same already keep their time, so that an older build of them is still good."""
    for name in tracked_files():
        if name.startswith("fuzz/corpus/"):
            continue
        target = to / name
        target.parent.mkdir(parents=True, exist_ok=True)
        if not target.exists() or target.read_bytes() != (SOURCE / name).read_bytes():
            shutil.copy(SOURCE / name, target)


@dataclass
class Catalogue:
    """Every mutant of the sources, by file and by kind of fault."""

    by_file: dict = field(default_factory=dict)
    part_of: dict = field(default_factory=dict)

    @staticmethod
    def read(texts):
        catalogue = Catalogue()
        for part in PARTS:
            for path in sorted(p for pattern in part.sources for p in SOURCE.glob(pattern) if p.is_file()):
                name = str(path.relative_to(SOURCE))
                if not texts or any(text in name for text in texts):
                    catalogue.add(name, path.read_text(encoding="utf-8"), part)
        return catalogue

    def add(self, name, source, part):
        kinds = collections.defaultdict(list)
        for mutant in faults.faults_of(name, source):
            kinds[mutant.fault].append(mutant)
        if kinds:
            self.by_file[name] = kinds
            self.part_of[name] = part

    def size(self):
        return sum(len(mutants) for kinds in self.by_file.values() for mutants in kinds.values())

    def sample(self, count, seed):
        """Files have mutants by the square root of what could be broken in them, kinds of faults in turn."""
        chance = random.Random(seed)
        weights = {name: sum(map(len, kinds.values())) ** 0.5 for name, kinds in self.by_file.items()}
        whole = sum(weights.values())
        chosen = []
        for name, kinds in self.by_file.items():
            share = max(1, round(count * weights[name] / whole))
            chosen += sorted(pick(chance, kinds, share), key=lambda mutant: mutant.start)
        return chosen


def pick(chance, kinds, count):
    """Kind after kind, in random order, until there are as many or none is left."""
    left = [chance.sample(mutants, len(mutants)) for mutants in kinds.values()]
    chance.shuffle(left)
    chosen = []
    while left and len(chosen) < count:
        mutants = left.pop(0)
        chosen.append(mutants.pop())
        if mutants:
            left.append(mutants)
    return chosen


def read_equivalents():
    """Blocks of a path, "- " line, "+ " line and the reason, with empty lines between them."""
    known = set()
    blocks = (HERE / "equivalent.txt").read_text(encoding="utf-8").split("\n\n")
    for block in blocks:
        lines = [line for line in block.splitlines() if line and not line.startswith("#")]
        if lines:
            path, before, after = lines[:3]
            known.add((path, before.removeprefix("- "), after.removeprefix("+ ").strip()))
    return known


def try_all(mutants, catalogue, rooms, options, title):
    """The outcome of each mutant. Each room takes the mutants of a file at a time: they share what is compiled."""
    groups = queue.SimpleQueue()
    by_file = collections.defaultdict(list)
    for mutant in mutants:
        by_file[mutant.path].append(mutant)
    for group in sorted(by_file.values(), key=len, reverse=True):
        groups.put(group)
    outcomes = {}
    stopping = threading.Event()

    def work(room):
        workshop = Workshop(room, options)
        while not groups.empty():
            try:
                group = groups.get_nowait()
            except queue.Empty:
                return
            for mutant in group:
                if stopping.is_set():
                    return
                outcomes[mutant] = workshop.trial(mutant, catalogue.part_of[mutant.path])
                print(f"{title} {len(outcomes)}/{len(mutants)} {outcomes[mutant]}: {mutant}", flush=True)

    with concurrent.futures.ThreadPoolExecutor(len(rooms)) as pool:
        try:
            for done in [pool.submit(work, room) for room in rooms]:
                done.result()
        except BaseException:  # nobody waits for the rest, not even who pressed Ctrl-C
            stopping.set()
            raise
    return outcomes


def report(outcomes, equivalents):
    compiled = {m: outcome for m, outcome in outcomes.items() if outcome != "does not compile"}
    survivors = [m for m, outcome in compiled.items() if outcome == "survived"]
    unknown = [m for m in survivors if (m.path, m.before, m.after) not in equivalents]
    print("\n== survivors")
    for mutant in unknown:
        print(f"{mutant}\n")
    print("fault                    mutants   caught   equivalent   survived")
    for kind in sorted({m.fault for m in compiled}) + ["all"]:
        of_kind = [m for m in compiled if kind in ("all", m.fault)]
        left = sum(m in unknown for m in of_kind)
        equal = sum(compiled[m] == "survived" for m in of_kind) - left
        print(f"{kind:22} {len(of_kind):9} {len(of_kind) - left - equal:8} {equal:12} {left:10}")
    counted = len(compiled)
    share = 100 * (counted - len(unknown)) / max(counted, 1)
    print(f"{len(outcomes)} mutants, {counted} of them compile, {share:.1f} % of these caught or equivalent")
    return counted > 0 and share >= GOAL


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("room", type=pathlib.Path)
    parser.add_argument("count", type=int)
    parser.add_argument("texts", nargs="*", metavar="TEXT")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--list", action="store_true", help="print the mutants and try none")
    arguments = parser.parse_intermixed_args()

    catalogue = Catalogue.read(arguments.texts)
    mutants = catalogue.sample(arguments.count, arguments.seed)
    print(f"{len(mutants)} of {catalogue.size()} mutants, seed {arguments.seed}", flush=True)
    if arguments.list:
        print("\n\n".join(map(str, mutants)))
        return 0
    room = arguments.room.resolve()
    try:
        if run(ALONE + ["true"], SOURCE) != 0:
            raise Broken("needs root: each mutant is tried in a mount namespace of its own")
        rooms = [room / f"plain{i}" for i in range(arguments.jobs)]
        outcomes = try_all(mutants, catalogue, rooms, PLAIN, "tests")
        survivors = [m for m in mutants if outcomes[m] == "survived"]
        if survivors:
            outcomes |= try_all(survivors, catalogue, [room / "sanitized"], SANITIZED, "sanitizers")
    except Broken as reason:
        print(f"mutate: {reason}", file=sys.stderr)
        return 2
    return 0 if report(outcomes, read_equivalents()) else 1


if __name__ == "__main__":
    sys.exit(main())
