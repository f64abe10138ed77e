"""The catalogue of small faults: what can be done wrong in a line of C++.

Works on text: a source is cut into code, comments and literals, and each fault is looked for in the part that it is
about. What comes out need not compile; such mutants are not counted.
"""

import re
from dataclasses import dataclass

TOKENS = re.compile(
    r"""(?P<comment>//[^\n]*|/\*.*?\*/)
      | (?P<text>"(?:\\.|[^"\\\n])*")
      | (?P<character>(?<![0-9A-Fa-f])'(?:\\.|[^'\\\n])*')""",
    re.VERBOSE | re.DOTALL,
)


@dataclass(frozen=True)
class Mutant:
    path: str  # below the source directory
    start: int
    end: int
    replacement: str
    fault: str  # its name in the catalogue
    line: int
    before: str  # the line, or lines, as they are
    after: str  # and as they become

    def applied(self, source):
        return source[: self.start] + self.replacement + source[self.end :]

    def __str__(self):
        return f"{self.path}:{self.line}: {self.fault}\n- {self.before}\n+ {self.after}"


def mutant(path, source, start, end, replacement, fault):
    first = source.rfind("\n", 0, start) + 1
    last = source.find("\n", end)
    after = source[first:start] + replacement + source[end:last]
    line = source.count("\n", 0, start) + 1
    return Mutant(path, start, end, replacement, fault, line, source[first:last].strip(), after.strip())


def blank(source, kinds):
    """The source with the inside of these kinds of tokens overwritten; offsets stay as they are."""

    def overwrite(match):
        if match.lastgroup not in kinds:
            return match.group()
        return "".join(c if c == "\n" else " " if match.lastgroup == "comment" else "_" for c in match.group())

    return TOKENS.sub(overwrite, source)


# name, what is looked for in code, what takes the place of its first group
SWAPS = [
    ("comparison", r" (<) ", "<="),
    ("comparison", r" (<=) ", "<"),
    ("comparison", r" (>) ", ">="),
    ("comparison", r" (>=) ", ">"),
    ("comparison", r" (<) ", ">"),
    ("comparison", r" (==) ", "!="),
    ("comparison", r" (!=) ", "=="),
    ("off by one", r"[^-+.\w'](\d+)(?=[uUlL]*\b[^.'])", lambda n: str(int(n) + 1)),
    ("off by one", r" [<>]=? ((?!\d)[\w.:>-]+)(?=;|\)|,| &&| \|\|| \?)", lambda e: f"{e} + 1"),
    ("off by one", r" (\+ 1)\b", ""),
    ("off by one", r" (- 1)\b", ""),
    ("arithmetic", r" (\+) ", "-"),
    ("arithmetic", r" (-) ", "+"),
    ("arithmetic", r" (\*) (?=\w)", "/"),
    ("arithmetic", r" (/) ", "*"),
    ("arithmetic", r" (%) ", "/"),
    ("arithmetic", r" (\+=) ", "-="),
    ("arithmetic", r" (-=) ", "+="),
    ("arithmetic", r"(\+\+)\w", "--"),
    ("arithmetic", r"\w(\+\+)", "--"),
    ("arithmetic", r"(--)\w", "++"),
    ("bits", r" (&) ", "|"),
    ("bits", r" (\|) ", "&"),
    ("bits", r" (\^) ", "|"),
    ("bits", r" (<<) ", ">>"),
    ("bits", r" (>>) ", "<<"),
    ("bits", r" (\|=) ", "="),
    ("bits", r" (&=) ", "="),
    ("bits", r"(~)\w", ""),
    ("logic", r" (&&) ", "||"),
    ("logic", r" (\|\|) ", "&&"),
    ("logic", r"[( ](!)[\w(]", ""),
    ("logic", r"\b(?:if|while) (\((?:[^()\n]|\((?:[^()\n]|\([^()\n]*\))*\))*\)) \{", lambda c: f"(!{c})"),
    ("logic", r"(?:return |[=:,?] |\()([\w.]+(?:\([^()\n]*\))?) \? ", lambda c: f"!({c})"),
    ("constant", r"\b(true)\b", "false"),
    ("constant", r"\b(false)\b", "true"),
    ("constant", r"\b(EINVAL|ENOENT)\b", "ENOMEM"),
    ("constant", r"\b(E(?!INVAL\b|NOENT\b|OF\b)[A-Z]{3,})\b", "EINVAL"),
    ("constant", r"\b(NYX_(?:RC|ERR)\w+)\b", "0"),
    ("constant", r"\b(0x[0-9a-fA-F]+)", lambda n: hex(int(n, 16) ^ 1)),
]

# A statement that is a line: no declaration, and nothing that the next statement needs to be reached.
STATEMENT = re.compile(
    r"^[ ]+(?!(?:return|using|const|constexpr|auto|static|throw|goto|typedef|case|default|static_assert)\b)"
    r"(?!(?:[\w:<>]+ )+[*&]*\w+(?: =|\(|\{|;|\[))"
    r"(?P<statement>[*\w(+-][^{}\n]*(?<!= delete);)[ ]*$",
    re.MULTILINE,
)
STATEMENT_BEFORE = re.compile(r"[;{}:]\s*$")

# Statements that do not run.
PASSIVE = re.compile(r"\s*(?:static_assert|using |namespace |template|extern|friend |typedef |\[\[nodiscard\]\])")
DIRECTIVE = re.compile(r"^[ ]*#.*$", re.MULTILINE)


def next_letter(letter):
    return {"z": "a", "Z": "A"}.get(letter, chr(ord(letter) + 1))


def text_faults(source, _):
    """The first letter of a text that is not part of a conversion is another one."""
    for token in TOKENS.finditer(source):
        if token.lastgroup != "text":
            continue
        inside = re.sub(r"%[-+ #0-9.*]*[hlzjt]*\w|%%|\\x[0-9a-fA-F]+|\\.", lambda m: "." * len(m.group()), token.group())
        letter = re.search("[A-Za-z]", inside)
        if letter:
            at = token.start() + letter.start()
            yield at, at + 1, next_letter(source[at]), "text"


def swap_faults(source, code):
    for name, pattern, replacement in SWAPS:
        for match in re.finditer(pattern, code):
            start, end = match.span(1)
            found = source[start:end]
            yield start, end, replacement(found) if callable(replacement) else replacement, name


def dropped_lines(_, code):
    for match in STATEMENT.finditer(code):
        if STATEMENT_BEFORE.search(code, 0, match.start()) is not None:
            start, end = match.span("statement")
            yield start, end, ";", "dropped line"


def is_passive(code, at):
    line = code[code.rfind("\n", 0, at) + 1 : at]
    statement = code[max(code.rfind(end, 0, at) for end in ";{}") + 1 : at]
    return DIRECTIVE.match(line) or PASSIVE.match(DIRECTIVE.sub("", statement))


def faults_of(path, source):
    """All mutants of a source, each text once."""
    code = blank(source, ("comment", "text", "character"))
    seen = set()
    for find in (swap_faults, dropped_lines, text_faults):
        for start, end, replacement, name in find(source, code):
            key = (start, end, replacement)
            if key not in seen and not is_passive(code, start):
                seen.add(key)
                yield mutant(path, source, start, end, replacement, name)
