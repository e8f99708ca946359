#!/usr/bin/env python3
"""Fails when a folder includes what the table of docs/architecture.md does not let it include, and
when two headers, or two types that any unit can name, have the same name."""

import re
import sys
import tempfile
from collections import defaultdict
from pathlib import Path

TABLE = "docs/architecture.md"
ROW = re.compile(r"^\| (`[^|]*/`) \|.*\|([^|]*)\|$", re.MULTILINE)
NAME = re.compile(r"`([a-z_/]+?)/?`")
# A row names folders, the toolkit, or this, which is for what is no part of the product.
ANYTHING = "anything"
TOOLKIT = "GTK"
# Pango and cairo draw reports too, which need no display.
TOOLKIT_HEADERS = re.compile(r"(gtk|gdk)/|gdk-pixbuf")
GENERATED = {"kvo_config.h"}

INCLUDE = re.compile(r'^\s*#\s*include\s*(?:"([^"]+)"|<([^>]+)>)', re.MULTILINE)
# As clang-format lays them out.
UNNAMED = re.compile(r"^namespace \{\n(?:.*\n)?\}$|^namespace \{$.*?^\}  // namespace$", re.MULTILINE | re.DOTALL)
TYPE = re.compile(r"^(?:namespace ([\w:]+) \{|\}  // namespace [\w:]+$"
                  r"|(?:struct|class|enum(?: class)?) (\w+)[^;{=(\n]*\{)", re.MULTILINE)


def read_table(text):
    """What the row of each folder names, in the order of the rows."""
    return {folder: set(NAME.findall(named) + re.findall(f"{ANYTHING}|{TOOLKIT}", named))
            for folders, named in ROW.findall(text) for folder in NAME.findall(folders)}


def folder_of(path):
    return "/".join(path.parts[:-1][:2])


class Tree:
    def __init__(self, root):
        self.named = read_table((root / TABLE).read_text(encoding="utf-8"))
        free = {folder for folder, named in self.named.items() if ANYTHING in named}
        self.sources = {}
        for file in sorted(root.rglob("*")):
            path = file.relative_to(root)
            if (file.suffix in {".h", ".cpp"} and path.parts[0] not in free
                    and not path.parts[0].startswith((".", "build"))):
                self.sources[path] = file.read_text(encoding="utf-8")

    def problems(self):
        used = defaultdict(set)
        yield from self.include_problems(used)
        for folder, named in self.named.items():
            for other in sorted(named - used[folder] - {ANYTHING}):
                yield f"{TABLE}: {folder} does not include {other}, which its row names"
        yield from self.name_problems()

    def include_problems(self, used):
        """Adds to `used` what the files of each folder include."""
        may_use = {}
        for folder, named in self.named.items():
            for other in sorted(named - may_use.keys() - {ANYTHING, TOOLKIT}):
                yield f"{TABLE}: the row of {folder} names {other}, which has no row above it"
            may_use[folder] = {folder} | named | {use for other in named for use in may_use.get(other, ())}
        for path, text in self.sources.items():
            folder = folder_of(path)
            if folder not in self.named:
                yield f"{path}: {TABLE} has no row for {folder}"
                continue
            for own, system in INCLUDE.findall(text):
                target = Path(own)
                if TOOLKIT_HEADERS.match(system):
                    other = TOOLKIT
                elif target.suffix == ".h" and own not in GENERATED:
                    other = folder_of(target)
                else:
                    continue
                used[folder].add(other)
                if own and target not in self.sources:
                    yield f"{path}: includes {own}, which is not there"
                elif other not in may_use[folder]:
                    yield f"{path}: {folder} may not include {other} ({own or system})"

    def name_problems(self):
        places = defaultdict(list)
        for path, text in self.sources.items():
            if path.suffix == ".h":
                places["header " + path.name].append(path)
            namespace = ""
            # Types of an unnamed namespace are their unit's own.
            for entered, name in TYPE.findall(UNNAMED.sub("", text)):
                if name:
                    places[f"type {namespace}{name}"].append(path)
                else:
                    namespace = f"{entered}::" if entered else ""
        for name, paths in places.items():
            if len(paths) > 1:
                yield f"the {name} is there twice: {', '.join(map(str, paths))}"


