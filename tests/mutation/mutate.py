#!/usr/bin/env python3
"""Mutation testing: plants one small fault at a time in foundation/ and sees whether a test notices.

  mutate.py list [-v] [--file dates]  what could be planted
  mutate.py run [--sample 120]        the tests of each fault's own family (foundation/os: tests/os)
  mutate.py again --preset asan       survivors once more, against another build; rewrites --out
  mutate.py slow                      on survivors all other test programs, one by one
  mutate.py report                    the score of that run
  mutate.py page [--sample 120]       the same as lines for scripts/prove; fails when the score is too low

Works on a copy of the project's HEAD under --work, built once with its tests; the project is only read. The test
programs find the library by RUNPATH, so LD_LIBRARY_PATH puts a mutant in its place: a mutant costs a compilation,
a link and its family's test programs. A program that has the fault's source compiled or included into it is made
anew with the mutant in that, too. Each runs whole in one process up to the first failure. The case that fails must
then fail alone too, as ctest runs it; if it does not, every case is run alone. All other tests that include a
private header have the original of it. A header that no source of the library includes gets no faults.

Verdicts: killed; timeout (as good as killed); survived; unbuildable and same-code, where the compiler made the same
object file (neither is counted). tests/equivalent_mutants.tsv lists survivors (columns file, function, original,
mutated, reason) that a reader has judged to change nothing that a caller can see; a row that no fault of today's
sources matches fails the page.

A run that finds --out keeps from it what must come out the same: while the library and tests/support are what they
were, faults whose killer's sources have lost no line since, and judged survivors. Remove --out to plant all again.
"""
import argparse, collections, concurrent.futures, csv, fnmatch, functools, hashlib, json, os, pathlib, queue, random, re
import shlex, shutil, signal, subprocess, sys, threading, time

sys.dont_write_bytecode = True
import mutants

PROJECT = pathlib.Path(__file__).resolve().parents[2]
LIBRARY = "libQVfoundation17.so"
COLUMNS = ["file", "line", "operator", "original", "mutated", "verdict", "killed_by", "function", "start", "end",
           "text", "commit"]

# ---- Mutants -------------------------------------------------------------------------------------------

def files_of(project, patterns=("",)):
    """The library's own sources and private headers, as paths relative to the project."""
    files = sorted(str(path.relative_to(project)) for ending in ("cpp", "h")
                   for path in (project / "foundation").rglob(f"*.{ending}"))
    return [file for file in files if any(fnmatch.fnmatch(file, f"*{pattern}*") for pattern in patterns)]


@functools.lru_cache(None)
def reached_from(project, file):
    """The file and all that it includes, of the library's sources and the tests."""
    reached, waiting = set(), [file]
    while waiting:
        if (file := waiting.pop()) in reached:
            continue
        reached.add(file)
        for name in re.findall(r'^#include "([^"]+)"', (project / file).read_text(), re.M):
            folders = (project / file).parent, project / "tests", project
            found = next((folder / name for folder in folders if (folder / name).exists()), None)
            waiting += [os.path.relpath(found, project)] if found else []
    return reached


def mutants_of(project, patterns):
    """Rows of the result, without a verdict. The mutant is the file's text with `text` from `start` to `end`."""
    of_library = set().union(*(reached_from(project, file) for file in files_of(project) if file.endswith(".cpp")))
    for name in files_of(project, patterns):
        if name not in of_library:
            continue
        source = (project / name).read_text()
        for operator, start, end, text in mutants.changes(source):
            text += "\n" * (source.count("\n", start, end) - text.count("\n"))  # lines keep their numbers
            first, last = source.rfind("\n", 0, start) + 1, source.find("\n", end)
            original, mutated = source[first:last], source[first:start] + text + source[end:last]
            function = (re.findall(r"^(?!static_assert)(?=[A-Za-z]).*?(\w+)\(", source[:start], re.M) or [""])[-1]
            yield dict(file=name, line=source.count("\n", 0, start) + 1, operator=operator, start=start, end=end,
                       text=json.dumps(text), original=" ".join(original.split()), mutated=" ".join(mutated.split()),
                       function=function, verdict="", killed_by="", commit="")


