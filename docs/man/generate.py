#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Makes the manual pages of section 3 from the public headers.

usage: generate.py INCLUDE_DIR OUTPUT_DIR VERSION DATE

One page for each section of net_lib.h and net_lib_db.h and for each other header, named after its first function or
after the header; a page that only points there (".so") for every other function, variable and type. A section that
SUBJECTS does not know still gets its page.
"""
import os
import sys
from pathlib import Path

import comments
import headers
import mdoc

# The line behind each name: by section title, or by header.
SUBJECTS = {
    "Start, stop, verbosity": "start and stop libybnet, set what it logs",
    "Making and removing interfaces": "make, change and remove router interfaces and their netdevs",
    "Queries": "translate between system ifindex and Linux ifindex",
    "Ports": "record, find and bind the ports of the switch",
    "Link events": "receive link events as the stack's identifiers",
    "Link state": "set and read the administrative and operational state of an interface",
    "Address aliases": "add and delete IPv4 addresses of an interface, recognise hardware addresses",
    "VLAN to IP": "hand VLAN to IP settings to the switch driver",
    "Kept for the stack": "variables that other libraries of the stack resolve",
    "Verbosity": "verbosity of the database module",
    "Loading and unloading": "load and unload the shared databases",
    "The interfaces lock": "hold the lock of the interfaces database",
    "Interface records": "add, change, remove and find records of router interfaces",
    "Port records": "add, change, remove and find records of ports",
    "net_lib.h": "libybnet, router interfaces as Linux netdevs",
    "net_lib_db.h": "the shared databases of libybnet",
    "yb_net_rtnl.h": "build rtnetlink requests",
    "yb_status.h": "status codes of the switch stack",
    "yb_access_cmd.h": "access commands of the switch stack",
    "yb_ip_addr.h": "IP addresses and prefixes of the switch stack",
    "yb_net_event.h": "event sockets and link events",
    "yb_net_interface.h": "parameters and records of router interfaces",
    "yb_net_port.h": "records of ports, logical ports, L2 addresses",
}
SECTIONED = ("net_lib.h", "net_lib_db.h")


class Page:
    def __init__(self, header, sections, name, subject, text):
        self.header = header
        self.sections = sections
        self.name = name
        self.subject = subject
        self.text = text
        self.groups = [group for section in sections for group in section.groups]
        self.functions = [d for section in sections for d in section.functions()]
        self.names = [n for section in sections for n in section.names() if not n.isupper()]


def file_name(header):
    return header.name.rsplit("/", 1)[1]


def pages_of(header):
    """The pages that a header makes."""
    base = file_name(header)
    stem = base.removesuffix(".h")
    subject = SUBJECTS.get(base, f"declarations of {base}")
    if base not in SECTIONED:
        functions = [d for section in header.sections for d in section.functions()]
        name = headers.declared_names(functions[0])[0] if functions else stem
        return [Page(header, header.sections, name, subject, header.text)]
    pages = [Page(header, [], stem, subject, header.text)]
    for section in header.sections:
        if section.names():
            pages.append(
                Page(header, [section], section.names()[0], SUBJECTS.get(section.title, section.title.lower()), "")
            )
    return pages


# ---- One page -------------------------------------------------------------------


def write_names(writer, page):
    names = [page.name] + [n for n in page.names if n != page.name]
    writer.macro(".Sh NAME")
    for name in names[:-1]:
        writer.macro(f".Nm {name} ,")
    writer.macro(f".Nm {names[-1]}")
    writer.macro(f".Nd {page.subject}")


def write_synopsis(writer, page):
    if page.functions or not page.groups:
        writer.macro(".Sh LIBRARY")
        writer.macro("The netdev library of the switch stack (libybnet, \\-lybnet)")
    writer.macro(".Sh SYNOPSIS")
    writer.macro(f".In {page.header.name}")
    for declaration in (d for group in page.groups for d in group.declarations):
        if headers.is_function(declaration):
            write_prototype(writer, declaration)
        elif declaration.startswith("extern "):
            writer.macro(f'.Vt {declaration.rstrip(";")} ;')


def write_prototype(writer, declaration):
    name = headers.declared_names(declaration)[0]
    result = declaration[: declaration.index(name + "(")].strip()
    writer.macro(f'.Ft "{result}"')
    writer.macro(f".Fo {name}")
    for kind, parameter in headers.typed_parameters(declaration) or [("", "void")]:
        writer.macro(f'.Fa "{kind}{parameter}"')
    writer.macro(".Fc")


def write_description(writer, page, returns):
    """Everything but results, which are put into returns: (names, blocks)."""
    writer.macro(".Sh DESCRIPTION")
    if page.text:
        writer.blocks(comments.parse(page.text))
    for section in page.sections:
        if len(page.sections) > 1 and section.title:
            writer.macro(f".Ss {section.title}")
        for text in section.introduction:
            writer.blocks(comments.parse(text), separate=True)
        for group in section.groups:
            write_group(writer, page, group, returns)


def write_group(writer, page, group, returns):
    functions = [d for d in group.declarations if headers.is_function(d)]
    if not functions:
        write_declarations(writer, group)
        return
    names = group.names()
    if len(page.functions) > 1:
        writer.macro(".Ss " + ", ".join(name + "()" for name in names))
    parameters = [p for d in functions for p in headers.parameters(d)]
    rest, results = comments.split_returns(comments.parse(group.text))
    writer.blocks(comments.mark_parameters(rest, parameters), separate=True)
    if results:
        if not rest:
            writer.text("See RETURN VALUES.")
        returns.append((names, results))


def write_declarations(writer, group):
    if group.text:
        writer.macro(".Pp")
        writer.blocks(comments.parse(group.text))
    code = "\n".join(headers.bare_code(d) for d in group.declarations if not d.startswith("extern "))
    if code:  # variables stand in the synopsis
        writer.literal(code)
    commented = [m for d in group.declarations for m in headers.members(d)]
    if commented:
        writer.macro(".Bl -tag -width Ds")
        for member in commented:
            writer.macro((".It Dv " if member.name.isupper() else ".It Fa ") + member.name)
            writer.text(member.text)
        writer.macro(".El")


def write_returns(writer, page, returns):
    if not returns:
        return
    writer.macro(".Sh RETURN VALUES")
    for names, blocks in returns:
        if len(page.functions) > 1:
            writer.macro(".Ss " + ", ".join(name + "()" for name in names))
        writer.blocks(blocks, separate=True)


def write_errors(writer, page, statuses):
    """The statuses that the page speaks of, with what each means in general: yb_status.h says it."""
    if not page.functions:
        return
    text = "\n".join(
        [page.text] + [t for s in page.sections for t in s.introduction] + [g.text for g in page.groups]
    )
    named = [m for m in statuses if m.name in text and m.name != "YB_STATUS_SUCCESS"]
    if not named:
        return
    writer.macro(".Sh ERRORS")
    writer.text("The statuses named above stand for the following in the whole stack; see yb_status(3).")
    writer.macro(".Bl -tag -width Ds")
    for member in named:
        writer.macro(f".It Bq Er {member.name}")
        writer.text(member.text[0].upper() + member.text[1:] + ".")
    writer.macro(".El")


def write_families(writer, pages, header):
    """On a header's own page: where its functions are described."""
    writer.macro(".Ss Functions")
    writer.macro(".Bl -tag -width Ds")
    for page in pages:
        if page.header is header and page.names:
            writer.macro(f".It Xr {page.name} 3")
            writer.text(page.subject)
    writer.macro(".El")


