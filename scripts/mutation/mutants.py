"""Finds the places of a C++ source that scripts/mutate may change.

The source is cut into tokens; which of them is an operator is told by its blanks, which
clang-format sets: a binary operator has one on each side, a template bracket, a pointer, a
reference and a sign have not.
"""

import hashlib
import re
from dataclasses import dataclass

TOKEN = re.compile(
    r"""(?P<comment>//[^\n]*|/\*.*?\*/)
      | (?P<directive>^[ \t]*\#(?:[^\n\\]|\\.)*)
      | (?P<string>"(?:[^"\\\n]|\\.)*")
      | (?P<char>'(?:[^'\\\n]|\\.)')
      | (?P<number>\.?\d(?:'?[\w.])*)
      | (?P<name>[A-Za-z_]\w*)
      | (?P<sign><<=|>>=|->|::|\+\+|--|<<|>>|<=|>=|==|!=|&&|\|\||[-+*/%&|^]=|[^\s\w])""",
    re.VERBOSE | re.DOTALL | re.MULTILINE)

BINARY = {
    "<": ("<=", ">="), "<=": ("<", ">"), ">": (">=", "<="), ">=": (">", "<"),
    "==": ("!=",), "!=": ("==",), "&&": ("||",), "||": ("&&",),
    "+": ("-",), "-": ("+",), "*": ("/",), "/": ("*",), "%": ("*",),
    "<<": (">>",), ">>": ("<<",), "&": ("|",), "|": ("&",), "^": ("|",),
    "+=": ("-=",), "-=": ("+=",), "*=": ("/=",), "/=": ("*=",),
    "<<=": (">>=",), ">>=": ("<<=",), "&=": ("|=",), "|=": ("&=",), "^=": ("|=",),
}
STEPS = {"++": "--", "--": "++"}
CLOSING = {"(": ")", "[": "]", "{": "}"}
NOT_CALLED = {"return", "throw", "delete", "new", "if", "for", "while", "switch", "do", "else",
              "case", "using", "goto", "static_assert", "catch", "sizeof"}
# A conversion of printf, an escape, or one plain character of a text.
TEXT_PIECE = re.compile(r"%[-+ #0]*[\d.*]*(?:hh|h|ll|l|z)?[a-zA-Z%]"
                        r"|\\(?:x[0-9a-fA-F]+|[0-7]{1,3}|.)|(?P<plain>.)", re.DOTALL)


@dataclass(frozen=True)
class Token:
    kind: str
    text: str
    begin: int
    end: int


@dataclass(frozen=True)
class Mutant:
    path: str  # from the root of the project
    begin: int  # offsets of the text that is replaced
    end: int
    line: int
    column: int
    before: str
    after: str
    key: str  # stays the same while the line does

    def place(self):
        def short(text):
            text = " ".join(text.split())
            return text if len(text) <= 60 else text[:57] + "..."
        return (f"{self.path}:{self.line}:{self.column}: "
                f"{short(self.before)} -> {short(self.after) or 'nothing'}")


def tokens_of(source):
    return [Token(match.lastgroup, match.group(), match.start(), match.end())
            for match in TOKEN.finditer(source)
            if match.lastgroup not in ("comment", "directive")]