def key_of(row):
    return row["file"], row["function"], row["original"], row["mutated"]


def draw(rows, count, seed):
    """At random, but a line counts once for each operator before it counts twice: tables do not prevail."""
    generator, seen, order = random.Random(seed), collections.Counter(), []
    for row in generator.sample(rows, len(rows)):
        group = row["file"], row["line"], row["operator"]
        seen[group] += 1
        order.append((seen[group], len(order), row))
    return [row for _, _, row in sorted(order, key=lambda entry: entry[:2])][:count or None]


# ---- Building and running ------------------------------------------------------------------------------

def family_of(file):
    """memory of foundation/memory/dt_types.cpp and of tests/memory/blocks_test.cpp."""
    return pathlib.PurePath(file).parts[1]


class Workshop:
    """The built copy of the project, and for each job a folder with its sources, objects and library."""

    def __init__(self, options, needs_all_programs):
        self.options, self.work, self.base = options, options.work.resolve(), options.work.resolve() / "base"
        self.build = self.base / "build" / options.preset
        self.tests, self.cost = self.build / "tests", {}
        self.copy_project()
        self.run_cmake("--preset", options.preset, "-DCMAKE_EXE_LINKER_FLAGS=-Wl,--enable-new-dtags")
        database = json.loads((self.build / "compile_commands.json").read_text())
        self.compile_command, self.private_copies = self.compile_commands(database)
        self.sources = [file for file in files_of(self.base) if file in self.compile_command]
        self.sources_of_program = collections.defaultdict(set)
        for entry in database:
            if out := re.search(r"tests/CMakeFiles/([^/]+)\.dir/", entry["command"]):
                self.sources_of_program[out[1]] |= reached_from(self.base, os.path.relpath(entry["file"], self.base))
        self.programs = self.test_programs(database)
        self.run_cmake("--build", self.build, "-j", str(options.jobs), "--target",
                       *(["all"] if needs_all_programs else self.programs_for(options.file)))
        self.link_command = {out: self.link_command_of(out)
                             for out in [LIBRARY, *(f"tests/{program}" for program in self.private_copies)]}
        self.slots = queue.Queue()
        for number in range(options.jobs):
            slot = self.work / f"{options.preset}-job{number}"
            shutil.rmtree(slot, ignore_errors=True)
            shutil.copytree(self.base / "foundation", slot / "foundation")
            self.slots.put(slot)

    def compile_commands(self, database):
        """By source: that of the library. By program and source: those that compile a source of the library into a
        program, or a test that includes one."""
        commands, copies = {}, collections.defaultdict(dict)
        is_unit = lambda file: file.startswith("foundation/") and file.endswith(".cpp")
        for entry in database:
            file, command = os.path.relpath(entry["file"], self.base), shlex.split(entry["command"])
            program = re.match(r"tests/CMakeFiles/([^/]+)\.dir/", command[command.index("-o") + 1])
            if program and any(map(is_unit, reached_from(self.base, file))):
                copies[program[1]][file] = command
            else:
                commands[file] = command
        return commands, copies

    def link_command_of(self, out):
        """What ninja runs is ": && LINK && what follows"."""
        commands = subprocess.run(["ninja", "-t", "commands", out], cwd=self.build, check=True, text=True,
                                  capture_output=True).stdout.splitlines()
        return shlex.split(commands[-1].split(" && ")[1])

    def test_programs(self, database):
        """By the folder under tests/ that their sources come from. What is built there without a main is none."""
        programs, libraries = collections.defaultdict(list), re.compile(r"add_library\((\w+)")
        registered = [path.read_text() for path in (self.base / "tests").rglob("*.cmake")]
        no_programs = {name for text in registered for name in libraries.findall(text)} | {"test_support"}
        for entry in database:
            file = os.path.relpath(entry["file"], self.base)
            out = re.search(r"tests/CMakeFiles/([^/]+)\.dir/", entry["command"])
            if file.startswith("tests/") and not file.startswith("tests/support/") and out:
                if out[1] not in no_programs and out[1] not in programs[family_of(file)]:
                    programs[family_of(file)].append(out[1])
        return programs

    def programs_for(self, patterns):
        return list(dict.fromkeys(program for file in files_of(self.base, patterns)
                                  for program in self.programs_of({"file": file})))

    def changed_of(self, row, sources):
        """Those of the sources that a fault in this file changes."""
        return [source for source in sources if row["file"] in reached_from(self.base, source)]

    def programs_of(self, row):
        """Those of its families: first the ones that bear the unit's name, those to be made anew last, and quick ones
        before slow ones."""
        families = {family_of(source) for source in self.changed_of(row, self.sources)}
        unit = pathlib.PurePath(row["file"]).stem
        programs = {program for family in families for program in self.programs[family]}
        return sorted(programs, key=lambda name: (not name.startswith(unit), name in self.private_copies,
                                                  self.cost.get(name, ()), name))

    def git(self, *arguments):
        return subprocess.run(["git", "-C", self.options.project, *arguments], check=True, capture_output=True).stdout

    def copy_project(self):
        self.head, kept = self.git("rev-parse", "HEAD").decode().strip(), self.base / ".head"
        if not kept.exists() or kept.read_text() != self.head:
            shutil.rmtree(self.base, ignore_errors=True)
            self.base.mkdir(parents=True)
            subprocess.run(["tar", "-x", "-C", self.base], input=self.git("archive", "HEAD"), check=True)
            kept.write_text(self.head)

    @functools.cache
    def changed_since(self, commit):
        """All changed files, and those of them that lost a line."""
        numstat = self.git("diff", "--numstat", "--no-renames", commit, "HEAD").decode()
        changes = [line.split("\t") for line in numstat.splitlines()]
        return {file for _, _, file in changes}, {file for _, lost, file in changes if lost != "0"}

    @functools.cache
    def is_known_commit(self, commit):
        return bool(commit) and subprocess.run(["git", "-C", self.options.project, "cat-file", "-e", commit],
                                               capture_output=True).returncode == 0

    def sources_of_killer(self, killed_by):
        """The test's own file, if it can be told, and all headers that its program includes."""
        program, test, *_ = killed_by.split() + [""]
        suite, _, case = test.partition(".")
        named = re.compile(rf"\({re.escape(suite.split('/')[-1])},\s*{re.escape(case.split('/')[0])}\)")
        sources = self.sources_of_program[program]
        own = {file for file in sources if file.endswith(".cpp") and named.search((self.base / file).read_text())}
        return {file for file in sources if not own or file in own or file.endswith(".h")}

    def still_holds(self, row, known):
        """Whether the row of an earlier run would come out the same today."""
        if not self.is_known_commit(row.get("commit")):  # rewritten since, or of an older form of the table
            return False
        changed, with_lines_lost = self.changed_since(row["commit"])
        if any(file.startswith(("foundation/", "include/", "cmake/", "CMake", "tests/support/")) for file in changed):
            return False
        if row["verdict"] in ("killed", "timeout"):
            return not with_lines_lost & self.sources_of_killer(row["killed_by"])
        return row["verdict"] != "survived" or key_of(row) in known

    def keep_verdicts(self, rows, known):
        """Takes over what still holds from --out. The rows that are left."""
        fault = lambda row: (row["file"], str(row["start"]), str(row["end"]), row["text"])
        earlier = {fault(row): row for row in (read_rows(self.options.out) if self.options.out.exists() else [])}
        for row in (row for row in rows if not row["verdict"]):
            if (before := earlier.get(fault(row))) and self.still_holds(before, known):
                row.update(verdict=before["verdict"], killed_by=before["killed_by"], commit=before["commit"])
        return [row for row in rows if not row["verdict"]]

    def run_cmake(self, *arguments):
        done = subprocess.run(["cmake", *arguments], cwd=self.base, text=True, capture_output=True)
        if done.returncode != 0:
            sys.exit(done.stdout + done.stderr)

    def compile(self, command, source, target, slot):
        """The hash of the object file, or None."""
        command = [word for word in command if word != "-Werror"] + ["-w"]
        command[command.index("-o") + 1] = target
        if source.startswith("foundation/"):
            command[command.index(str(self.base / source))] = str(slot / source)
        else:  # a test that includes what is mutated; how fast it runs does not matter
            command = ["-O1" if word == "-O3" else word for word in command]
            command.insert(next(i for i, word in enumerate(command) if word.startswith("-I")), f"-I{slot}")
        if self.call(command, self.build, {}, 60, 300)[0] != 0:
            return None
        return hashlib.sha256(pathlib.Path(target).read_bytes()).hexdigest()

    def rebuild(self, out, commands, sources, slot):
        """Links `out` in the slot, with objects made there of these sources. Their hashes, or None."""
        name = pathlib.PurePath(out).name
        folder = slot / "objects" / name
        folder.mkdir(parents=True, exist_ok=True)
        fresh, hashes = {}, []
        for source in sources:
            command, target = commands[source], str(folder / (source.replace("/", "_") + ".o"))
            fresh[command[command.index("-o") + 1]] = target
            hashes.append(self.compile(command, source, target, slot))
        link = [fresh.get(word, word) for word in self.link_command[out]]
        link[link.index("-o") + 1] = str(slot / name)
        return None if None in hashes or self.call(link, self.build, {}, 60, 300)[0] != 0 else hashes

    def renew(self, program, changed, slot):
        """Makes the program in the slot, if any source of its is changed. One that cannot be built is left out."""
        (slot / program).unlink(missing_ok=True)
        if changed:
            self.rebuild(f"tests/{program}", self.private_copies[program], changed, slot)

    def call(self, command, folder, variables, cpu, wall, stop=None):
        """(status, case): 0 passed, "timeout", a negative signal, else failed. A line with `stop` ends the run."""
        limits = ["choom", "-n", "1000", "--",  # the first to go when memory gets short
                  "prlimit", f"--cpu={cpu}:{cpu + 2}", "--core=0"]
        if self.options.preset == "release":  # a sanitizer reserves more than there is
            limits.append(f"--data={self.options.memory << 30}")
        process = subprocess.Popen([*limits, *command], cwd=folder, env={**os.environ, **variables}, text=True,
                                   stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                                   errors="replace", start_new_session=True)
        late = threading.Event()

        def end_all():
            try:
                os.killpg(process.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
        timer = threading.Timer(wall, lambda: (late.set(), end_all()))
        timer.start()
        case, failed = "", False
        for line in process.stdout:
            if line.startswith("[ RUN      ] "):
                case = line[13:].strip()
            failed = stop is not None and stop in line
            if failed:
                case = case or line.strip()
                break
        if failed:
            end_all()
        status = process.wait()
        timer.cancel()
        end_all()
        process.stdout.close()
        is_late = late.is_set() or (not failed and status == -signal.SIGXCPU)
        return "timeout" if is_late else "failed" if failed else status, case

    def path_of(self, program, slot):
        """The program; where the slot has one with the mutant in it, that one."""
        return slot / program if slot and (slot / program).exists() else self.tests / program

    def run_program(self, program, variables, slot=None):
        """None when the program passes, otherwise (verdict, what failed)."""
        cpu, wall = self.cost.get(program, (100, 100))
        limits = {"cpu": max(5, int(5 * cpu)), "wall": max(45, 6 * wall), "stop": ": Failure"}
        command = [str(self.path_of(program, slot))]
        if program.endswith("_test"):
            command += ["--gtest_fail_fast", "--gtest_also_run_disabled_tests"]
        status, case = self.call(command, self.tests, variables, **limits)
        if status == 0:
            return None
        if status == "timeout":
            return "timeout", f"{program} {case}"
        alone = lambda case: self.call([*command, f"--gtest_filter={case}"], self.tests, variables, **limits)[0]
        if case and alone(case) == 0:  # something left behind made it fail: every case for itself, as for ctest
            case = next((case for case in self.cases(command, variables) if alone(case) != 0), None)
        note = f" (signal {-status})" if isinstance(status, int) and status < 0 else ""
        return None if case is None else ("killed", f"{program} {case}{note}")

    def cases(self, command, variables):
        listing = subprocess.run([command[0], "--gtest_list_tests"], cwd=self.tests, text=True, capture_output=True,
                                 env={**os.environ, **variables}).stdout
        for line in listing.splitlines():
            words = line.split("#")[0].split()
            if line.startswith("  "):
                yield suite + words[0]
            elif words and words[0].endswith("."):
                suite = words[0]

    def plant(self, row, slot):
        """Writes the mutant and builds the library with it; a verdict when there is none to test."""
        text = (self.base / row["file"]).read_text()
        mutant = text[:int(row["start"])] + json.loads(row["text"]) + text[int(row["end"]):]
        (slot / row["file"]).write_text(mutant)
        sources = self.changed_of(row, self.sources)
        hashes = self.rebuild(LIBRARY, self.compile_command, sources, slot)
        is_same_code = hashes == [self.original[source] for source in sources]
        return "same-code" if is_same_code else None if hashes else "unbuildable"

    def variables(self, slot):
        shutil.rmtree(slot / "tmp", ignore_errors=True)
        (slot / "tmp").mkdir()
        return {"LD_LIBRARY_PATH": str(slot), "TMPDIR": str(slot / "tmp")}

    def judge(self, row):
        slot = self.slots.get()
        verdict, killed_by = self.plant(row, slot) or "survived", ""
        for program in self.programs_of(row) if verdict == "survived" else []:
            self.renew(program, self.changed_of(row, self.private_copies.get(program, [])), slot)
            if outcome := self.run_program(program, self.variables(slot), slot):
                verdict, killed_by = outcome
                break
        if self.options.preset != "release" and killed_by:
            killed_by += f" ({self.options.preset})"
        shutil.copy2(self.base / row["file"], slot / row["file"])
        self.slots.put(slot)
        # At once: another thread may be writing the rows out.
        row.update(verdict=verdict, killed_by=killed_by, commit=self.head)

    def judge_slowly(self, row):
        """By all programs that are not its unit's own, in the copy itself: some of them build its sources again."""
        slot, library, source = self.slots.queue[0], self.build / LIBRARY, self.base / row["file"]
        text = source.read_text()
        self.plant(row, slot)
        (slot / row["file"]).write_text(text)
        shutil.copy2(library, slot / "kept.so")
        own = self.programs_of(row)
        others = [p for programs in self.programs.values() for p in programs if p.endswith("_test") and p not in own]
        try:
            shutil.copy2(slot / LIBRARY, library)
            source.write_text(text[:int(row["start"])] + json.loads(row["text"]) + text[int(row["end"]):])
            for program in dict.fromkeys(others):
                if outcome := self.run_program(program, {"TMPDIR": self.variables(slot)["TMPDIR"]}):
                    row["verdict"], row["killed_by"] = outcome
                    break
            row["commit"] = self.head
        finally:
            source.write_text(text)
            shutil.copy2(slot / "kept.so", library)

    def check(self, programs):
        """Every program passes with the unchanged library put in its place; notes what that costs."""
        slot = self.slots.get()
        self.original = dict(zip(self.sources, self.rebuild(LIBRARY, self.compile_command, self.sources, slot)))
        for program in programs:
            self.renew(program, self.private_copies.get(program, []), slot)
            variables, before, start = self.variables(slot), os.times(), time.time()
            outcome = self.run_program(program, variables, slot)
            after, wall = os.times(), time.time() - start
            cpu = after.children_user + after.children_system - before.children_user - before.children_system
            self.cost[program] = cpu, wall
            print(f"{program}: {cpu:.1f} s of processor time, {wall:.1f} s", flush=True)
            loaded = subprocess.run([self.path_of(program, slot)], capture_output=True, text=True,
                                    env={**os.environ, **variables, "LD_TRACE_LOADED_OBJECTS": "1"}).stdout
            if outcome or (str(slot / LIBRARY) not in loaded and program not in self.private_copies):
                sys.exit(f"{program} does not pass without a mutant, or loads another library: {outcome}")
        self.slots.put(slot)


# ---- Results -------------------------------------------------------------------------------------------

def read_rows(path):
    with open(path, newline="") as file:
        return list(csv.DictReader(file, delimiter="\t", quoting=csv.QUOTE_NONE))


def write_rows(path, rows):
    rows = sorted((row for row in rows if row["verdict"]), key=lambda row: (row["file"], int(row["start"])))
    lines = [COLUMNS] + [[str(row[column]) for column in COLUMNS] for row in rows]
    path.write_text("".join("\t".join(line) + "\n" for line in lines))


def read_known(path):
    return {key_of(row): row["reason"] for row in (read_rows(path) if path.exists() else [])}


def counts_of(rows, known):
    """Verdicts by unit and, as the last entry, over all; judged survivors are equivalent."""
    table = collections.defaultdict(collections.Counter)
    for row in sorted(rows, key=lambda row: row["file"]):
        is_known = row["verdict"] == "survived" and key_of(row) in known
        for unit in (row["file"], "all units"):
            table[unit]["equivalent" if is_known else row["verdict"]] += 1
    return {unit: table[unit] for unit in sorted(table, key=lambda unit: (unit == "all units", unit))}


def score(count):
    dead, missed = count["killed"] + count["timeout"], count["survived"]
    return 100 * dead / (dead + missed) if dead + missed else 100.0


def report(rows, known):
    names = ["killed", "timeout", "survived", "equivalent", "same-code", "unbuildable"]
    print(f"{'':34}" + "".join(f"{name:>12}" for name in names) + "   score")
    for unit, count in counts_of(rows, known).items():
        print(f"{unit:34}" + "".join(f"{count[name]:12}" for name in names) + f"{score(count):7.1f}%")


def page(options, rows, known):
    """Lines for scripts/prove. Fails below the score, after a survivor that nobody has judged, where every fault
    was planted, and for a judgement of a fault that is none today."""
    command = "scripts/prove mutation" + (" --short" if options.sample else "")
    what = f", {len(rows)} drawn at random (shortened)" if options.sample else ""
    counts = counts_of(rows, known)
    for unit, count in counts.items() if not options.sample else [("all units", counts["all units"])]:
        judged = sum(count[name] for name in ("killed", "timeout", "survived", "equivalent"))
        print("FIGURE", f"faults planted in {unit}{what}", f"{judged} that change the object code",
              f"{count['killed'] + count['timeout']} noticed, {count['survived']} missed, "
              f"{count['equivalent']} equivalent: {score(count):.1f} %", command, sep="\t")
    unjudged = [row for row in rows if row["verdict"] == "survived" and key_of(row) not in known]
    for row in unjudged:
        print("EXCEPTION", f"{row['file']}, {row['function'] or 'at file scope'}: `{row['original']}` -> "
              f"`{row['mutated']}`", "not judged", sep="\t")
    print("EXCEPTION", "faults that count as equivalent", "tests/equivalent_mutants.tsv has for each why no caller "
          "sees it", sep="\t")
    planted = {key_of(row) for row in mutants_of(options.project, [""])}
    stale = [key for key in known if key not in planted]
    for key in stale:
        print("judges a fault that cannot be planted today:", *key)
    if not rows or score(counts["all units"]) <= options.least or stale or unjudged and not options.sample:
        sys.exit(f"score {score(counts['all units']):.2f} % (above {options.least} wanted), {len(unjudged)} survivors "
                 f"not judged, {len(stale)} stale judgements")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    add = parser.add_argument
    add("command", choices=["list", "run", "slow", "again", "report", "page"])
    add("--project", type=pathlib.Path, default=PROJECT, help="a git checkout")
    add("--work", type=pathlib.Path, default=PROJECT / "build/prove/mutation")
    add("--out", type=pathlib.Path, help="the TSV; default WORK/mutants.tsv")
    add("--file", nargs="+", default=[""], metavar="PATTERN", help="only files whose path matches *PATTERN*")
    add("--sample", type=int, default=0, metavar="N", help="so many, drawn at random; default all")
    add("--seed", type=int, default=1)
    add("--preset", default="release", help="of CMakePresets.json")
    add("--jobs", type=int, default=2)
    add("--minutes", type=float, default=600, help="start no further mutant after that")
    add("--memory", type=int, default=20, metavar="GIB", help="writable memory of one process")
    add("--least", type=float, default=99, metavar="PERCENT", help="the page fails at this score or below")
    add("--equivalent", type=pathlib.Path, default=PROJECT / "tests/equivalent_mutants.tsv")
    add("--unjudged", action="store_true", help="what is judged to be equivalent counts so without being planted")
    add("-v", "--verbose", action="store_true")
    options = parser.parse_args()
    options.out = options.out or options.work / "mutants.tsv"
    known = read_known(options.equivalent)
    os.nice(10)
    if options.command == "report":
        return report(read_rows(options.out), known)
    if options.command == "page":
        return page(options, read_rows(options.out), known)
    if options.command == "list":
        rows = list(mutants_of(options.project, options.file))
        for row in rows if options.verbose else []:
            print(f"{row['file']}:{row['line']}: {row['operator']}: {row['original']}  ->  {row['mutated']}")
        for (file, operator), count in sorted(collections.Counter((r["file"], r["operator"]) for r in rows).items()):
            print(f"{count:6} {file} {operator}")
        return print(f"{len(rows):6} in all")

    workshop = Workshop(options, needs_all_programs=options.command == "slow")
    if options.command == "run":
        rows = draw(list(mutants_of(workshop.base, options.file)), options.sample, options.seed)
        for row in rows if options.unjudged else []:
            if key_of(row) in known:
                row.update(verdict="survived", commit=workshop.head)
        chosen, judge = workshop.keep_verdicts(rows, known), workshop.judge
        print(f"{len(rows) - len(chosen)} of {len(rows)} verdicts still hold")
        workshop.check(dict.fromkeys(program for row in chosen for program in workshop.programs_of(row)))
    else:
        rows = read_rows(options.out)
        judge, options.jobs = (workshop.judge_slowly, 1) if options.command == "slow" else (workshop.judge, options.jobs)
        chosen = [row for row in rows if row["verdict"] == "survived" and key_of(row) not in known and
                  row["file"] in files_of(workshop.base, options.file)]
        workshop.check(dict.fromkeys(program for row in chosen for program in workshop.programs_of(row)))
    started, lock, counter = time.time(), threading.Lock(), iter(range(1, len(chosen) + 1))

    def work(row):
        if time.time() - started < 60 * options.minutes:
            judge(row)
            with lock:
                write_rows(options.out, rows)
                print(f"{next(counter)}/{len(chosen)} {time.time() - started:.0f} s {row['file']}:{row['line']} "
                      f"{row['operator']}: {row['verdict']} {row['killed_by']}", flush=True)

    with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
        list(pool.map(work, chosen))
    report([row for row in rows if row["verdict"]], known)


if __name__ == "__main__":
    main()
