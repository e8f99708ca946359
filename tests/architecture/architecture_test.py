#!/usr/bin/env python3
"""Fails when a folder includes one above it.

The folders build on each other in one direction:
    util <- nifti <- dialogs <- shell's services <- workspace <- imaging <- analyses, integrations
         <- shell's main
The engine and the companion programs build on util, nifti and those units of workspace that show no
window; the editor alone may show windows.
"""

import re
import sys
import tempfile
from pathlib import Path

# Units of shell/ that stand above everything; the others are the services that all build on.
SHELL_MAIN = {"main", "main_window", "actions"}

LAYERS = ["util", "nifti", "dialogs", "shell", "workspace",
          "imaging", ("analyses", "integrations"), "shell main"]
# Data, with the programs that make it; only the top needs it.
DATA = {"resources": {"resources", "util", "engine"}}
COMPANION_BASE = {"util", "nifti", "workspace", "engine"}
COMPANIONS_WITH_WINDOWS = {"companions/kvo_edit"}
SOURCES = {".h", ".cpp"}
GENERATED = {"kvo_config.h"}
# Not part of the program: they may use all of it.
FREE = {"tests", "bench", "build"}
# Pango and cairo draw reports too, which need no display.
WINDOW_HEADERS = re.compile(r"(gtk|gdk)/|gdk-pixbuf")

INCLUDE = re.compile(r'^\s*#\s*include\s*(?:"([^"]+)"|<([^>]+)>)', re.MULTILINE)


def allowed_folders():
    allowed = {}
    below = set()
    for layer in LAYERS:
        names = (layer,) if isinstance(layer, str) else layer
        for name in names:
            allowed[name] = below | {name}
        below |= set(names)
    allowed["shell main"] |= set(DATA)
    return allowed | DATA


def folder_of(path):
    """The place of a file, given relative to the root, in the order of the folders."""
    parts = path.parts
    if parts[0] == "companions":
        return "/".join(parts[:2])
    if parts[0] == "shell" and path.stem in SHELL_MAIN:
        return "shell main"
    return parts[0]


class Tree:
    def __init__(self, root):
        self.root = root
        self.includes = {}
        for file in sorted(root.rglob("*")):
            path = file.relative_to(root)
            if path.suffix not in SOURCES or len(path.parts) < 2:
                continue
            if path.parts[0] in FREE or path.parts[0].startswith("."):
                continue
            found = INCLUDE.findall(file.read_text(encoding="utf-8"))
            self.includes[path] = ([Path(own) for own, _ in found if own],
                                   [system for _, system in found if system])

    def problems(self):
        allowed = allowed_folders()
        for path, (own, system) in self.includes.items():
            folder = folder_of(path)
            is_companion = folder == "engine" or folder.startswith("companions/")
            if folder not in allowed and not is_companion:
                yield f"{path}: the folder has no place in the order"
                continue
            may_use = COMPANION_BASE | {folder} if is_companion else allowed[folder]
            if folder in COMPANIONS_WITH_WINDOWS:
                may_use = may_use | {"dialogs", "resources"}
            for target in own:
                if target.suffix not in SOURCES or str(target) in GENERATED:
                    continue
                if target not in self.includes:
                    yield f"{path}: includes {target}, which is not there"
                elif folder_of(target) not in may_use:
                    yield f"{path}: {folder} may not include {folder_of(target)} ({target})"
            if folder == "util" and any(WINDOW_HEADERS.match(name) for name in system):
                yield f"{path}: util may not use the window toolkit"
            if is_companion and folder not in COMPANIONS_WITH_WINDOWS:
                yield from self.window_problems(path)

    def window_problems(self, start):
        """What shows windows among all that a unit of a companion is built from."""
        seen = set()
        waiting = [(start, ())]
        while waiting:
            path, way = waiting.pop()
            if path in seen or path not in self.includes:
                continue
            seen.add(path)
            own, system = self.includes[path]
            windows = [name for name in system if WINDOW_HEADERS.match(name)]
            if windows or path.parts[0] in ("dialogs", "shell"):
                yield f"{start}: shows windows by way of {' > '.join(map(str, way + (path,)))}"
                return
            # A header stands for its unit.
            for target in own:
                for part in (target, target.with_suffix(".cpp")):
                    waiting.append((part, way + (path,)))


