# SPDX-License-Identifier: MIT
"""What firmware starts of each class of disks: results.tsv, which the scenarios compare with what they see, and the table
that docs/platform.md has of it.
    results.py            fails when the table is another
    results.py --write    writes it
"""
import sys
from pathlib import Path

HERE = Path(__file__).parent
FILE = HERE / "results.tsv"
DOCUMENT = HERE.parent.parent / "docs/platform.md"
BEGIN = "<!-- tests/firmware/results.py writes what follows -->\n"
END = "<!-- tests/firmware/results.py wrote this -->\n"

# Of a class on one firmware: whether the short and the full form started; what its own option is against the full form;
# the full form in front of the partition; what else there is to say.
COLUMNS = ["class", "firmware", "short", "full", "own", "path", "note"]
HEADINGS = ["disk", "firmware", "short form", "full form", "the firmware's own option", "full form, before the partition",
            "remarks"]


def read():
    """The rows of the file, by column."""
    heading, *lines = FILE.read_text().splitlines()
    assert heading.split("\t") == COLUMNS, f"{FILE}: the columns are {heading}"
    rows = [line.split("\t") for line in lines]
    for row in rows:
        assert len(row) == len(COLUMNS), f"{FILE}: {row}"
    return [dict(zip(COLUMNS, row)) for row in rows]


def write(rows):
    lines = [COLUMNS, *([row[column] for column in COLUMNS] for row in rows)]
    FILE.write_text("".join("\t".join(line) + "\n" for line in lines))


def hold(firmware, seen, record=False):
    """Compares the rows that were seen of a firmware with those of the file, or records them in their place."""
    if record:
        others = [row for row in read() if row["firmware"] != firmware] if FILE.exists() else []
        write(sorted([*others, *seen], key=lambda row: row["firmware"]))
        return
    recorded = [row for row in read() if row["firmware"] == firmware]
    for was, now in zip(recorded, seen):
        assert was == now, f"recorded: {was}\nseen: {now}"
    assert len(recorded) == len(seen), f"{len(recorded)} rows of {firmware} are recorded, {len(seen)} were seen"


def table():
    """The rows as a table of the document."""
    def line(cells):
        return "| " + " | ".join(cell.replace("|", "\\|") for cell in cells) + " |\n"

    rows = [line([row[column] for column in COLUMNS]) for row in read()]
    return "".join([line(HEADINGS), "|" + "---|" * len(HEADINGS) + "\n", *rows])


def main(arguments):
    text = DOCUMENT.read_text()
    before, _, rest = text.partition(BEGIN)
    written, mark, after = rest.partition(END)
    if not mark:
        sys.exit(f"{DOCUMENT}: the marks of the table are gone")
    if arguments == ["--write"]:
        DOCUMENT.write_text(before + BEGIN + table() + END + after)
    elif arguments:
        sys.exit(__doc__)
    elif written != table():
        sys.exit(f"The table in {DOCUMENT} is not that of {FILE}:\n'python3 tests/firmware/results.py --write' writes it.")


if __name__ == "__main__":
    main(sys.argv[1:])
