# SPDX-License-Identifier: Apache-2.0
"""The public headers, read as documentation.

A header is its file comment and a list of sections; a section is a title, an introduction and groups of
declarations that share a comment. Both the manual pages (pages.py) and the reference's filter
(../reference/filter.py) are made from this, so that the headers stay the only source. What a comment's text means
is comments.py's.
"""
import re
from dataclasses import dataclass, field

SECTION = re.compile(r"^/\* -{3,} (?P<title>.*?) -+ \*/$")
SKIPPED_DIRECTIVES = re.compile(r"^#\s*(if|ifdef|ifndef|elif|else|endif|include|undef|error|pragma)\b")
GUARD = re.compile(r"^#define YBNET_\w+_H$")
NOT_DECLARATIONS = re.compile(r"^(YB_ASSERT_\w+|YB_STATIC_ASSERT)\(|^extern \"C\"|^}$")


@dataclass
class Group:
    """Declarations under one comment; text is "" when there is none."""

    text: str
    declarations: list[str] = field(default_factory=list)

    def names(self):
        return [name for declaration in self.declarations for name in declared_names(declaration)]


@dataclass
class Section:
    title: str  # "" for what stands before a header's first section line
    introduction: list[str] = field(default_factory=list)  # comments that no declaration follows at once
    groups: list[Group] = field(default_factory=list)

    def functions(self):
        return [d for group in self.groups for d in group.declarations if is_function(d)]

    def names(self):
        return [name for group in self.groups for name in group.names()]


@dataclass
class Header:
    name: str  # as it is included, "ybnet/net_lib.h"
    text: str  # the file comment
    sections: list[Section]


def is_function(declaration):
    return re.match(r"^(typedef|extern|enum|#)\b|^#", declaration) is None and "(" in declaration.split("{")[0]


def declared_names(declaration):
    """What a declaration brings into scope: enumerators and fields are parts of one, not names of their own."""
    if match := re.match(r"#define (\w+)", declaration):
        return [match[1]]
    if match := re.match(r"typedef [^({]*\(\*(\w+)\)", declaration):
        return [match[1]]
    if re.match(r"enum \{", declaration):
        return []
    if match := re.search(r"^typedef\b.*?(\w+)\s*;$", declaration, re.S):
        return [match[1]]
    if is_function(declaration):
        return [re.search(r"(\w+)\(", declaration)[1]]
    return [re.search(r"(\w+)\s*;$", declaration)[1]]


def parameters(declaration):
    """The names of a function's parameters, in order."""
    return [name for _, name in typed_parameters(declaration)]


def typed_parameters(declaration):
    inside = re.sub(r"\s+", " ", re.search(r"\w\(([^()]*)\)", declaration)[1]).strip()
    if inside == "void":
        return []
    return [("", part) if part == "..." else re.match(r"(.*?)(\w+)$", part).groups() for part in inside.split(", ")]


def without_frame(comment):
    """A comment's text, without its stars."""
    body = comment.strip()[2:-2]
    lines = [re.sub(r"^\s*\*( |$)", "", line) for line in body.split("\n")]
    if len(lines) == 1:
        return lines[0].strip()
    lines[0] = lines[0].strip()
    return "\n".join(lines).strip("\n").rstrip()


def is_complete(text):
    """Whether a declaration that begins like this also ends here."""
    code = re.sub(r"/\*.*?(\*/|$)", "", text, flags=re.S).strip()
    if code in ('extern "C" {', "}"):
        return True
    return code.endswith(";") and all(code.count(a) == code.count(b) for a, b in ("{}", "()"))


class _Reader:
    def __init__(self, lines):
        self.lines = lines
        self.at = 0

    def take_comment(self):
        start = self.at
        while "*/" not in self.lines[self.at]:
            self.at += 1
        self.at += 1
        return "\n".join(self.lines[start : self.at])

    def take_directive(self):
        start = self.at
        while self.lines[self.at].endswith("\\"):
            self.at += 1
        self.at += 1
        return "\n".join(self.lines[start : self.at])

    def take_declaration(self):
        start = self.at
        while True:
            self.at += 1
            text = "\n".join(self.lines[start : self.at])
            if is_complete(text):
                return text


def read_header(path, name):
    with open(path, encoding="utf-8") as file:
        reader = _Reader(file.read().split("\n"))
    header = Header(name, "", [Section("")])
    pending = None  # a comment that a declaration may follow
    in_code = False  # past the include guard
    group = None

    def drop_pending():
        nonlocal pending
        if pending is not None and pending:
            header.sections[-1].introduction.append(pending)
        pending = None

    while reader.at < len(reader.lines):
        line = reader.lines[reader.at]
        if not line.strip():
            drop_pending()
            group = None
            reader.at += 1
        elif line.startswith("/*"):
            drop_pending()
            group = None
            comment = reader.take_comment()
            if section := SECTION.match(comment):
                header.sections.append(Section(section["title"]))
            elif "SPDX-License-Identifier" not in comment and not in_code:
                header.text = without_frame(comment)
            elif "SPDX-License-Identifier" not in comment:
                pending = without_frame(comment)
        else:
            if line.startswith("#"):
                code = reader.take_directive()
                in_code = in_code or GUARD.match(code) is not None
                if SKIPPED_DIRECTIVES.match(code) or GUARD.match(code):
                    continue
            else:
                code = reader.take_declaration()
                if NOT_DECLARATIONS.match(code) or re.match(r"struct \w+;", code):
                    drop_pending()
                    continue
            if group is None:
                group = Group(pending or "")
                header.sections[-1].groups.append(group)
                pending = None
            group.declarations.append(code)
    drop_pending()
    return header


@dataclass
class Member:
    """A field or enumerator that has a comment."""

    name: str
    text: str


MEMBER_LINE = re.compile(
    r"^\s+(?:[\w\s\*]*?[\s\*]|} )?(?P<name>\w+)(?:\[[^\]]*\])*(?: = \w+)?[;,]?\s*/\* (?P<text>.*?) ?\*/$"
)


def members(declaration):
    """The commented parts of a structure, union or enumeration."""
    joined = re.sub(r"=\n\s+", "= ", declaration)
    return [Member(m["name"], m["text"]) for m in map(MEMBER_LINE.match, joined.split("\n")) if m]


def bare_code(declaration):
    """A declaration without its comments."""
    joined = re.sub(r"=\n\s+", "= ", declaration)
    lines = [re.sub(r"\s*/\*.*?\*/", "", line, flags=re.S) for line in joined.split("\n")]
    return "\n".join(line for line, was in zip(lines, joined.split("\n")) if line.strip() or not was.strip())
