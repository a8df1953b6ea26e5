#!/usr/bin/env python3
"""Fails on any #include "..." that points up the layers.

    tools/check_layering.py [REPO_ROOT]

Every C and C++ source under the checked trees belongs to one layer (by its folder). Each quoted
include is resolved to a file of the tree the way the compiler finds it (the including file's own
folder first, then the public include folders) and must land in a layer the includer may use.
A source in a folder that has no layer, or an include that resolves to no file of the tree, fails
too, so that a new folder is placed in the table before it is used.
"""
import os
import re
import sys

# ---------------------------------------------------------------------------------------------
# The table. A layer may include its own files and those of the layers it depends on,
# transitively.
#
# The editor is one chain: each layer may include every layer before it. A new core subsystem
# folder (Sources/OrvanUsdEditorCore/<Name>/) is added by writing <Name> at its place here.
EDITOR_CHAIN = [
    "bridge",  # Sources/VelkClientStateBridge
    "wire",  # wire/
    # The core's subsystems, Sources/OrvanUsdEditorCore/<Name>/:
    "Foundation",  # executors, tasks, observables, logging
    "Platform",  # ports and their real adapters
    "Launch",  # what the launch said, and the one scope of where the editor is
    "Assets",  # the project's asset rows and their catalogue
    "Intelligence",  # the prompt bar and the local agent run
    "Presentation",  # what the panes read: the client document, selection, stores
    "ServerClient",  # requests, stage refresh, the project stream; they feed Presentation
    "ProjectsAndWorkspaces",  # sign-in, hosted projects, workspaces
    "Authoring",  # operations, the edit helper, the queue, the optimistic overlay
    "Viewport",  # the viewport's processes, their line protocol and the frames they hand over
    # Collaboration goes here when it comes.
    "Application",  # the model that wires the parts, identity, view preferences
    "UI",  # Sources/OrvanUsdEditorUI
    "app",  # Sources/OrvanUsdEditor: main() and the wiring of the real platform
]

# The engine's folders (engine/<Name>/, layer "engine:<Name>") and what each may include besides
# itself. The prefix keeps them apart from the editor's layers of the same name (both have an
# Authoring).
ENGINE_DEPENDS_ON = {
    "engine:UsdText": ["wire"],
    "engine:Inspector": ["engine:UsdText"],
    "engine:Authoring": ["engine:Inspector"],
    "engine:Store": ["wire"],
    "engine:ProjectServer": ["engine:Authoring", "engine:Store"],
    "engine:ProjectTool": ["engine:UsdText"],
    "engine:Viewport": ["engine:UsdText"],
    "engine:ClientLink": ["wire"],
    "engine:EditClient": ["engine:ClientLink"],
    "engine:ToolClient": ["engine:ClientLink"],
    "engine:ViewportLink": ["engine:Viewport", "engine:ClientLink"],
    "engine fuzzers": ["engine:Authoring", "engine:EditClient", "engine:ViewportLink"],
    "engine benchmarks": ["engine:ProjectServer", "engine:ProjectTool", "engine:Store",
                          "engine:Authoring", "engine:Viewport", "engine:ViewportLink"],
}

CORE = "apps/usd_editor/Sources/OrvanUsdEditorCore"

# Library folders: (folder, layer). "<sub>" maps each folder below to the layer of its name.
LIBRARY_FOLDERS = [
    ("apps/usd_editor/Sources/VelkClientStateBridge", "bridge"),
    ("wire", "wire"),
    (CORE + "/<sub>", "<sub>"),
    ("apps/usd_editor/Sources/OrvanUsdEditorUI", "UI"),
    ("apps/usd_editor/Sources/OrvanUsdEditor", "app"),
    ("engine/<sub>", "engine:<sub>"),
]

# Test and benchmark folders: (folder, the layer whose includes they may use). Besides those,
# a test may include the files of its own folder and of its side's test support.
TEST_FOLDERS = [
    ("apps/usd_editor/Tests/VelkClientStateBridge", "bridge"),
    ("apps/usd_editor/Tests/OrvanWire", "wire"),
    ("apps/usd_editor/Tests/OrvanUsdEditorCore", "Application"),
    ("apps/usd_editor/Tests/OrvanUsdEditorUI", "UI"),
    ("apps/usd_editor/Tests/Support", "Application"),
    ("apps/usd_editor/Benchmarks", "UI"),
    ("engine/Tests/Fuzz", "engine fuzzers"),  # reader, composer, stdio lines under libFuzzer
    ("engine/Tests/Support", "engine:ClientLink"),  # the fake service the helpers' tests use
    ("engine/Tests/<sub>", "engine:<sub>"),
    ("engine/Benchmarks", "engine benchmarks"),
]
TEST_SUPPORT = {
    "apps/usd_editor/": "apps/usd_editor/Tests/Support",
    "engine/": "engine/Tests/Support",
}

# Where a quoted include is looked for after the including file's folder, in this order.
INCLUDE_ROOTS = [
    "apps/usd_editor/Sources/VelkClientStateBridge/include",
    "wire/include",
    CORE,
    "apps/usd_editor/Sources/OrvanUsdEditorUI",
    "apps/usd_editor/Tests",
    "engine",
]
ENGINE_INCLUDE_ROOTS = ["wire/include", "engine"]

CHECKED_TREES = ["apps/usd_editor/Sources", "apps/usd_editor/Tests", "apps/usd_editor/Benchmarks",
                 "engine", "wire"]
