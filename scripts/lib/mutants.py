"""Mutates a source tree, and finds out which mutants its tests kill. scripts/mutants tells how."""

import argparse
import collections
import concurrent.futures
import dataclasses
import functools
import heapq
import json
import os
import random
import re
import subprocess
import tempfile
import threading
import time
from pathlib import Path

import mutant_sites

HERE = Path(__file__).resolve().parent
# Not product code of Linux, or never run by a test.
LEFT_OUT = ("tests/", "bench/", "fuzz/", "build/")
# Runners below tests/patches that take too long to run for each mutant.
SLOW_RUNNERS = {"faults.py"}
# The same of test programs, as patterns of GoogleTest.
SLOW_TESTS = ["*.AKilledCopyLeavesNoHalfFile"]
LEAST_PER_LAYER = 12
SPARE = 1.2  # sites to try for each that is wanted, since some don't compile
RESULT = "RESULT"  # in a group's command, the file that gets the counts
MOST_MEMORY = 6 << 30
MOST_FILE = 1 << 30
MOST_TEMPORARY = 4 << 30
CONFIGURATION = ["--preset", "linux", "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O1 -D_GLIBCXX_ASSERTIONS"]


def layer_of(path):
    folders = path.split("/")[:-1]
    return "/".join(folders[:2 if folders[0] == "platform" else 1])


def is_preferred(site):
    """Descriptions of commands are mostly text."""
    is_parsing = site.path.startswith("commands/") and site.function.endswith("Parse")
    return not is_parsing and not site.path.endswith("_description.cpp")


class Tree:
    """A copy of a source tree, and its build, in which sites can be rewritten."""

    def __init__(self, source, folder):
        self.source, self.copy, self.build = source, folder / "src", folder / "linux"
        listed = subprocess.run(["git", "ls-files", "-z"], cwd=source, capture_output=True,
                                check=True).stdout.decode().split("\0")
        self.files = [name for name in listed if name and (source / name).is_file()]
        self.texts = {}

    def copy_file(self, name, content, mode):
        """Leaves a file alone that is the same already, for its objects to stay valid."""
        target = self.copy / name
        if not target.is_file() or target.read_bytes() != content:
            target.parent.mkdir(parents=True, exist_ok=True)
            target.write_bytes(content)
        target.chmod(mode)

    def configure(self):
        """Brings the copy and its build up to date, but for the sources that rewrite() makes."""
        hook = "mutant_hook.h"
        if self.copy.is_dir():
            for path in self.copy.rglob("*"):
                if path.is_file() and str(path.relative_to(self.copy)) not in (hook, *self.files):
                    path.unlink()
        for name in self.files:
            is_rewritten = name.endswith(".cpp") and not name.startswith(LEFT_OUT)
            if not is_rewritten or not (self.copy / name).is_file():
                file = self.source / name
                self.copy_file(name, file.read_bytes(), file.stat().st_mode)
        self.copy_file(hook, (HERE / hook).read_bytes(), 0o644)
        # Rewritten expressions give warnings of no interest.
        command = ["cmake", "-S", self.copy, "-B", self.build, *CONFIGURATION,
                   f"-DCMAKE_CXX_FLAGS=-w -include {self.copy / hook}"]
        subprocess.run(command, stdout=subprocess.DEVNULL, check=True)
        commands = json.loads((self.build / "compile_commands.json").read_text(encoding="utf-8"))
        compiled = {os.path.relpath(command["file"], self.copy) for command in commands}
        self.texts = {name: (self.source / name).read_text(encoding="utf-8") for name in self.files
                      if name in compiled and not name.startswith(LEFT_OUT)}

    def sites(self):
        return [site for name, text in self.texts.items()
                for site in mutant_sites.nested(mutant_sites.find_sites(name, text))]

    def rewrite(self, numbered):
        by_file = collections.defaultdict(list)
        for number, site in numbered.items():
            by_file[site.path].append((number, site))
        for name, text in self.texts.items():
            chosen = dict((id(site), number) for number, site in by_file[name])
            order = mutant_sites.nested([site for _, site in by_file[name]])
            text = mutant_sites.rewrite(text, [(chosen[id(site)], site) for site in order])
            self.copy_file(name, text.encode(), (self.copy / name).stat().st_mode)

    def compile(self, numbered):
        """Builds with the sites, and gives those that compile."""
        numbered = dict(numbered)
        while True:
            self.rewrite(numbered)
            build = subprocess.run(["cmake", "--build", self.build, "--target", "programs", "tests",
                                    "--", "-k", "0"], capture_output=True, text=True, check=False)
            if build.returncode == 0:
                return numbered
            places = re.findall(r"^(\S+?):(\d+):\d+: +(?:fatal error|error|required from)",
                                build.stdout, re.M)
            bad = set()
            for path, line in places:
                path = os.path.relpath(os.path.join(self.build, path), self.copy)
                on_line = [number for number, site in numbered.items() if site.path == path
                           and site.line <= int(line) <= site.last_line]
                bad.update(on_line)
            if not bad:
                raise SystemExit(f"mutants: the build fails\n{build.stdout[-4000:]}")
            print(f"{len(bad)} sites don't compile", flush=True)
            for number in bad:
                del numbered[number]


