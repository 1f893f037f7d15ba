#!/usr/bin/python3
"""Prints the binary interface of libkova_simpleplayer.so and libkova_api.so of one build as text.

usage: describe.py FOLDER

FOLDER holds both libraries, with debug information, of any architecture: nothing of them is run.
Printed is what programs rely on that were compiled earlier: exported symbols, size and alignment of
classes, offset and type of their members, and their virtual tables. The members come from the debug
information; the tables are read from the library as its relocations fill them.
"""

import collections
import functools
import os
import re
import subprocess
import sys

from elftools.elf.elffile import ELFFile

LIBRARIES = ["libkova_simpleplayer.so", "libkova_api.so"]
# Classes that the library hides, but whose layout is specified.
ENGINES = ["SimplePlayerImpl", "UriSimplePlayerImpl", "DataSimplePlayerImpl",
           "StreamSimplePlayerImpl"]


@functools.lru_cache(maxsize=None)
def demangled(symbol):
    """The C++ name. Constructors and destructors include their variant."""
    name = subprocess.run(["c++filt", symbol], check=True, capture_output=True,
                          text=True).stdout.strip()
    variant = re.search(r"[CD]([012])E", symbol)
    if not variant or not re.search(r"(\w+)::~?\1\(", name):
        return name
    return f"{name} [{['deleting', 'complete', 'base'][int(variant[1])]}]"


class Symbols:
    """The symbols of a library, and its virtual tables after loading."""

    def __init__(self, elf):
        self.elf = elf
        self.word = elf.elfclass // 8
        self.tables = {}
        self.functions = collections.defaultdict(set)
        for symbol in elf.get_section_by_name(".symtab").iter_symbols():
            if symbol.name.startswith("_ZTV"):
                self.tables[symbol.name] = symbol
            elif symbol["st_info"]["type"] == "STT_FUNC":
                self.functions[symbol["st_value"]].add(symbol.name)
        self.relocated = dict(self._relocations())

    def exported(self):
        """The exported definitions, except instances of standard templates, which depend on the
        compiler."""
        symbols = self.elf.get_section_by_name(".dynsym").iter_symbols()
        return [symbol for symbol in symbols if symbol.name and symbol["st_shndx"] != "SHN_UNDEF"
                and not demangled(symbol.name).startswith("std::")]

    def public_classes(self):
        """The names of the classes whose virtual tables are exported."""
        return sorted(demangled(symbol.name).removeprefix("vtable for ")
                      for symbol in self.exported() if symbol.name.startswith("_ZTV"))

    def _relocations(self):
        """Pairs of an address and the relocated value: an address, or that of a symbol."""
        for section in self.elf.iter_sections():
            if section["sh_type"] not in ("SHT_RELA", "SHT_REL"):
                continue
            names = self.elf.get_section(section["sh_link"])
            for relocation in section.iter_relocations():
                address = relocation["r_offset"]
                if relocation["r_info_sym"]:
                    yield address, names.get_symbol(relocation["r_info_sym"]).name
                else:
                    yield address, (relocation["r_addend"] if relocation.is_RELA()
                                    else self._word_at(address))

    def _word_at(self, address):
        for segment in self.elf.iter_segments("PT_LOAD"):
            start = address - segment["p_vaddr"]
            if 0 <= start < segment["p_filesz"]:
                self.elf.stream.seek(segment["p_offset"] + start)
                return int.from_bytes(self.elf.stream.read(self.word), "little", signed=True)
        raise ValueError(f"nothing is loaded at {address:#x}")

    def _entry(self, address):
        """The content of one word of a virtual table; empty for the destructors of an abstract
        class, which are never called through the table."""
        if address not in self.relocated:
            return str(self._word_at(address) or "")
        target = self.relocated[address]
        # A body may have several names. A table refers to the complete destructor only.
        names = {target} if isinstance(target, str) else self.functions[target]
        return " = ".join(sorted(demangled(n) for n in names if not re.search(r"D2Ev$", n)))

    def virtual_table(self, name):
        """The virtual functions of a class in the order of their slots."""
        table = self.tables[f"_ZTV{len(name)}{name}"]
        end = table["st_value"] + table["st_size"]
        # The offset to the top and the type information precede the functions.
        start = table["st_value"] + 2 * self.word
        return [self._entry(address) for address in range(start, end, self.word)]


def attribute(die, name):
    """The value of an attribute of a debug information entry, or None."""
    found = die.attributes.get("DW_AT_" + name)
    return found and (found.value.decode() if isinstance(found.value, bytes) else found.value)


