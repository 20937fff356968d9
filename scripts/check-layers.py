#!/usr/bin/env python3
"""Fails when the folders of src/ include each other both ways, or when the core library (the
files CMake lists for vantalo_core) includes widgets or platform code. app/main.cpp is the
executable's wiring and may include anything."""
import collections
import re
import sys
from pathlib import Path

SRC = Path(__file__).resolve().parent.parent / "src"
WIDGETS = re.compile(r"#include <(QtWidgets/)?(Q(Widget|Dialog|MainWindow|Menu|Label|PushButton|ComboBox|Slider|"
                     r"LineEdit|Layout|[HV]BoxLayout|FormLayout|GroupBox|MessageBox|SystemTrayIcon|Application|"
                     r"AbstractButton|AbstractScrollArea|ScrollBar|StackedWidget|StackedLayout|ProgressBar|"
                     r"ToolButton|CheckBox|Action|KeySequenceEdit))>")
INCLUDE = re.compile(r'#include "([^"]+)"')


def folder_of(path):
    return path.relative_to(SRC).parts[0]


def core_files():
    text = (SRC / "CMakeLists.txt").read_text()
    listed = re.search(r"add_library\(vantalo_core STATIC(.*?)\)", text, re.S).group(1)
    return {SRC / line.strip() for line in listed.splitlines() if line.strip().endswith((".cpp", ".h"))}


def main():
    edges = collections.defaultdict(list)
    problems = []
    core = core_files()
    core |= {path.with_suffix(".h") for path in core if path.with_suffix(".h").exists()}
    for path in sorted(SRC.rglob("*")):
        if path.suffix not in (".cpp", ".h") or path == SRC / "app" / "main.cpp":
            continue
        text = path.read_text()
        here = folder_of(path)
        for include in INCLUDE.findall(text):
            target = SRC / include
            if "/" in include and target.exists() and folder_of(target) != here:
                edges[(here, folder_of(target))].append(f"{path.relative_to(SRC)} includes {include}")
                if path in core and folder_of(target) == "platform":
                    problems.append(f"core file {path.relative_to(SRC)} includes platform code {include}")
        if path in core:
            for match in WIDGETS.finditer(text):
                problems.append(f"core file {path.relative_to(SRC)} includes a widget header {match.group(0)}")
    for (a, b), lines in sorted(edges.items()):
        if a < b and (b, a) in edges:
            problems.append(f"{a}/ and {b}/ include each other:")
            problems += [f"  {line}" for line in lines + edges[(b, a)]]
    if problems:
        print("Layering:", *problems, sep="\n")
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
