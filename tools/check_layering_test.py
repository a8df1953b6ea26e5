#!/usr/bin/env python3
"""Tests of tools/check_layering.py on small trees built in a temporary folder."""
import os
import subprocess
import sys
import tempfile
import unittest

SCRIPT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "check_layering.py")
CORE = "apps/usd_editor/Sources/OrvanUsdEditorCore"


def run_on(files):
    """Writes `files` (path: text) under a fresh root and runs the check; (exit code, output)."""
    with tempfile.TemporaryDirectory() as root:
        for path, text in files.items():
            full = os.path.join(root, path)
            os.makedirs(os.path.dirname(full), exist_ok=True)
            with open(full, "w", encoding="utf-8") as handle:
                handle.write(text)
        done = subprocess.run([sys.executable, SCRIPT, root], capture_output=True, text=True,
                              check=False)
        return done.returncode, done.stdout


# A tree whose includes all point down: wire, the core's bottom and top, the UI, main, the engine
# and their tests.
CLEAN = {
    "wire/include/orvan/wire/Text.h": "#pragma once\n",
    "wire/Text.cpp": '#include "orvan/wire/Text.h"\n',
    CORE + "/Foundation/Logging.h": '#include "orvan/wire/Text.h"\n',
    CORE + "/Application/EditorModel.h": '#include "Foundation/Logging.h"\n',
    "apps/usd_editor/Sources/OrvanUsdEditorUI/EditorWindow.h": '#include "Application/EditorModel.h"\n',
    "apps/usd_editor/Sources/OrvanUsdEditor/main.cpp": '#include "EditorWindow.h"\n',
    "apps/usd_editor/Tests/Support/Fake.h": '#include "Foundation/Logging.h"\n',
    "apps/usd_editor/Tests/OrvanWire/TextTests.cpp":
        '#include "orvan/wire/Text.h"\n#include "Support/Fake.h"\n#include "OrvanWire/Records.h"\n',
    "apps/usd_editor/Tests/OrvanWire/Records.h": "#pragma once\n",
    "engine/UsdText/Layer.h": '#include "orvan/wire/Text.h"\n',
    "engine/Inspector/Inspect.h": '#include "UsdText/Layer.h"\n',
    "engine/Tests/Inspector/InspectTests.cpp": '#include "Inspector/Inspect.h"\n',
}


class CheckLayeringTest(unittest.TestCase):
    def test_a_tree_whose_includes_point_down_passes(self):
        code, output = run_on(CLEAN)
        self.assertEqual(code, 0, output)

    def test_an_upward_include_in_the_core_fails_with_file_line_and_rule(self):
        tree = dict(CLEAN)
        tree[CORE + "/Foundation/Logging.h"] = '#pragma once\n#include "Application/EditorModel.h"\n'
        code, output = run_on(tree)
        self.assertEqual(code, 1)
        self.assertIn(CORE + "/Foundation/Logging.h:2:", output)
        self.assertIn("Foundation may not include Application", output)

    def test_the_engine_sees_the_wire_and_nothing_else_of_the_editor(self):
        tree = dict(CLEAN)
        tree["engine/UsdText/Layer.h"] = '#include "Foundation/Logging.h"\n'
        code, output = run_on(tree)
        self.assertEqual(code, 1)
        self.assertIn("UsdText may not include Foundation", output)

    def test_engine_folders_follow_their_own_order(self):
        tree = dict(CLEAN)
        tree["engine/UsdText/Layer.h"] = '#include "Inspector/Inspect.h"\n'
        code, output = run_on(tree)
        self.assertEqual(code, 1)
        self.assertIn("engine:UsdText may not include engine:Inspector", output)

    def test_the_wire_does_not_see_the_core(self):
        tree = dict(CLEAN)
        tree["wire/Text.cpp"] = '#include "Foundation/Logging.h"\n'
        code, output = run_on(tree)
        self.assertEqual(code, 1)
        self.assertIn("wire may not include Foundation", output)

    def test_library_code_may_not_use_test_code(self):
        tree = dict(CLEAN)
        tree[CORE + "/Application/EditorModel.h"] = '#include "Support/Fake.h"\n'
        code, output = run_on(tree)
        self.assertEqual(code, 1)
        self.assertIn("only for the tests of its own folder", output)

    def test_a_folder_missing_from_the_table_and_an_unknown_include_fail(self):
        tree = dict(CLEAN)
        tree[CORE + "/Gadgets/Gadget.h"] = "#pragma once\n"
        tree["wire/Numbers.cpp"] = '#include "orvan/wire/Numbers.h"\n'
        code, output = run_on(tree)
        self.assertEqual(code, 1)
        self.assertIn("Gadgets is not in the layer table", output)
        self.assertIn("wire/Numbers.cpp:1:", output)
        self.assertIn("names no file of the tree", output)


if __name__ == "__main__":
    unittest.main()
