#!/usr/bin/env python3
"""What the sources must not contain, as far as neither compiler nor clang-tidy knows: sources.py [ROOT]

Most of it serves one promise: no address, name, password or path ever reaches a log or the report. The types already
see to it that an event is an EventCode and that a secret does not turn into text by itself; here is forbidden what
would go round them. Each rule has samples in sources_test.py.
"""
import pathlib
import re
import sys
from collections.abc import Iterator

from cpp_tokens import Token, arguments_of, string_content, tokens_of

MAX_LINES = 600

# The rooms of src/ and what each may include; main.cpp wires them all. As docs/ARCHITECTURE.md has it.
LOWER = {"base", "diag", "config", "bridge"}
ROOMS = {
    "base": {"base"},
    "diag": {"diag", "base"},
    "config": {"config", "base", "diag"},
    "bridge": {"bridge", "base"},
    "producers": {"producers"} | LOWER,
    "core": {"core", "producers"} | LOWER,
    "update": {"update", "base", "diag", "config"},
    "ui": {"ui", "core", "producers", "update"} | LOWER,
}

# Ways out of the program, and the files that may use each.
LOG_FILE = "src/diag/event_log_win.cpp"
OUTPUT_FILE = "src/core/run_outputs_win.cpp"
WAYS_OUT = {
    **dict.fromkeys(["OutputDebugStringA", "OutputDebugStringW", "ReportEventW", "EventWrite", "perror"], ()),
    **dict.fromkeys(["printf", "wprintf", "fprintf", "fwprintf", "vprintf", "vfprintf", "puts", "fputs", "fputws"], ()),
    **dict.fromkeys(["cout", "cerr", "clog", "wcout", "wcerr", "wclog"], ()),
    **dict.fromkeys(["ofstream", "wofstream", "fstream", "wfstream", "fopen", "freopen"], ()),
    **dict.fromkeys(["ostream", "wostream", "ostringstream", "wostringstream", "stringstream", "wstringstream"], ()),
    **dict.fromkeys(["vformat", "format_to", "format_to_n"], ()),
    "_wfsopen": (LOG_FILE,),
    "_wfopen": (OUTPUT_FILE,),
    "fwrite": (LOG_FILE, OUTPUT_FILE),
}
FORMATTERS = {
    "snprintf": ("src/diag/event_line.cpp",),
    "swprintf": ("src/diag/diagnostic_report.cpp", "src/ui/window_view.cpp"),
    **dict.fromkeys(["sprintf", "vsnprintf", "vswprintf", "_snwprintf", "wsprintfW", "StringCchPrintfW"], ()),
}
CLOSERS = dict.fromkeys(["CloseHandle", "UnmapViewOfFile"], ("src/base/unique_win.h",))

# Where the lines of the log are made and written: numbers and one constant, never text that was put together.
LOG_MAKERS = re.compile(r"src/diag/event_(line|log|log_win)\.(h|cpp)")
TEXT_MAKERS = {"<<", "+=", "append", "format", "to_string", "to_wstring", "to_chars", "strcat", "strcpy", "memcpy"}

# The texts of the diagnostic report and the functions whose fixed lists they come from.
REPORT_LABELS = {
    "sourceLabel": {"protectedSourceLabel"},
    "statusLabel": {"statusLabel", "currentStatusLabel"},
    "backendLabel": {"reportBackendLabel"},
}
EVENT = r"EventCode :: k\w+"
EVENT_ARGUMENT = re.compile(rf"(.+ \? )?{EVENT}( : {EVENT})?|code")
PRINTED_TEXT = re.compile(r"eventText \( fields \. code \) \. data \( \)|figures \. \w+Label \. data \( \)")
# Words of a name that a logged number must not be computed from.
PRIVATE_WORDS = {"url", "address", "host", "ip", "user", "password", "path", "folder", "secret", "text", "name"}
PRIVATE_WORDS |= {"hash", "fnv", "sha"}
TEXT_MEMBERS = {"view", "c_str", "data", "size", "length", "front", "back", "begin"}

