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

    def test_links_that_lead_somewhere_pass(self):
        self.write("docs/other.md", "# One `page`: a way\n")
        self.write("README.md", "[a](docs/other.md#one-page-a-way) `daemon/{main.cpp,*.h}` `main.cpp` [b](https://c.d)\n")
        self.assertEqual(self.check("check_links.py"), (0, "2 links in 2 documents lead somewhere\n"))

    def test_link_that_leads_nowhere(self):
        self.write("README.md", "\n[a](docs/none.md)\n")
        self.refused("check_links.py", "README.md:2: the link leads nowhere: docs/none.md")

    def test_link_to_a_heading_that_is_not_there(self):
        self.write("docs/other.md", "# Title\n```\n# no heading\n```\n")
        self.write("README.md", "[a](docs/other.md#no-heading)\n")
        self.refused("check_links.py", "README.md:1: there is no such heading: docs/other.md#no-heading")

    def test_name_of_a_file_that_is_not_there(self):
        self.write("README.md", "[a](README.md) `daemon/none.cpp`\n")
        self.refused("check_links.py", "README.md:1: there is no daemon/none.cpp")
        self.write("README.md", "[a](README.md) `none.h`\n")
        self.refused("check_links.py", "README.md:1: there is no file none.h anywhere")

    def guide(self, *messages):
        """A guide with these messages, a row each."""
        rows = "".join(f"| {message} | | |\n" for message in messages)
        self.write("docs/operations/guide.md", f"| message | what it means | what to do |\n|---|---|---|\n{rows}")

    def logs(self, statement, name="daemon/a.cpp"):
        self.write(name, f"void F(const std::string& reason) {{\n    {statement}\n}}\n")

    def knows(self, message):
        """The guide with this one message has nothing missing and nothing too much."""
        self.guide(f"`{message}`")
        status, text = self.check("check_messages.py")
        self.assertEqual(status, 0, text)

    def test_message_that_the_guide_knows_passes(self):
        self.logs('qstd::LogError("Cannot open FILE: " + reason);')
        self.guide("`Cannot open FILE: REASON`")
        self.assertEqual(self.check("check_messages.py"), (0, "the guide knows all 1 messages\n"))

    def test_message_that_the_guide_does_not_know(self):
        self.guide("`Cannot open FILE: REASON`")
        self.logs('qstd::LogError("Cannot open " + reason);\n    qstd::LogWarning(\n        "Cannot close: " + reason);')
        self.refused("check_messages.py", 'daemon/a.cpp:3: the guide does not know "Cannot close: …"')

    def test_message_of_the_guide_that_is_nowhere_logged(self):
        self.guide("`Cannot open FILE: REASON`", "`Cannot close FILE`")
        self.logs('qstd::LogError("Cannot open file: " + reason);')
        self.refused("check_messages.py", 'docs/operations/guide.md:4: there is no message "Cannot close FILE"')

    def test_message_that_stands_elsewhere_in_the_guide_only(self):
        self.guide("`Cannot open FILE: REASON` | not `Cannot close`")
        self.logs('qstd::LogError("Cannot open " + reason);\n    qstd::LogInfo("Cannot close");')
        self.refused("check_messages.py", 'the guide does not know "Cannot close"')

    def test_message_of_the_guide_that_is_longer_in_its_middle(self):
        self.guide("`Cannot open FILE in the other folder: REASON`")
        self.logs('qstd::LogError("Cannot open " + name + ": " + reason);')
        self.refused("check_messages.py", 'the guide does not know "Cannot open …: …"')

    def test_message_put_together_in_a_variable(self):
        self.logs('std::string text = "Fans changed from ";\n    text.append(reason);\n    qstd::LogInfo(text);')
        self.knows("Fans changed from N RPM to N RPM")
        self.guide("`Fans are changed from N to N`")
        self.refused("check_messages.py", 'the guide does not know "Fans changed from …"')

    def test_message_put_together_by_a_format(self):
        self.logs('qstd::LogInfo(fmt::format("Board {} has {:.1f}; no {}", a, b, reason));')
        self.knows("Board NAME has N; no REASON")
        self.guide("`Board NAME has N`")
        self.assertEqual(self.check("check_messages.py")[0], 0, "a message may be cut at its end")

    def test_message_that_is_one_of_two(self):
        self.logs('qstd::LogInfo(isOne ? "One board ended" : "All boards ended");')
        self.guide("`One board ended`")
        self.refused("check_messages.py", 'the guide does not know "All boards ended"')

    def test_message_of_a_library_that_hands_it_to_its_host(self):
        self.guide("`Cannot open FILE`")
        self.logs('m_log(qstd::LogLevel_e::warning,\n    "Cannot keep " + reason);', "bmc/ipmi/a.cpp")
        self.refused("check_messages.py", 'bmc/ipmi/a.cpp:2: the guide does not know "Cannot keep …"')

    def test_message_of_a_log_that_limits_how_often_it_writes(self):
        self.guide("`Cannot open FILE`")
        self.logs('m_refusals.Warning("Refused " + reason);', "core/shared/qreg/a.cpp")
        self.refused("check_messages.py", 'the guide does not know "Refused …"')

    def test_message_in_a_header(self):
        self.guide("`Cannot open FILE`")
        self.logs('qstd::LogCritical("Cannot stop");', "core/shared/qapp/a.h")
        self.refused("check_messages.py", 'core/shared/qapp/a.h:2: the guide does not know "Cannot stop"')

    def test_message_of_a_caught_exception(self):
        self.logs('LogCaught("Problem in worker - ", "Nobody knows", "trace");')
        self.guide("`Problem in worker - TEXT`")
        self.refused("check_messages.py", 'the guide does not know "Nobody knows"')

    def test_exception_that_ends_a_start(self):
        self.guide("`Cannot open FILE`")
        self.logs('throw qstd::Exception("Cannot write pid file " + reason);', "core/shared/qapp/pid_file.cpp")
        self.refused("check_messages.py", 'core/shared/qapp/pid_file.cpp:2: the guide does not know "Cannot write pid file')

    def test_message_without_words_of_its_own(self):
        self.guide("`Cannot open FILE`")
        self.logs("qstd::LogInfo(reason);")
        self.refused("check_messages.py", "daemon/a.cpp:2: a message without words of its own: reason")

    def test_guide_without_messages(self):
        self.write("docs/operations/guide.md", "| `Cannot open FILE` | |\n")
        self.logs('qstd::LogInfo("Cannot open " + reason);')
        self.refused("check_messages.py", 'the guide does not know "Cannot open …"')

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
