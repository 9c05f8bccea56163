#!/usr/bin/env python3
"""Checks that Android.bp and CMake build the driver from the same sources, and that these are all there are."""

import pathlib
import re
import sys

REPO = pathlib.Path(__file__).resolve().parent.parent
DRIVER = pathlib.Path("aaa/peripheraldriver/ois")


def names(text, opening, closing):
    """The *.cpp names between the first `opening` and the next `closing`."""
    start = text.index(opening) + len(opening)
    return set(re.findall(r"[\w/]+\.cpp", text[start:text.index(closing, start)]))


def main():
    cmake = names((REPO / DRIVER / "CMakeLists.txt").read_text(), "set(OIS_DRV_SOURCES", ")")
    lists = {
        "CMakeLists.txt": {str(DRIVER / name) for name in cmake},
        "Android.bp": names((REPO / "Android.bp").read_text(), "srcs: [", "]"),
    }
    present = {str(path.relative_to(REPO)) for path in (REPO / DRIVER).rglob("*.cpp")}
    problems = []
    for where, listed in lists.items():
        problems += [f"{where} lacks {name}" for name in sorted(present - listed)]
        problems += [f"{where} lists {name}, which does not exist" for name in sorted(listed - present)]
    print("\n".join(problems) or f"{len(present)} driver sources, the same in {' and '.join(lists)}")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