CONVERSION = re.compile(
    r"%[-+ #0]*(?P<width>\*|\d*)(?:\.(?P<precision>\*|\d*))?[a-zI]*?(?P<kind>[diouxXeEfgGaAcCsSpnZ%])"
)

Finding = tuple[int, str]  # line, message


def spelled(tokens: list[Token]) -> str:
    return " ".join(token.text for token in tokens)


def is_sign(token: Token, text: str) -> bool:
    return token.kind == "sign" and token.text == text


def event_codes(_path: str, tokens: list[Token]) -> Iterator[Finding]:
    """An event code is one of the list: never made of a number, never under another name."""
    around = [Token("sign", "", 0)] * 2
    padded = around + tokens + around
    for before, previous, token, following in zip(padded, padded[1:], padded[2:], padded[3:]):
        if token.text != "EventCode":
            continue
        cast = before.text.endswith("_cast") and previous.text == "<"
        if cast or following.text in ("(", "{") or (previous.text == "(" and following.text == ")"):
            yield token.line, "an event code is made of something else"
        if previous.text == "=" and following.text == ";":
            yield token.line, "EventCode gets another name"


def log_calls(_path: str, tokens: list[Token]) -> Iterator[Finding]:
    """What is handed to the log: a code of the list, and a number that says nothing of a secret."""
    for at, token in enumerate(tokens[:-1]):
        if token.kind != "word" or not is_sign(tokens[at + 1], "("):
            continue
        before = ["", ""] + [part.text for part in tokens[max(at - 2, 0) : at]]
        of_a_log = re.fullmatch(r"(event)?log_?", before[-2], re.I) and before[-1] in (".", "->")
        writes = token.text == "write" and of_a_log
        hands_on = re.fullmatch(r"log([A-Z]\w*)?", token.text) and not re.fullmatch(r"\w+", before[-1])
        if not writes and not hands_on:
            continue
        arguments = arguments_of(tokens, at + 1)
        if not arguments or not EVENT_ARGUMENT.fullmatch(spelled(arguments[0])):
            yield token.line, "what is logged is not a code of EventCode, written out"
        for part in (part for argument in arguments for part in argument):
            words = re.findall(r"[A-Z]?[a-z]+|[A-Z]+(?![a-z])|\d+", part.text)
            if part.kind in ("string", "char"):
                yield part.line, "a text is handed to the log"
            elif part.text in TEXT_MEMBERS or PRIVATE_WORDS & {word.lower() for word in words}:
                yield part.line, f"a logged number comes from what may be a secret: {part.text}"


def formats(_path: str, tokens: list[Token]) -> Iterator[Finding]:
    """Formats are literals, and the texts that they print are constants or labels of a fixed list."""
    for at, token in enumerate(tokens[:-1]):
        if token.text not in FORMATTERS or not is_sign(tokens[at + 1], "("):
            continue
        arguments = arguments_of(tokens, at + 1)
        # A macro between the literals is a constant text without conversions: the version.
        if len(arguments) < 3 or not all(part.kind == "string" or part.text.isupper() for part in arguments[2]):
            yield token.line, "the format is not a literal"
            continue
        values = iter(arguments[3:])
        text = "".join(string_content(part) for part in arguments[2] if part.kind == "string")
        for conversion in CONVERSION.finditer(text):
            if conversion["kind"] == "%":
                continue
            for star in (conversion["width"], conversion["precision"]):
                if star == "*":
                    next(values, [])
            value = next(values, [])
            constant = value and all(part.kind == "string" for part in value_choices(value))
            if conversion["kind"] in "sSZcC" and not constant and not PRINTED_TEXT.fullmatch(spelled(value)):
                yield token.line, f"{conversion[0]} prints what is no constant: {spelled(value)}"


