"""Small mutations of a C++ source that clang-format has laid out.

A mutant changes one operator, constant, condition or statement of one function. It is named by the function, the
statement as it was and as it became, so that its name survives changes elsewhere in the file.
"""

import re
from dataclasses import dataclass

# A regular expression of what is replaced, and by what. Binary operators have spaces around them, which templates,
# pointers and references have not.
OPERATORS = {
    "comparison": [
        (r" < ", [" <= ", " >= "]),
        (r" <= ", [" < ", " > "]),
        (r" > ", [" >= ", " <= "]),
        (r" >= ", [" > ", " < "]),
        (r" == ", [" != "]),
        (r" != ", [" == "]),
        (r"\bzeb_uint(16|32)_after\(", [r"zeb_uint\1_after_eq("]),
        (r"\bzeb_uint(16|32)_after_eq\(", [r"zeb_uint\1_after("]),
    ],
    "arithmetic": [
        (r" \+ ", [" - "]),
        (r" - ", [" + "]),
        (r" \* ", [" + "]),
        (r" % ", [" / "]),
        (r" << ", [" >> "]),
        (r" >> ", [" << "]),
        (r" & ", [" | "]),
        (r" \| ", [" & "]),
        (r" \+= ", [" -= ", " = "]),
        (r" -= ", [" += ", " = "]),
        (r" \|= ", [" &= ", " = "]),
        (r" &= ", [" |= ", " = "]),
        (r"\+\+", ["--"]),
        (r"(?<=\w)--", ["++"]),
        (r"\bzeb_uint(16|32)_next\(", [r"zeb_uint\1_prev("]),
        (r"\bzeb_uint(16|32)_prev\(", [r"zeb_uint\1_next("]),
    ],
    "logic": [
        (r" && ", [" || "]),
        (r" \|\| ", [" && "]),
        (r"!(?=[\w(*])", [""]),
    ],
    "result": [
        (r"\breturn true;", ["return false;"]),
        (r"\breturn false;", ["return true;"]),
        (r"(?<== )true;", ["false;"]),
        (r"(?<== )false;", ["true;"]),
    ],
}
CONSTANT = re.compile(r"(?<![\w.])(0x[0-9A-Fa-f]+|\d+)(?=[uU]?\b)")
CONDITION = re.compile(r"\b(?:if|while) \(")
STATEMENT = re.compile(r"[\w:]+\(|\*?[\w.\->\[\]]+(?: [-+|&]?= |\+\+;|--;)|return;|continue;|break;")
FUNCTION = re.compile(r"(\w+)\(")


@dataclass(frozen=True)
class Mutant:
    kind: str
    function: str
    before: str  # the statement, in one line
    after: str
    nth: int  # of those in the function that read alike
    start: int  # what is replaced in the source
    end: int
    text: str

    def key(self):
        return (self.function, self.before, self.after, self.nth)

    def apply(self, source):
        return source[: self.start] + self.text + source[self.end :]


def masked(source):
    """The source with comments, texts and preprocessor lines blanked, every character in its place."""

    def blank(match):
        return re.sub(r"[^\n]", " ", match.group())

    return re.sub(r'//[^\n]*|"(?:\\.|[^"\\\n])*"|(?m:^#(?:[^\n]*\\\n)*[^\n]*)', blank, source)


def functions(code):
    """The name and extent of each function body; what lies between is named "(file)"."""
    at, name, signature = 0, "(file)", ""
    for line in re.finditer(r"[^\n]*\n", code):
        text = line.group()
        if text == "{\n" and FUNCTION.search(signature):
            yield "(file)", at, line.start()
            at, name = line.start(), FUNCTION.search(signature).group(1)
        elif text == "}\n" and name != "(file)":
            yield name, at, line.end()
            at, name = line.end(), "(file)"
        signature = signature + text if text[:1] == " " else text
    yield "(file)", at, len(code)


def statements(code, begin, end):
    """Extents of the lines, joined where a statement goes on in the next one, without leading space."""
    at, depth = None, 0
    for line in re.finditer(r"[^\n]*\n", code[begin:end]):
        text = line.group().strip()
        if not text:
            continue
        if at is None:
            at = begin + line.start() + len(line.group()) - len(line.group().lstrip())
        depth += text.count("(") - text.count(")")
        if depth == 0 and re.search(r"[;{}:]$", text):
            yield at, begin + line.start() + len(line.group().rstrip())
            at = None


def is_checked_by_the_compiler(statement):
    return re.match(r"static_assert|template|using |constexpr bool fits_log|namespace|enum |k\w+ =", statement)


def is_negated_by_an_operator(condition):
    """Of a condition that is a single test, for which another mutant reads the same."""
    return not re.search(r"&&|\|\|", condition) and (re.search(r" [=!]= ", condition) or condition.startswith("!"))


def closing(code, opening):
    depth = 0
    for i in range(opening, len(code)):
        depth += {"(": 1, ")": -1}.get(code[i], 0)
        if depth == 0:
            return i
    raise ValueError("unbalanced parentheses")


def replacements(code, begin, end):
    """(kind, start, end, text) of every mutation of one statement."""
    statement = code[begin:end]
    for kind, operators in OPERATORS.items():
        for pattern, others in operators:
            for match in re.finditer(pattern, statement):
                for other in others:
                    yield kind, begin + match.start(), begin + match.end(), match.expand(other)
    for match in CONSTANT.finditer(statement):
        value = int(match.group(), 0)
        for other in [value + 1] + [value - 1] * (value > 0):
            yield "constant", begin + match.start(), begin + match.end(), str(other)
    for match in CONDITION.finditer(statement):
        last = closing(code, begin + match.end() - 1)
        if not is_negated_by_an_operator(code[begin + match.end() : last]):
            yield "condition", begin + match.end(), last, ""
    if STATEMENT.match(statement) and statement.endswith(";"):
        yield "statement", begin, end, ";"


def one_line(text):
    return " ".join(re.sub(r"//[^\n]*", "", text).split())


def generate(source):
    """Every mutant of a source, in the order of the file."""
    code = masked(source)
    found = []
    seen = {}
    for function, first, last in functions(code):
        for begin, end in statements(code, first, last):
            if is_checked_by_the_compiler(code[begin:end]):
                continue
            for kind, start, stop, text in replacements(code, begin, end):
                if kind == "condition":  # with the texts that the masked code has not
                    text = f"!({source[start:stop]})"
                before = one_line(source[begin:end])
                after = one_line(source[begin:start] + text + source[stop:end])
                seen[function, before, after] = nth = seen.get((function, before, after), 0) + 1
                found.append(Mutant(kind, function, before, after, nth, start, stop, text))
    return sorted(found, key=lambda mutant: (mutant.start, mutant.end, mutant.text))


def read_equivalents(text):
    """Reasons by mutant, from paragraphs of four lines:

    in FUNCTION [#NTH]
    - before
    + after
    = reason, which may go on in lines that begin with two spaces
    """
    reasons = {}
    for paragraph in re.split(r"\n\s*\n", re.sub(r"(?m)^#.*\n", "", text).strip()):
        if not paragraph:
            continue
        match = re.fullmatch(r"in (\S+)(?: #(\d+))?\n- (.*)\n\+ (.*)\n= ((?:.|\n  )*)", paragraph)
        if match is None:
            raise ValueError("not an equivalent mutant:\n" + paragraph)
        function, nth, before, after, reason = match.groups()
        reasons[function, before, after, int(nth or 1)] = one_line(reason)
    return reasons
