#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Fails for a message of src/encode that no case expects, for a keyword without its usual cases, and for a behaviour
marked as kept without the case that shows it.

usage: coverage.py ROOT
"""
import pathlib
import re
import sys

root = pathlib.Path(sys.argv[1])
LITERAL = r'"(?:[^"\\]|\\.)*"'
# A guard that nothing reaches: the count of arguments is taken from the same text, every row of the table has an
# encoder, and the C library reports no overflow for so few digits.
UNREACHABLE = {
    r"error processing too many arguments argc = %d\n",
    r"encoder for %s not available\n",
    r"unable to strtolu numeric part of EISAIDID: %s\n",
    r"can't convert Data1_str: %s %s\n",
    r"can't convert Data2_str\n",
    r"can't convert Data3_str\n",
    r"can't convert Data4_str\n",
    r"encode_arg_hexdump: strtoull failed\n",
}

# The case that shows what a mark in a source says; the mark is told by words of it.
KEPT = {
    ("acpi.cpp", '"apci"'): "kept_apci_spelling",
    ("acpi.cpp", "UID is an EISA identifier"): "kept_acpiex_uid_is_an_eisa_identifier",
    ("acpi.cpp", "its CIDSTR is ignored"): "kept_acpiexp_third_argument_is_ignored",
    ("disk.cpp", "two blanks"): "kept_ata_drive_2_with_two_blanks",
    ("disk.cpp", "port carries LUN"): "kept_sata_port_carries_lun",
    ("epath.cpp", "nothing is packed"): "kept_names_of_the_tree_are_accepted_without_a_path",
    ("getters.cpp", "have no line end"): "kept_eisaid_messages_have_no_line_end",
    ("getters.cpp", "ends the number"): "kept_eisaid_number_ends_at_the_first_other_character",
    ("getters.cpp", "other characters end the number"): "kept_guid_fields_end_at_the_first_other_character",
    ("hardware.cpp", "opening quote"): "kept_pci_function_8_without_the_opening_quote",
    ("hardware.cpp", '"memap"'): "kept_memap_spelling",
    ("media.cpp", "leaves the format unset"): "kept_hd_type_2_leaves_the_format_unset",
    ("media.cpp", "passed over for the whole disk"): "kept_hd_whole_disk_passes_over_a_malformed_start_and_size",
    ("media.cpp", "Entry is read under a name"): "kept_cdrom_entry_is_read_under_another_name",
    ("media.cpp", "that of Media"): "kept_offset_speaks_of_media",
    ("network.cpp", "words of Type"): "kept_ipv4_type_is_no_word",
    ("network.cpp", "gateway is always zeros"): "kept_ipv6_gateway_stays_zeros",
    ("network.cpp", "the name is UCS-2"): "kept_iscsi_target_name_is_ucs2",
    ("sas.cpp", "only the words work"): "kept_sas_number_is_looked_up_with_three_s",
    ("sas.cpp", "takes the place of what SASSATA said"): "kept_sas_number_of_location_replaces_the_sas_bit",
    ("sas.cpp", "of bay 0"): "kept_sas_bay_0_sets_all_eight_bits",
    ("sas.cpp", "missing blank"): "kept_sas_location_without_topology_in_these_words",
    ("terminal.cpp", "case counts here"): "kept_uart_stop_bits_d_in_lower_case_is_no_word",
    ("terminal.cpp", "21 bytes"): "kept_uartflowctrl_node_of_21_bytes",
    ("terminal.cpp", "that of VenVt100Plus"): "kept_venutf8_speaks_of_vt100plus",
    ("usb.cpp", "not looked at"): "kept_usbirdabridge_subclass_is_not_looked_at",
    ("usb.cpp", "one byte more"): "kept_usbwwid_length_counts_one_byte_more",
    ("usb.cpp", "read from PID again"): "kept_usbwwid_interface_number_is_that_of_pid",
}


def literals(text):
    """String literals, adjacent ones as one."""
    tokens = rf"""//[^\n]*|/\*.*?\*/|#include[^\n]*|'(?:[^'\\]|\\.)+'|(?P<text>{LITERAL}(?:\s*{LITERAL})*)"""
    for found in re.finditer(tokens, text, re.DOTALL):
        if found["text"]:
            yield "".join(part[1:-1] for part in re.findall(LITERAL, found["text"])).replace(r"\"", '"')


