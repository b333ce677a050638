"""What expressions of C++ say: the texts that an expression of std::string may be, as far as the sources tell."""

import re

ANYTHING = "\0"  # stands for any text in a message
MORE = "\1"  # the same, where the sources append texts of their own

STRING = re.compile(r'"((?:[^"\\]|\\.)*)"', re.DOTALL)
LETTER = re.compile(r"'(?:[^'\\]|\\.)'")


def skip(text, place):
    """The place behind the text, letter or bracket that begins at @p place, or behind what else stands there."""
    quoted = STRING.match(text, place) or LETTER.match(text, place)
    if quoted:
        return quoted.end()
    return end_of(text, place + 1) if text[place] in "([{" else place + 1


def end_of(text, begin):
    """The place behind the bracket that closes the one before @p begin."""
    place = begin
    while text[place] not in ")]}":
        place = skip(text, place)
    return place + 1


def statement(text, begin):
    """What stands from @p begin to the next semicolon outside of brackets and quotes."""
    place = begin
    while text[place] != ";":
        place = skip(text, place)
    return text[begin:place]


def split(expression, separator):
    """The parts of an expression between separators outside of brackets and quotes."""
    parts = []
    begin = place = 0
    while place < len(expression):
        if expression.startswith("::", place):
            place += 2
        elif expression[place] == separator:
            parts.append(expression[begin:place].strip())
            place = begin = place + 1
        else:
            place = skip(expression, place)
    return [*parts, expression[begin:].strip()]


def literal(text):
    text = re.sub(r'"\s*"', "", text.strip())  # several in a row are one
    return text[1:-1].replace('\\"', '"').replace("\\\\", "\\").split("\\n")[0]


class Source:
    """A file, and what its expressions say."""

    def __init__(self, path, text):
        self.path = path
        self.text = text

    def messages(self, expression, place):
        """What the expression may be, with ANYTHING for what is not known; @p place is where it stands."""
        branches = split(expression, "?")
        if len(branches) == 2:
            chosen = split(branches[1], ":")
            return [message for branch in chosen for message in self.messages(branch, place)]
        texts = [""]
        for part in split(expression, "+"):
            texts = [text + more for text in texts for more in self.part(part, place)]
        return texts

    def part(self, part, place):
        whole = re.fullmatch(r'(?:std::string\()?((?:"(?:[^"\\]|\\.)*"\s*)+)\)?', part, re.DOTALL)
        if whole:
            return [literal(whole[1])]
        if part.startswith("(") and end_of(part, 1) == len(part):
            return self.messages(part[1:-1], place)
        if part.startswith("fmt::format("):
            form = split(part[len("fmt::format("):-1], ",")[0]
            runtime = re.fullmatch(r"fmt::runtime\((\w+)\)", form)
            return [re.sub(r"\{[^}]*\}", ANYTHING, text)
                    for text in self.messages(runtime[1] if runtime else form, place)]
        if re.fullmatch(r"\w+", part):
            return self.variable(part, place)
        # What a text begins with before more is appended to it.
        chain = re.match(r"(\w+)\.append\(", part)
        return [ANYTHING] if chain is None else self.variable(chain[1], place)

    def variable(self, name, place):
        """What the nearest definition before the place gives it; more may have been appended since."""
        found = None
        for found in re.finditer(rf"(?:std::string|auto|char\* const)&? {name}(?:\[\])?(?: = |\(|{{|;)", self.text[:place]):
            pass
        if found is None:
            return [ANYTHING]
        begin = found.end()
        if found[0].endswith(";"):
            return [MORE]
        value = statement(self.text, begin) if found[0].endswith(" = ") else self.text[begin:end_of(self.text, begin) - 1]
        return [message + MORE for message in self.messages(value, begin)]
