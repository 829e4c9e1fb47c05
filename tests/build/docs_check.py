#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""What the pages for people say, held to what is there. Called by docs_test.sh, tutorial_test.sh and demo_test.sh.

usage: docs_check.py links DIR              every relative link of the *.md files under DIR leads somewhere
       docs_check.py blocks SOURCE_DIR      code blocks marked with a file are that file
       docs_check.py messages SOURCE_DIR    messages shown as logged are ones that the library can log
       docs_check.py output SOURCE_DIR NAME the marked transcript NAME of the tutorial, without its command
       docs_check.py transcript README FILE each command of the README's transcript printed the same in FILE, a demo's
       docs_check.py client SOURCE_DIR      the README's piece of C as a whole program
"""
import re
import sys
from pathlib import Path

MARKED = re.compile(r"<!-- (?P<kind>file|output): (?P<name>\S+) -->\n```\w*\n(?P<text>.*?)^```$", re.S | re.M)
FENCED = re.compile(r"^```.*?^```$", re.S | re.M)


def slugs(page):
    """The anchors that a page's headings make."""
    headings = re.findall(r"^#+ (.*)$", FENCED.sub("", page.read_text(encoding="utf-8")), re.M)
    return {re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-") for heading in headings}


def check_links(top):
    count = 0
    skipped = ("build", ".", "_", "obj-")
    pages = [p for p in sorted(top.rglob("*.md")) if not p.relative_to(top).parts[0].startswith(skipped)]
    for page in pages:
        text = FENCED.sub("", page.read_text(encoding="utf-8"))
        for target in re.findall(r"\]\(([^)\s]+)\)", text):
            if re.match(r"\w+:", target):
                continue
            count += 1
            path, _, anchor = target.partition("#")
            leads_to = (page.parent / path) if path else page
            if not leads_to.exists():
                yield f"{page}: {target}: no such file"
            elif anchor and anchor not in slugs(leads_to):
                yield f"{page}: {target}: no such heading"
    if count < 10:
        yield f"{top}: only {count} links found"


def check_blocks(source):
    count = 0
    for page in sorted((source / "docs").glob("*.md")):
        for block in MARKED.finditer(page.read_text(encoding="utf-8")):
            if block["kind"] != "file":
                continue
            count += 1
            if block["text"] != (page.parent / block["name"]).read_text(encoding="utf-8"):
                yield f"{page}: the block is not {block['name']}"
    if count < 3:
        yield f"only {count} marked code blocks found"


def formats(source):
    """Every format of a message in the library's sources, as a pattern that its lines match."""
    strings = re.compile(r'(?:"(?:[^"\\\n]|\\.)*"\s*)+')
    for path in sorted([*source.glob("net_lib/**/*.cc"), *source.glob("net_lib_db/**/*.cc")]):
        text = path.read_text(encoding="utf-8")
        text = text.replace('function ": Command', '"yb_net_vlan_if_add: Command')  # the one that a macro puts together
        for match in strings.finditer(text):
            whole = "".join(re.findall(r'"((?:[^"\\\n]|\\.)*)"', match[0]))
            whole = whole.replace("\\n", "").replace('\\"', '"').strip()
            if " " in whole:
                yield re.compile(re.sub(r"%(\\\.\\\*)?[a-z]+", ".+", re.escape(whole)))


def check_messages(source):
    known = list(formats(source))
    page = source / "docs" / "operating.md"
    lines = [
        line
        for block in re.findall(r"^```log\n(.*?)^```$", page.read_text(encoding="utf-8"), re.S | re.M)
        for line in block.splitlines()
    ]
    for line in lines:
        if not any(pattern.fullmatch(line) for pattern in known):
            yield f"{page}: nothing logs: {line}"
    if len(lines) < 15:
        yield f"{page}: only {len(lines)} messages found"


def commands(lines):
    """Each command of a transcript with what it printed, each time; the kernel makes up the hardware addresses."""
    found = {}
    printed = None
    for line in lines:
        if line.startswith("$ "):
            printed = []
            found.setdefault(line, []).append(printed)
        elif not line.strip():
            printed = None
        elif printed is not None:
            printed.append(re.sub(r"([0-9a-f]{2}:){5}[0-9a-f]{2}", "MAC", line.rstrip()))
    return found


def check_transcript(readme, demo):
    played = commands(demo.read_text(encoding="utf-8").splitlines())
    shown = commands(re.search(r"^```\n(\$ .*?)^```$", readme.read_text(encoding="utf-8"), re.S | re.M)[1].splitlines())
    for command, printed in shown.items():
        if command not in played:
            yield f"{readme}: the demo does not run: {command}"
        elif not all(each in played[command] for each in printed):
            yield "\n".join([f"{readme}: the demo's {command} printed:", *played[command][0]])


def client(source):
    """The statements of the README's block stand in main(), the inclusions before it."""
    block = re.search(r"^```c\n(.*?)^```$", (source / "README.md").read_text(encoding="utf-8"), re.S | re.M)[1]
    included = [line for line in block.splitlines() if line.startswith("#include")]
    body = [line for line in block.splitlines() if not line.startswith("#include")]
    return "\n".join(["#include <stdio.h>", *included, "int main(void) {", *body, "return 0;", "}"])


def main(what, *arguments):
    if what == "client":
        print(client(Path(*arguments)))
        return 0
    if what == "output":
        source, name = arguments
        text = Path(source, "docs", "tutorial.md").read_text(encoding="utf-8")
        block = next(b for b in MARKED.finditer(text) if b["kind"] == "output" and b["name"] == name)
        print("\n".join(line for line in block["text"].splitlines() if not line.startswith("$ ")))
        return 0
    checks = {
        "links": check_links,
        "blocks": check_blocks,
        "messages": check_messages,
        "transcript": check_transcript,
    }
    problems = list(checks[what](*(Path(argument).resolve() for argument in arguments)))
    print("\n".join(problems), end="\n" if problems else "")
    return 1 if problems else 0


if __name__ == "__main__":
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    sys.exit(main(*sys.argv[1:]))