def parts(die):
    """Base classes and non-static data members, in the order of declaration."""
    return [child for child in die.iter_children()
            if child.tag in ("DW_TAG_inheritance", "DW_TAG_member")
            and not attribute(child, "external")]


def declared_slots(die):
    """The names of the virtual functions that a class declares, by slot."""
    # The slot is an expression: an operator that pushes the number that follows.
    return {attribute(child, "vtable_elem_location")[1]: attribute(child, "name")
            for child in die.iter_children() if attribute(child, "vtable_elem_location")}


def type_of(die):
    """The entry of the type that an entry refers to, or None for void."""
    return die.get_DIE_from_attribute("DW_AT_type") if "DW_AT_type" in die.attributes else None


def type_name(die):
    """The C++ name of a type."""
    if die is None:
        return "void"
    around = {"DW_TAG_pointer_type": "{}*", "DW_TAG_reference_type": "{}&",
              "DW_TAG_const_type": "const {}", "DW_TAG_volatile_type": "volatile {}",
              "DW_TAG_array_type": "{}[]"}
    if die.tag in around:
        return around[die.tag].format(type_name(type_of(die)))
    scope = die.get_parent()
    inside = scope.tag in ("DW_TAG_namespace", "DW_TAG_class_type", "DW_TAG_structure_type")
    return (type_name(scope) + "::" if inside else "") + (attribute(die, "name") or "(unnamed)")


def alignment(die, word):
    """The alignment of a type. For a scalar type it is the size, on amd64 and armhf."""
    if attribute(die, "alignment"):
        return attribute(die, "alignment")
    if die.tag in ("DW_TAG_class_type", "DW_TAG_structure_type", "DW_TAG_union_type"):
        # A class with virtual functions in another library, such as QObject, is not defined in this
        # debug information. QObject consists of pointers.
        if attribute(die, "declaration"):
            return word
        return max([attribute(part, "alignment") or alignment(type_of(part), word)
                    for part in parts(die)], default=1)
    if die.tag in ("DW_TAG_pointer_type", "DW_TAG_reference_type"):
        return word
    return attribute(die, "byte_size") or alignment(type_of(die), word)


def defined_classes(elf):
    """The classes outside of namespaces that a library's debug information defines, by name."""
    if not elf.has_dwarf_info():
        sys.exit(f"{elf.stream.name} has no debug information")
    return {attribute(die, "name"): die
            for unit in elf.get_dwarf_info().iter_CUs()
            for die in unit.get_top_DIE().iter_children()
            if die.tag == "DW_TAG_class_type" and not attribute(die, "declaration")}


def print_symbols(library, symbols):
    print(f"\n== {library}: exported symbols ==")
    lines = []
    for symbol in symbols.exported():
        # A program that is not position independent holds a copy of each object, of this size.
        size = f" ({symbol['st_size']} bytes)" if symbol["st_info"]["type"] == "STT_OBJECT" else ""
        lines.append(f"{demangled(symbol.name)}{size}\n    {symbol.name}")
    print("\n".join(sorted(lines)))


def print_class(name, die, symbols):
    print(f"\nclass {name}: size {attribute(die, 'byte_size')},"
          f" alignment {alignment(die, symbols.word)}")
    for part in parts(die):
        offset = attribute(part, "data_member_location")
        what = "base" if part.tag == "DW_TAG_inheritance" else attribute(part, "name")
        print(f"  at {offset:>3}  {what}: {type_name(type_of(part))}")
    declared = declared_slots(die)
    for slot, function in enumerate(symbols.virtual_table(name)):
        if function == "__cxa_pure_virtual":
            function = f"{name}::{declared[slot]}, pure"
        print(f"  slot {slot:>2}  {function or 'a destructor, left out of an abstract class'}")


def main(folder):
    print("Binary interface, made by scripts/abi --update. docs/binary-interface.md explains it.")
    for library in LIBRARIES:
        with open(os.path.join(folder, library), "rb") as file:
            elf = ELFFile(file)
            symbols = Symbols(elf)
            classes = defined_classes(elf)
            print_symbols(library, symbols)
            print(f"\n== {library}: public classes ==")
            for name in symbols.public_classes():
                print_class(name, classes[name], symbols)
            if library == LIBRARIES[0]:
                print(f"\n== {library}: engines, hidden ==")
                for name in ENGINES:
                    print_class(name, classes[name], symbols)


if __name__ == "__main__":
    main(*sys.argv[1:])
