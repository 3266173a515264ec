"""Finds where C++ sources can be mutated, and rewrites them so that a run can switch a mutant on.

It reads tokens, not C++: what it takes for an expression by mistake doesn't compile, and is dropped
then. It relies on the project's formatting, where binary operators have spaces on both sides and
the brackets of templates have none.
"""

import bisect
import dataclasses
import re

TOKEN = re.compile(r"""
    (?P<space>\s+|//[^\n]*|/\*.*?\*/|^[ \t]*\#(?:\\\n|[^\n])*)
  | (?P<text>(?:u8|[uUL])?(?:R"(?P<mark>[^(\s]*)\(.*?\)(?P=mark)"|"(?:\\.|[^"\\\n])*"
             |'(?:\\.|[^'\\\n])+'))
  | (?P<number>\.?\d(?:'?[\w.])*)
  | (?P<name>[A-Za-z_]\w*)
  | (?P<sign>->|<=>|<<=|<<|\+\+|--|&&|\|\||[=!<>+\-*/%&|^]=|::|.)""", re.X | re.S | re.M)
COMMENT = re.compile(r"//[^\n]*|/\*.*?\*/", re.S)
CLOSING = {"(": ")", "[": "]", "{": "}"}
ASSIGNMENTS = {"=", "+=", "-=", "*=", "/=", "%=", "&=", "|=", "^=", "<<="}
# What ends an operand, by how much its operator binds.
OR_ENDS = {"||", "?", ":", ",", ";", "return"} | ASSIGNMENTS
AND_ENDS = OR_ENDS | {"&&"}
RELATION_ENDS = AND_ENDS | {"==", "!=", "<", ">", "<=", ">=", "&", "|", "^"}
# Of those that enclose the same tokens the outermost first.
NESTING = ("if", "return", "call", "or", "and", "relation", "constant", "number")
# Operands that have to be constant.
CONSTANT_CONTEXTS = {"decltype", "noexcept", "alignas", "sizeof", "static_assert"}
KINDS = {"if": "condition", "and": "condition", "or": "condition", "relation": "condition",
         "return": "return", "constant": "constant", "number": "constant", "call": "call"}


@dataclasses.dataclass
class Site:
    path: str
    line: int
    last_line: int
    operator: str
    function: str
    text: str  # the line's, without comments
    before: str
    after: str
    nth: int  # of this operator in the line
    start: int
    end: int
    edits: list  # (offset, length, text with {} for the number); the first and the last at the ends

    def keys(self):
        """What tells the site from others wherever its file is, the least first."""
        key = {"operator": self.operator, "nth": self.nth, "text": self.text}
        yield key
        key = {**key, "function": self.function}
        yield key
        yield {**key, "before": self.before, "after": self.after}