@dataclasses.dataclass
class Run:
    fault: str  # why it doesn't pass, if so
    output: str
    reached: set  # the numbers of sites
    seconds: float


@dataclasses.dataclass
class Group:
    """Tests that run together."""
    name: str
    command: list
    usual: Run = None  # without a mutant


class Tests:
    """The groups of tests of a built tree. Each run has the machine to itself: it can write to
    nothing outside of its own temporary folder, reach no process and no network, for a mutant may
    do anything to files."""

    def __init__(self, tree, results, jobs):
        self.tree, self.results, self.jobs = tree, results, jobs
        self.groups = []
        self.broken = []  # tests and groups that fail without a mutant

    def run(self, group, mutant=None, limit=None):
        """Runs a group with a mutant switched on, or with none to learn what it reaches."""
        with tempfile.TemporaryDirectory(prefix="run-", dir=self.results) as folder:
            os.chmod(folder, 0o777)
            told, hits = Path(folder, "result.json"), Path(folder, "hits")
            settings = {name: value for name, value in os.environ.items()
                        if not name.startswith(("GTEST_", "TESSEL_"))}
            settings.update(HOME="/tmp", TMPDIR="/tmp", XDG_DATA_HOME="/tmp/data")
            if mutant is None:
                settings["TESSEL_MUTANT_HITS"] = str(hits)
            else:
                settings["TESSEL_MUTANT"] = str(mutant)
            command = [told if part is RESULT else part for part in group.command]
            start = time.monotonic()
            try:
                run = subprocess.run([*self.sandbox(folder), *command], env=settings,
                                     stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                     stderr=subprocess.STDOUT, timeout=limit, check=False)
            except subprocess.TimeoutExpired:
                return Run("timeout", "", set(), limit)
            fault = f"exit code {run.returncode}" if run.returncode != 0 else ""
            if not fault and RESULT in group.command:
                counts = json.loads(told.read_text(encoding="utf-8")) if told.is_file() else {}
                fault = "" if counts.get("failed") == 0 else "failures"
            reached = set(map(int, hits.read_text().split())) if hits.is_file() else set()
            return Run(fault, run.stdout.decode(errors="replace"), reached,
                       time.monotonic() - start)

    def sandbox(self, folder):
        tree, tests = self.tree, self.tree.build / "tests"
        # Some tests put files beside their program, or above.
        built = [part for path in (*tree.build.iterdir(), *tests.iterdir()) if path != tests
                 for part in ("--ro-bind", path, path)]
        return ["prlimit", "--core=0", f"--as={MOST_MEMORY}", f"--fsize={MOST_FILE}",
                "bwrap", "--die-with-parent", "--unshare-pid", "--unshare-net", "--unshare-ipc",
                *(["--cap-add", "ALL"] if os.geteuid() == 0 else []),
                "--ro-bind", "/", "/", "--dev", "/dev", "--proc", "/proc",
                "--size", str(MOST_TEMPORARY), "--perms", "1777", "--tmpfs", "/tmp",
                "--ro-bind", tree.copy, tree.copy, "--perms", "0755", "--tmpfs", tree.build, *built,
                "--bind", folder, folder, "--chdir", tree.copy]

    def discover(self):
        """The native test programs, the runners of patches, and the check of the generated docs."""
        build, tasks = self.tree.build, []
        for name in (build / "tests.txt").read_text(encoding="utf-8").split():
            group = Group(name, [build / "tests" / name, "--gtest_brief=1"])
            tasks.append(functools.partial(self.learn_program, group))
        known = {"--linux": build / "bin/tessel", "--tessel": build / "bin/tessel",
                 "--tlx": build / "bin/tlx", "--key": build / "dev-keys/private.pem",
                 "--root": self.tree.copy, "--json": RESULT}
        runners = sorted((self.tree.copy / "tests/patches").glob("*.py"))
        for runner in [*runners, self.tree.copy / "scripts/lib/check_generated_docs.py"]:
            text = runner.read_text(encoding="utf-8") if runner.is_file() else ""
            if "ArgumentParser(" not in text or runner.name in SLOW_RUNNERS:
                continue
            options = {}  # and whether they are required
            for option, rest in re.findall(r"add_argument\(['\"](--[\w-]+)(.*)", text):
                options[option] = "required=True" in rest
            needed = {option for option, is_required in options.items() if is_required}
            if needed - known.keys() or "--tlx" not in options:
                continue
            command = ["/usr/bin/python3", "-B", runner]
            for option in sorted(options.keys() & known.keys()):
                command += [option, known[option]]
            has_families = "--filter" in options and "'-v'" in text
            tasks.append(functools.partial(self.learn_runner, Group(runner.stem, command),
                                           has_families))
        with concurrent.futures.ThreadPoolExecutor(self.jobs) as pool:
            self.groups = [group for groups in pool.map(lambda task: task(), tasks)
                           for group in groups]
        self.groups.sort(key=lambda group: group.usual.seconds)

    def learn_program(self, group):
        """Learns what a test program does without its tests that fail even without a mutant."""
        group.command.append("--gtest_filter=-" + ":".join(SLOW_TESTS))
        run = self.run(group)
        failing = sorted(set(re.findall(r"^\[  FAILED  \] (\S+?)[, ]", run.output, re.M)))
        self.broken += failing
        group.command[-1] = ":".join([group.command[-1], *failing])
        groups = self.learn(group)
        group.command.append("--gtest_fail_fast")
        return groups

    def learn_runner(self, group, has_families):
        """Learns what a runner does, by families of cases unless that takes much longer."""
        if has_families:
            run = self.run(Group(group.name, [*group.command, "-v"]))
            names = set(re.findall(r"^ok\s+(?:\S+\s+)?([\w.-]+)/\S+$", run.output, re.M))
            families = [Group(f"{group.name}:{name}", [*group.command, "--filter", f"{name}/*"])
                        for name in sorted(names)]
            sound = [family for family in families if self.learn(family)]
            if sound and sum(family.usual.seconds for family in sound) < 1.5 * run.seconds:
                return sound
        return self.learn(group)

    def learn(self, group):
        """Runs the group without a mutant. Gives it, unless it fails even so."""
        group.usual = self.run(group)
        if group.usual.fault:
            group.usual = self.run(group)
        if group.usual.fault:
            self.broken.append(group.name)
            print(f"{group.name} fails without a mutant ({group.usual.fault}) and is left out\n"
                  f"{group.usual.output[-2000:]}", flush=True)
            return []
        print(f"{group.name}: {group.usual.seconds:.1f} s, reaches "
              f"{len(group.usual.reached)} sites", flush=True)
        return [group]