# Files that are left, each with its includes, and a part of the complaint that is right; no
# complaint when that is empty.
CASES = [
    ({"util/a.h": "", "dialogs/a.cpp": '#include "util/a.h"'}, ""),
    ({"util/a.cpp": '#include "dialogs/b.h"', "dialogs/b.h": ""}, "util may not include dialogs"),
    ({"util/a.cpp": "#include <gtk/gtk.h>"}, "util may not use the window toolkit"),
    ({"dialogs/a.cpp": '  #  include "shell/console.h"', "shell/console.h": ""},
     "dialogs may not include shell"),
    ({"shell/console.cpp": '#include "workspace/w.h"', "workspace/w.h": ""},
     "shell may not include workspace"),
    ({"shell/main.cpp": '#include "analyses/m.h"', "analyses/m.h": ""}, ""),
    ({"shell/console.cpp": '#include "shell/main_window.h"', "shell/main_window.h": ""},
     "shell may not include shell main"),
    ({"analyses/m.cpp": '#include "shell/actions.h"', "shell/actions.h": ""},
     "analyses may not include shell main"),
    ({"imaging/i.cpp": '#include "analyses/m.h"', "analyses/m.h": ""},
     "imaging may not include analyses"),
    ({"workspace/w.cpp": '#include "kvo_config.h"\n// #include "analyses/m.h"'}, ""),
    ({"workspace/w.cpp": '#include "workspace/none.h"'}, "which is not there"),
    ({"extras/e.cpp": ""}, "has no place"),
    ({"companions/tool/m.cpp": '#include "engine/base/c.h"\n#include "workspace/w.h"',
      "engine/base/c.h": "", "workspace/w.h": "", "workspace/w.cpp": ""}, ""),
    ({"companions/tool/m.cpp": '#include "companions/other/o.h"', "companions/other/o.h": ""},
     "may not include companions/other"),
    ({"companions/tool/m.cpp": '#include "shell/console.h"', "shell/console.h": ""},
     "may not include shell"),
    ({"companions/tool/m.cpp": '#include "workspace/w.h"', "workspace/w.h": "",
      "workspace/w.cpp": '#include "shell/console.h"', "shell/console.h": ""},
     "shows windows by way of"),
    ({"companions/tool/m.cpp": "#include <pango/pangocairo.h>"}, ""),
    ({"engine/base/e.cpp": '#include "companions/tool/m.h"', "companions/tool/m.h": ""},
     "engine may not include companions/tool"),
    ({"companions/tool/m.cpp": "#include <gdk/gdk.h>"}, "shows windows"),
    ({"companions/kvo_edit/m.cpp": '#include <gtk/gtk.h>\n#include "dialogs/message.h"',
      "dialogs/message.h": ""}, ""),
    ({"companions/kvo_edit/m.cpp": '#include "shell/console.h"', "shell/console.h": ""},
     "may not include shell"),
    ({"tests/t.cpp": '#include "none.h"', "build/b.cpp": '#include "none.h"'}, ""),
]


def check_the_check():
    for files, right in CASES:
        with tempfile.TemporaryDirectory() as folder:
            for name, content in files.items():
                path = Path(folder) / name
                path.parent.mkdir(parents=True, exist_ok=True)
                path.write_text(content + "\n", encoding="utf-8")
            found = list(Tree(Path(folder)).problems())
        if bool(found) != bool(right) or (right and right not in found[0]):
            yield f"{files}: found {found}, right is '{right}'"


def main():
    root = Path(sys.argv[1])
    tree = Tree(root)
    problems = list(check_the_check()) + list(tree.problems())
    if len(tree.includes) < 50:
        problems.append(f"{root}: only {len(tree.includes)} files found")
    print(*problems, sep="\n")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