CASES_TABLE = """
| `low/` | | – |
| `files/` | | `low` |
| `shown/` | | `files`, GTK |
| `shown/main/` | | `shown` |
| `bench/`, `tests/` | | anything |
"""
# Of a tree that keeps to that table, the files that are put in, and a part of the first complaint;
# no complaint when that is empty.
WHOLE = {"low/a.h": "", "files/f.cpp": '#include "low/a.h"', "files/f.h": "class F {\n};",
         "shown/s.cpp": '#include <gtk/gtk.h>\n#include "files/f.h"', "shown/s.h": "",
         "shown/main/m.cpp": '#include "shown/s.h"\n'}
CASES = [
    ({}, ""),
    ({"tests/t/deep/t.cpp": '#include "none.h"\n#include <gtk/gtk.h>', "build/b.h": '#include "none.h"'}, ""),
    ({"low/b.cpp": '#include "kvo_config.h"\n// #include "files/f.h"\n#include "picture.inc"'}, ""),
    ({"low/b.cpp": "#include <pango/pangocairo.h>"}, ""),
    ({"shown/main/n.cpp": '#include "low/a.h"\n#include <gdk/gdk.h>'}, ""),
    ({"low/b.cpp": '  #  include "files/f.h"'}, "low may not include files (files/f.h)"),
    ({"low/b.cpp": "#include <gdk/gdk.h>"}, "low may not include GTK (gdk/gdk.h)"),
    ({"shown/t.cpp": '#include "shown/main/m.h"', "shown/main/m.h": ""}, "shown may not include shown/main"),
    ({"low/b.cpp": '#include "low/none.h"'}, "which is not there"),
    ({"other/o.cpp": ""}, "has no row for other"),
    ({"low/part/p.cpp": ""}, "has no row for low/part"),
    ({"files/f.cpp": ""}, "files does not include low, which its row names"),
    ({TABLE: CASES_TABLE + "| `late/` | | `later` |\n| `later/` | | – |\n"}, "which has no row above it"),
    ({"shown/a.h": ""}, "the header a.h is there twice: low/a.h, shown/a.h"),
    ({"low/b.cpp": "struct F : Base {\n};"}, "the type F is there twice: files/f.h, low/b.cpp"),
    ({"low/b.cpp": "enum class F { A };"}, "the type F is there twice"),
    ({"low/b.cpp": "namespace n {\nstruct F {\n};\n}  // namespace n\nclass F {\n};"}, "the type F is there twice"),
    ({"low/b.cpp": "namespace n {\nstruct F {\n};\n}  // namespace n", "low/c.h": "namespace n {\nclass F {\n};\n}"},
     "the type n::F is there twice: low/b.cpp, low/c.h"),
    ({"low/b.cpp": "class F;\nstruct F make() {\n}\nnamespace {\nstruct F {\n};\n}  // namespace\nnamespace n {\nstruct F {\n};\n}"}, ""),
    ({"low/b.cpp": "namespace {\nint n;\n}\nstruct F {\n};"}, "the type F is there twice"),
]


def check_the_check():
    for files, right in CASES:
        with tempfile.TemporaryDirectory() as folder:
            for name, content in ({TABLE: CASES_TABLE} | WHOLE | files).items():
                path = Path(folder) / name
                path.parent.mkdir(parents=True, exist_ok=True)
                path.write_text(content, encoding="utf-8")
            found = list(Tree(Path(folder)).problems())
        if bool(found) != bool(right) or (right and right not in found[0]):
            yield f"{files}: found {found}, right is '{right}'"


def main():
    tree = Tree(Path(sys.argv[1]))
    problems = list(check_the_check()) + list(tree.problems())
    if len(tree.sources) < 250:
        problems.append(f"only {len(tree.sources)} files found")
    print(*problems, sep="\n")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