def quotas(sites, count):
    """How many sites each layer gets: in proportion to what it has, and at least a few."""
    sizes = collections.Counter(layer_of(site.path) for site in sites)
    least = {layer: min(LEAST_PER_LAYER, size) for layer, size in sizes.items()}
    rest = max(count - sum(least.values()), 0)
    total = sum(sizes.values())
    return {layer: min(size, least[layer] + round(rest * size / total))
            for layer, size in sizes.items()}


def choose(sites, count, seed):
    """Sites in the order in which to prefer them, by layer: in turn of each kind."""
    by_layer = collections.defaultdict(lambda: collections.defaultdict(list))
    for site in sites:
        kind = mutant_sites.KINDS[site.operator]
        by_layer[layer_of(site.path)][kind].append(site)
    wanted, chosen = quotas(sites, count), {}
    for layer, kinds in sorted(by_layer.items()):
        order = []
        for kind in sorted(kinds):
            random.Random(f"{seed} {layer} {kind}").shuffle(kinds[kind])
        while len(order) < wanted[layer] * SPARE and any(kinds.values()):
            order += [kinds[kind].pop() for kind in sorted(kinds) if kinds[kind]]
        chosen[layer] = order
    return wanted, chosen


def take_sample(tree, options):
    """The keys of a new sample's mutants by their numbers, and their sites."""
    sites = tree.sites()
    index = mutant_sites.Index(sites)
    wanted, chosen = choose([site for site in sites if is_preferred(site) and index.key_of(site)],
                            options.sample, options.seed)
    tried = [site for order in chosen.values() for site in order]
    compiled = tree.compile(dict(enumerate(tried)))
    valid = {id(site): number for number, site in compiled.items()}
    sample = {}
    for layer, order in chosen.items():
        numbers = [valid[id(site)] for site in order if id(site) in valid]
        sample.update({number: compiled[number] for number in numbers[:wanted[layer]]})
    if options.write:
        keys = {number: index.key_of(site) for number, site in sample.items()}
        options.write.write_text(json.dumps(keys, indent=1) + "\n", encoding="utf-8")
    return sample


