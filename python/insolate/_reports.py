"""What long work says while it runs: warnings, notes and its progress."""

from __future__ import annotations

import sys
import warnings
from collections.abc import Callable
from typing import Any, Union

ProgressFunction = Callable[[int, int], object]
#: True shows a bar, False nothing; None a bar where somebody watches; a function gets (done, total).
Progress = Union[bool, ProgressFunction, None]


class InsolateWarning(UserWarning):
    """Something about the inputs or results that should not be overlooked."""


def _is_watched() -> bool:
    """Whether a bar would be seen: in a terminal or in a notebook."""
    if "ipykernel" in sys.modules:
        return True
    return sys.stderr is not None and sys.stderr.isatty()


class Report:
    """Receives what the work reports, on the thread that has called it."""

    def __init__(self, progress: Progress = None) -> None:
        self.notes: list[str] = []
        self.warnings: list[str] = []
        self._function = progress if callable(progress) else None
        wanted = _is_watched() if progress is None else progress is True
        self._shows_bar = wanted and self._function is None
        self._bar: Any = None
        self._total = -1

    def note(self, text: str) -> None:
        self.notes.append(text)

    def warn(self, text: str) -> None:
        self.warnings.append(text)

    def progress(self, done: int, total: int, things: str) -> None:
        if self._function is not None:
            self._function(done, total)
        elif self._shows_bar:
            self._draw(done, total, things)

    def _draw(self, done: int, total: int, things: str) -> None:
        try:
            from tqdm.auto import tqdm
        except ImportError:
            self._shows_bar = False
            return
        if self._bar is None or total != self._total:
            self.close()
            self._total = total
            self._bar = tqdm(total=total, unit=" " + things, leave=False)
        self._bar.update(done - self._bar.n)

    def close(self) -> None:
        if self._bar is not None:
            self._bar.close()
            self._bar = None

    def __enter__(self) -> Report:
        return self

    def __exit__(self, *error: object) -> None:
        self.close()
        if error[0] is None:
            for text in self.warnings:
                warnings.warn(text, InsolateWarning, stacklevel=3)