def value_choices(value: list[Token]) -> list[Token]:
    """What an argument can be: itself, or both sides of a condition."""
    for at, token in enumerate(value):
        if is_sign(token, "?"):
            return [part for part in value[at + 1 :] if not is_sign(part, ":")]
    return value


def report_labels(path: str, tokens: list[Token]) -> Iterator[Finding]:
    """The texts of the report come from functions that choose among constants."""
    for at in range(1, len(tokens) - 2):
        token, following = tokens[at], tokens[at + 1]
        if token.text in REPORT_LABELS and is_sign(tokens[at - 1], ".") and is_sign(following, "="):
            if tokens[at + 2].text not in REPORT_LABELS[token.text]:
                yield token.line, f"{token.text} does not come from {' or '.join(sorted(REPORT_LABELS[token.text]))}"
        if token.text == "DiagnosticFigures" and tokens[at - 1].text != "struct":
            braces = at + 1 if is_sign(following, "{") else at + 2
            if braces + 1 < len(tokens) and is_sign(tokens[braces], "{") and tokens[braces + 1].text not in "}.":
                yield token.line, "figures of the report are filled in without naming them"


def made_texts(path: str, tokens: list[Token]) -> Iterator[Finding]:
    if LOG_MAKERS.fullmatch(path):
        for token in tokens:
            if token.text in TEXT_MAKERS and token.kind != "string":
                yield token.line, f"a log line is put together: {token.text}"


def allowed_places(path: str, tokens: list[Token]) -> Iterator[Finding]:
    """Calls that have one place, or none."""
    places = CLOSERS if path.startswith("tools/") else {**WAYS_OUT, **FORMATTERS, **CLOSERS}
    for at, token in enumerate(tokens):
        if token.kind == "word" and path not in places.get(token.text, (path,)):
            where = ", ".join(places[token.text]) or "nowhere"
            yield token.line, f"{token.text} belongs here: {where}"
        if token.text == "format" and at >= 2 and tokens[at - 2].text == "std":
            yield token.line, "std::format belongs here: nowhere"
        if token.text == "goto":
            yield token.line, "goto"


def rooms(path: str, source: str) -> Iterator[Finding]:
    """Includes point down; the log knows nothing that holds a secret."""
    parts = pathlib.PurePosixPath(path).parts
    if parts[0] != "src" or len(parts) < 3 or parts[1] not in ROOMS:
        return
    for number, line in enumerate(source.splitlines(), 1):
        included = re.match(r'\s*#\s*include\s+"((\w+)/[^"]+)"', line)
        if not included:
            continue
        if included[2] not in ROOMS[parts[1]]:
            yield number, f"{parts[1]} includes {included[1]}, which lies above it"
        if parts[1] == "diag" and included[1] == "base/secret.h":
            yield number, "the log and the report know of secrets"


def length(_path: str, source: str) -> Iterator[Finding]:
    lines = source.count("\n")
    if lines > MAX_LINES:
        yield lines, f"{lines} lines are more than {MAX_LINES}"


INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]*(?:"(?P<ours>[^"]+)"|<(?P<system>[^>]+)>)', re.M)

# What the C runtime of Windows has more than the standard, in the standard's own headers.
WINDOWS_RUNTIME = re.compile(r"\b_w[a-z]+\(")


def knows_windows(path: str, files: dict[str, str], known: dict[str, bool]) -> bool:
    """Whether a file of src/ includes a header of Windows, itself or through others; the standard's have no suffix."""
    if path not in known:
        known[path] = False  # while it is looked at
        known[path] = bool(WINDOWS_RUNTIME.search(files[path])) or any(
            included["system"].endswith(".h")
            if included["system"]
            else f"src/{included['ours']}" in files and knows_windows(f"src/{included['ours']}", files, known)
            for included in INCLUDE.finditer(files[path])
        )
    return known[path]


