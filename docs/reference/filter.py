#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""A public header as Doxygen wants it, on standard output: Doxygen's INPUT_FILTER.

usage: filter.py HEADER

The headers carry plain comments, for people. Here each becomes the documentation of every declaration that stands
under it, sections become groups of members, and what Doxygen could only stumble over (guards, layout assertions)
is left out. Parsing is ../man/headers.py's and ../man/comments.py's.
"""
import re
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "man"))
sys.dont_write_bytecode = True

import comments  # noqa: E402
import headers  # noqa: E402


def escaped(text):
    text = re.sub(r"([\\@%#&$])", r"\\\1", text)
    return text.replace("<", "\\<").replace(">", "\\>").replace('"', "&quot;")


def html(blocks):
    lines = []
    for block in blocks:
        if isinstance(block, comments.Paragraph):
            lines.append(f"<p>{escaped(block.text)}</p>")
        elif isinstance(block, comments.Heading):
            lines.append(f"<p><b>{escaped(block.text)}</b></p>")
        elif isinstance(block, comments.Literal):
            lines.append(f"@verbatim\n{block.text}\n@endverbatim")
        elif isinstance(block, comments.Items):
            tag = "ol" if block.ordered else "ul"
            lines.append(f"<{tag}>")
            lines += [f"<li>{html(item)}</li>" for item in block.items]
            lines.append(f"</{tag}>")
        elif isinstance(block, comments.Terms):
            lines.append("<dl>")
            for term, text in block.terms:
                style = "em" if block.are_parameters else "b"
                lines.append(f"<dt><{style}>{escaped(term)}</{style}></dt><dd>{html(text)}</dd>")
            lines.append("</dl>")
    return "\n".join(lines)


def documentation(text, parameters=()):
    return html(comments.mark_parameters(comments.parse(text), parameters))


def with_member_comments(declaration):
    """A structure or enumeration with its comments as Doxygen reads them."""
    joined = re.sub(r"=\n\s+", "= ", declaration)
    lines = []
    for line in joined.split("\n"):
        behind = re.match(r"^(.*\S)\s+/\* (.*?) ?\*/$", line)
        before = re.match(r"^(\s+)/\* (.*?) ?\*/$", line)
        if behind:
            lines.append(f"{behind[1]} /**< {escaped(behind[2])} */")
        elif before:
            lines.append(f"{before[1]}/** {escaped(before[2])} */")
        else:
            lines.append(line)
    return "\n".join(lines)


def group_lines(group):
    for declaration in group.declarations:
        if group.text:
            names = headers.parameters(declaration) if headers.is_function(declaration) else ()
            yield f"/**\n{documentation(group.text, names)}\n*/"
        yield with_member_comments(declaration)
        yield ""


def main(path):
    name = str(Path(path)).split("/include/")[-1]
    header = headers.read_header(path, name)
    print(f"/** @file {name}\n{documentation(header.text)}\n*/\n")
    for section in header.sections:
        in_group = section.title and section.groups
        introduction = "\n".join(map(documentation, section.introduction))
        if in_group:
            print(f"/** @name {section.title}\n{introduction}\n*/\n/** @{{ */\n")
        for group in section.groups:
            for line in group_lines(group):
                print(line)
        if in_group:
            print("/** @} */\n")


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    main(sys.argv[1])
