"""Tries an installed package: try_package.py FOLDER, the demo's."""

import sys
import time
from pathlib import Path

start = time.perf_counter()
import insolate as ins  # noqa: E402

took = time.perf_counter() - start
folder = Path(sys.argv[1])
model = ins.read_model(folder / "courtyard.obj")
result = ins.radiation(model, model.select("surface").sensors(grid=5), folder / "weather.epw", period="6/21", step=1)
assert result.total.max() > 5000.0, result.total.max()
stl = Path("one.stl")  # by the program for foreign formats
stl.write_text(
    "solid a\nfacet normal 0 0 1\nouter loop\nvertex 0 0 0\nvertex 1 0 0\nvertex 0 1 0\nendloop\nendfacet\nendsolid a\n"
)
assert len(ins.read_model(stl)) == 1
stl.unlink()
print(f"insolate {ins.__version__}: imported in {1000 * took:.0f} ms; {result}")