class Source:
    """A file's tokens, and which of them are code that runs."""

    def __init__(self, path, text):
        self.path, self.text = path, text
        self.line_starts = [0] + [at.end() for at in re.finditer("\n", text)]
        found = [match for match in TOKEN.finditer(text) if match.lastgroup != "space"]
        self.kinds = ["text" if match["text"] else match.lastgroup for match in found]
        self.words = [match[0] for match in found]
        self.spans = [match.span() for match in found]
        self.partner = {}
        self.functions = [""] * len(found)  # the name of the one whose running code it is
        self._match_brackets()
        self._find_functions()
        plain = COMMENT.sub(lambda match: re.sub(r"[^\n]", " ", match[0]), text).split("\n")
        self.lines = [" ".join(line.split()) for line in plain]

    def _match_brackets(self):
        stack = []
        for at, word in enumerate(self.words):
            if self.kinds[at] == "sign" and word in CLOSING:
                stack.append(at)
            elif self.kinds[at] == "sign" and word in ")]}" and stack:
                self.partner[at] = stack.pop()
                self.partner[self.partner[at]] = at

    def _find_functions(self):
        head, at = 0, 0
        while at < len(self.words):
            word = self.words[at]
            if word == "(" and self.kinds[at] == "sign":
                at = self.partner.get(at, at)
            elif word == "{":
                end = self.partner.get(at, at)
                body = self.words[head:at]
                is_type = {"namespace", "extern", "class", "struct", "union"} & set(body)
                if is_type and "(" not in body:
                    head = at + 1
                    at += 1
                    continue
                is_function = ")" in body and not {"constexpr", "consteval"} & set(body) and (
                    "=" not in body or "operator" in body or body.index("=") > body.index("("))
                if is_function:
                    opening = body.index("(")
                    begin = opening - (3 if body[opening - 2:opening - 1] == ["::"] else 1)
                    self._mark(at, end, "".join(body[begin:opening]))
                at, head = end, end + 1
            elif word in (";", "}") or (word == ":" and at and self.words[at - 1] in
                                        ("public", "private", "protected")):
                head = at + 1
            at += 1

    def _mark(self, begin, end, name):
        at = begin
        while at < end:
            word = self.words[at]
            if word in CONSTANT_CONTEXTS or (word == "constexpr" and self.words[at - 1] == "if"):
                at = self.partner.get(at + 1, at)
            elif word in ("constexpr", "using", "typedef"):
                at = self.scan(at, 1, {";"})
            elif word == "case":
                at = self.scan(at, 1, {":"})
            else:
                self.functions[at] = name
            at += 1

    def scan(self, at, step, ends):
        """The position of the next of `ends` outside of brackets, or of the bracket around."""
        at += step
        while 0 <= at < len(self.words):
            word = self.words[at]
            if self.kinds[at] == "sign" and word in "()[]{}":
                if (word in CLOSING) != (step > 0) or at not in self.partner:
                    return at
                at = self.partner[at]
            elif word in ends and self.kinds[at] != "text" and (
                    word not in "<>&|^*" or self.is_binary(at)):
                return at
            at += step
        return at

    def is_binary(self, at):
        start, end = self.spans[at]
        return self.text[start - 1].isspace() and self.text[end].isspace()

    def line_of(self, offset):
        return bisect.bisect_right(self.line_starts, offset)

    def neighbour(self, line, step):
        line += step
        while 0 < line <= len(self.lines):
            if self.lines[line - 1]:
                return self.lines[line - 1]
            line += step
        return ""


def around(source, first, last, prefix, suffix):
    """The edits that put the tokens from `first` to before `last` between two texts."""
    return [(source.spans[first][0], 0, prefix), (source.spans[last - 1][1], 0, suffix)]


def condition_edits(source, at):
    """Of `if` and `while`, without those that declare or assign something."""
    opening = at + 1
    if source.words[opening] != "(" or opening not in source.partner:
        return
    first, closing = opening + 1, source.partner[opening]
    semicolon = source.scan(opening, 1, {";"})
    first = semicolon + 1 if semicolon < closing else first
    if first < closing and source.scan(first - 1, 1, {"="}) == closing:
        yield "if", at, around(source, first, closing, "TesselMutant({}) != static_cast<bool>(",
                               ")")


def operator_edits(source, at):
    word = source.words[at]
    if source.words[at - 1] == "operator" or not source.is_binary(at):
        return
    if word in ("&&", "||"):
        ends = AND_ENDS if word == "&&" else OR_ENDS
        left, right = source.scan(at, -1, ends) + 1, source.scan(at, 1, ends)
        prefix, name = (("(TesselMutant({}) || (", "and") if word == "&&" else
                        ("(!TesselMutant({}) && (", "or"))
        yield name, at, around(source, left, at, prefix, "))")
        yield name, at, around(source, at + 1, right, prefix, "))")
        return
    left, right = source.scan(at, -1, RELATION_ENDS) + 1, source.scan(at, 1, RELATION_ENDS)
    if word in ("==", "!="):
        yield "relation", at, around(source, left, right, "(TesselMutant({}) != (", "))")
    else:
        # a > b is not a <= b, and so on.
        negation = "!" if word[0] == ">" else ""
        is_strict = "true" if word in ("<", ">=") else "false"
        prefix, suffix = around(source, left, right, f"{negation}TesselMutantLess({{}}, ",
                                f", {is_strict})")
        yield "relation", at, [prefix, (source.spans[at][0], len(word), ","), suffix]


def return_edits(source, at):
    end = source.scan(at, 1, {";"})
    value = source.words[at + 1:end]
    if not value or value[0] == "{" or source.words[end] != ";":
        return
    if re.search(r"(^|::)k[A-Z]\w*$", "".join(value)) and re.fullmatch(r"[\w:]+", "".join(value)):
        yield "return", at, around(source, at + 1, end, "TesselMutantOther({}, ", ")")
    elif len(value) > 1 or not re.match(r"\d|true|false|nullptr", value[0]):
        if value not in (["std", "::", "nullopt"],):
            yield "return", at, around(source, at, end + 1,
                                       "{{ if (TesselMutant({})) {{ return {{}}; }} ", " }}")


