"""Where a single fault can be planted in a C++ source, and what it looks like.

Works on tokens. Where C++ cannot be told apart without its types (a template's angle bracket from a comparison, a
pointer's star from a product), the layout that clang-format keeps decides: a binary operator stands between spaces.
"""
import re
from dataclasses import dataclass

TOKEN = re.compile(r"""
    (?P<space> (?:\s|\\\n|//[^\n]*|/\*.*?\*/)+ )
  | (?P<str> (?:u8|[uUL])? (?: R"(?P<mark>[^(\s]*)\(.*?\)(?P=mark)" | "(?:\\.|[^"\\\n])*" ) )
  | (?P<chr> '(?:\\.[^']*|[^'\\\n])' )
  | (?P<num> \.?\d(?:[eE][+-](?=\d)|'\w|[\w.])* )
  | (?P<id> [A-Za-z_]\w* )
  | (?P<op> <<=|>>=|<=>|\.\.\.|->|::|[-+*/%&|^=!<>]=|&&|\|\||\+\+|--|<<|>>|. )
""", re.X | re.S)
DIRECTIVE = re.compile(r"#\s*(define\s+\w+(\([^)]*\))?|(?:\\\n|[^\n])*)")

# Operators between spaces, and what each turns into.
BINARY = {
    "compare": {"==": "!=", "!=": "==", "<": "<=", "<=": "<", ">": ">=", ">=": ">"},
    "logic": {"&&": "||", "||": "&&"},
    "arithmetic": {"+": "-", "-": "+", "*": "/", "/": "*", "%": "*", "+=": "-=", "-=": "+=", "*=": "/=", "/=": "*="},
    "bits": {"&": "|", "|": "&", "^": "|", "<<": ">>", ">>": "<<", "&=": "|=", "|=": "&=", "^=": "|="},
    "choice": {"?": "|| true ?"},
}
WORDS = {
    "level": {"OIS_ERROR": "OIS_INFO", "OIS_INFO": "OIS_DEBUG", "OIS_DEBUG": "OIS_INFO", "kError": "kInfo",
              "kInfo": "kDebug", "kDebug": "kInfo", "ANDROID_LOG_ERROR": "ANDROID_LOG_DEBUG",
              "ANDROID_LOG_DEBUG": "ANDROID_LOG_ERROR"},
    "bool": {"true": "false", "false": "true"},
}
CONTROLS = {"if", "for", "while", "switch"}
NOT_DROPPED = CONTROLS | {"else", "do", "case", "default", "using", "typedef", "static_assert", "goto", "try", "catch",
                          "const", "constexpr", "static", "auto", "struct", "class", "enum", "union", "public",
                          "private", "protected", "template", "namespace", "friend", "extern", "thread_local"}
# Words whose parentheses hold nothing that runs; so do those of macros that expand to a static_assert.
NOT_RUN = {"static_assert", "alignas", "__attribute__", "decltype"}
# A string's characters: an escape or conversion as a whole, or a plain one.
CHARACTER = re.compile(r"\\x[\da-fA-F]+|\\\d+|\\.|%[-+ #0]*[\d*]*(?:\.[\d*]+)?[hlzjt]*[a-zA-Z%]|(?P<plain>.)", re.S)
ASSERTING_MACRO = re.compile(r"#\s*define\s+(\w+)\([^)]*\)(?:\\\n|\s)*static_assert")
AXIS = re.compile(r"(?<=[a-z])[XY](?=[a-z]?$)|(?<=_)[xy]$|^[xy]$")
SWAPPED_AXES = str.maketrans("XYxy", "YXyx")


@dataclass
class Token:
    kind: str
    text: str
    start: int
    end: int
    macro: bool  # in the body of a #define


@dataclass
class Site:
    file: str
    line: int
    column: int
    kind: str
    start: int
    end: int
    new: str
    fault: str

    @property
    def id(self):
        return f"{self.file}:{self.line}:{self.column}:{self.kind}"

    def apply(self, text):
        return text[:self.start] + self.new + text[self.end:]

    def lines(self, text):
        """The lines before and after."""
        first = text.rfind("\n", 0, self.start) + 1
        last = text.find("\n", self.end)
        return tuple(" ".join(part.split()) for part in
                     (text[first:last], text[first:self.start] + self.new + text[self.end:last]))


