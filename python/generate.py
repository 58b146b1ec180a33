#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""usage: generate.py --cc COMPILER HEADER FOLDER

Make what of the Python package follows from ox_lyn.h: _ox_lyn.c, the extension module that calls the operations, and
header.py with the enumerations, blocks and statuses as Python sees them. Nothing of the header is written twice.

Names lose what all of their group share, OX_LYN_GET_LTE_SERV_RSRP_E becomes Metric.LTE_SERV_RSRP; a name that would
then begin with a digit keeps one word more, OX_LYN_SCS_15_KHZ_E becomes Scs.SCS_15_KHZ. ox_lyn_lte_cell_lock_t becomes
LteCellLock. A member that only counts the elements of a list is left out, as the list's own length says as much, and so
are reserved words.
"""
import argparse
import os
import pathlib
import re
import subprocess
import textwrap

from cffi import FFI

# What the rule would name otherwise; the last one, like the block of the same name.
RENAMED = {"ox_lyn_get_info_e": "Metric", "ox_lyn_set_info_e": "Control", "ox_lyn_ind_e": "Indication",
           "ox_lyn_async_resp_e": "Async", "ox_lyn_install_mode_e": "InstallAction"}
FLAGS = {"ox_lyn_loc_flag_e"}
RECORDS = "ox_lyn_dm_"

CALLBACK = 'extern "Python" void lyn_on_event(ox_lyn_hndl_t, ox_lyn_dm_info_t *, uint32_t);\nvoid free(void *);\n'

DECLARATION = re.compile(r"(?:/\*\*((?:(?!\*/).)*)\*/\n)?typedef (?:enum|struct) \{(.*?)\} ?(ox_lyn_\w+);", re.S)
COMMENTED = re.compile(r"(\w+)(?:\[\w+\])?(?: = -?\w+)?[,;]?\s*/\*\*<(.*?)\*/", re.S)
NAMED = re.compile(r"\box_lyn_\w+_e\b|\bOX_LYN_\w+_E\b")
OWNER = re.compile(r":? ?(?:the buffer is )?(?:the caller's own|allocated by the module, freed by the caller)"
                   r"(?:, copied whole|; the module keeps a copy)?")


def declarations(header, compiler):
    """The header's own declarations as cffi takes them: preprocessed, without assertions and other headers."""
    output = subprocess.run([compiler, "-E", "-D_Static_assert(...)=", str(header)], check=True, stdout=subprocess.PIPE,
                            text=True).stdout
    lines, ours = [], False
    for line in output.splitlines():
        marker = re.match(r'# \d+ "(.*)"', line)
        if marker:
            ours = os.path.basename(marker.group(1)) == header.name
        elif ours and not line.startswith("#pragma") and line.strip() != ";":
            lines.append(line)
    return "\n".join(lines) + "\n"


def flat(comment):
    return " ".join(re.sub(r"\n\s*\*", " ", comment or "").split())


class Comments:
    """What the header says of each type, and of each member and enumerator behind it."""

    def __init__(self, text):
        self.types, self.members = {}, {}
        for comment, body, name in DECLARATION.findall(text):
            self.types[name] = flat(comment)
            self.members[name] = {member: flat(said) for member, said in COMMENTED.findall(body)}

    def of(self, ctype, member):
        return self.members.get(ctype, {}).get(member, "")


def camel_case(name):
    return "".join(word.capitalize() for word in name.split("_"))


def python_name(ctype):
    return RENAMED.get(ctype) or camel_case(ctype.removeprefix("ox_lyn_")[:-2])


def member_names(enumerators):
    """Map each enumerator to its name in Python."""
    words = {name: name.removesuffix("_E").split("_") for name in enumerators}
    shared = len(os.path.commonprefix(list(words.values())))
    return {name: "_".join(each[shared - each[shared][0].isdigit():]) for name, each in words.items()}


def docstring(text, indent="    "):
    text = OWNER.sub("", text).strip().replace("\\", "\\\\")
    lines = textwrap.wrap(text, 110) or [""]
    if len(lines) == 1:
        return f'{indent}"""{lines[0]}"""\n'
    return "".join(f"{indent}{line}\n" for line in ['"""' + lines[0], *lines[1:], '"""'])


