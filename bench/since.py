"""An architect's loop: one tower moves in a city of 100,000 triangles with 100,000 sensors.

    ./dev python bench/since.py WEATHER [steps]

Prints the time of each step with since= and from scratch, in brackets that of all processors together, and checks
that the bytes are the same.
"""

from __future__ import annotations

import sys
import time

import numpy as np

import insolate as ins

faces = np.array([[0, 2, 3, 1], [4, 5, 7, 6], [0, 1, 5, 4], [1, 3, 7, 5], [3, 2, 6, 7], [2, 0, 4, 6]])


def box(x: float, y: float, width: float, depth: float, height: float) -> np.ndarray:
    return np.array([[x + i * width, y + j * depth, k * height] for k in (0, 1) for j in (0, 1) for i in (0, 1)])


def city(blocks: int) -> ins.Model:
    """Houses of twelve triangles in streets, of heights by chance from a fixed seed."""
    random = np.random.default_rng(1)
    boxes = [box(24 * i, 24 * j, 14, 14, random.uniform(6, 24)) for i in range(blocks) for j in range(blocks)]
    boxes[blocks // 2 * (blocks + 1)][4:, 2] = 60.0
    objects = [f"house{place}" for place in range(len(boxes))]
    objects[blocks // 2 * (blocks + 1)] = "tower"
    listed = np.concatenate([faces + 8 * place for place in range(len(boxes))])
    return ins.Model(np.concatenate(boxes), listed, objects=np.repeat(objects, 6).tolist())


def main() -> None:
    weather = ins.read_weather(sys.argv[1])
    steps = int(sys.argv[2]) if len(sys.argv) > 2 else 3
    blocks = 92
    model = city(blocks)
    cells = model.select("house*", exclude=["tower"], tilt=(0, 100)).sensors(grid=8.6)
    chosen = np.sort(np.random.default_rng(2).choice(len(cells), 100_000, replace=False))
    sensors = ins.Sensors(cells.points[chosen], cells.normals[chosen])
    print(f"{len(model.triangles):,} triangles, {len(sensors):,} sensors")
    own = [face for face, name in zip(model.faces, model.objects, strict=True) if name == "tower"]
    tower = model.vertices[np.unique(np.concatenate(own))]
    for reflectance in (0.0, 0.2):
        print(f"reflectance {reflectance}")
        measure(model, tower, sensors, weather, steps, reflectance)


def measure(
    model: ins.Model, tower: np.ndarray, sensors: ins.Sensors, weather: ins.Weather, steps: int, reflectance: float
) -> None:
    options = {"reflectance": reflectance, "tolerance": 0, "progress": False}
    result = ins.radiation(model, sensors, weather, **options)
    for step in range(1, steps + 1):
        moved = model.replace("tower", ins.Model(tower + step * np.array([0.5, 0.25, 0.0]), faces))
        times = {}
        results = {}
        for name, since in (("since", result), ("scratch", None)):
            begin, work = time.perf_counter(), time.process_time()
            results[name] = ins.radiation(moved, sensors, weather, since=since, **options)
            times[name] = time.perf_counter() - begin, time.process_time() - work
        same = all(results["since"][name].tobytes() == values.tobytes() for name, values in results["scratch"].items())
        note = next(note for note in results["since"].notes if "are calculated" in note)
        (short, short_work), (whole, whole_work) = times["since"], times["scratch"]
        print(
            f"step {step}: {short:.2f} s ({short_work:.2f}), from scratch {whole:.2f} s ({whole_work:.2f}), "
            f"{whole / short:.1f} times ({whole_work / short_work:.1f}); {note}; same bytes: {same}"
        )
        assert same
        result = results["since"]


if __name__ == "__main__":
    main()
