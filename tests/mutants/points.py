# SPDX-License-Identifier: Apache-2.0
"""The places in a C++ source where one change makes a mutant, and the changes: conditions and operators, numbers,
statuses and log levels, and a letter of each message. `run` beside this builds and judges them."""

import dataclasses
import re

TOKEN = re.compile(
    r"""
    (?P<comment>//[^\n]*|/\*.*?\*/)
  | (?P<directive>^[ \t]*\#(?:[^\n\\]|\\.)*)            # with its continued lines
  | (?P<static_assert>\bstatic_assert\s*\(.*?\)\s*;)
  | (?P<pragma_string>\bextern\s+"C")
  | (?P<string>"(?:[^"\\\n]|\\.)*")
  | (?P<character>'(?:[^'\\\n]|\\.)')
  | (?P<number>\b\d[\w']*\b(?!\.))
  | (?P<word>[A-Za-z_]\w*)
  | (?P<operator>->|\+\+|--|<<=|>>=|<=|>=|==|!=|&&|\|\||[-+*/%&|^]=|<<|>>|::|[-+*/%&|^<>!=?:])
    """,
    re.VERBOSE | re.DOTALL | re.MULTILINE,
)

# Binary operators, which the formatter surrounds with blanks; templates, references and signs have none.
BINARY = {
    "==": "!=", "!=": "==", "<": "<=", "<=": "<", ">": ">=", ">=": ">", "&&": "||", "||": "&&",
    "+": "-", "-": "+", "*": "+", "/": "*", "%": "/", "&": "|", "|": "&", "<<": ">>", ">>": "<<",
    "+=": "-=", "-=": "+=", "|=": "&=", "&=": "|=",
}  # fmt: skip
WORDS = {
    "true": "false",
    "false": "true",
    "YB_LEVEL_ERROR": "YB_LEVEL_WARN",
    "YB_LEVEL_WARN": "YB_LEVEL_ERROR",
    "YB_LEVEL_DEBUG": "YB_LEVEL_INFO",
    "YB_LEVEL_INFO": "YB_LEVEL_DEBUG",
}


@dataclasses.dataclass(frozen=True)
class Point:
    path: str
    start: int  # in characters
    end: int
    line: int
    column: int
    kind: str  # condition, constant, message
    text: str
    replacement: str
    whole_line: str

    @property
    def name(self):
        return f"{self.path}:{self.line}:{self.column}"

    def change(self):
        return f"{self.text} -> {self.replacement}"

    def apply_to(self, source):
        return source[: self.start] + self.replacement + source[self.end :]


def next_number(text):
    """The number and one more, in the way it was written; None for what is no plain integer."""
    match = re.fullmatch(r"(0[xX][0-9a-fA-F']+|\d[\d']*)([uUlL]*)", text)
    if match is None:
        return None
    digits = match[1].replace("'", "")
    if digits[:2] in ("0x", "0X"):
        return f"{int(digits, 16) + 1:#x}{match[2]}"
    if len(digits) > 1 and digits[0] == "0":
        return f"0{int(digits, 8) + 1:o}{match[2]}"
    return f"{int(digits) + 1}{match[2]}"


def other_letter(text):
    """The string with its middle letter another one: not a conversion's, not an escape's. None without letters."""
    inner = [
        match.start()
        for match in re.finditer(r"%[-+ #0-9.*]*[hlzjt]*[a-zA-Z%]|\\.|([A-Za-z])", text)
        if match[1] is not None
    ]
    if not inner:
        return None
    at = inner[len(inner) // 2]
    letter = text[at]
    changed = {"z": "y", "Z": "Y"}.get(letter, chr(ord(letter) + 1))
    return text[:at] + changed + text[at + 1 :]


def is_hint(text, before, after):
    """Whether a word says something to the compiler alone: that an exchange is no weak one, which is the same
    instruction on this processor, and what __builtin_expect() expects."""
    if text not in ("true", "false"):
        return False
    return re.match(r",\s*__ATOMIC_", after) is not None or (after[:1] == ")" and "__builtin_expect(" in before)


def change_of(kind, text, before, after):
    """(kind of mutant, replacement), or None."""
    if kind == "string":
        changed = other_letter(text)
        return changed and ("message", changed)
    if kind == "number":
        changed = next_number(text)
        return changed and ("constant", changed)
    if kind == "word":
        if text in WORDS:
            return "constant", WORDS[text]
        if text == "YB_STATUS_SUCCESS":
            return "constant", "YB_STATUS_ERROR"
        if re.fullmatch(r"YB_STATUS_[A-Z_]+", text):
            return "constant", "YB_STATUS_SUCCESS"
        return None
    if kind == "operator":
        if text == "!":
            return "condition", ""
        if text in BINARY and before == " " and after == " ":
            return "condition", BINARY[text]
    return None


def points_of(path, source):
    """All mutants of one source, in the order of their places."""
    found = []
    for match in TOKEN.finditer(source):
        start, end = match.span()
        before = source[start - 1 : start]
        after = source[end : end + 1]
        changed = change_of(match.lastgroup, match[0], before, after if after != "\n" else " ")
        if changed is None:
            continue
        line_start = source.rfind("\n", 0, start) + 1
        line_end = source.find("\n", end)
        if is_hint(match[0], source[line_start:start], source[end : end + 200]):
            continue
        found.append(
            Point(
                path=path,
                start=start,
                end=end,
                line=source.count("\n", 0, start) + 1,
                column=start - line_start + 1,
                kind=changed[0],
                text=match[0],
                replacement=changed[1],
                whole_line=source[line_start:line_end].strip(),
            )
        )
    return found
