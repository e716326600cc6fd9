from __future__ import annotations

import pytest
from conftest import root

nbformat = pytest.importorskip("nbformat")
nbclient = pytest.importorskip("nbclient")


def test_the_design_loop_runs():
    book = nbformat.read(root / "examples" / "courtyard_design.ipynb", as_version=4)
    nbclient.NotebookClient(book, timeout=200, resources={"metadata": {"path": str(root / "examples")}}).execute()
    change = book.cells[-3].outputs[0].data["text/plain"]
    assert "court_wall_north" in change
    assert "-" in change  # a raised roof takes radiation from some wall
