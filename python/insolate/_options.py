"""Options of the engine, from keywords to the texts that the command takes.

Names, defaults, checks and help texts stand in the engine's own table of options alone.
"""

from __future__ import annotations

import json
import os
from collections.abc import Callable, Iterable, Mapping
from datetime import date
from textwrap import fill
from typing import Any, TypeVar

import numpy as np

from . import _core

OptionTexts = list[tuple[str, list[str]]]
Function = TypeVar("Function", bound=Callable[..., Any])

#: Options whose values are the two ends of a span.
_spans = {"period", "hours", "tilt"}
#: Options whose one value is a list of numbers.
_rows = {"tilt-classes", "classes"}


def _text(value: Any) -> str:
    if isinstance(value, (bool, np.bool_)):
        return "true" if value else "false"
    if isinstance(value, date):
        return f"{value.month}/{value.day}"
    if hasattr(value, "item"):  # a NumPy number
        value = value.item()
    if isinstance(value, float) and value.is_integer() and abs(value) < 1e15:
        return str(int(value))
    return os.fspath(value) if isinstance(value, os.PathLike) else str(value)


def option_texts(values: Mapping[str, Any]) -> OptionTexts:
    """Texts of all options that are given; None leaves an option at its default."""
    texts: OptionTexts = []
    for keyword, value in values.items():
        if value is None or value is False:
            continue
        name = keyword.replace("_", "-")
        if isinstance(value, (str, bytes)) or not isinstance(value, Iterable):
            texts.append((name, [_text(value)]))
        elif name in _spans:
            texts.append((name, ["-".join(_text(part) for part in value)]))
        elif name in _rows:
            texts.append((name, [",".join(_text(part) for part in value)]))
        else:
            texts.append((name, [_text(part) for part in value]))
    return texts


def _toml(value: Any) -> str:
    if isinstance(value, Mapping):
        return "{ " + ", ".join(f"{json.dumps(str(key))} = {_toml(part)}" for key, part in value.items()) + " }"
    if isinstance(value, str):
        return json.dumps(value, ensure_ascii=False)
    if isinstance(value, Iterable):
        return "[" + ", ".join(_toml(part) for part in value) + "]"
    return _text(value)


def materials_toml(materials: Mapping[str, Mapping[str, Any]]) -> str:
    """The tables of a file of materials."""
    tables = []
    for name, keys in materials.items():
        if not isinstance(keys, Mapping):
            raise _core.UsageError(f'materials: {name} is {keys!r}; give a mapping, as {{"reflectance": 0.3}}')
        tables.append(f"[material.{json.dumps(name, ensure_ascii=False)}]")
        tables += [f"{json.dumps(str(key))} = {_toml(value)}" for key, value in keys.items()]
    return "\n".join(tables) + "\n"


def documented(options: Callable[[], Iterable[_core.Option]], *names: str) -> Callable[[Function], Function]:
    """Fills "{options}" in a docstring with the engine's texts of the options."""

    def decorate(function: Function) -> Function:
        table = {option.name: option for option in options()}
        lines = []
        for name in names:
            option = table[name.replace("_", "-")]
            usual = f", default {option.usual}" if option.usual else ""
            choices = " {" + ", ".join(option.choices) + "}" if option.choices else ""
            lines.append(f"    {name} :{choices} {option.type_name.lower() or 'bool'}{usual}".replace(":  ", ": "))
            lines.append(fill(option.help + ".", 92, initial_indent=" " * 8, subsequent_indent=" " * 8))
        if function.__doc__:
            function.__doc__ = function.__doc__.replace("    {options}", "\n".join(lines))
        return function

    return decorate
