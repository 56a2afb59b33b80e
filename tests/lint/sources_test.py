#!/usr/bin/env python3
"""Each rule of sources.py refuses what it is for, and nothing of what it is not for."""
import contextlib
import io
import pathlib
import tempfile
import unittest
from unittest import mock

import sources

# Path, source, and a piece of the message; the source is one line, or the lines that the rule needs to see.
REFUSED = [
    # Event codes that are not of the list
    ("src/core/a.cpp", "log.write(static_cast<EventCode>(70));", "made of something else"),
    ("src/core/a.cpp", "const auto code = EventCode(number);", "made of something else"),
    ("src/core/a.cpp", "const EventCode code{number}; use(EventCode{200});", "made of something else"),
    ("src/core/a.cpp", "use((EventCode)number);", "made of something else"),
    ("src/core/a.cpp", "const auto code = std::bit_cast<EventCode>(byte);", "made of something else"),
    ("src/core/a.cpp", "using Code = EventCode;", "another name"),
    ("tools/signer/a.cpp", "use(static_cast<EventCode>(1));", "made of something else"),
    # What is handed to the log
    ("src/core/a.cpp", 'log_.write("CAMERA_OPENED", 0);', "not a code of EventCode"),
    ("src/core/a.cpp", "log_.write(codeFor(url), 0);", "not a code of EventCode"),
    ("src/core/a.cpp", "setup.log->write(eventOf[kind], 0);", "not a code of EventCode"),
    ("src/core/a.cpp", "doors_.log(ok ? EventCode::kUiReady : other, 0);", "not a code of EventCode"),
    ("src/core/a.cpp", "doors_.log(EventCode::kUiReady, number(settings.customUrl));", "may be a secret: customUrl"),
    ("src/core/a.cpp", "log.write(EventCode::kUiReady, static_cast<int>(password.size()));", "may be a secret: password"),
    ("src/core/a.cpp", "log.write(EventCode::kUiReady, given.size());", "may be a secret: size"),
    ("src/core/a.cpp", "reports_.log(EventCode::kUiReady, fnv1a64(bytes));", "may be a secret: fnv1a64"),
    ("src/core/a.cpp", "logNumber(EventCode::kUiReady, result.record.directIp);", "may be a secret: directIp"),
    ("src/core/a.cpp", "log.write(EventCode::kUiReady, std::stoi(\"17\"));", "a text is handed"),
    # Formats
    ("src/diag/event_line.cpp", 'std::snprintf(t, n, "at=%s", fields.place);', "%s prints what is no constant: fields . place"),
    ("src/diag/event_line.cpp", 'std::snprintf(t, n, "%llu %s", fields.tick, url.c_str());', "%s prints"),
    ("src/diag/event_line.cpp", 'std::snprintf(t, n, "%u"\n " %.*s", 1u, 3, text);', "%.*s prints what is no constant: text"),
    ("src/diag/event_line.cpp", "std::snprintf(t, n, layout, 1);", "not a literal"),
    ("src/diag/event_line.cpp", 'std::snprintf(t, n, wide ? "%d" : "%s", text);', "not a literal"),
    ("src/diag/event_line.cpp", 'std::snprintf(t, n, "%s");', "%s prints"),
    ("src/diag/diagnostic_report.cpp", 'std::swprintf(t, n, L"Fonte: %ls", settings.customUrl.c_str());', "%ls prints"),
    ("src/diag/diagnostic_report.cpp", 'std::swprintf(t, n, L"%S %d", user, 1);', "%S prints"),
    ("src/diag/diagnostic_report.cpp", 'std::swprintf(t, n, L"%ws", on ? L"a" : host);', "%ws prints"),
    ("src/ui/window_view.cpp", 'std::swprintf(t, n, L"%hs", address);', "%hs prints"),
    ("src/ui/window_view.cpp", 'std::swprintf(t, n, L"%c", address[0]);', "%c prints"),
    # The report's labels
    ("src/ui/a.cpp", "figures.sourceLabel = settings.customUrl.view();", "does not come from protectedSourceLabel"),
    ("src/ui/a.cpp", "const DiagnosticFigures figures{url, status, backend};", "without naming"),
    ("src/ui/a.cpp", "build(DiagnosticFigures{url});", "without naming"),
    # Lines that are put together
    ("src/diag/event_log_win.cpp", "line += url;", "put together: +="),
    ("src/diag/event_line.cpp", "text.append(url);", "put together: append"),
    ("src/diag/event_log_win.cpp", "stream << value;", "put together: <<"),
    ("src/diag/event_line.h", "auto text() { return std::to_string(value); }", "put together: to_string"),
    # Ways out
    ("src/core/a.cpp", "OutputDebugStringW(text);", "OutputDebugStringW belongs here: nowhere"),
    ("src/core/a.cpp", "std::cerr << text;", "cerr belongs here: nowhere"),
    ("src/core/a.cpp", "std::ofstream file(path);", "ofstream belongs here: nowhere"),
    ("src/core/a.cpp", 'auto f = _wfopen(path, L"wb");', "_wfopen belongs here: src/core/run_outputs_win.cpp"),
    ("src/core/a.cpp", 'const auto line = std::format("{}", url);', "std::format belongs here: nowhere"),
    ("src/core/a.cpp", 'std::snprintf(t, n, "%d", 1);', "snprintf belongs here: src/diag/event_line.cpp"),
    ("src/core/a.cpp", 'std::sprintf(t, "%d", 1);', "sprintf belongs here: nowhere"),
    # Includes
    ("src/diag/a.h", '#include "config/settings.h"', "lies above it"),
    ("src/base/a.h", '#include "diag/event_log.h"', "lies above it"),
    ("src/update/a.cpp", '#include "core/supervisor.h"', "lies above it"),
    ("src/diag/event_line.h", '#include "base/secret.h"', "know of secrets"),
    # House rules
    ("src/core/a.cpp", "CloseHandle(event);", "CloseHandle belongs here: src/base/unique_win.h"),
    ("tools/signer/a.cpp", "UnmapViewOfFile(view);", "UnmapViewOfFile belongs here"),
    ("src/core/a.cpp", "goto done;", "goto"),
    ("tests/unit/a_test.cpp", "\n" * 601, "601 lines"),
    ("dev", "\n" * 601, "601 lines"),
]