class Finder:
    """The changes of one source as (begin, end, replacement)."""

    def __init__(self, source):
        self.source = source
        self.tokens = tokens_of(source)
        self.partners = self._partners()
        self.changes = []

    def find(self):
        index = 0
        while index < len(self.tokens):
            token = self.tokens[index]
            if token.text == "static_assert":
                index = self.partners.get(index + 1, index) + 1
                continue
            getattr(self, "_" + token.kind)(index, token)
            index += 1
        return sorted(set(self.changes))

    def _partners(self):
        partners, stack = {}, []
        for index, token in enumerate(self.tokens):
            if token.text in CLOSING:
                stack.append(index)
            elif stack and token.text == CLOSING[self.tokens[stack[-1]].text]:
                partners[stack.pop()] = index
        return partners

    def _text(self, index):
        return self.tokens[index].text if 0 <= index < len(self.tokens) else ""

    def _replace(self, token, *replacements):
        self.changes += [(token.begin, token.end, text) for text in replacements]

    def _is_binary(self, token):
        around = self.source[token.begin - 1] + self.source[token.end]
        return around.isspace()

    def _sign(self, index, token):
        if token.text in BINARY and self._is_binary(token):
            self._replace(token, *BINARY[token.text])
        elif token.text in STEPS:
            self._replace(token, STEPS[token.text])
        elif token.text == "!":
            self._replace(token, "")

    def _number(self, _, token):
        match = re.fullmatch(r"(0[xX][0-9a-fA-F']+|\d[\d']*)([uUlLzZ]*)", token.text)
        if not match:
            return
        digits, suffix = match.group(1).replace("'", ""), match.group(2)
        value = int(digits, 16 if digits[:2] in ("0x", "0X") else 10)
        values = {value + 1} | ({value - 1, 0} if value > 0 else set())
        form = "0x{:X}{}" if digits[:2] in ("0x", "0X") else "{}{}"
        self._replace(token, *(form.format(other, suffix) for other in sorted(values)))

    def _char(self, _, token):
        inner = token.text[1:-1]
        self._replace(token, "'%s'" % ("y" if inner == "x" else "x"))

    def _string(self, _, token):
        inner = token.text[1:-1]
        plain = [match.start() for match in TEXT_PIECE.finditer(inner) if match.group("plain")]
        if not plain:
            if not inner:
                self._replace(token, '"x"')
            return
        at = plain[len(inner) * 7 % len(plain)]
        other = "y" if inner[at] == "x" else "x"
        self._replace(token, '"' + inner[:at] + other + inner[at + 1:] + '"')

    def _name(self, index, token):
        if token.text in ("true", "false"):
            self._replace(token, "false" if token.text == "true" else "true")
        elif token.text in ("if", "while") and self._text(index + 1) == "(":
            self._negate(index + 2, self.partners[index + 1])
        elif token.text == "return" and self._returns_bool(token):
            end = index + 1
            while self._text(end) != ";":
                end = self.partners.get(end, end) + 1
            self._negate(index + 1, end)
        elif self._starts_statement(index):
            self._remove_call(index)

    def _negate(self, begin, end):
        """Negates the condition of these tokens, unless another mutant does just that."""
        words = [token.text for token in self.tokens[begin:end]]
        joined = {"&&", "||"} & set(words)
        if not words or words in (["true"], ["false"]) or ";" in words or "=" in words:
            return
        if not joined and (words[0] == "!" or {"==", "!="} & set(words)):
            return
        first, last = self.tokens[begin].begin, self.tokens[end - 1].end
        self.changes.append((first, last, "!(" + self.source[first:last] + ")"))

    def _returns_bool(self, token):
        heads = re.findall(r"^[ \t]*(?:(?:static|inline|constexpr|virtual|\[\[\w+\]\])\s+)*"
                           r"([\w:<>]+[*&]?) [\w:~]+\(", self.source[:token.begin], re.MULTILINE)
        heads = [head for head in heads if head not in ("return", "else", "throw", "new")]
        return bool(heads) and heads[-1] in ("bool", "BOOL")

    def _starts_statement(self, index):
        if self._text(index) in NOT_CALLED:
            return False
        before = self._text(index - 1)
        if before == ")":
            opening = next((at for at, to in self.partners.items() if to == index - 1), 0)
            return self._text(opening - 1) in ("if", "for", "while")
        return before in (";", "{", "}", "else")

    def _remove_call(self, index):
        """Removes `name(...)`, also of a member, when it is a whole statement."""
        at, called = index, False
        while self._text(at) != ";":
            token = self.tokens[at] if at < len(self.tokens) else None
            if token is None or token.text in ("=", "{", "}") or token.text in BINARY:
                return
            if token.kind == "name" and at > index:
                before = self.tokens[at - 1]
                if before.kind == "name" or before.text in (">", "*", "&"):
                    return  # a declaration
            called = token.text == "("
            at = self.partners.get(at, at) + 1
        if called:
            self.changes.append((self.tokens[index].begin, self.tokens[at - 1].end, ""))


def mutants_of(path, source):
    """All mutants of the file at `path`, in the order of their places."""
    return described(path, source, Finder(source).find())


def replacement(path, source, before, after):
    """The mutant that has `after` for the one `before`."""
    if source.count(before) != 1:
        raise SystemExit(f"{path} has {source.count(before)} times: {before}")
    begin = source.index(before)
    return described(path, source, [(begin, begin + len(before), after)])[0]


def described(path, source, changes):
    starts = [0] + [match.end() for match in re.finditer("\n", source)]
    lines, seen, repeats = source.split("\n"), {}, []
    for text in lines:
        seen[text] = seen.get(text, 0) + 1
        repeats.append(seen[text])
    mutants, line = [], 0
    for begin, end, after in changes:
        while line + 1 < len(starts) and starts[line + 1] <= begin:
            line += 1
        column = begin - starts[line] + 1
        before = source[begin:end]
        name = "\0".join((path, lines[line], str(repeats[line]), str(column), before, after))
        key = hashlib.sha256(name.encode()).hexdigest()[:16]
        mutants.append(Mutant(path, begin, end, line + 1, column, before, after, key))
    return mutants


def in_order_of_seed(mutants, seed):
    """An order that one changed line of a source leaves nearly as it was."""
    return sorted(mutants, key=lambda mutant: hashlib.sha256(
        f"{seed}/{mutant.key}".encode()).digest())