def windows_names(files: dict[str, str]) -> Iterator[tuple[str, str]]:
    """A file's name says whether Windows is in it. main.cpp is the program for Windows, whatever it is called."""
    known: dict[str, bool] = {}
    for path in files:
        if not re.fullmatch(r"src/.+\.(h|cpp)", path) or path == "src/main.cpp":
            continue
        named = pathlib.PurePosixPath(path).stem.endswith("_win")
        if knows_windows(path, files, known) and not named:
            yield path, "needs Windows, itself or through what it includes: it is called *_win"
        elif named and not known[path]:
            yield path, "needs nothing of Windows: it is not called *_win"


def test_names(files: dict[str, str]) -> Iterator[tuple[str, str]]:
    """tests/unit/ROOM/STEM[_TOPIC][_win]_test.cpp tests STEM[_win] of src/ROOM, or of a folder of tools/."""
    tested: dict[str, set[str]] = {}
    for path in files:
        if source := re.fullmatch(r"(?:src/(\w+)|(tools)/\w+)/(\w+)\.(h|cpp|rc)", path):
            stem = source[3] + ("_win" if source[4] == "rc" else "")
            tested.setdefault(source[1] or source[2], set()).add(stem)
    for path in files:
        test = re.fullmatch(r"tests/unit/(\w+)/(\w+?)(_win)?_test\.cpp", path)
        if not test:
            continue
        room, name, suffix = test[1], test[2], test[3] or ""
        words = name.split("_")
        stems = {"_".join(words[:count]) + suffix for count in range(1, len(words) + 1)}
        if not stems & tested.get(room, set()):
            yield path, f"is called after no file of {room}{' that ends in _win' if suffix else ''}"


def built_tests(files: dict[str, str]) -> Iterator[tuple[str, str]]:
    """A test that no list names is never built, and so never fails."""
    lists = "".join(source for path, source in files.items() if re.fullmatch(r"tests/(\w+/)?CMakeLists\.txt", path))
    for path in files:
        test = re.fullmatch(r"tests/(.+_test\.cpp|fuzz/(\w+)_fuzz\.cpp)", path)
        if not lists or not test:
            continue
        if (f"vextra_fuzz_target({test[2]})" if test[2] else test[1]) not in lists:
            yield path, "no CMakeLists.txt of the tests names it: it is never built"


TREE_RULES = [windows_names, test_names, built_tests]
TOKEN_RULES = [event_codes, log_calls, formats, report_labels, made_texts, allowed_places]


def findings(path: str, source: str) -> list[Finding]:
    """All of one file, whose `path` is relative to the root and decides which rules hold."""
    found = list(length(path, source))
    if path.startswith(("src/", "tools/")) and path.endswith((".h", ".cpp")):
        tokens = tokens_of(source)
        found += rooms(path, source)
        for rule in TOKEN_RULES:
            found += rule(path, tokens)
    return sorted(found)


def tree_findings(files: dict[str, str]) -> list[tuple[str, str]]:
    """What the files, each a path and its source, say together."""
    return sorted(finding for rule in TREE_RULES for finding in rule(files))


def files_of(root: pathlib.Path) -> list[pathlib.Path]:
    suffixes = {".h", ".cpp", ".rc", ".py", ".sh"}
    files = [root / "dev"]
    for folder in ("src", "tests", "tools", "packaging"):
        files += [path for path in (root / folder).rglob("*") if path.suffix in suffixes or path.name == "CMakeLists.txt"]
    return sorted(files)


def main() -> int:
    root = pathlib.Path(sys.argv[1]) if len(sys.argv) > 1 else pathlib.Path(__file__).resolve().parents[2]
    files = {path.relative_to(root).as_posix(): path.read_text(encoding="utf-8") for path in files_of(root)}
    found = [f"{path}:{line}: {message}" for path in files for line, message in findings(path, files[path])]
    found += [f"{path}: {message}" for path, message in tree_findings(files)]
    for finding in found:
        print(finding)
    print(f"{len(files)} files, {len(found)} findings")
    return 1 if found or len(files) < 2 else 0


if __name__ == "__main__":
    sys.exit(main())