SOURCE_SUFFIXES = (".h", ".hpp", ".c", ".cc", ".cpp")
SKIPPED_FOLDERS = {"corpus", "Fixtures", "bin", "build"}
# ---------------------------------------------------------------------------------------------

INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"')


def dependencies():
    """Every layer with the layers it may include directly."""
    depends = {}
    for index, layer in enumerate(EDITOR_CHAIN):
        depends[layer] = EDITOR_CHAIN[index - 1:index] if index else []
    for layer, below in ENGINE_DEPENDS_ON.items():
        depends[layer] = list(below)
    return depends


def reachable(depends):
    """Every layer with itself and every layer it may include, transitively."""
    closure = {}
    for layer in depends:
        seen, todo = {layer}, [layer]
        while todo:
            for below in depends[todo.pop()]:
                if below not in seen:
                    seen.add(below)
                    todo.append(below)
        closure[layer] = seen
    return closure


def folder_match(pattern, path, known_layers):
    """The layer of `path` under a folder pattern, the folder it matched, or (None, None)."""
    folder, layer = pattern
    if folder.endswith("/<sub>"):
        base = folder[: -len("/<sub>")] + "/"
        if not path.startswith(base):
            return None, None
        rest = path[len(base):]
        if "/" not in rest:
            return None, None
        sub = rest.split("/", 1)[0]
        name = layer.replace("<sub>", sub)
        if name not in known_layers:
            return None, base + sub
        return (name, base + sub)
    if path == folder or path.startswith(folder + "/"):
        return layer, folder
    return None, None


class Place:
    """Where a file sits: its layer, whether it is test code, its group folder."""

    def __init__(self, layer, is_test, group):
        self.layer = layer
        self.is_test = is_test
        self.group = group


def place_of(path, known_layers):
    """The place of a repository-relative path, or a string saying why it has none."""
    best = None
    for table, is_test in ((TEST_FOLDERS, True), (LIBRARY_FOLDERS, False)):
        for pattern in table:
            layer, group = folder_match(pattern, path, known_layers)
            if group is None:
                continue
            if best is None or len(group) > len(best[2]):
                best = (layer, is_test, group)
    if best is None:
        return "no folder of the layer table holds it"
    layer, is_test, group = best
    if layer is None:
        return "its folder %s is not in the layer table (add it to tools/check_layering.py)" % group
    return Place(layer, is_test, group)


def resolve(root, including, included):
    """The repository-relative file a quoted include names, or None."""
    own_folder = os.path.dirname(including)
    roots = ENGINE_INCLUDE_ROOTS + INCLUDE_ROOTS if including.startswith("engine/") else INCLUDE_ROOTS
    for folder in [own_folder] + roots:
        candidate = os.path.normpath(os.path.join(folder, included))
        if os.path.isfile(os.path.join(root, candidate)):
            return candidate
    return None


def support_of(path):
    for side, support in TEST_SUPPORT.items():
        if path.startswith(side):
            return support
    return None


def allowed(source, target, target_path, closure):
    """None when `source` may include `target`, else the rule it breaks."""
    if target.is_test:
        if source.is_test and target.group == source.group:
            return None
        support = support_of(source.group)
        if source.is_test and support and target_path.startswith(support + "/"):
            return None
        return "test code (%s) is only for the tests of its own folder" % target.group
    if target.layer in closure[source.layer]:
        return None
    order = EDITOR_CHAIN + sorted(ENGINE_DEPENDS_ON)
    may = sorted(closure[source.layer], key=order.index)
    what = "tests of %s" % source.layer if source.is_test else source.layer
    return "%s may not include %s (it may include: %s)" % (what, target.layer, ", ".join(may))


def sources(root):
    for tree in CHECKED_TREES:
        for folder, subfolders, files in os.walk(os.path.join(root, tree)):
            subfolders[:] = sorted(name for name in subfolders if name not in SKIPPED_FOLDERS)
            for name in sorted(files):
                if name.endswith(SOURCE_SUFFIXES):
                    yield os.path.relpath(os.path.join(folder, name), root)


def main():
    root = os.path.abspath(sys.argv[1] if len(sys.argv) > 1 else
                           os.path.join(os.path.dirname(__file__), ".."))
    depends = dependencies()
    closure = reachable(depends)
    known = set(depends)
    problems = 0
    checked = 0
    for path in sources(root):
        source = place_of(path, known)
        if isinstance(source, str):
            print("%s: %s" % (path, source))
            problems += 1
            continue
        checked += 1
        with open(os.path.join(root, path), encoding="utf-8", errors="replace") as handle:
            for number, line in enumerate(handle, start=1):
                match = INCLUDE.match(line)
                if not match:
                    continue
                target_path = resolve(root, path, match.group(1))
                if target_path is None:
                    rule = "the include names no file of the tree"
                else:
                    target = place_of(target_path, known)
                    if isinstance(target, str):
                        rule = "%s: %s" % (target_path, target)
                    else:
                        rule = allowed(source, target, target_path, closure)
                if rule:
                    print("%s:%d: %s\n    %s" % (path, number, line.strip(), rule))
                    problems += 1
    if problems:
        print("check_layering: %d problem(s) in %d files" % (problems, checked))
        return 1
    print("check_layering: %d files, every include points down" % checked)
    return 0


if __name__ == "__main__":
    sys.exit(main())