def tokens_of(text):
    tokens, at, macro_end = [], 0, 0
    while at < len(text):
        if text[at] == "#" and not text[text.rfind("\n", 0, at) + 1:at].strip():
            directive = DIRECTIVE.match(text, at)
            at = directive.end()
            if directive[1].startswith("define"):
                macro_end = re.compile(r"(?:\\\n|[^\n])*").match(text, at).end()
            continue
        match = TOKEN.match(text, at)
        if match.lastgroup != "space":
            kind = "str" if match["str"] else match.lastgroup
            tokens.append(Token(kind, match[0], at, match.end(), at < macro_end))
        at = match.end()
    return tokens


@dataclass
class Vocabulary:
    """What one file's faults take from all of the driver's files."""
    constants: dict  # Type -> names of the form Type::kName that are used anywhere, for wrong-name faults
    not_run: set


def vocabulary_of(texts):
    constants, not_run = {}, set(NOT_RUN)
    for text in texts:
        not_run.update(ASSERTING_MACRO.findall(text))
        tokens = tokens_of(text)
        for scope, colons, name in zip(tokens, tokens[1:], tokens[2:]):
            if colons.text == "::" and scope.text[0].isupper() and re.match(r"k[A-Z]", name.text):
                constants.setdefault(scope.text, set()).add(name.text)
    return Vocabulary({scope: sorted(names) for scope, names in constants.items()}, not_run)


def other_integer(text):
    """The literal moved by one, in the same notation; down where it is all ones."""
    prefix, digits, suffix = re.fullmatch(r"(0[xXbB]|0(?=[\d'])|)([\da-fA-F']+)([uUlLzZ]*)", text).groups()
    base = {"": 10, "0": 8}.get(prefix) or {"x": 16, "b": 2}[prefix[1].lower()]
    value = int(digits.replace("'", ""), base)
    value += -1 if value > 1 and value.bit_length() % 8 in (0, 7) and value & (value + 1) == 0 else 1
    form = {2: "b", 8: "o", 10: "d", 16: "x" if digits.islower() else "X"}[base]
    width = len(digits) if base != 10 else 0
    return prefix + format(value, f"0{width}{form}") + suffix


def other_number(text):
    if re.fullmatch(r"0[xX].*|[\d']+[uUlLzZ]*|0[bB].*", text):
        return other_integer(text)
    # A float has about seven digits, so the last one of a long number would make no difference.
    return re.sub(r"^\d*", lambda whole: str(int(whole[0] or 0) + 10 ** max(0, len(whole[0]) - 6)), text)


def other_character(character):
    if character.isalnum():
        return {"z": "a", "Z": "A", "9": "0"}.get(character) or chr(ord(character) + 1)
    return "_" if character == " " else "~"