ACCEPTED = [
    ("src/core/a.cpp", "log_.write(EventCode::kUiReady);"),
    ("src/core/a.cpp", "setup.log->write(EventCode::kMfStartup, started);"),
    ("src/core/a.cpp", "doors_.log(ok ? EventCode::kUiReady : EventCode::kUiShow, static_cast<std::int32_t>(result.code));"),
    ("src/core/a.cpp", "doors.log = [this](EventCode code, std::int32_t value) { log_.write(code, value); };"),
    ("src/core/a.h", "std::function<void(EventCode, std::int32_t)> log;"),
    ("src/core/a.cpp", 'EventLog log(counter);\nlogin(L"text");\nif (file.write("text")) return;'),
    ("src/core/a.cpp", '// log.write("TEXT"); goto\n/* std::cout << url; */ const char* text = "goto std::cerr";'),
    ("src/core/a.cpp", 'const wchar_t* raw = LR"x(log.write("A") goto)x"; const int n = 12\'000; const char c = \'"\';'),
    ("src/diag/event_codes.h", "enum class EventCode : std::uint8_t { kAppStart = 1 };"),
    ("src/diag/event_line.cpp", 'std::snprintf(t, n, "%llu %s 0x%08lX %%\\n", fields.tick, eventText(fields.code).data(), 1ul);'),
    ("src/diag/diagnostic_report.cpp", 'std::swprintf(t, n, L"v " VERSION_W L" %.*ls %d %ls", len(x), figures.sourceLabel.data(), 1, on ? L"a" : L"b");'),
    ("src/diag/diagnostic_report.cpp", "view += logTail;"),
    ("src/ui/a.cpp", "DiagnosticFigures figures;\nfigures.statusLabel = currentStatusLabel();"),
    ("src/ui/a.h", '#include "core/supervisor.h"\n#include <windows.h>'),
    ("src/base/unique_win.h", "static void close(Value value) { CloseHandle(value); }"),
    ("src/core/a.cpp", "pixel.format = format; WinHttpCloseHandle(request);"),
    ("tools/console/a.cpp", 'std::snprintf(fps, sizeof fps, "%.2f", value);'),
    ("tests/unit/a_test.cpp", "static_cast<EventCode>(number); CloseHandle(raw);" + "\n" * 600),
]

WINDOWS = "#include <windows.h>\n"