def take_sites(tree, options):
    """Those mutants of a sample whose sites are still there."""
    keys = json.loads(options.sites.read_text(encoding="utf-8"))
    index = mutant_sites.Index(tree.sites())
    found = {int(number): index.find(key) for number, key in keys.items()}
    present = {number: site for number, site in found.items() if site}
    compiled = tree.compile(present)
    print(f"{len(found) - len(present)} of {len(found)} sites are gone, "
          f"{len(present) - len(compiled)} don't compile", flush=True)
    return compiled


class Judge:
    """Runs for each mutant the groups that reach it until one fails. Of all mutants the cheapest run
    is next, so that a run that is cut short has settled most."""

    def __init__(self, tests, sample, killers, save):
        self.tests, self.sample, self.save = tests, sample, save
        self.results, self.lock, self.next = {}, threading.Lock(), []
        self.reaching = {}
        for number in sample:
            reaching = [group for group in tests.groups if number in group.usual.reached]
            # A stable sort: all but the one that is known stay in the order of their costs.
            self.reaching[number] = sorted(
                reaching, key=lambda group: group.name != killers.get(str(number)))
            self.go_on(number, 0)

    def go_on(self, number, at):
        groups = self.reaching[number]
        if at < len(groups):
            heapq.heappush(self.next, (groups[at].usual.seconds, number, at))
        else:
            self.settle(number, "survived" if groups else "not covered")

    def settle(self, number, verdict, by="", how=""):
        site = self.sample[number]
        self.results[number] = {
            "verdict": verdict, "by": by, "how": how, "layer": layer_of(site.path),
            "groups": [group.name for group in self.reaching[number]], "path": site.path,
            "line": site.line, "operator": site.operator, "nth": site.nth,
            "function": site.function, "text": site.text}
        self.save(self.results)
        print(f"{len(self.results)}/{len(self.sample)} {number} {site.path}:{site.line} "
              f"{site.operator}: {verdict} {by} {how}", flush=True)

    def work(self):
        while True:
            with self.lock:
                if not self.next:
                    return
                seconds, number, at = heapq.heappop(self.next)
            group = self.reaching[number][at]
            run = self.tests.run(group, number, 3 * seconds + 10)
            with self.lock:
                if run.fault:
                    self.settle(number, "killed", group.name, run.fault)
                else:
                    self.go_on(number, at + 1)

    def run(self):
        with concurrent.futures.ThreadPoolExecutor(self.tests.jobs) as pool:
            for worker in [pool.submit(self.work) for _ in range(self.tests.jobs)]:
                worker.result()
        return self.results


def report(results, killers):
    verdicts = ("killed", "survived", "not covered")
    counts = collections.Counter((result["layer"], result["verdict"])
                                 for result in results.values())
    print(f"\n{'layer':24}" + "".join(f"{name:>13}" for name in (*verdicts, "all")))
    for layer in [*sorted({layer for layer, _ in counts}), None]:
        row = [sum(count for (name, verdict), count in counts.items()
                   if layer in (name, None) and verdict == wanted) for wanted in verdicts]
        print(f"{layer or 'all':24}" + "".join(f"{count:13}" for count in (*row, sum(row))))
    for number, result in sorted(results.items()):
        if result["verdict"] != "killed":
            killer = killers.get(str(number))
            print("{} {path}:{line}: {operator} {nth} {verdict}: {text}".format(number, **result),
                  f"(was killed by {killer})" if killer else "")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--source", type=Path, required=True)
    parser.add_argument("--work", type=Path, required=True)
    parser.add_argument("--sample", type=int)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--write", type=Path)
    parser.add_argument("--sites", type=Path)
    parser.add_argument("--known", type=Path)
    parser.add_argument("--json", type=Path)
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    options = parser.parse_args()
    if (options.sample is None) == (options.sites is None):
        parser.error("either --sample or --sites is needed")
    killers = {}
    if options.known:
        known = json.loads(options.known.read_text(encoding="utf-8"))["mutants"]
        killers = {number: result["by"] for number, result in known.items()}
    start = time.monotonic()
    work = options.work.resolve()
    work.mkdir(parents=True, exist_ok=True)
    tree = Tree(options.source.resolve(), work)
    tree.configure()
    sample = take_sample(tree, options) if options.sites is None else take_sites(tree, options)
    print(f"{len(sample)} mutants built in {time.monotonic() - start:.0f} s", flush=True)
    with tempfile.TemporaryDirectory(prefix="results-", dir=work) as results_folder:
        tests = Tests(tree, Path(results_folder), options.jobs)
        tests.discover()
        print(f"left out: {' '.join(tests.broken) or 'nothing'}", flush=True)

        def save(results):
            if options.json:
                told = {"left_out": tests.broken, "mutants": results}
                options.json.write_text(json.dumps(told, indent=1) + "\n", encoding="utf-8")

        results = Judge(tests, sample, killers, save).run()
    report(results, killers)
    print(f"{time.monotonic() - start:.0f} s")


main()
