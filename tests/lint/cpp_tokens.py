"""C++ cut into tokens, as far as the checks of this folder need it: no preprocessor, no types."""
import re
from typing import NamedTuple

_TOKEN = re.compile(
    r"""
    (?P<space>\s+|//(?:\\\n|[^\n])*|/\*.*?\*/)
    | (?P<string>(?:u8|[LuU])?R"(?P<mark>[^()\\\s]{0,16})\(.*?\)(?P=mark)" | (?:u8|[LuU])?"(?:\\.|[^"\\\n])*")
    | (?P<char>(?:u8|[LuU])?'(?:\\.|[^'\\\n])+')
    | (?P<number>\.?\d(?:[eEpP][+-]|'\w|[\w.])*)
    | (?P<word>[A-Za-z_]\w*)
    | (?P<sign>->|::|<<=|>>=|<=>|<<|\+=|&&|\|\||.)
    """,
    re.VERBOSE | re.DOTALL,
)

_PAIRS = {"(": ")", "{": "}", "[": "]"}


class Token(NamedTuple):
    kind: str  # string, char, number, word or sign
    text: str
    line: int


def tokens_of(source: str) -> list[Token]:
    tokens = []
    line = 1
    for match in _TOKEN.finditer(source):
        if match.lastgroup and (kind := _kind(match)) != "space":
            tokens.append(Token(kind, match[0], line))
        line += match[0].count("\n")
    return tokens


def _kind(match: re.Match) -> str:
    return next(kind for kind in ("space", "string", "char", "number", "word", "sign") if match[kind] is not None)


def string_content(token: Token) -> str:
    """What stands between the quotes, escapes as they are written."""
    text = token.text[token.text.index('"') + 1 : -1]
    return text[text.index("(") + 1 : text.rindex(")")] if 'R"' in token.text[:4] else text


def arguments_of(tokens: list[Token], opening: int) -> list[list[Token]]:
    """The arguments between the bracket at `opening` and the one that closes it; angle brackets count for nothing."""
    arguments: list[list[Token]] = [[]]
    depth = 0
    for token in tokens[opening:]:
        if token.kind == "sign" and token.text in _PAIRS:
            depth += 1
            if depth == 1:
                continue
        if token.kind == "sign" and token.text in _PAIRS.values():
            depth -= 1
            if depth == 0:
                break
        if depth == 1 and token.text == "," and token.kind == "sign":
            arguments.append([])
        else:
            arguments[-1].append(token)
    return arguments if arguments != [[]] else []