def write_see_also(writer, page, pages):
    references = writer.references | {("ybnet", "7")}
    if not page.sections:  # a header's own page leads to everything that its functions take
        references |= {(other.name, "3") for other in pages if file_name(other.header) not in SECTIONED}
    references.add(("net_lib_db" if file_name(page.header) == "net_lib_db.h" else "net_lib", "3"))
    ordered = sorted((s, n) for n, s in references if n != page.name and n not in page.names)
    writer.macro(".Sh SEE ALSO")
    for index, (section, name) in enumerate(ordered):
        writer.macro(f".Xr {name} {section}" + (" ," if index + 1 < len(ordered) else ""))


def make_page(page, pages, known, statuses, own_headers, version, date):
    writer = mdoc.Writer([page.name] + page.names, known, own_headers)
    writer.macro('.\\" SPDX-License-Identifier: Apache-2.0')
    writer.macro(f'.\\" Made from {page.header.name}: change it there.')
    writer.macro(f".Dd {date}")
    writer.macro(f".Dt {page.name.upper()} 3")
    writer.macro(f".Os ybnet {version}")
    returns = []
    write_names(writer, page)
    write_synopsis(writer, page)
    write_description(writer, page, returns)
    if not page.sections:
        write_families(writer, pages, page.header)
    write_returns(writer, page, returns)
    write_errors(writer, page, statuses)
    write_see_also(writer, page, pages)
    return writer.page()


def main(include_dir, output_dir, version, date):
    include = Path(include_dir)
    paths = sorted((include / "ybnet").glob("*.h"))
    documented = [headers.read_header(path, f"ybnet/{path.name}") for path in paths if path.name in SUBJECTS]
    statuses = next(
        headers.members(d)
        for h in documented
        if file_name(h) == "yb_status.h"
        for s in h.sections
        for g in s.groups
        for d in g.declarations
        if d.startswith("enum")
    )
    pages = [page for header in documented for page in pages_of(header)]
    known = {name: page.name for page in pages for name in page.names}
    own_headers = [path.name for path in paths]

    output = Path(output_dir)
    output.mkdir(parents=True, exist_ok=True)
    for old in output.glob("*.3"):
        old.unlink()
    for page in pages:
        text = make_page(page, pages, known, statuses, own_headers, version, date)
        (output / f"{page.name}.3").write_text(text, encoding="utf-8")
        for name in page.names:
            if name != page.name:
                (output / f"{name}.3").write_text(f".so man3/{page.name}.3\n", encoding="utf-8")


if __name__ == "__main__":
    if len(sys.argv) != 5:
        sys.exit(__doc__)
    os.environ.setdefault("PYTHONDONTWRITEBYTECODE", "1")
    main(*sys.argv[1:])
