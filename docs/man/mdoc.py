# SPDX-License-Identifier: Apache-2.0
"""Blocks of comments (comments.py) as mdoc(7) source."""
import re

from comments import Heading, Items, Literal, Paragraph, Terms

CLOSING = ").,;:]!?"
SUFFIX = re.compile(r"[).,;:\]!?]*$")


class Writer:
    """Collects a page's lines. here: the functions of the page; known: name -> page of all functions and types."""

    def __init__(self, here=(), known=None, headers=()):
        self.lines = []
        self.here = set(here)
        self.known = known or {}
        self.headers = set(headers)
        self.references = set()  # (page, section), for SEE ALSO

    def macro(self, line):
        self.lines.append(line)

    # ---- Running text -----------------------------------------------------------

    def _marked(self, word):
        """The macro for a word without punctuation around it, or None."""
        if match := re.fullmatch(r"([\w.-]+)\((\d\w?)\)", word):
            self.references.add((match[1], match[2]))
            return f"Xr {match[1]} {match[2]}"
        if match := re.fullmatch(r"(\w+)\(\)", word):
            if match[1] in self.known and match[1] not in self.here:
                self.references.add((self.known[match[1]], "3"))
                return f"Xr {match[1]} 3"
            return f"Fn {match[1]}"
        if word in self.headers:
            return f"In ybnet/{word}"
        if re.fullmatch(r"[A-Z][A-Z0-9]*_[A-Z0-9_]+\*?", word):
            return f"Dv {word}"
        if re.fullmatch(r"(yb|net_lib|rtnl|cl)_\w+_t", word):
            if word in self.known:
                self.references.add((self.known[word], "3"))
            return f"Vt {word}"
        if re.fullmatch(r"\*\w{2,}|\w+->\w+", word):
            return f"Fa {word}"
        if re.fullmatch(r"/(dev|proc|sys)/[\w/.*%-]+", word):
            return f"Pa {word}"
        return None

    def text(self, text):
        """Running text: one sentence a line, names in their macros."""
        line = []

        def end_line():
            if line:
                start = " ".join(line)
                self.lines.append(("\\&" if start[0] in ".'" else "") + start)
                line.clear()

        for word in text.split():
            suffix = SUFFIX.search(word)[0]
            if re.search(r"\(\d?\w?\)[).,;:\]!?]*$", word):  # the parentheses belong to the name
                suffix = re.search(r"\)([).,;:\]!?]*)$", word)[1]
            core = word[: len(word) - len(suffix)] if suffix else word
            prefix = "(" if core.startswith("(") else ""
            if core.endswith("'s"):
                core, suffix = core[:-2], "'s" + suffix
            macro = self._marked(core[len(prefix) :])
            if macro is None:
                line.append(word.replace("\\", "\\e"))
                if len(" ".join(line)) > 70 or word.endswith((".", ".)", "?")):
                    end_line()
                continue
            end_line()
            macro = macro.replace("\\", "\\e")
            glued = suffix.startswith("'s")
            tail = (" Ns " + suffix if glued else "".join(" " + c for c in suffix)) if suffix else ""
            self.lines.append(f".Pf ( {macro}{tail}" if prefix else f".{macro}{tail}")
        end_line()

    # ---- Blocks -----------------------------------------------------------------

    def literal(self, text, offset="indent"):
        self.macro(f".Bd -literal -offset {offset}")
        escaped = text.replace("\\", "\\e").replace("-", "\\-").replace("'", "\\(aq").replace("`", "\\(ga")
        escaped = escaped.replace("^", "\\(ha").replace("~", "\\(ti")
        self.lines += ["\\&" + line if line.startswith(".") else line for line in escaped.split("\n")]
        self.macro(".Ed")

    def term(self, term, are_parameters):
        if are_parameters:
            self.macro(".It " + " , ".join("Fa " + name for name in term.split(", ")))
            return
        words = []
        for word in re.split(r"(?<=,) ", term):
            bare = word.rstrip(",")
            macro = self._marked(bare)
            words.append((macro if macro else ("No " if words else "") + bare) + (" ," if word.endswith(",") else ""))
        self.macro(".It " + " ".join(words))

    def blocks(self, blocks, separate=False, nested=False):
        """separate: with paragraph breaks before the first block too; nested: inside a list."""
        compact = " -compact" if nested else ""
        for index, block in enumerate(blocks):
            follows = index > 0 or separate
            if isinstance(block, Paragraph):
                if follows:
                    self.macro(".Pp")
                self.text(block.text)
            elif isinstance(block, Heading):
                self.macro(f".Ss {block.text}")
            elif isinstance(block, Literal):
                self.literal(block.text)
            elif isinstance(block, Items):
                self.macro((".Bl -enum" if block.ordered else ".Bl -bullet") + compact)
                for item in block.items:
                    self.macro(".It")
                    self.blocks(item, nested=True)
                self.macro(".El")
            elif isinstance(block, Terms):
                self.macro(".Bl -tag -width Ds" + compact)
                for term, text in block.terms:
                    self.term(term, block.are_parameters)
                    self.blocks(text, nested=True)
                self.macro(".El")

    def page(self):
        """The page, without paragraph breaks that mean nothing."""
        cleaned = []
        for line in self.lines:
            if line == ".Pp" and cleaned and cleaned[-1].startswith((".Sh", ".Ss", ".Pp")):
                continue
            if line.startswith((".Sh", ".Ss")) and cleaned and cleaned[-1] == ".Pp":
                cleaned.pop()
            cleaned.append(line)
        return "\n".join(cleaned) + "\n"