def call_edits(source, at):
    """Of a statement that is but a call."""
    if source.words[at - 1] not in (";", "{", "}", ")", "else"):
        return
    end = source.scan(at, 1, {";"})
    if end >= len(source.words) or source.words[end] != ";" or source.words[end - 1] != ")":
        return
    position = at
    while position < end:
        if source.kinds[position] != "name":
            return
        position += 1
        while position < end and source.words[position] in ("(", "["):
            position = source.partner[position] + 1
        if position < end and source.words[position] not in ("::", ".", "->"):
            return  # two names in a row declare something
        position += 1
    yield "call", at, around(source, at, end + 1, "{{ if (!TesselMutant({})) {{ ", " }} }}")


def token_edits(source, at):
    word, kind = source.words[at], source.kinds[at]
    if word in ("if", "while"):
        yield from condition_edits(source, at)
    elif word in ("&&", "||", "==", "!=", "<", "<=", ">", ">="):
        yield from operator_edits(source, at)
    elif word in ("true", "false"):
        name = "return" if source.words[at - 1] == "return" else "constant"
        yield name, at, around(source, at, at + 1, "(TesselMutant({}) != ", ")")
    elif word == "return":
        yield from return_edits(source, at)
    elif kind == "number" and re.fullmatch(r"(0[xX][\dA-Fa-f']+|0[bB][01']+|[\d']+)[uUlL]*", word):
        is_size = (source.words[at - 1] == "[" and source.kinds[at - 2] == "name" and
                   source.kinds[at - 3] == "name" and source.words[at - 3] != "return")
        if not is_size:
            yield "number", at, around(source, at, at + 1, "(", " + TesselMutant({}))")
    elif kind == "name" and word not in ("delete", "throw", "goto", "switch", "for", "do"):
        yield from call_edits(source, at)


def find_sites(path, text):
    source = Source(path, text)
    sites, seen, counts = [], set(), {}
    for at, function in enumerate(source.functions):
        for operator, _, edits in token_edits(source, at) if function else ():
            start, end = edits[0][0], edits[-1][0] + edits[-1][1]
            line = source.line_of(source.spans[at][0])
            nth = counts[operator, line] = counts.get((operator, line), -1) + 1
            # Where a whole condition is a comparison, the two are turned around alike.
            is_negation = " != " in edits[0][2]
            if end <= start or (is_negation and (start, end) in seen):
                continue
            if is_negation:
                seen.add((start, end))
            sites.append(Site(path, line, source.line_of(end), operator, function,
                              source.lines[line - 1], source.neighbour(line, -1),
                              source.neighbour(line, 1), nth, start, end, edits))
    return sites


def nested(sites):
    """Those of one file that are beside or within one another, each before what is within it."""
    kept, around_this = [], []
    for site in sorted(sites, key=lambda site: (site.start, -site.end,
                                                NESTING.index(site.operator))):
        while around_this and around_this[-1].end <= site.start:
            around_this.pop()
        if around_this and site.end > around_this[-1].end:
            continue
        kept.append(site)
        around_this.append(site)
    return kept


def rewrite(text, numbered):
    """The text with the sites of `numbered`, nested and each with its number, made switchable."""
    edits = []
    for rank, (number, site) in enumerate(numbered):
        for order, (offset, length, insert) in enumerate(site.edits):
            insert = insert.format(number)
            if order == 0:  # of those that begin together the longest stands first
                key = (offset, 1, -site.end, rank)
            elif offset == site.end:
                key = (offset, 0, -site.start, -rank)
            else:
                key = (offset, 2, 0, 0)
            edits.append((key, offset, length, insert))
    out, at = [], 0
    for _, offset, length, insert in sorted(edits):
        out += [text[at:offset], insert]
        at = offset + length
    return "".join(out) + text[at:]


class Index:
    """The sites of a tree by their keys."""

    def __init__(self, sites):
        self.by_key = {}
        for site in sites:
            for key in site.keys():
                self.by_key.setdefault(tuple(sorted(key.items())), []).append(site)

    def find(self, key):
        """The one site that the key names, or None."""
        found = self.by_key.get(tuple(sorted(key.items())), [])
        return found[0] if len(found) == 1 else None

    def key_of(self, site):
        """The least that names the site alone, or None."""
        return next((key for key in site.keys() if self.find(key) is site), None)
