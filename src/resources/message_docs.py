#!/usr/bin/env python3
"""Writes docs/messages.md from the English texts and the notes beside them.

With --check, writes nothing and fails if docs/messages.md is not up to date.
"""

import pathlib
import sys
import tomllib

RESOURCES = pathlib.Path(__file__).resolve().parent
ROOT = RESOURCES.parent.parent
PAGE = ROOT / "docs" / "messages.md"
sys.dont_write_bytecode = True  # beside the sources
from check_texts import read_table, read_texts  # noqa: E402

HEAD = """\
<!-- Made by src/resources/message_docs.py; do not edit. -->
# Messages

Every text that the module shows to a person, in the order of the numbers that the
[log](operator-guide.md#the-log) has before them. The numbers are the same in every language. The
texts here are the English ones. A `%s`, `%d`, `%u` or `%.1f` stands for a value that is named below
the text. A reason that the system gives is in the language of Windows.

A failed request has a [return code](host-guide.md#return-codes). With 34 the host also gets the
message's text. With any other code, only the log has the text.
"""


def entry(number, text, note):
    lines = [f"## {number}", "", "```text", text, "```", "", note["seen"]]
    if "inserts" in note:
        lines += ["", "Values: " + "; ".join(note["inserts"]) + "."]
    lines += ["", note["meaning"]]
    if "action" in note:
        lines += ["", f"**What to do:** {note['action']}"]
    return "\n".join(lines) + "\n"


def page():
    """The text of docs/messages.md. Raises ValueError for notes that do not fit the messages."""
    table = read_table((RESOURCES / "messages.def").read_text(encoding="utf-8"))
    texts = dict(read_texts((RESOURCES / "tallowinenu.rc").read_text(encoding="utf-8")))
    notes = {int(number): note for number, note in
             tomllib.loads((RESOURCES / "messages.toml").read_text(encoding="utf-8")).items()}
    for number in sorted(table.keys() ^ notes.keys()):
        raise ValueError(f"messages.toml: message {number} is "
                         + ("missing" if number in table else "not in messages.def"))
    for number, note in notes.items():
        if len(note.get("inserts", [])) != len(table[number]):
            raise ValueError(f"messages.toml: message {number} takes {len(table[number])} values")
    return "\n".join([HEAD] + [entry(number, texts[number], notes[number]) for number in table])


def main(arguments):
    if arguments not in ([], ["--check"]):
        print(__doc__.strip(), file=sys.stderr)
        return 2
    wanted = page()
    if not arguments:
        PAGE.write_text(wanted, encoding="utf-8")
    elif not PAGE.exists() or PAGE.read_text(encoding="utf-8") != wanted:
        print("docs/messages.md is not up to date: run src/resources/message_docs.py", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
