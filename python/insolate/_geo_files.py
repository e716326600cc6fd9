"""Files that are complete or absent, and what they say of their origin."""

from __future__ import annotations

import json
import os
import uuid
from collections.abc import Iterator
from contextlib import contextmanager
from pathlib import Path
from typing import TYPE_CHECKING, Any

import pyogrio.errors
import rasterio.errors

from . import _core

if TYPE_CHECKING:
    from ._model import Path as PathLike
    from ._radiation import Columns

_failures = (
    OSError,
    pyogrio.errors.DataSourceError,
    pyogrio.errors.DataLayerError,
    pyogrio.errors.FeatureError,
    pyogrio.errors.GeometryError,
    rasterio.errors.RasterioError,
)


@contextmanager
def complete_or_absent(path: PathLike, overwrite: bool) -> Iterator[str]:
    """Gives the name of a partial file beside the path, which takes its place when all went well.

    Raises
    ------
    OutputError
        When the path exists and may not be replaced, or cannot be written.
    """
    whole = Path(os.fspath(path))
    if whole.exists() and not overwrite:
        raise _core.OutputError(f"{whole}: exists already; give overwrite=True or another name")
    partial = whole.with_name(f".{whole.stem}.{uuid.uuid4().hex[:8]}.partial{whole.suffix}")
    try:
        whole.parent.mkdir(parents=True, exist_ok=True)
        yield str(partial)
        os.replace(partial, whole)
    except _failures as error:
        text = f"{whole}: cannot be written; {error}".replace(str(partial), str(whole))
        raise _core.OutputError(text) from error
    finally:
        if partial.parent.is_dir():
            for left in list(partial.parent.iterdir()):
                if left.name.startswith(partial.name):  # with journals and the like
                    left.unlink(missing_ok=True)


def origin_of(result: Columns, notes: list[str]) -> dict[str, str]:
    """Which weather, period, method, version and options made a result, as short texts."""
    from . import __version__

    texts = {"software": f"insolate {__version__}", "notes": " | ".join(notes)}
    summary: dict[str, Any] = getattr(result, "summary", {})
    if summary:
        weather = summary["weather"]
        texts["weather"] = f"{os.path.basename(weather['file'])}: {weather['site']}"
        texts["period"] = summary["period"]["text"]
        texts["method"] = summary["method"]
        options = {
            name: summary[name]
            for name in ("period", "hourly", "sensors", "scene")
            if isinstance(summary.get(name), dict)
        }
        texts["options"] = json.dumps(options)
    return texts
