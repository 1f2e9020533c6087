"""Counts the mutants of the module that its unit tests catch.

    run_mutants.py SOURCE_DIR BUILD_DIR [--sample N] [--seed N] [--only TEXT] [--jobs N] [--list | --check]

BUILD_DIR holds two builds of the tests, `plain` and `asan`. The module is made a shared library of its own, so that a
mutant costs one compilation; what the quick tests of the module let pass meets those of the private functions, the slow
ones, and the quick ones again under the sanitizers. Ends with 1 when one passes that is not named in
equivalent.txt, or when fewer than 95 of 100 are caught of 300 or more. With --check it only looks whether all that are
named there exist.
"""

import argparse
import collections
import concurrent.futures
import glob
import os
import random
import resource
import shutil
import subprocess
import sys
import threading

import mutants

LIMIT = 0.95
FEWEST = 300
SLOW_TESTS = "*Storm*:*LossyNetwork*:ReorderCacheHostile.*"
SANITIZE = ["-fsanitize=address,undefined", "-fno-sanitize-recover=all"]
ENVIRONMENT = {"VIDEO_STREAM_TEST_SEED": "1", "ASAN_OPTIONS": "hard_rss_limit_mb=1000"}
DEVICE = ["-fno-exceptions", "-fno-rtti", "-fno-threadsafe-statics"]


class Build:
    """The test programs of one of the two builds, to be run with any mutant of the module."""

    def __init__(self, source_dir, directory, flags):
        self.source_dir, self.directory, self.flags = source_dir, directory, flags
        self.libraries = [f"{directory}/tests/support/libtest_support.a", f"{directory}/platform/libzeb_containers.a"]
        self.tests = f"{directory}/module_tests"

    def compile(self, arguments):
        command = ["c++", "-std=c++17", "-w", *self.flags, *arguments]
        return subprocess.run(command, capture_output=True).returncode == 0

    def link(self, library):
        """The tests of the module, which find it in a shared library at run time."""
        objects = glob.glob(f"{self.directory}/tests/unit/CMakeFiles/module_tests.dir/module/*.o")
        if not self.compile_module(f"{self.source_dir}/rtc/video_stream.cpp", library) or not self.compile(
            ["-rdynamic", "-o", self.tests, *objects, *self.libraries, library, "-lgtest_main", "-lgtest"]
        ):
            sys.exit(f"mutate: cannot link {self.tests}")

    def compile_module(self, source, library):
        include = f"-I{self.source_dir}/include"
        return self.compile(["-fPIC", "-shared", "-Wl,-soname,libmutant.so", *DEVICE, include, "-o", library, source])

    def compile_internals(self, tree):
        """The tests that have the source inside: they read it beside a copy of themselves."""
        tests = f"{tree}/tests/unit/module_internals"
        os.makedirs(tests)
        for test in glob.glob(f"{self.source_dir}/tests/unit/module_internals/*_test.cpp"):
            shutil.copy(test, tests)
        include = [f"-I{self.source_dir}/include", f"-I{self.source_dir}/tests/support"]
        sources = glob.glob(f"{tests}/*.cpp")
        program = f"{tree}/internals"
        self.compile([*include, "-o", program, *sources, *self.libraries, "-lgtest_main", "-lgtest"])
        return program

    def passes(self, command, tree, cpu_seconds):
        """False when a test fails, crashes, or takes more time or memory than it may."""

        def limit():
            resource.setrlimit(resource.RLIMIT_CPU, (cpu_seconds, cpu_seconds))
            resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
            if self.flags != SANITIZE:  # which take address space for themselves
                resource.setrlimit(resource.RLIMIT_AS, (1 << 30, 1 << 30))

        environment = {**os.environ, **ENVIRONMENT, "LD_LIBRARY_PATH": tree}
        quiet = {name: subprocess.DEVNULL for name in ("stdin", "stdout", "stderr")}
        command = [*command, "--gtest_fail_fast", "--gtest_brief=1"]
        try:
            run = subprocess.run(command, **quiet, env=environment, preexec_fn=limit, timeout=60 * cpu_seconds)
            return run.returncode == 0
        except subprocess.TimeoutExpired:  # it sleeps
            return False


def fate(mutant, source, builds, work):
    """What becomes of one mutant: which tests catch it, or "survived". Quick tests come before slow ones."""
    plain, asan = builds["plain"], builds["asan"]
    tree = f"{work}/{threading.get_ident()}"
    shutil.rmtree(tree, ignore_errors=True)
    os.makedirs(f"{tree}/rtc")
    with open(f"{tree}/rtc/video_stream.cpp", "w") as out:
        out.write(mutant.apply(source))

    if not plain.compile_module(f"{tree}/rtc/video_stream.cpp", f"{tree}/libmutant.so"):
        return "does not compile"
    if not plain.passes([plain.tests, f"--gtest_filter=-{SLOW_TESTS}"], tree, 5):
        return "module"
    if not plain.passes([plain.compile_internals(tree)], tree, 5):
        return "internals"
    if not plain.passes([plain.tests, f"--gtest_filter={SLOW_TESTS}"], tree, 30):
        return "module"
    asan.compile_module(f"{tree}/rtc/video_stream.cpp", f"{tree}/libmutant.so")
    if not asan.passes([asan.tests, f"--gtest_filter=-{SLOW_TESTS}"], tree, 60):
        return "sanitizers"
    return "survived"


