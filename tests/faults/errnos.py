#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Which functions the library calls, and with which errors each may fail: errnos.inc, out of the built library and
Linux's manual pages (package manpages-dev).

usage: errnos.py LIBRARY           print the table
       errnos.py LIBRARY --check   compare it with the kept errnos.inc; 1 when they differ

The functions are the library's undefined symbols that have a page in section 2 or 3; those of syscall(2) are the
SYS_* numbers in the sources. The errors are the tags of a page's ERRORS section, and those of the pages that it
refers to ("any of the errors specified for ..."). How a function fails follows from its prototype. The table is that
of the build that ./dev makes: one that is not optimised, or is fortified, calls other functions.
"""
import errno
import gzip
import pathlib
import re
import subprocess
import sys

HERE = pathlib.Path(__file__).parent
TOP = HERE.parent.parent
TABLE = HERE / "errnos.inc"
PAGES = pathlib.Path("/usr/share/man")

# These work in the process's own memory: what their pages list is no system call's.
IN_MEMORY = {"__isoc99_sscanf", "fileno", "free", "strerror"}

# What the pages leave to other pages without an ERRORS section that says so: streams fail as the system call beneath,
# and the names of a backtrace are malloc(3)'s.
RESTS_ON = {"fgets": "read", "fread": "read", "fprintf": "write", "fwrite": "write", "backtrace_symbols": "malloc"}

# Functions whose pages Debian has in non-free only (manpages-posix-dev): POSIX.1-2017, with what older issues listed.
POSIX = {
    "pthread_rwlock_destroy": "EBUSY EINVAL",
    "pthread_rwlock_init": "EAGAIN EBUSY EINVAL ENOMEM EPERM",
    "pthread_rwlockattr_destroy": "EINVAL",
    "pthread_rwlockattr_init": "ENOMEM",
    "pthread_rwlockattr_setpshared": "EINVAL",
    "__register_atfork": "ENOMEM",  # what pthread_atfork() is in the C library
}

HEADING = """\
// SPDX-License-Identifier: Apache-2.0
//
// Made by errnos.py out of the built library and Linux's manual pages; not edited. CALLEE(function, number of
// syscall(2), how it fails, errors).
"""


class NoPages(Exception):
    pass


def page_of(name):
    """The source of a page, None when there is none. Section 2 comes first, as for man(1)."""
    for section in "23":
        path = PAGES / f"man{section}" / f"{name}.{section}.gz"
        if path.exists():
            text = gzip.decompress(path.read_bytes()).decode()
            if link := re.match(r"\.so man\d/(\S+)\.\d", text):
                return page_of(link[1])
            return text
    return None


def section(page, title):
    found = re.search(rf'^\.SH "?{title}"?\n(.*?)(?=^\.SH|\Z)', page, re.M | re.S)
    return re.sub(r'^[.\']\\".*\n', "", found[1], flags=re.M) if found else ""  # without comments


def tags(text):
    """The errors that a text lists: what stands behind .TP or .TQ."""
    lines = re.findall(r"^\.T[PQ].*\n(.*)$", text, re.M)
    return {word for line in lines for word in re.findall(r"\bE[A-Z0-9]+\b", line) if hasattr(errno, word)}


def errors_of(name, seen=()):
    page = page_of(name)
    if page is None:
        return None
    errors = section(page, "ERRORS")
    found = tags(errors)
    for paragraph in re.split(r"^\.(?:PP|TP|LP)\b.*\n", errors, flags=re.M):
        mentioned = set(re.findall(r"^\.BR (\w+) \(\)", paragraph, re.M))
        others = re.findall(r"^\.BR (\w+) \([23]\)", paragraph, re.M)
        if mentioned and name not in mentioned:
            continue
        if re.search(r"errors\s+specified|same\s+errors|underlying", paragraph):
            for other in others:
                if other not in seen:
                    found |= errors_of(other, (*seen, name)) or set()
        found |= {word for word in re.findall(r"is set to\n\.BR? (E[A-Z0-9]+)", paragraph) if hasattr(errno, word)}
    if name in RESTS_ON and not errors:
        found |= errors_of(RESTS_ON[name], (*seen, name))
    return found


def fails_with(name):
    """minus_one (MAP_FAILED is that, too), zero (or NULL), or the_number itself as the result."""
    if name in POSIX:
        return "the_number"
    page = page_of(name)
    synopsis = section(page, "SYNOPSIS")
    type_before = re.search(rf'([\w \*]*?[ \*]){name}\(', synopsis.replace('"', ""))
    result = re.sub(r"^BI? ", "", type_before[1]).strip()
    returned = section(page, "RETURN VALUE")
    if "MAP_FAILED" in returned:
        return "minus_one"
    if re.search(r"error number", returned):
        return "the_number"
    return "zero" if "*" in result or result in ("unsigned int", "size_t") else "minus_one"


def called_functions(library):
    symbols = subprocess.run(["nm", "-D", "--undefined-only", library], check=True, capture_output=True, text=True).stdout
    return sorted({name.split("@")[0] for name in re.findall(r" U (\S+)", symbols)})


def system_call_numbers():
    sources = "".join(path.read_text() for room in ("net_lib", "net_lib_db") for path in (TOP / room).rglob("*.cc"))
    return sorted(set(re.findall(r"\bsyscall\((SYS_\w+)", sources)))


def rows(library):
    if page_of("open") is None:
        raise NoPages(f"no manual pages under {PAGES}: install manpages-dev, and let dpkg keep /usr/share/man")
    for name in called_functions(library):
        if name in IN_MEMORY:
            continue
        if name in POSIX:
            yield name, "0", fails_with(name), sorted(POSIX[name].split())
        elif name == "syscall":
            for number in system_call_numbers():
                if errors := errors_of(number.removeprefix("SYS_")):
                    yield name, number, "minus_one", sorted(errors)
        elif errors := errors_of(name):
            yield name, "0", fails_with(name), sorted(errors)


def table(library):
    lines = []
    for name, number, how, errors in rows(library):
        line = f'CALLEE("{name}", {number}, {how},'
        for word in errors:
            if len(line) + len(word) + 2 > 110:
                lines.append(line)
                line = "      "
            line += f" {word},"
        lines.append(line[:-1] + ")")
    return HEADING + "\n".join(lines) + "\n"


def main():
    try:
        fresh = table(sys.argv[1])
    except NoPages as problem:
        sys.exit(f"errnos.py: {problem}")
    if sys.argv[2:] != ["--check"]:
        sys.stdout.write(fresh)
    elif fresh != TABLE.read_text():
        sys.exit(f"{TABLE.name} is not what the library and the manual pages say now; errnos.py LIBRARY >{TABLE.name}")


if __name__ == "__main__":
    main()
