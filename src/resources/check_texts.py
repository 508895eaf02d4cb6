#!/usr/bin/env python3
"""Checks a language's texts against the table of messages.

Usage: check_texts.py messages.def tallowin<language>.rc CODE_PAGE [ENGLISH SAME...]

Prints a line for each fault, and fails if there is one: a text that is missing, given twice or not
in the table; conversions that differ from the table's or come in another order; a character that
the language's ANSI code page does not have. With ENGLISH, the English texts, also a text that is
still English, but for the messages SAME, whose words are the same in that language.
"""

import re
import sys

# What may stand between '%' and the letter, and which letters a conversion of the table allows.
CONVERSION = re.compile(r"%(-?0?\d*(?:\.\d+)?)(.?)", re.DOTALL)
TABLE_LINE = re.compile(r'^TALLOW_MESSAGE\((\d+), \w+, "([sduf]*)"\)', re.MULTILINE)
LITERAL = re.compile(r'"((?:[^"]|"")*)"')
ENTRY = re.compile(r'(\d+)\s*,\s*((?:"(?:[^"]|"")*"\s*)+)')
ESCAPE = re.compile(r'\\(["\\nt])|""')


def read_table(text):
    """The argument letters of each id in messages.def."""
    return {int(number): arguments for number, arguments in TABLE_LINE.findall(text)}


def unescape(literals):
    plain = {"n": "\n", "t": "\t", "\\": "\\", '"': '"', None: '"'}
    return ESCAPE.sub(lambda match: plain[match.group(1)], "".join(LITERAL.findall(literals)))


def read_texts(source):
    """The (id, text) pairs of a resource script's string tables, in their order."""
    tables = re.findall(r"^STRINGTABLE\s+BEGIN\s(.*?)^END$", source, re.DOTALL | re.MULTILINE)
    texts = []
    for table in tables:
        rest = ENTRY.sub("", table).strip()
        if rest:
            raise ValueError(f"not understood: {rest.splitlines()[0]}")
        texts += [(int(number), unescape(text)) for number, text in ENTRY.findall(table)]
    return texts


def conversions(text):
    """The letters of a text's conversions; a lone '%' is an empty one."""
    return [letter for _, letter in CONVERSION.findall(text)]


def faults(table, texts, code_page):
    """One line for each fault of a language's texts."""
    seen = set()
    for number, text in texts:
        if number not in table:
            yield f"message {number} is not in the table"
            continue
        if number in seen:
            yield f"message {number} has two texts"
        seen.add(number)
        if not text.strip():
            yield f"message {number} is empty"
        if conversions(text) != list(table[number]):
            wanted = " ".join("%" + letter for letter in table[number]) or "no conversion"
            yield f"message {number} needs {wanted}, in this order: {text!r}"
        try:
            text.encode(code_page)
        except UnicodeEncodeError as error:
            yield f"message {number}: code page {code_page} has no {text[error.start]!r}"
    for number in sorted(table.keys() - seen):
        yield f"message {number} has no text"


def untranslated(english, texts, same):
    """One line for each text that equals the English one though none says that it should, and for
    each that should and does not."""
    for number, text in texts:
        if text == english.get(number) and number not in same:
            yield f"message {number} is still English: {text!r}"
        if text != english.get(number) and number in same:
            yield f"message {number} is named as the same in English, and is not"


def main(arguments):
    if len(arguments) < 3:
        print(__doc__.strip(), file=sys.stderr)
        return 2
    table_path, texts_path, code_page, *english_and_same = arguments
    with open(table_path, encoding="utf-8") as file:
        table = read_table(file.read())
    with open(texts_path, encoding="utf-8") as file:
        texts = read_texts(file.read())
    found = list(faults(table, texts, f"cp{code_page}"))
    if english_and_same:
        english_path, *same = english_and_same
        with open(english_path, encoding="utf-8") as file:
            english = dict(read_texts(file.read()))
        found += untranslated(english, texts, {int(number) for number in same})
    for fault in found:
        print(f"{texts_path}: {fault}", file=sys.stderr)
    return 1 if found or not table else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