# The files of a tree, and what is found: path and a piece of the message.
TREES = [
    # A file's name says whether Windows is in it
    ({"src/core/a.cpp": WINDOWS}, [("src/core/a.cpp", "it is called *_win")]),
    ({"src/core/a.h": "#pragma once\n  #  include <bcrypt.h>"}, [("src/core/a.h", "it is called *_win")]),
    (
        {
            "src/core/a.cpp": '#include <string>\n#include "core/b.h"\n',
            "src/core/b.h": '#include "base/c_win.h"\n',
            "src/base/c_win.h": WINDOWS,
        },
        [("src/core/a.cpp", "it is called *_win"), ("src/core/b.h", "it is called *_win")],
    ),
    ({"src/core/a_win.h": "#include <string>\n"}, [("src/core/a_win.h", "it is not called *_win")]),
    ({"src/core/a_win.cpp": '#include "core/b.h"\n', "src/core/b.h": '#include "core/b.h"\n'},
     [("src/core/a_win.cpp", "it is not called *_win")]),
    ({"src/core/a.cpp": 'auto f = _wfopen(path, L"wb");'}, [("src/core/a.cpp", "it is called *_win")]),
    # A door whose header shows no Windows, what is no file of src, and main
    ({"src/core/a.h": "#include <string>\n", "src/core/a_win.cpp": '#include "core/a.h"\n' + WINDOWS}, []),
    ({"src/core/a.h": "// #include <windows.h>\n", "src/main.cpp": WINDOWS, "tools/signer/a.cpp": WINDOWS}, []),
    # A unit test is called after what it tests
    ({"tests/unit/core/a_test.cpp": ""}, [("tests/unit/core/a_test.cpp", "after no file of core")]),
    ({"tests/unit/core/a_test.cpp": "", "src/base/a.h": ""}, [("tests/unit/core/a_test.cpp", "after no file of core")]),
    ({"tests/unit/core/ab_test.cpp": "", "src/core/a.h": ""}, [("tests/unit/core/ab_test.cpp", "after no file of core")]),
    (
        {"tests/unit/core/a_win_test.cpp": "", "src/core/a.cpp": "", "tests/unit/core/b_test.cpp": "", "src/core/b_win.cpp": WINDOWS},
        [("tests/unit/core/a_win_test.cpp", "after no file of core that ends in _win"),
         ("tests/unit/core/b_test.cpp", "after no file of core")],
    ),
    ({"tests/unit/core/a_topic_test.cpp": "", "src/core/a.cpp": "", "tests/unit/core/b_of_a_win_test.cpp": "", "src/core/b_win.h": WINDOWS}, []),
    ({"tests/unit/core/a_win_test.cpp": "", "src/core/a.h": "", "src/core/a_win.cpp": WINDOWS}, []),
    ({"tests/unit/tools/a_test.cpp": "", "tools/signer/a.h": "", "tests/unit/resources/b_win_test.cpp": "", "src/resources/b.rc": ""}, []),
    ({"tests/system/a_win_test.cpp": "", "tests/support/b_win.h": ""}, []),
    # A test is built
    (
        {"tests/CMakeLists.txt": "system/a_test.cpp", "tests/system/a_test.cpp": "", "tests/system/b_test.cpp": ""},
        [("tests/system/b_test.cpp", "never built")],
    ),
    (
        {"tests/CMakeLists.txt": "fuzz/b_fuzz.cpp vextra_fuzz_target(a)", "tests/fuzz/a_fuzz.cpp": "", "tests/fuzz/b_fuzz.cpp": ""},
        [("tests/fuzz/b_fuzz.cpp", "never built")],
    ),
]


class Rules(unittest.TestCase):
    def test_refuse_each_bad_sample(self):
        for path, source, message in REFUSED:
            with self.subTest(path=path, source=source[:60]):
                self.assertIn(message, " | ".join(text for _, text in sources.findings(path, source)))

    def test_accept_each_good_sample(self):
        for path, source in ACCEPTED:
            with self.subTest(path=path, source=source[:60]):
                self.assertEqual(sources.findings(path, source), [])

    def test_find_what_a_tree_says(self):
        for files, expected in TREES:
            with self.subTest(files=files):
                found = sources.tree_findings(files)
                self.assertEqual([path for path, _ in found], [path for path, _ in expected])
                for (_, message), (_, piece) in zip(found, expected):
                    self.assertIn(piece, message)

    def test_name_the_line(self):
        self.assertEqual(sources.findings("src/core/a.cpp", "/*\n*/\n\ngoto x;"), [(4, "goto")])


class Program(unittest.TestCase):
    def run_on(self, files: dict[str, str]) -> int:
        with tempfile.TemporaryDirectory() as folder, contextlib.redirect_stdout(io.StringIO()):
            for path, source in files.items():
                file = pathlib.Path(folder, path)
                file.parent.mkdir(parents=True, exist_ok=True)
                file.write_text(source, encoding="utf-8")
            with mock.patch("sys.argv", ["sources.py", folder]):
                return sources.main()

    def test_fails_on_a_finding_in_any_folder(self):
        self.assertEqual(self.run_on({"dev": "", "src/core/a.cpp": "f();"}), 0)
        self.assertEqual(self.run_on({"dev": "", "src/core/a.cpp": "goto x;"}), 1)
        self.assertEqual(self.run_on({"dev": "", "tests/unit/deep/a.py": "\n" * 601}), 1)
        self.assertEqual(self.run_on({"dev": "", "src/core/a.cpp": "#include <windows.h>"}), 1)

    def test_fails_when_there_is_nothing_to_look_at(self):
        self.assertEqual(self.run_on({"dev": ""}), 1)


if __name__ == "__main__":
    unittest.main()
