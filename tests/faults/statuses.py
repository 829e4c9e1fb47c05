#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Which statuses the headers' comments allow each function: DOCUMENTED(function, statuses), for faults_test.cc.

usage: statuses.py SOURCE_DIR TABLE

A function may return the statuses that its comment names, the one that its section's introduction says each function
returns, and those of the functions that its comment refers it to (referred_to() knows in which words).
"""
import pathlib
import re
import sys

TOP = pathlib.Path(sys.argv[1])
sys.dont_write_bytecode = True
sys.path.insert(0, str(TOP / "docs" / "man"))
import headers  # noqa: E402

STATUS = re.compile(r"\bYB_STATUS_\w+")
OF_EACH = re.compile(r"\b(?:each|[Ee]very function below)\s+returns\s+(YB_STATUS_\w+)")


class Documented:
    """One function: what its comment says, and what stands around it."""

    def __init__(self, text, of_each, section, position, before):
        self.text = text
        self.of_each = of_each
        self.section = section  # names of the functions beside it
        self.position = position  # among the functions of its comment
        self.before = before  # the functions before it in its section, those of one comment together


def read():
    functions = {}
    for name in ("net_lib_db.h", "net_lib.h"):
        header = headers.read_header(TOP / "include" / "ybnet" / name, f"ybnet/{name}")
        for section in header.sections:
            of_each = OF_EACH.findall("\n".join(section.introduction))
            before = []
            for group in section.groups:
                names = [
                    headers.declared_names(declaration)[0]
                    for declaration in group.declarations
                    if headers.is_function(declaration) and declaration.startswith("yb_status_t")
                ]
                for position, function in enumerate(names):
                    functions[function] = Documented(group.text, of_each, section.names(), position, before)
                if names:
                    before = [*before, names]
    return functions


# How one comment refers to others: "Lists ports: net_lib_db_ports_get_all()", at the beginning of a text or of a table's
# column, "its net_lib_db_interface_get* counterpart", "as for remove", "the load's status", "The same two for ...".
def referred_to(function, functions):
    text = function.text
    named = re.findall(r"(?:^|:\s+(?:as for )?|\S {2,}|, then, if that\s+succeeded,\s+)(\w+)\(\)(?=[.,;]| that| without)", text)
    yield from (name for name in named if name in functions)
    for beginning in re.findall(r"\b(\w+)\*", text):
        yield from (name for name in functions if name.startswith(beginning))
    for ending in re.findall(r"\b[Aa]s\s+(?:for\s+)?(\w+)", text):
        yield from (name for name in function.section if name.endswith("_" + ending) and name in functions)
    for ending in re.findall(r"\bthe (\w+)'s status", text):
        yield from (name for name in functions if name.endswith("_" + ending))
    if match := re.search(r"^The same( two)? for", text, re.M):
        yield from function.before[function.position - 2 if match[1] else -1]


def statuses_of(name, functions, seen):
    if name in seen:
        return set()
    seen.add(name)
    found = {*STATUS.findall(functions[name].text), *functions[name].of_each}
    for other in referred_to(functions[name], functions):
        found |= statuses_of(other, functions, seen)
    return found


def main():
    functions = read()
    lines = ["// SPDX-License-Identifier: Apache-2.0", "// Made by statuses.py out of the public headers."]
    for name in sorted(functions):
        statuses = statuses_of(name, functions, set()) | {"YB_STATUS_SUCCESS"}
        lines.append(f'DOCUMENTED("{name}", {", ".join(sorted(statuses))})')
    pathlib.Path(sys.argv[2]).write_text("\n".join(lines) + "\n")


if __name__ == "__main__":
    main()
