"""What the doctor has found, what follows for each browser, and how it is printed."""

import unicodedata

OK, WARNING, UNKNOWN, FAILURE = "ok", "warning", "unknown", "failure"
MARKS = {OK: "  ok ", WARNING: "note ", UNKNOWN: "   ? ", FAILURE: "FAIL "}

# Verdicts, the best first, with what they say of a browser.
WORDS = {
    "can": "a signature can be made, as far as can be seen",
    "unknown": "whether a signature can be made cannot be told, for what is marked with ?",
    "cannot": "no signature can be made until what FAILs above is put right",
}
VERDICTS = list(WORDS)

# What looks like nothing, though Unicode counts it among letters, marks and signs: fillers, joiners, variation selectors.
INVISIBLE = {0x034F, 0x115F, 0x1160, 0x17B4, 0x17B5, 0x2800, 0x3164, 0xFFA0}
INVISIBLE.update(range(0x180B, 0x1810), range(0xFE00, 0xFE10), range(0xE0100, 0xE01F0))


class Report:
    """The findings, in order. A failure is what keeps a signature from being made; a warning may, or may later; what is
    unknown keeps the doctor from telling. A finding that names a browser by its title is about that one alone.

    A remedy is words, a command for a shell, or both.
    """

    def __init__(self):
        self.findings = []
        self._browsers = []

    def add(self, check, level, text, remedy=None, command=None, browser=None):
        self.findings.append(
            {"check": check, "level": level, "text": text, "remedy": remedy, "command": command, "browser": browser}
        )

    def add_browser(self, name, title):
        self._browsers.append((name, title))

    def is_failed(self, browser):
        return any(finding["level"] == FAILURE and finding["browser"] == browser for finding in self.findings)

    @property
    def browsers(self):
        return [{"browser": name, "title": title, "verdict": self._verdict(title)} for name, title in self._browsers]

    @property
    def verdict(self):
        """The best of the browsers' verdicts, for one browser that works is enough."""
        return min((each["verdict"] for each in self.browsers), key=VERDICTS.index, default="cannot")

    def _verdict(self, title):
        levels = {finding["level"] for finding in self.findings if finding["browser"] in (None, title)}
        if FAILURE in levels:
            return "cannot"
        return "unknown" if UNKNOWN in levels else "can"

    def show(self):
        for finding in self.findings:
            print(MARKS[finding["level"]] + visible(finding["text"]))
            remedy = ": ".join(filter(None, (finding["remedy"], finding["command"])))
            if remedy:
                print(f"        -> {visible(remedy)}")
        print()
        if len({each["verdict"] for each in self.browsers}) > 1:
            for each in self.browsers:
                print(f"{each['title']}: {WORDS[each['verdict']]}.")
        else:
            words = WORDS[self.verdict]
            print(f"{words[0].upper()}{words[1:]}.")


def visible(text):
    """The text with each character that steers the terminal, reorders the line or looks like nothing as its number, <U+001B>.

    Names come from tokens, certificates and files, that is, from anybody.
    """
    return "".join(f"<U+{ord(each):04X}>" if is_hidden(each) else each for each in text)


def is_hidden(character):
    return character != " " and (unicodedata.category(character)[0] in "CZ" or ord(character) in INVISIBLE)
