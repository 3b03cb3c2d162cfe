"""One-place changes of a C++ source, each a fault that somebody could have written.

Found on the text: what lies in comments, strings, preprocessor lines, log calls and static assertions is left alone.
A change that does not compile is no mutant; whoever builds it finds out.
"""

import re
from dataclasses import dataclass

OTHER_OPERATOR = {
    "==": "!=", "!=": "==", "<": "<=", "<=": "<", ">": ">=", ">=": ">", "&&": "||", "||": "&&", "+": "-", "-": "+",
    "*": "/", "/": "*", "%": "*", "&": "|", "|": "&", "<<": ">>", ">>": "<<", "+=": "-=", "-=": "+=", "|=": "&=",
}
HIDDEN = re.compile(
    r"""//[^\n]* | /\*.*?\*/ | ^[ ]*\#[^\n]*(?:\\\n[^\n]*)* | "(?:\\.|[^"\\\n])*" | '(?:\\.|[^'\\\n])+'
    | \b(?:LOG_\w+|static_assert|RECORD_LAYOUT|assert)\((?:[^()]|\((?:[^()]|\([^()]*\))*\))*\) """,
    re.VERBOSE | re.DOTALL | re.MULTILINE)

OPERATOR = re.compile(r"(?<= )(" + "|".join(map(re.escape, sorted(OTHER_OPERATOR, key=len, reverse=True))) + r")(?= )")
INCREMENT = re.compile(r"\+\+|--")
CONSTANT = re.compile(r"(?<![\w.'])(0x[0-9A-Fa-f]+|0|[1-9]\d*)(?=[uUlL]*\b(?![.']))")
CONDITION = re.compile(r"\bif \(")
STATEMENT = re.compile(r"(?<=[;{}:)]\n)( +)(?!return|break|continue|goto|using|case|delete)"
                       r"(?:[\w.\[\]:>-]+\([^;{}]*\)|[\w.\[\]:>*-]+ [-+|&*]?= [^;{}]*|(?:\+\+|--)[\w.>-]+);(?=\n)")
ARGUMENTS = re.compile(r"(?<=[\w>]\()(?<!min\()(?<!max\()([\w.]+), ([\w.]+)(?=[,)])")


def one_line(text):
    return " ".join(text.split())


@dataclass(frozen=True)
class Mutant:
    path: str
    offset: int
    kind: str
    old: str
    new: str
    line: int
    source: str  # that line

    def __str__(self):
        return f"{self.path}:{self.line}: {self.kind}: {self.change()}   in: {self.source}"

    def change(self):
        return f"{one_line(self.old)} -> {one_line(self.new)}"

    def key(self):
        """What it is known by, wherever the line has moved to."""
        return f"{self.path} | {self.source} | {self.change()}"

    def apply(self, text):
        assert text.startswith(self.old, self.offset)
        return text[:self.offset] + self.new + text[self.offset + len(self.old):]


def hide(text):
    """The text with blanks where nothing is to be changed; offsets stay."""
    return HIDDEN.sub(lambda match: re.sub(r"[^\n]", " ", match[0]), text)


def matching_bracket(text, opening):
    depth = 0
    for place in range(opening, len(text)):
        depth += {"(": 1, ")": -1}.get(text[place], 0)
        if depth == 0:
            return place
    raise ValueError("no closing bracket")


def changes(code):
    """(offset, kind, old, new) of each change."""
    for match in OPERATOR.finditer(code):
        yield match.start(), "operator", match[0], OTHER_OPERATOR[match[0]]
    for match in INCREMENT.finditer(code):
        yield match.start(), "operator", match[0], "--" if match[0] == "++" else "++"
    for match in CONSTANT.finditer(code):
        value = int(match[0], 0 if match[0].startswith("0x") else 10)
        for other in (value + 1, value - 1):
            if other >= 0:
                yield match.start(), "constant", match[0], str(other)
    for match in CONDITION.finditer(code):
        end = matching_bracket(code, match.end() - 1)
        condition = code[match.end():end]
        if ";" not in condition:
            yield match.end(), "condition", condition, f"!({condition})"
    for match in STATEMENT.finditer(code):
        yield match.end(1), "statement", match[0][len(match[1]):], ";"
    for match in ARGUMENTS.finditer(code):
        if match[1] != match[2]:
            yield match.start(), "arguments", match[0], f"{match[2]}, {match[1]}"


def mutants_of(path, text):
    code = hide(text)
    lines = text.splitlines()
    for offset, kind, old, new in changes(code):
        if text.startswith(old, offset):  # not where it holds something hidden
            line = text.count("\n", 0, offset)
            yield Mutant(path, offset, kind, old, new, line + 1, lines[line].strip())
