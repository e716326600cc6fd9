"""What Python adds to the command: the same study by both, in processor time.

    INSOLATE_TEST_DATA=DATA ./dev python bench/overhead.py [pairs]

The study: buildings and terrain of Lyon, sensors on the buildings, Chicago's year, one thread. Each run is a process of
its own, the two alternately; the command's time is that of its whole process, Python's without starting the interpreter
and importing NumPy. Prints the medians, and of Python what `ins.radiation` takes.
"""

from __future__ import annotations

import filecmp
import os
import statistics
import subprocess
import sys
import tempfile
import time
import warnings
from pathlib import Path

data = Path(os.environ.get("INSOLATE_TEST_DATA", "."))
buildings, terrain = data / "meshes" / "lyon_buildings.obj", data / "meshes" / "lyon_terrain.obj"
weather = data / "weather" / "chicago.epw"


def study(out: str) -> None:
    """The study in this process; prints the seconds of the call, and those of all."""
    import insolate as ins

    warnings.simplefilter("ignore", ins.InsolateWarning)
    _ = ins.radiation  # NumPy is loaded with the first name in use
    begin = time.process_time()
    models = [ins.read_model(buildings), ins.read_model(terrain)]
    sensors = models[0].sensors(grid=2.0)
    year = ins.read_weather(weather)
    before = time.process_time()
    result = ins.radiation(models, sensors, year, reflectance=0, threads=1, progress=False)
    call = time.process_time() - before
    result.save(out, progress=False)
    print(len(sensors), call, time.process_time() - begin)


def seconds_of_children(call: list[str]) -> float:
    before = os.times()
    subprocess.run(call, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    after = os.times()
    return after.children_user + after.children_system - before.children_user - before.children_system


def main() -> None:
    pairs = int(sys.argv[1]) if len(sys.argv) > 1 else 9
    times: dict[str, list[float]] = {"command": [], "python": [], "radiation": []}
    with tempfile.TemporaryDirectory() as folder:
        command, python = Path(folder) / "command", Path(folder) / "python"
        run = [
            os.environ["INSOLATE_COMMAND"],
            "run",
            "--threads",
            "1",
            "--reflectance",
            "0",
            "--grid",
            "2",
            "--out",
            str(command),
        ]
        run += ["--weather", str(weather), "--scene", str(buildings), "--scene", str(terrain)]
        for _ in range(pairs):
            times["command"].append(seconds_of_children(run))
            said = subprocess.run(
                [sys.executable, __file__, "--study", str(python)], check=True, stdout=subprocess.PIPE
            )
            sensors, call, whole = said.stdout.split()
            times["python"].append(float(whole))
            times["radiation"].append(float(call))
        assert filecmp.cmp(command / "sensors.csv", python / "sensors.csv", shallow=False)
    median = {name: statistics.median(values) for name, values in times.items()}
    more = 100 * (median["python"] / median["command"] - 1)
    print(
        f"{int(sensors):,} sensors, medians of {pairs}: command {median['command']:.3f} s, "
        f"Python {median['python']:.3f} s ({more:+.1f} %), of which radiation {median['radiation']:.3f} s"
    )


if __name__ == "__main__":
    if sys.argv[1:2] == ["--study"]:
        study(sys.argv[2])
    else:
        main()
