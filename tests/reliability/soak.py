#!/usr/bin/env python3
"""Signals, kills, full disks and races at random moments, by hand and for as long as one likes:

    tests/reliability/soak.py build/bin/insolate FOLDER [--signals N] [--kills N] [--disks N] [--races N]

Each run must end within --limit seconds, leave every result whole or absent, and be completed by --resume with the
bytes of an undisturbed run. Prints one line for each kind; ends with 1 after the first fault, whose
folder stays. Full disks are file systems in memory, which only the superuser can mount.
"""
import argparse
import os
import random
import shutil
import signal
import struct
import subprocess
import sys
import time

COURT = """v 0 0 0\nv 10 0 0\nv 10 10 0\nv 0 10 0\nv 0 0 10\nv 10 0 10\nv 10 10 10\nv 0 10 10
f 1 2 3 4\nf 1 5 6 2\nf 2 6 7 3\nf 3 7 8 4\nf 4 8 5 1
"""
OURS = ("sensors.csv", "sensors.vtp", "heatmap.png", "sensors.masks", "summary.json")


def terrain(side):
    """A rolling surface as binary STL, which the import program reads."""
    triangles = bytearray()
    height = lambda x, y: (x * 7 + y * 13) % 5 * 0.1
    for x in range(side):
        for y in range(side):
            a, b, c, d = [(i, j, height(i, j)) for i, j in ((x, y), (x + 1, y), (x + 1, y + 1), (x, y + 1))]
            for corners in ((a, b, c), (a, c, d)):
                triangles += struct.pack("<12fH", 0, 0, 0, *corners[0], *corners[1], *corners[2], 0)
    return bytes(80) + struct.pack("<I", 2 * side * side) + bytes(triangles)


class Soak:
    def __init__(self, command, work, seed, limit):
        self.limit = limit
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

    def check(self, number, folder, complete):
        """Every result is absent or has the reference's bytes."""
        reference = self.references[number][0]
        names = set(os.listdir(folder)) if os.path.isdir(folder) else set()
        wanted = set(os.listdir(reference))
        if complete and names != wanted:
            self.fault(f"{sorted(names)} instead of {sorted(wanted)}", folder)
        for name in names:
            if name == "summary.json":  # it holds times
                whole = names >= wanted and open(os.path.join(folder, name)).read().endswith("}\n")
            elif name in wanted:
                with open(os.path.join(folder, name), "rb") as a, open(os.path.join(reference, name), "rb") as b:
                    whole = a.read() == b.read()
            else:
                whole = name.endswith(".insolate-partial") or name == ".insolate.lock"
            if not whole:
                self.fault(f"{name} is not whole", folder)

    def signals(self, count):
        times, stopped, done = [], 0, 0
        while done < count and not self.is_ending:
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
                stopped += 1
            self.check(number, folder, complete=code == 0)
            if code != 0 and os.path.isdir(folder) and set(os.listdir(folder)) & set(OURS):
                self.check(number, folder, complete=True)  # asked when all had their names
            done += 1
        times.sort()
        share = lambda part: times[min(len(times) - 1, int(part * len(times)))] if times else 0.0
        print(f"signals: {done}, {stopped} before the end; until the process had ended: median {share(0.5):.3f} s, "
              f"99 % {share(0.99):.3f} s, longest {share(1.0):.3f} s", flush=True)

    def kills(self, count):
        done, completed, folder = 0, 0, self.path("kills")
        while done < count and not self.is_ending:
            number = self.random.randrange(1, len(self.studies))
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
        while done < count and not self.is_ending:
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


parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
parser.add_argument("command")
parser.add_argument("folder")
for kind, usual in (("signals", 200), ("kills", 500), ("disks", 100), ("races", 20)):
    parser.add_argument("--" + kind, type=int, default=usual)
parser.add_argument("--seed", type=int, default=7)
parser.add_argument("--limit", type=float, default=60.0, help="seconds after which a run is taken to hang")
given = parser.parse_args()
soak = Soak(given.command, given.folder, given.seed, given.limit)
soak.signals(given.signals)
soak.races(given.races)
soak.disks(given.disks)
soak.kills(given.kills)
