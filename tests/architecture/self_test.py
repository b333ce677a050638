#!/usr/bin/env python3
"""Plants violations in a copy of the project's shape and sees that each check finds them: a check that cannot fail
checks nothing.

Usage: self_test.py FOLDER-OF-THE-CHECKS"""

import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

CHECKS = pathlib.Path(sys.argv.pop(1)).resolve()


class Planted(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.root = pathlib.Path(self.folder.name)
        for name in ("bench", "examples", "fuzz", "tests", "tools"):
            (self.root / name).mkdir()
        self.write("core/shared/qstd/log.h", "#pragma once\n#include <string>\n")
        self.write("core/shared/qcfg/element.h", '#pragma once\n#include "qstd/log.h"\n')
        self.write("bmc/board.h", '#pragma once\n#include "qstd/log.h"\n')
        self.write("bmc/sim/model.h", '#pragma once\n#include "bmc/board.h"\n')
        self.write("daemon/monitor.h", '#pragma once\n#include "qcfg/element.h"\n')
        self.write("daemon/main.cpp", '#include "bmc/sim/model.h"\n#include "build_info.h"\n#include "monitor.h"\n')

    def tearDown(self):
        self.folder.cleanup()

    def write(self, name, text):
        path = self.root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")

    def check(self, name, **environment):
        command = [sys.executable] if name.endswith(".py") else ["sh"]
        done = subprocess.run([*command, CHECKS / name, self.root], capture_output=True, text=True, check=False,
                              env={**os.environ, **environment})
        return done.returncode, done.stdout + done.stderr

    def refused(self, check, expected):
        status, text = self.check(check)
        self.assertEqual(status, 1, text)
        self.assertIn(expected, text)

    def test_includes_in_the_right_directions_pass(self):
        status, text = self.check("check_includes.py")
        self.assertEqual((status, text), (0, "6 files include each other in the right directions\n"))

    @unittest.skipUnless(shutil.which("shellcheck"), "shellcheck is not installed")
    def test_shell_script_that_splits_words(self):
        self.write("tools/run", "#!/bin/sh\nrm \"$1\"\n")
        self.assertEqual(self.check("check_shell.py"), (0, "1 scripts and 0 completions are in order\n"))
        self.write("tools/run", "#!/bin/sh\nrm $1\n")
        self.refused("check_shell.py", "SC2086")

    def test_framework_that_knows_boards(self):
        self.write("core/shared/qcfg/element.cpp", '#include "qcfg/element.h"\n\n#include "bmc/board.h"\n')
        self.refused("check_includes.py",
                     'core/shared/qcfg/element.cpp:3: core/shared/qcfg includes "bmc/board.h" of bmc')

    def test_daemon_that_knows_the_simulation(self):
        self.write("daemon/monitor.cpp", '#include "bmc/sim/model.h"\n')
        self.refused("check_includes.py", 'daemon/monitor.cpp:1: daemon includes "bmc/sim/model.h" of bmc/sim')

    def test_include_spelled_in_another_way(self):
        self.write("bmc/board.cpp", '  #  include "../core/shared/qcfg/element.h"\n')
        self.refused("check_includes.py", "bmc/board.cpp:1: ")

    def test_example_that_is_not_on_its_own(self):
        self.write("examples/registry_client/client.cpp", '#include "qstd/log.h"\n')
        self.refused("check_includes.py", "examples/registry_client/client.cpp:1: ")

    def test_outside_library_in_the_wrong_place(self):
        self.write("daemon/monitor.cpp", "#include <libxml/parser.h>\n")
        self.refused("check_includes.py", "daemon/monitor.cpp:1: daemon includes <libxml/parser.h>")

    def test_private_library_in_a_header(self):
        self.write("core/shared/qcfg/document.h", "#pragma once\n#include <libxml/parser.h>\n")
        self.refused("check_includes.py", "core/shared/qcfg/document.h:2: a header includes <libxml/parser.h>")

    def test_product_that_includes_tests(self):
        self.write("tests/support/file.h", "#pragma once\n")
        self.write("daemon/monitor.cpp", '#include "tests/support/file.h"\n')
        self.refused("check_includes.py", "daemon/monitor.cpp:1: ")

    def test_folder_outside_the_table(self):
        self.write("core/shared/helpers/misc.h", "#pragma once\n")
        self.refused("check_includes.py", "core/shared/helpers/misc.h:1: belongs to no folder")

    def test_header_that_is_not_there(self):
        self.write("daemon/monitor.cpp", '#include "qstd/none.h"\n')
        self.refused("check_includes.py", 'daemon/monitor.cpp:1: "qstd/none.h" is no file of this project')

    def test_no_sources_at_all(self):
        for name in ("core", "bmc", "daemon"):
            shutil.rmtree(self.root / name)
        self.refused("check_includes.py", "no sources below")

    README = "# Boards\n\n| File | What |\n|---|---|\n| `board.h` | a board |\n| `sim/` | simulated |\n"

    def test_list_that_agrees_passes(self):
        self.write("bmc/README.md", self.README)
        self.assertEqual(self.check("check_captions.py"), (0, "1 lists of files agree with their folders\n"))

    def test_readme_without_list_passes(self):
        self.write("bmc/README.md", "# Boards\n\n| Name |\n|---|\n| `x.h` |\n")
        self.assertEqual(self.check("check_captions.py"), (0, "0 lists of files agree with their folders\n"))

    def test_file_that_is_not_listed(self):
        self.write("bmc/README.md", self.README)
        self.write("bmc/sensor.h", "#pragma once\n")
        self.refused("check_captions.py", "bmc/README.md: `sensor.h` is there but not listed")

    def test_file_that_is_listed_but_not_there(self):
        self.write("bmc/README.md", self.README + "| `none.h`, `none.cpp` | nothing |\n")
        self.refused("check_captions.py", "bmc/README.md: `none.cpp` is listed but not there")

    def test_quote_that_agrees_passes(self):
        self.write("docs/page.md", "<!-- quote: a.cpp -->\n```cpp\nint a;\n```\n")
        self.write("a.cpp", "int a;\n")
        self.assertEqual(self.check("check_quotes.py"), (0, "1 quotes agree with their files\n"))

    def test_quote_that_differs(self):
        self.write("docs/page.md", "<!-- quote: a.cpp -->\n```cpp\nint a;\n```\n")
        self.write("a.cpp", "int b;\n")
        self.refused("check_quotes.py", "docs/page.md: the quote of a.cpp differs from the file")

    def test_quote_of_a_file_that_is_not_there(self):
        self.write("docs/page.md", "<!-- quote: b.cpp -->\n```cpp\nint a;\n```\n")
        self.refused("check_quotes.py", "docs/page.md: b.cpp is not there")

    def test_message_that_the_guide_knows_passes(self):
        self.write("docs/operations/guide.md", "| `Cannot open FILE: REASON` | |\n")
        self.write("core/shared/qstd/a.cpp", 'qstd::LogError("Cannot open FILE: " + reason);\n')
        self.assertEqual(self.check("check_messages.py"), (0, "the guide knows all 1 messages\n"))

    def test_message_that_the_guide_does_not_know(self):
        self.write("docs/operations/guide.md", "| `Cannot open FILE: REASON` | |\n")
        self.write("daemon/a.cpp", 'void F() {\n    qstd::LogWarning(\n        "Cannot close: " + reason);\n}\n')
        self.refused("check_messages.py", 'daemon/a.cpp:2: the guide does not know "Cannot close"')

    @unittest.skipIf(shutil.which("clang-format") is None, "clang-format is not installed")
    def test_source_out_of_format(self):
        self.write(".clang-format", "BasedOnStyle: Google\n")
        self.assertEqual(self.check("check_format.sh")[0], 0)
        self.write("daemon/monitor.cpp", "int  x ;\n")
        status, text = self.check("check_format.sh")
        self.assertNotEqual(status, 0)
        self.assertIn("daemon/monitor.cpp:1:", text)

    def test_without_clang_format_the_check_is_skipped(self):
        empty = self.root / "bin"
        empty.mkdir()
        (empty / "sh").symlink_to(shutil.which("sh"))
        status, text = self.check("check_format.sh", PATH=str(empty))
        self.assertEqual(status, 77, text)


if __name__ == "__main__":
    unittest.main()
