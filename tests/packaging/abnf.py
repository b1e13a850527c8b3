"""A grammar in ABNF as regular expressions: strings, groups, options, repetitions and rules that
are not recursive, which is what the message's grammar needs."""
import re

CORE = {"digit": "[0-9]"}


class Grammar:
    def __init__(self, text):
        self.rules = dict(CORE)
        # A line that begins with a blank continues the rule before it.
        for rule in re.sub(r"\n[ \t]+", " ", text.strip()).splitlines():
            name, definition = rule.split("=", 1)
            self.rules[name.strip().lower()] = definition.strip()
        self.done = dict(CORE)

    def pattern(self, rule):
        """The regular expression of a rule; KeyError without a rule of that name."""
        name = rule.lower()
        if name not in self.done:
            parser = _Parser(self, self.rules[name])
            self.done[name] = parser.alternatives()
            if parser.rest():
                raise ValueError(f"not understood in {rule}: {parser.rest()}")
        return self.done[name]

    def matches(self, rule, text):
        return re.fullmatch(self.pattern(rule), text) is not None


class _Parser:
    def __init__(self, grammar, text):
        self.grammar = grammar
        self.text = text
        self.position = 0

    def rest(self):
        return self.text[self.position:].lstrip()

    def take(self, pattern):
        match = re.compile(r"\s*" + pattern).match(self.text, self.position)
        if match:
            self.position = match.end()
        return match

    def alternatives(self):
        choices = [self.sequence()]
        while self.take("/"):
            choices.append(self.sequence())
        return "(?:" + "|".join(choices) + ")"

    def sequence(self):
        parts = []
        while self.rest() and self.rest()[0] not in "/)]":
            parts.append(self.repetition())
        return "".join(parts)

    def repetition(self):
        count = self.take(r"(\d*)\*(\d*)")
        if count:
            low, high = count.group(1) or "0", count.group(2)
            return f"{self.element()}{{{low},{high}}}"
        count = self.take(r"(\d+)")
        return self.element() + (f"{{{count.group(1)}}}" if count else "")

    def element(self):
        if self.take(r"\("):
            inner = self.alternatives()
            self.expect(r"\)")
            return inner
        if self.take(r"\["):
            inner = self.alternatives()
            self.expect(r"\]")
            return inner + "?"
        literal = self.take(r'(%s)?"([^"]*)"')
        if literal:
            quoted = re.escape(literal.group(2))
            return f"(?:{quoted})" if literal.group(1) else f"(?i:{quoted})"
        name = self.expect(r"([A-Za-z][\w-]*)")
        return self.grammar.pattern(name.group(1))

    def expect(self, pattern):
        match = self.take(pattern)
        if not match:
            raise ValueError(f"expected {pattern} at: {self.rest()}")
        return match