def messages(sources):
    """What looks like a message: several words, or a line end."""
    for source in sources:
        for text in literals(source.read_text()):
            if (" " in text.strip() or text.endswith(r"\n")) and text != "%s":
                yield text


def shape(message):
    """A regular expression for the message with whatever it shows."""
    parts = re.split(r"%(?:[a-z]*[dsux])", message)
    return re.compile(".*?".join(map(re.escape, parts)), re.DOTALL)


sources = sorted((root / "src/encode").glob("*.cpp"))
tables = sorted((root / "tests/data").glob("encode_*.tsv"))
tests = sorted((root / "tests/encode").glob("*.[ch]*")) + [root / "tests/osmap/epath_test.cpp"]
expected = "\n".join(table.read_text() for table in tables)
expected += "\n".join(text for test in tests for text in literals(test.read_text()))
names = {line.split("\t")[0] for table in tables for line in table.read_text().splitlines()}
names |= {name for test in tests for name in re.findall(r"TEST(?:_[FP])?\(\w+, (\w+)\)", test.read_text())}
findings = []

wanted = set(messages(sources))
if len(wanted) < 100:
    findings.append(f"only {len(wanted)} messages found: the sources were not understood")
for message in sorted(wanted - UNREACHABLE):
    if not shape(message).search(expected):
        findings.append(f"no case expects: {message}")
for message in sorted(UNREACHABLE - wanted):
    findings.append(f"no longer in the sources: {message}")



def wrong_usual_case(keyword, parameters, case, rows):
    """What a keyword's rows of a usual case lack, together when one cannot give every parameter; nothing if all is
    well."""
    given = [re.fullmatch(r"([^(]*)\((.*)\)", row, re.DOTALL) for row in rows]
    if not given or not all(given):
        return "is missing"
    if {call[1].lower() for call in given} != {keyword.lower()}:
        return "is of another keyword"
    fields = [call[2].split(",") if call[2] else [] for call in given]
    if case == "all_positional":
        short = max(map(len, fields)) != len(parameters) or any("=" in field for call in fields for field in call)
        return f"has not {len(parameters)} fields" if short else ""
    names = [field.partition("=")[0] for call in fields for field in call if "=" in field]
    if case in ("all_named", "odd_case") and sorted(set(map(str.lower, names))) != sorted(map(str.lower, parameters)):
        return "does not name every parameter"
    if case == "odd_case" and (keyword in {call[1] for call in given} or set(names) & set(parameters)):
        return "is in the usual case"
    return ""


texts = {row[0].removeprefix("kept_"): row[1] for table in tables
         for row in (line.split("\t") for line in table.read_text().splitlines()) if len(row) > 2}
keywords = [line.split("\t") for line in (root / "tests/data/encode_keywords.tsv").read_text().splitlines()
            if not line.startswith("#")]
for keyword, *parameters in keywords:
    parameters = parameters[0].split() if parameters else []
    usual = ["minimal", "odd_case"]
    if parameters and parameters != ["-"]:
        usual += ["all_named", "all_positional"]
    for case in usual:
        name = f"{keyword.lower()}_{case}"
        rows = [text for row, text in texts.items() if row == name or row.startswith(name + "_")]
        wrong = wrong_usual_case(keyword, [one for one in parameters if one != "-"], case, rows)
        if wrong:
            findings.append(f"the case {name} {wrong}")

marks = [(source.name, re.sub(r"\s+(//)?\s*", " ", mark)) for source in sources
         for mark in re.findall(r"Kept:((?:[^\n]*\n\s*//)*[^\n]*)", source.read_text())]
for source, mark in marks:
    shown = [case for (place, words), case in KEPT.items() if place == source and words in mark]
    if not shown:
        findings.append(f"{source}: no case is known for what is kept:{mark}")
    findings += [f"{source}: there is no case {case}" for case in shown if case not in names]
for (place, words), case in KEPT.items():
    if not any(place == source and words in mark for source, mark in marks):
        findings.append(f"{place}: nothing is kept any more of: {words}")

print("\n".join(findings) or f"{len(wanted)} messages, {len(keywords)} keywords, {len(marks)} kept behaviours")
sys.exit(bool(findings))