def other_string(text):
    """One plain character in the middle altered; escapes and conversions stay as they are."""
    body = text.index('"') + 1
    if "R" in text[:body]:
        return text.replace("(", "(~", 1)
    plain = [match.start() for match in CHARACTER.finditer(text[body:-1]) if match["plain"]]
    if not plain:
        return text[:body] + "~" + text[body:]
    at = body + plain[len(plain) // 2]
    return text[:at] + other_character(text[at]) + text[at + 1:]


def other_char(text):
    escapes = {r"'\0'": "'0'", r"'\n'": "' '", r"'\\'": "'/'", r"'\''": "'\"'"}
    return escapes.get(text) or (f"'{other_character(text[1])}'" if len(text) == 3 else "'~'")


class Structure:
    """Brackets and statements of a token list."""

    def __init__(self, tokens):
        self.tokens = tokens
        self.partner = {}   # index of a bracket -> index of the other
        self.inside = []    # per token: index of the innermost bracket around it, or None
        self.braces = {}    # index of `{` -> namespace, type, enum, block, control, list
        stack, statement = [], 0
        for i, token in enumerate(tokens):
            if token.text in (")", "]", "}") and token.kind == "op" and stack:
                opened = stack.pop()
                self.partner[opened], self.partner[i] = i, opened
            self.inside.append(stack[-1] if stack else None)
            if token.kind == "op" and token.text in ("(", "[", "{"):
                if token.text == "{":
                    self.braces[i] = self.brace_kind(i, statement)
                stack.append(i)
            if token.text == ";" or (token.text in "{}" and self.braces.get(self.partner.get(i, i)) != "list"):
                statement = i + 1

    def text(self, i):
        return self.tokens[i].text if 0 <= i < len(self.tokens) else ""

    def scope(self, i):
        """The kind of the brace that a token stands in directly; none inside parentheses."""
        return self.braces.get(self.inside[i], "namespace" if self.inside[i] is None else None)

    def brace_around(self, i):
        """The kind of the nearest brace around a token."""
        around = self.inside[i]
        while around is not None and around not in self.braces:
            around = self.inside[around]
        return self.braces.get(around, "namespace")

    def ends_control(self, i):
        """Whether token i is the last of `if (...)`, `else` and the like."""
        if self.text(i) in ("else", "do"):
            return True
        before = self.partner.get(i, 0) - 1
        if self.text(i) != ")" or before < 0:
            return False
        return self.text(before - (self.text(before) == "constexpr")) in CONTROLS

    def brace_kind(self, i, statement):
        head = [token.text for token in self.tokens[statement:i]]
        before = self.text(i - 1)
        if "namespace" in head or head[:1] == ["extern"] and len(head) == 2:
            return "namespace"
        if "enum" in head:
            return "enum"
        if self.ends_control(i - 1):
            return "control"
        if before in (")", "]", "const", "noexcept", "override", "mutable", "try") or (
                before == "}" and ":" in head and "return" not in head):
            return "block"
        if not {"(", "="} & set(head) and {"class", "struct", "union"} & set(head):
            return "type"
        if self.text(i - 2) == "->" or "->" in head[-6:] and ")" in head and "=" not in head and ";" not in head:
            return "block"  # behind a trailing return type
        if before in (";", "{", "}", ":", "") and self.scope(i) in ("block", "control"):
            return "block"
        return "list"

    def starts_statement(self, i):
        if self.scope(i) not in ("block", "control"):
            return False
        before = self.text(i - 1)
        if before == ":":  # of a label
            j = i - 1
            while j > 0 and self.text(j) not in ("case", "default", ";", "{", "}", "?"):
                j -= 1
            return self.text(j) in ("case", "default")
        ended = before in (";", "{") or (before == "}" and self.braces.get(self.partner.get(i - 1)) != "list")
        return ended or self.ends_control(i - 1)

    def statement_end(self, i):
        while i < len(self.tokens) and self.text(i) not in (";", ")", "]", "}"):
            i = self.partner.get(i, i) + 1
        return i

    def pure_virtual(self, i):
        texts = self.text(i - 1), self.text(i), self.text(i + 1)
        return texts in ((")", "=", "0"), ("const", "=", "0")) and self.scope(i) == "type"

    def skipped(self, not_run):
        """Indices of tokens that hold nothing to get wrong at run time."""
        skipped, i = set(), 0
        while i < len(self.tokens):
            text, end = self.text(i), i
            if text in not_run or (text == "noexcept" and self.text(i + 1) == "("):
                end = self.partner.get(i + 1, i)
            elif text == "[" and self.text(i + 1) == "[":
                end = self.partner.get(i, i)
            elif text == "template":
                depth, end = 0, i + 1
                while end < len(self.tokens):
                    depth += self.text(end).count("<") - self.text(end).count(">")
                    if depth <= 0:
                        break
                    end += 1
            elif text == "while" and self.text(i + 2) == "false":
                end = i + 3  # the end of a macro's do block
            elif text == "throw" and i + 1 < len(self.tokens) and self.tokens[i + 1].kind == "str":
                end = self.statement_end(i)  # a message to whoever compiles
            elif text in ("operator", "extern"):
                end = i + 1
            elif self.pure_virtual(i):
                end = i + 1
            elif text.startswith("reserved") and self.scope(i) == "type":
                end = self.statement_end(i)
            else:
                i += 1
                continue
            skipped.update(range(i, end + 1))
            i = end + 1
        return skipped


def is_declaration(text, tokens):
    """Whether a statement declares something: a name follows another one, or a type's > & *, behind a space."""
    for a, b in zip(tokens, tokens[1:]):
        if b.kind == "id" and b.start > a.end and (a.kind == "id" or a.text in (">", "*", "&", "&&")):
            return not text[a.start - 1].isspace() or a.kind == "id"
        if b.text in ("=", "(", "{", ";", "[", "."):
            return False
    return False


def statement_sites(text, structure, skipped):
    tokens = structure.tokens
    for i, token in enumerate(tokens):
        if i in skipped:
            continue
        if token.text in ("if", "while"):
            opened = i + 1 + (structure.text(i + 1) == "constexpr")
            closed = structure.partner.get(opened, opened)
            start = max([opened + 1] + [j + 1 for j in range(opened, closed) if structure.text(j) == ";"])
            condition = [other.text for other in tokens[start:closed]]
            # With a single comparison or a leading ! the fault is that operator's.
            if closed > start and (not {"==", "!="} & set(condition) and condition[0] != "!"
                                   or {"&&", "||"} & set(condition)):
                first, last = tokens[start].start, tokens[closed - 1].end
                yield "negate", first, last, f"!({text[first:last]})", "condition negated"
        elif structure.starts_statement(i) and token.text not in NOT_DROPPED and token.text not in (";", "{", "}"):
            end = structure.statement_end(i)
            if token.text == "return":
                # The last return of a function stays; an early one goes.
                early = structure.scope(i) == "control" or structure.ends_control(i - 1) or structure.text(i - 1) == ":"
                if not early:
                    continue
            elif token.text not in ("delete", "throw") and is_declaration(text, tokens[i:end + 1]):
                continue
            if structure.text(end) == ";":
                dropped = " ".join(text[token.start:tokens[end].end].split())
                yield "drop", token.start, tokens[end].end, ";", f"dropped: {dropped}"


def token_sites(text, tokens, structure, skipped, constants):
    names = {token.text for token in tokens if token.kind == "id"}
    for i, token in enumerate(tokens):
        if i in skipped:
            continue
        word, before, after = token.text, tokens[i - 1] if i else None, tokens[i + 1] if i + 1 < len(tokens) else None
        change = None
        if token.kind == "op":
            spaced = text[token.start - 1].isspace() and text[token.end:token.end + 1].isspace()
            if spaced:
                change = next(((kind, turned[word]) for kind, turned in BINARY.items() if word in turned), None)
            elif word in ("++", "--"):
                change = "arithmetic", "--" if word == "++" else "++"
            elif word == "!":
                change = "not", ""
            elif word in "-~" and before and before.kind not in ("id", "num") and before.text not in (")", "]"):
                change = "sign", ""
        elif token.kind == "num":
            change = "literal", other_number(word)
        elif token.kind == "str":
            change = "text", other_string(word)
        elif token.kind == "chr":
            change = "text", other_char(word)
        else:
            declares = structure.brace_around(i) in ("type", "enum")
            change = next(((kind, turned[word]) for kind, turned in WORDS.items()
                           if word in turned and not (kind == "level" and declares)), None)
            scope = tokens[i - 2].text if i > 1 and before.text == "::" else None
            siblings = constants.get(scope, [])
            if not change and word in siblings and len(siblings) > 1:
                change = "name", siblings[(siblings.index(word) + 1) % len(siblings)]
            swapped = AXIS.sub(lambda axis: axis[0].translate(SWAPPED_AXES), word)
            if not change and swapped != word and swapped in names and not declares:
                change = "axis", swapped
        if change:
            yield change[0], token.start, token.end, change[1], f"{word} -> {change[1] or 'nothing'}"


def find_sites(file, text, vocabulary):
    """All sites of a file, in its order."""
    tokens = tokens_of(text)
    found = []
    # The bodies of macros stand outside the file's statements.
    for macro in (False, True):
        part = [token for token in tokens if token.macro == macro]
        structure = Structure(part)
        skipped = structure.skipped(vocabulary.not_run)
        found += token_sites(text, part, structure, skipped, vocabulary.constants)
        if not macro:
            found += statement_sites(text, structure, skipped)
    sites = []
    for kind, start, end, new, fault in sorted(found):
        line = text.count("\n", 0, start) + 1
        column = start - text.rfind("\n", 0, start)
        sites.append(Site(file, line, column, kind, start, end, new, fault))
    return sorted(sites, key=lambda site: site.start)
