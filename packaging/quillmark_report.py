"""What the doctor has found, and how it is printed."""

import unicodedata

OK, WARNING, FAILURE = "ok", "warning", "failure"
MARKS = {OK: "  ok ", WARNING: "note ", FAILURE: "FAIL "}

# What looks like nothing, though Unicode counts it among letters, marks and signs: fillers, joiners, variation selectors.
INVISIBLE = {0x034F, 0x115F, 0x1160, 0x17B4, 0x17B5, 0x2800, 0x3164, 0xFFA0}
INVISIBLE.update(range(0x180B, 0x1810), range(0xFE00, 0xFE10), range(0xE0100, 0xE01F0))


class Report:
    """The findings, in order. A failure is what keeps a signature from being made; a warning may, or may later."""

    def __init__(self):
        self.findings = []

    def add(self, check, level, text, remedy=None):
        self.findings.append({"check": check, "level": level, "text": text, "remedy": remedy})

    @property
    def could_sign(self):
        return all(finding["level"] != FAILURE for finding in self.findings)

    def show(self):
        for finding in self.findings:
            print(MARKS[finding["level"]] + visible(finding["text"]))
            if finding["remedy"]:
                print(f"        -> {visible(finding['remedy'])}")
        print()
        print(
            "A signature can be made, as far as can be seen."
            if self.could_sign
            else "No signature can be made until what FAILs above is put right."
        )


def visible(text):
    """The text with each character that steers the terminal, reorders the line or looks like nothing as its number, <U+001B>.

    Names come from tokens, certificates and files, that is, from anybody.
    """
    return "".join(f"<U+{ord(each):04X}>" if is_hidden(each) else each for each in text)


def is_hidden(character):
    return character != " " and (unicodedata.category(character)[0] in "CZ" or ord(character) in INVISIBLE)