class Writer:
    """Writes header.py: enumerations, then statuses, then blocks, inner ones first."""

    def __init__(self, ffi, comments):
        self.ffi = ffi
        self.comments = comments
        self.done = {}
        names = ffi.list_types()[0]
        self.enums = {name: ffi.typeof(name) for name in names if ffi.typeof(name).kind == "enum"}
        self.structs = {name: ffi.typeof(name) for name in names
                        if ffi.typeof(name).kind == "struct" and not name.startswith(RECORDS)}
        self.owner = {enumerator: name for name, ctype in self.enums.items() for enumerator in ctype.relements}

    def all(self):
        pieces = [self.enum(name) for name in sorted(self.enums)] + [self.statuses()]
        for name in sorted(self.structs):
            self.struct(name, self.structs[name], python_name(name), self.comments.types[name])
        return pieces + list(self.done.values())

    def enum(self, name):
        numbers = sorted(self.enums[name].relements.items(), key=lambda item: (abs(item[1]), item[1]))
        names = member_names(dict(numbers))
        text = f"class {python_name(name)}({'enum.IntFlag' if name in FLAGS else 'Number'}):\n"
        text += docstring(self.comments.types[name]) + "\n"
        for enumerator, number in numbers:
            said = self.comments.of(name, enumerator)
            text += f"    {names[enumerator]} = {number}" + (f"  # {said}" if said else "") + "\n"
        return text

    def statuses(self):
        """A class for each status, named after it."""
        text, rows = "", ""
        for enumerator, number in sorted(self.enums["ox_lyn_status_e"].relements.items(), key=lambda item: -item[1]):
            if number == 0:
                continue
            title = camel_case(enumerator.removeprefix("OX_LYN_ERR_"))
            said = self.comments.of("ox_lyn_status_e", enumerator)
            text += f"class {title}(Error):\n{docstring(said)}\n\n"
            rows += f"    Status.{enumerator.removeprefix('OX_LYN_')}: {title},\n"
        return text + "ERRORS = {\n" + rows + "}\n"

    def named_enum(self, comment):
        """The enumeration whose values a member has, as its comment says; None for numbers of the modem's own."""
        found = {self.owner.get(word, word) for word in NAMED.findall(comment)}
        return found.pop() if len(found) == 1 and "as the modem" not in comment else None

    @staticmethod
    def lengths(fields):
        """Map each list to the member that counts its elements."""
        lists = [name for name, field in fields.items() if field.type.kind == "array" or field.type.kind == "pointer"]
        of_one = {"count": lists[-1]} if lists else {}
        counters = {counter: name for name in lists for counter in
                    (f"{name}_len", f"{name}_count", f"{name[:-1]}_count", f"{name.removesuffix('_mod')}_len")}
        return {(counters | of_one)[name]: name for name in fields if name in counters | of_one}

    def struct(self, name, ctype, title, about):
        """Write a block's dataclass, and before it those of its members."""
        if title in self.done:
            return
        fields = dict(ctype.fields)
        lengths = self.lengths(fields)
        lines, kinds = "", {}
        for member, field in fields.items():
            if member in lengths.values() or member.startswith("reserved"):
                continue
            said = self.comments.of(name, member)
            hint, default, kind = self.member(name, member, field.type, member in lengths, said)
            if kind:
                kinds[member] = kind
            lines += f"    {member}: {hint} = {default}" + (f"  # {said}" if said else "") + "\n"
        text = f"@dataclasses.dataclass\nclass {title}:\n{docstring(about)}\n{lines}\n"
        text += f"    _ctype = {ctype.cname!r}\n    _lengths = {lengths}\n"
        text += "    _kinds = {" + ", ".join(f"{member!r}: {kind}" for member, kind in kinds.items()) + "}\n"
        self.done[title] = text

    def member(self, owner, name, ctype, counted, said):
        """Type hint and default of a member, and the class of its values where that is one of ours."""
        if ctype.kind in ("array", "pointer"):
            if ctype.item.cname == "char":
                return "str", '""', None
            if ctype.item.cname == "uint8_t" and not counted:
                return "bytes", 'b""', None
            hint, _, kind = self.member(owner, name, ctype.item, False, said)
            return f"list[{hint}]", "dataclasses.field(default_factory=list)", kind
        if ctype.kind == "struct":
            named = ctype.cname in self.structs
            title = python_name(ctype.cname) if named else python_name(owner) + camel_case(name)
            self.struct(ctype.cname if named else owner, ctype, title,
                        self.comments.types[ctype.cname] if named else said)
            return title, f"dataclasses.field(default_factory={title})", title
        if ctype.cname in ("float", "double"):
            return "float", "0.0", None
        kind = self.named_enum(said)
        if not kind:
            return "int", "0", None
        zero = self.enums[kind].elements.get(0)
        default = f"{python_name(kind)}.{member_names(self.enums[kind].relements)[zero]}" if zero else "0"
        return f"{python_name(kind)} | int", default, python_name(kind)


def version(text):
    return ".".join(re.findall(r"#define OX_LYN_VERSION_(?:MAJOR|MINOR|PATCH) (\d+)", text))


def main():
    parser = argparse.ArgumentParser(usage=__doc__.splitlines()[0].removeprefix("usage: "))
    parser.add_argument("--cc", default="cc")
    parser.add_argument("header", type=pathlib.Path)
    parser.add_argument("folder", type=pathlib.Path)
    options = parser.parse_args()

    text = options.header.read_text(encoding="utf-8")
    ffi = FFI()
    ffi.cdef(declarations(options.header, options.cc) + CALLBACK)
    ffi.set_source("lyn._ox_lyn", '#include <stdlib.h>\n#include "ox_lyn.h"\n')
    ffi.emit_c_code(str(options.folder / "_ox_lyn.c"))
    (options.folder / "_ox_lyn.c").touch()  # cffi leaves one alone that would not change, and make would come again

    head = ('"""Enumerations, blocks and statuses of ox_lyn.h. Made from it by generate.py."""\n'
            "import dataclasses\nimport enum\n\nfrom .base import Error, Number\n\n"
            f'VERSION = "{version(text)}"\n')
    pieces = [head, *Writer(ffi, Comments(text)).all()]
    public = re.findall(r"^class (\w+)", "\n".join(pieces), flags=re.M)
    pieces.append(textwrap.fill(f"__all__ = {public}", 120, subsequent_indent=" " * 11))
    (options.folder / "header.py").write_text("\n\n".join(piece.rstrip("\n") + "\n" for piece in pieces),
                                              encoding="utf-8")


if __name__ == "__main__":
    main()
