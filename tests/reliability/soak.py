#!/usr/bin/env python3
"""Signals, kills, full disks, races and damaged models, by hand and for as long as one likes:

    tests/reliability/soak.py build/bin/insolate FOLDER [--signals N] [--kills N] [--disks N] [--races N] [--models N]

Each run must end within --limit seconds, leave every result whole or absent, and be completed by --resume with the
bytes of an undisturbed run; asked by a signal it must end within --soon seconds and leave no unfinished files. Every
damaged model is read, or refused with an error that names it, within the seconds of --model-limit and two more for
each megabyte. What is counted are the runs that a signal, a kill or a full disk ended. Prints one line for each kind;
ends with 1 after the first fault, whose folder stays. Full disks are file systems in memory, which only the superuser
can mount.
"""

import argparse
import io
import os
import random
import re
import shutil
import signal
import struct
import subprocess
import sys
import threading
import time
import zipfile

COURT = """v 0 0 0\nv 10 0 0\nv 10 10 0\nv 0 10 0\nv 0 0 10\nv 10 0 10\nv 10 10 10\nv 0 10 10
f 1 2 3 4\nf 1 5 6 2\nf 2 6 7 3\nf 3 7 8 4\nf 4 8 5 1
"""
OURS = ("sensors.csv", "sensors.vtp", "heatmap.png", "sensors.masks", "summary.json")


def terrain(side):
    """A rolling surface as binary STL, which the import program reads."""
    triangles = bytearray()

    def height(x, y):
        return (x * 7 + y * 13) % 5 * 0.1

    for x in range(side):
        for y in range(side):
            a, b, c, d = [(i, j, height(i, j)) for i, j in ((x, y), (x + 1, y), (x + 1, y + 1), (x, y + 1))]
            for corners in ((a, b, c), (a, c, d)):
                triangles += struct.pack("<12fH", 0, 0, 0, *corners[0], *corners[1], *corners[2], 0)
    return bytes(80) + struct.pack("<I", 2 * side * side) + bytes(triangles)


class Damage:
    """Bytes of a file as a faulty program, a broken transfer or an attacker leaves them."""

    #: Bytes. The system counts the peak memory of this process as that of the processes which it starts.
    MOST = 4_000_000
    WORDS = tuple(struct.pack("<I", value) for value in (0, 1, 2**16, 2**24, 2**30, 2**31 - 1, 2**31, 2**32 - 1))
    NUMBERS = (
        *b"0 -1 3 65536 2147483647 4294967295 18446744073709551616 1e38 -1e39 1e-45 nan inf 0x10 3.7".split(),
        b"",
        b"9" * 400,
    )

    def __init__(self, choose):
        self.choose = choose

    def __call__(self, whole):
        if whole.startswith(b"PK") and self.choose.random() < 0.8:
            return self.within_archive(whole)
        kinds = (self.cut, self.bit, self.word, self.number, self.repeat, self.drop)
        for _ in range(self.choose.randint(1, 6)):
            whole = self.choose.choices(kinds, (1, 4, 4, 4, 4, 4))[0](whole)[: self.MOST]
        return whole

    def within_archive(self, whole):
        """Damage to one file of an archive, whose check values still hold."""
        with zipfile.ZipFile(io.BytesIO(whole)) as archive:
            parts = [(name, archive.read(name)) for name in archive.namelist()]
        damaged = self.choose.randrange(len(parts))
        made = io.BytesIO()
        with zipfile.ZipFile(made, "w", zipfile.ZIP_DEFLATED) as archive:
            for place, (name, part) in enumerate(parts):
                archive.writestr(name, self(part) if place == damaged else part)
        return made.getvalue()

    def place(self, whole):
        return self.choose.randint(0, len(whole))

    def cut(self, whole):
        return whole[: self.place(whole)]

    def bit(self, whole):
        at = self.choose.randrange(max(len(whole), 1))
        return whole[:at] + bytes(byte ^ 1 << self.choose.randrange(8) for byte in whole[at : at + 1]) + whole[at + 1 :]

    def word(self, whole):
        at = self.place(whole)
        return whole[:at] + self.choose.choice(self.WORDS) + whole[at + 4 :]

    def number(self, whole):
        found = list(re.finditer(rb"-?\d[\d.eE+-]*", whole))
        if not found:
            return self.word(whole)
        one = self.choose.choice(found)
        return whole[: one.start()] + self.choose.choice(self.NUMBERS) + whole[one.end() :]

    def repeat(self, whole):
        a, b = sorted((self.place(whole), self.place(whole)))
        times = self.choose.choice((1, 1, 2, 50, 20000 if b - a < 50 else 1))
        return whole[:b] + times * whole[a:b] + whole[b:]

    def drop(self, whole):
        a, b = sorted((self.place(whole), self.place(whole)))
        return whole[:a] + whole[b:]


