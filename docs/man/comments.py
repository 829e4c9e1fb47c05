# SPDX-License-Identifier: Apache-2.0
"""What the text of a header's comment is made of.

The comments keep to a few forms, which read well as they stand: paragraphs; a line of its own as a heading; lists
behind "-" or "1."; tables of a term, two spaces and its text; and anything else that is indented, to be shown as it
is. parse() tells them apart. headers.py finds the comments; mdoc.py and ../reference/filter.py write them out.
"""
import re
from dataclasses import dataclass

ITEM = re.compile(r"^(?P<indent> *)(?P<marker>-|\d+\.) +(?=\S)")
HEADING = re.compile(r"^(?!Returns)[A-Z][\w ]{3,40}$")


@dataclass
class Paragraph:
    text: str


@dataclass
class Heading:
    text: str


@dataclass
class Literal:
    text: str


@dataclass
class Items:
    ordered: bool
    items: list  # lists of blocks


@dataclass
class Terms:
    terms: list  # (term, blocks)
    are_parameters: bool = False


def indent_of(line):
    return len(line) - len(line.lstrip(" "))


def parse(text):
    blocks = []
    lines = text.split("\n")
    at = 0
    while at < len(lines):
        start = at
        if not lines[at].strip():
            at += 1
        elif indent_of(lines[at]) == 0 and not ITEM.match(lines[at]):
            while at < len(lines) and lines[at].strip() and indent_of(lines[at]) == 0:
                at += 1
            paragraph = "\n".join(lines[start:at])
            blocks.append(Heading(paragraph) if HEADING.match(paragraph) else Paragraph(paragraph))
        else:
            while at < len(lines) and (indent_of(lines[at]) > 0 or not lines[at].strip() or at == start):
                at += 1
                if not ITEM.match(lines[start]) and not lines[at - 1].strip() and _starts_item(lines, at):
                    break  # a list behind something else that is indented
            blocks += _parse_indented("\n".join(lines[start:at]).rstrip())
    return blocks


def _starts_item(lines, at):
    return at < len(lines) and ITEM.match(lines[at]) is not None


def _parse_indented(text):
    lines = text.split("\n")
    if ITEM.match(lines[0]):
        return [_parse_items(lines)]
    filled = [line for line in lines if line.strip()]
    base = min(map(indent_of, filled))
    tops = [line[base:] for line in filled if indent_of(line) == base]
    if all(_is_term(top) for top in tops) and any("  " in top for top in tops):
        return [_parse_terms([line[base:] for line in lines])]
    return [Literal("\n".join(line[base:] for line in lines))]


def _is_term(line):
    columns = re.split(r" {2,}", line)
    return len(columns) <= 2 and not re.search(r"[;{}|&=]", columns[0])  # these are code's and drawings'


def _parse_items(lines):
    first = ITEM.match(lines[0])
    items = []
    for line in lines:
        match = ITEM.match(line)
        if match and match["indent"] == first["indent"]:
            items.append([line[match.end() :]])
        else:
            items[-1].append(line[len(first[0]) :] if line.strip() else "")
    return Items(first["marker"] != "-", [parse("\n".join(item)) for item in items])


def _parse_terms(lines):
    terms = []
    for line in lines:
        if not line.strip():
            continue
        if indent_of(line) > 0:
            terms[-1][1].append(line.strip())
            continue
        columns = re.split(r" {2,}", line, maxsplit=1)
        if terms and terms[-1][0].endswith(","):
            terms[-1] = (terms[-1][0] + " " + columns[0], columns[1:])
        else:
            terms.append((columns[0], columns[1:]))
    return Terms([(term, [Paragraph("\n".join(text))] if text else []) for term, text in terms])


# ---- What belongs to a function's comment -------------------------------------


def split_returns(blocks):
    """The blocks of a function's comment without and with what it says about its result."""
    rest, returns = [], []
    taking_table = False
    for block in blocks:
        if isinstance(block, Paragraph):
            match = re.search(r"(?:^|(?<=[.:)]\s))Returns\b", block.text)
            taking_table = match is not None and block.text[match.end() :].count(".") == 0
            if match:
                before = block.text[: match.start()].rstrip()
                if before:
                    rest.append(Paragraph(before))
                after = block.text[match.start() :]
                returns.append(Paragraph(after + (":" if taking_table and not after.endswith((".", ":")) else "")))
            else:
                rest.append(block)
        elif isinstance(block, Terms) and taking_table:
            returns.append(block)
        else:
            rest.append(block)
    return rest, returns


def mark_parameters(blocks, names):
    """Turns "name: text" of parameters into lists of terms."""
    if not names:
        return blocks
    one = "|".join(sorted(map(re.escape, set(names)), key=len, reverse=True))
    start = re.compile(rf"(?:^|(?<=[.;)]\s))((?:{one})(?:, (?:{one}))*):(?=\s|$)")
    result = []
    for block in blocks:
        if not isinstance(block, Paragraph):
            if isinstance(block, Terms) and result and isinstance(result[-1], Terms) and result[-1].are_parameters:
                if not result[-1].terms[-1][1]:
                    result[-1].terms[-1][1].append(block)
                    continue
            result.append(block)
            continue
        pieces = start.split(block.text)
        if pieces[0].strip():
            result.append(Paragraph(pieces[0].rstrip()))
        for term, text in zip(pieces[1::2], pieces[2::2]):
            if not (result and isinstance(result[-1], Terms) and result[-1].are_parameters):
                result.append(Terms([], True))
            result[-1].terms.append((term, [Paragraph(text.strip())] if text.strip() else []))
    return result