def print_table(fates, equivalents):
    """By kind: what the tests caught, what they let pass."""
    columns = ["module", "internals", "sanitizers", "equivalent", "survived"]
    counts = collections.defaultdict(collections.Counter)
    for mutant, what in fates.items():
        what = "equivalent" if what == "survived" and mutant.key() in equivalents else what
        counts[mutant.kind][what] += 1
        counts["all"][what] += 1
    print(f"{'':12} {'mutants':>8} {'module':>8} {'internals':>10} {'sanitizers':>11} {'equivalent':>11} {'survived':>9}")
    for kind in sorted(counts, key=lambda kind: (kind == "all", kind)):
        row = [counts[kind][column] for column in columns]
        print(f"{kind:12} {sum(row):8} {row[0]:8} {row[1]:10} {row[2]:11} {row[3]:11} {row[4]:9}")
    total = counts["all"]
    compiled = sum(total[column] for column in columns)
    caught = compiled - total["equivalent"] - total["survived"]
    print(f"not counted, for they do not compile: {total['does not compile']}")
    print(f"caught: {caught} of {compiled}, {100 * caught / max(compiled, 1):.1f} %")
    # Of a few, those that make no difference may be many.
    return (compiled < FEWEST or caught >= LIMIT * compiled) and total["survived"] == 0


def arguments():
    parser = argparse.ArgumentParser(description="Counts the mutants of the module that its unit tests catch.")
    parser.add_argument("source_dir")
    parser.add_argument("build_dir")
    parser.add_argument("--sample", type=int, help="this many, drawn from all of them")
    parser.add_argument("--seed", type=int, default=1, help="of the sample")
    parser.add_argument("--only", default="", help="those whose function or statement contains this text")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--list", action="store_true", help="names the mutants and runs none")
    parser.add_argument("--check", action="store_true", help="checks the list of equivalent mutants and runs none")
    return parser.parse_args()


def show(mutant):
    nth = f" #{mutant.nth}" if mutant.nth > 1 else ""
    return f"in {mutant.function}{nth}\n- {mutant.before}\n+ {mutant.after}"


def check(every, equivalents):
    """Whether the list of equivalents names nothing but mutants of today's source."""
    stale = equivalents.keys() - {each.key() for each in every}
    for function, before, after, _ in stale:
        print(f"no such mutant:\nin {function}\n- {before}\n+ {after}\n")
    print(f"{len(every)} mutants, {len(equivalents)} of them named as equivalent")
    return len(every) >= FEWEST and not stale


def main():
    given = arguments()
    here = os.path.dirname(os.path.abspath(__file__))
    with open(f"{given.source_dir}/rtc/video_stream.cpp") as file:
        source = file.read()
    with open(f"{here}/equivalent.txt") as file:
        equivalents = mutants.read_equivalents(file.read())
    every = mutants.generate(source)
    if given.check:
        return 0 if check(every, equivalents) else 1
    chosen = [each for each in every if given.only in each.function + " " + each.before]
    if given.sample is not None:
        chosen = random.Random(given.seed).sample(chosen, min(given.sample, len(chosen)))
    if given.list:
        print("\n\n".join(show(each) for each in chosen))
        return 0

    work = f"{given.build_dir}/work"
    shutil.rmtree(work, ignore_errors=True)
    builds = {}
    for name, flags in {"plain": [], "asan": SANITIZE}.items():
        builds[name] = Build(given.source_dir, f"{given.build_dir}/{name}", flags)
        os.makedirs(f"{work}/{name}")
        builds[name].link(f"{work}/{name}/libmutant.so")
        if not builds[name].passes([builds[name].tests, f"--gtest_filter=-{SLOW_TESTS}"], f"{work}/{name}", 60):
            sys.exit("mutate: the tests fail without a mutation")

    fates = {}
    with concurrent.futures.ThreadPoolExecutor(given.jobs) as pool:
        running = {pool.submit(fate, each, source, builds, work): each for each in chosen}
        for done in concurrent.futures.as_completed(running):
            mutant = running[done]
            fates[mutant] = done.result()
            if fates[mutant] == "survived" and mutant.key() not in equivalents:
                print(f"survived:\n{show(mutant)}\n", flush=True)
            if len(fates) % 25 == 0:
                print(f"{len(fates)} of {len(chosen)}", file=sys.stderr, flush=True)
    return 0 if print_table(fates, equivalents) else 1


if __name__ == "__main__":
    sys.exit(main())