class Soak:
    def __init__(self, command, work, seed, limit, soon, model_limit):
        self.limit, self.soon, self.model_limit = limit, soon, model_limit
        self.command, self.work, self.random = os.path.abspath(command), os.path.abspath(work), random.Random(seed)
        os.makedirs(self.work, exist_ok=True)
        self.is_ending = False
        signal.signal(signal.SIGTERM, self.end)
        self.weather = os.path.join(os.path.dirname(__file__), "../../examples/courtyard/weather.epw")
        with open(self.path("court.obj"), "w") as file:
            file.write(COURT)
        with open(self.path("terrain.stl"), "wb") as file:
            file.write(terrain(250))
        with open(self.path("points.csv"), "w") as file:
            file.writelines(f"{x}.5,{x}.5,2,0,0,1\n" for x in range(300))
        # A long import; the writes; the picture; the hours of a sensor by the hourly method.
        self.studies = [
            ["--scene", "terrain.stl", "--sensors", "points.csv", "--method", "perez-sky", "--period", "6/1"],
            ["--scene", "court.obj", "--method", "perez-sky", "--save-masks", "--grid", "0.3", "--period", "6/1"],
            ["--scene", "court.obj", "--method", "perez-sky", "--grid", "0.15", "--period", "6/1"],
            ["--scene", "court.obj", "--grid", "0.25", "--period", "6/1-6/3"],
        ]
        self.references = []
        for number, study in enumerate(self.studies):
            folder = self.path(f"reference{number}")
            shutil.rmtree(folder, ignore_errors=True)
            begin = time.monotonic()
            if self.ended(self.start(study, folder), folder) != 0:
                sys.exit(f"study {number} fails: {self.said(folder)}")
            self.references.append((folder, time.monotonic() - begin))

    def end(self, *_):
        """A termination request: what was done so far is counted and said."""
        self.is_ending = True

    def path(self, name):
        return os.path.join(self.work, name)

    def said(self, folder):
        with open(folder + ".log") as file:
            return file.read()

    def start(self, study, folder, *more):
        words = ["run", "--weather", os.path.abspath(self.weather), *study, "--out", folder, *more]
        with open(folder + ".log", "w") as log:
            return subprocess.Popen([self.command, *words], cwd=self.work, stdout=log, stderr=log)

    def ended(self, process, folder):
        """The exit code of a process, which does not hang."""
        try:
            return process.wait(self.limit)
        except subprocess.TimeoutExpired:
            process.kill()
            self.fault(f"still there after {self.limit:g} s", folder)

    def moment(self, duration):
        """Half of them in the last third, where results are written and named."""
        least = 0.66 * duration if self.random.random() < 0.5 else 0.0
        return self.random.uniform(least, 1.05 * duration)

    def fault(self, what, folder):
        sys.exit(f"fault: {what}; see {folder} and {folder}.log")

    def check(self, number, folder, complete, is_killed=True):
        """Every result is absent or has the reference's bytes; only who is killed leaves unfinished files."""
        reference = self.references[number][0]
        names = set(os.listdir(folder)) if os.path.isdir(folder) else set()
        wanted = set(os.listdir(reference))
        if complete and names != wanted:
            self.fault(f"{sorted(names)} instead of {sorted(wanted)}", folder)
        for name in names:
            if name == "summary.json":  # it holds times
                with open(os.path.join(folder, name)) as file:
                    whole = names >= wanted and file.read().endswith("}\n")
            elif name in wanted:
                with open(os.path.join(folder, name), "rb") as a, open(os.path.join(reference, name), "rb") as b:
                    whole = a.read() == b.read()
            else:
                whole = name == ".insolate-partial" or (
                    is_killed and (name.endswith(".insolate-partial") or name == ".insolate.lock")
                )
            if not whole:
                self.fault(f"{name} is not whole", folder)

    def signals(self, count):
        times, done = [], 0
        while len(times) < count and not self.is_ending:
            number = done % len(self.studies)
            folder = self.path("signals")
            shutil.rmtree(folder, ignore_errors=True)
            process = self.start(self.studies[number], folder)
            time.sleep(self.moment(self.references[number][1]))
            which = self.random.choice((signal.SIGINT, signal.SIGTERM))
            asked = time.monotonic()
            process.send_signal(which)
            code = self.ended(process, folder)
            # Before its first line the command may not be watching for signals yet.
            ends_raw = -which if not self.said(folder) else 0
            if code not in (0, 128 + which, ends_raw):
                self.fault(f"exit code {code} after {which.name}", folder)
            if code != 0:
                times.append(time.monotonic() - asked)
                if times[-1] > self.soon:
                    self.fault(f"ended {times[-1]:.2f} s after {which.name}", folder)
            self.check(number, folder, complete=code == 0, is_killed=False)
            if code != 0 and os.path.isdir(folder) and set(os.listdir(folder)) & set(OURS):
                self.check(number, folder, complete=True)  # asked when all had their names
            done += 1
        times.sort()

        def share(part):
            return times[min(len(times) - 1, int(part * len(times)))] if times else 0.0

        print(
            f"signals: {len(times)} of {done} before the end; until the process had ended: median {share(0.5):.3f} "
            f"s, 99 % {share(0.99):.3f} s, longest {share(1.0):.3f} s",
            flush=True,
        )

    def kills(self, count):
        done, completed, folder = 0, 0, self.path("kills")
        while done < count and not self.is_ending:
            number = self.random.randrange(len(self.studies))
            shutil.rmtree(folder, ignore_errors=True)
            for _ in range(5):
                process = self.start(self.studies[number], folder, "--resume")
                time.sleep(self.moment(self.references[number][1]))
                process.kill()
                done += self.ended(process, folder) == -signal.SIGKILL
                self.check(number, folder, complete=False)
            if self.ended(self.start(self.studies[number], folder, "--resume"), folder) != 0:
                self.fault("the resumed run fails", folder)
            self.check(number, folder, complete=True)
            completed += 1
        print(f"kills: {done}; {completed} resumed runs with the bytes of an undisturbed one", flush=True)

    def disks(self, count):
        refused, done = 0, 0
        while refused < count and not self.is_ending:
            number = self.random.randrange(1, len(self.studies))
            disk = self.path("disk")
            os.makedirs(disk, exist_ok=True)
            size = int(2 ** self.random.uniform(14, 24))
            subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={size}", "tmpfs", disk], check=True)
            try:
                folder = os.path.join(disk, "out")
                with open(self.path("disk.log"), "w") as log:
                    words = ["run", "--weather", os.path.abspath(self.weather), *self.studies[number], "--out", folder]
                    process = subprocess.Popen([self.command, *words, "--quiet"], cwd=self.work, stdout=log, stderr=log)
                    code = self.ended(process, disk)
                said = self.said(disk)
                if code not in (0, 1) or (code == 1 and "; " not in said):
                    self.fault(f"exit code {code} on {size} bytes: {said}", disk)
                refused += code
                done += 1
                self.check(number, folder, complete=code == 0)
            finally:
                subprocess.run(["umount", disk], check=True)
        print(f"full disks: {done} of 16 kB to 16 MB, {refused} too small: exit 1, no result half", flush=True)

    def races(self, count):
        both, done, folder = 0, 0, self.path("races")
        while done < count and not self.is_ending:
            number = self.random.randrange(1, len(self.studies))
            shutil.rmtree(folder, ignore_errors=True)
            first = self.start(self.studies[number], folder)
            time.sleep(self.random.uniform(0.0, 0.2))
            second = self.start(self.studies[number], folder)
            codes = sorted((self.ended(first, folder), self.ended(second, folder)))
            if codes not in ([0, 0], [0, 1]):
                self.fault(f"exit codes {codes}", folder)
            both += codes == [0, 0]
            done += 1
            self.check(number, folder, complete=True)
        print(f"races: {done} pairs, {both} one after the other, {done - both} with the second refused", flush=True)

    def models(self, count):
        """The seeds of the fuzz target, damaged, each read as the command reads a model: OBJ by itself, all others
        by the import program.
        """
        seeds_folder = os.path.join(os.path.dirname(__file__), "../../fuzz/corpus/models")
        seeds = []
        for name in sorted(os.listdir(seeds_folder)):
            with open(os.path.join(seeds_folder, name), "rb") as file:
                seeds.append((name.split("_")[0], file.read()[1:]))  # the first byte is the fuzz target's own
        damage = Damage(self.random)
        folder = self.path("models")
        shutil.rmtree(folder, ignore_errors=True)
        os.makedirs(folder)
        endings = {"did not finish within": 0, "needs more than": 0, " failed (": 0}
        done, read, longest, most, spent = 0, 0, 0.0, 0, 0.0
        while done < count and not self.is_ending:
            kind, whole = self.random.choice(seeds)
            name = "model." + kind
            model = os.path.join(folder, name)
            damaged = damage(whole)
            with open(model, "wb") as file:
                file.write(damaged)
            # What docs/files.md promises, with as much memory again for the command.
            megabytes = len(damaged) / 1e6
            seconds, memory = self.model_limit + 2 * megabytes, 2 * (512 + 64 * megabytes)
            begin = time.monotonic()
            with open(folder + ".log", "w") as log:
                process = subprocess.Popen([self.command, "model", "info", name], cwd=folder, stdout=log, stderr=log)
            alarm = threading.Timer(seconds, process.kill)
            alarm.start()
            _, status, used = os.wait4(process.pid, 0)
            alarm.cancel()
            process.returncode = code = os.waitstatus_to_exitcode(status)
            took = time.monotonic() - begin
            if took >= seconds or used.ru_maxrss / 1024 > memory:
                self.fault(f"{took:.1f} of {seconds:.1f} s, {used.ru_maxrss // 1024} of {memory:.0f} MB", folder)
            with open(folder + ".log", errors="replace") as log:
                said = log.read()
            error = [line for line in said.splitlines() if line.startswith("insolate: error: ")]
            is_refused = code in (1, 2) and len(error) == 1 and name in error[0] and "; " in error[0]
            if not is_refused and (code != 0 or error):
                self.fault(f"exit code {code}: {said}", folder)
            if os.listdir(folder) != [name]:
                self.fault(f"{os.listdir(folder)} beside the model", folder)
            os.remove(model)
            for ending in endings:
                endings[ending] += is_refused and ending in error[0]
            read += code == 0
            longest, most = max(longest, took), max(most, used.ru_maxrss // 1024)
            spent += used.ru_utime + used.ru_stime
            done += 1
        over_time, over_memory, crashed = endings.values()
        print(
            f"damaged models: {done} of {len(seeds)} seeds, {read} read, all others refused with the file and a way "
            f"out, {over_time} for their time, {over_memory} for their memory, {crashed} as the importer crashed; "
            f"longest {longest:.2f} s, most memory {most} MB, {spent:.0f} s of processor "
            f"time",
            flush=True,
        )


parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
parser.add_argument("command")
parser.add_argument("folder")
for kind, usual in (("signals", 200), ("kills", 500), ("disks", 100), ("races", 20), ("models", 100_000)):
    parser.add_argument("--" + kind, type=int, default=usual)
parser.add_argument("--seed", type=int, default=7)
parser.add_argument("--limit", type=float, default=60.0, help="seconds after which a run is taken to hang")
parser.add_argument("--soon", type=float, default=1.0, help="of an idle machine, from a signal to the end [s]")
parser.add_argument("--model-limit", type=float, default=12.0, help="of an idle machine, for a damaged model [s]")
given = parser.parse_args()
soak = Soak(given.command, given.folder, given.seed, given.limit, given.soon, given.model_limit)
for kind in ("signals", "races", "models", "disks", "kills"):
    if count := getattr(given, kind):
        getattr(soak, kind)(count)
