#!/usr/bin/env python3
"""Checks that Android.bp and CMake build driver and capture library from the same sources, and that these are all."""

import pathlib
import re
import sys

REPO = pathlib.Path(__file__).resolve().parent.parent
# Folder, how its list begins in its CMakeLists.txt, and the library in Android.bp.
LIBRARIES = [
    (pathlib.Path("aaa/peripheraldriver/ois"), "set(OIS_DRV_SOURCES", 'name: "libois_drv"'),
    (pathlib.Path("tools/spy"), "add_library(ois_spy SHARED", 'name: "libois_spy"'),
]


def names(text, opening, closing):
    """The *.cpp names between the first `opening` and the next `closing`."""
    start = text.index(opening) + len(opening)
    return set(re.findall(r"[\w/]+\.cpp", text[start:text.index(closing, start)]))


def problems_of(folder, cmake_begin, library):
    """What the two lists of one library lack, or have too much."""
    cmake = names((REPO / folder / "CMakeLists.txt").read_text(), cmake_begin, ")")
    android = (REPO / "Android.bp").read_text()
    lists = {
        f"{folder}/CMakeLists.txt": {str(folder / name) for name in cmake},
        "Android.bp": names(android[android.index(library):], "srcs: [", "]"),
    }
    present = {str(path.relative_to(REPO)) for path in (REPO / folder).rglob("*.cpp")}
    problems = []
    for where, listed in lists.items():
        problems += [f"{where} lacks {name}" for name in sorted(present - listed)]
        problems += [f"{where} lists {name}, which does not exist" for name in sorted(listed - present)]
    if not problems:
        print(f"{len(present)} sources in {folder}, the same in {' and '.join(lists)}")
    return problems


def main():
    problems = [problem for library in LIBRARIES for problem in problems_of(*library)]
    print("\n".join(problems), end="\n" if problems else "")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
