# SPDX-License-Identifier: MIT
"""Shows GDB the values of zel's classes instead of their fields.

GDB loads this file by itself for a library that a package has installed below /usr. Elsewhere the
file lies beside the library, and GDB loads it when it trusts the folder: `add-auto-load-safe-path
/usr/local/lib` in ~/.gdbinit. For a static library, `source` it. `print /r` shows the fields as
ever.
"""

import struct

import gdb
import gdb.printing

MONTHS = ("Unknown", "January", "February", "March", "April", "May", "June", "July", "August",
          "September", "October", "November", "December")
DAYS = ("Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday")


def pointer_to(type_name):
    return gdb.lookup_type(type_name).pointer()


def read(address, format_text):
    """Unpacks what lies at an address, which needs no description of it."""
    size = struct.calcsize(format_text)
    return struct.unpack(format_text, gdb.selected_inferior().read_memory(address, size).tobytes())


def text_of(value):
    """A zel::string as a text that GDB reads, limits and escapes.

    The fields of std::string are not asked for: some compilers leave them out of a program's
    description. The runtimes tell themselves apart by size: libstdc++ has a pointer and a length,
    libc++ has a flag in the lowest bit that says whether the text is inside.
    """
    address = int(value.address)
    if value.type.strip_typedefs().sizeof == 32:
        start, length = read(address, "QQ")
    elif read(address, "B")[0] & 1:
        _, length, start = read(address, "QQQ")
    else:
        start, length = address + 1, read(address, "B")[0] >> 1
    return gdb.Value(start).cast(pointer_to("char")).lazy_string(length=length)


def plain(text):
    """The same for use inside another text."""
    return '"' + text.value().format_string().strip('"') + '"' if text.length else '""'


class AsText:
    """A value that is one line."""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        return self.line()


class String(AsText):
    def line(self):
        return text_of(self.value)

    def display_hint(self):
        return "string"


class Path(AsText):
    def line(self):
        return self.value["text"].lazy_string()

    def display_hint(self):
        return "string"


class Fields(AsText):
    """{left 0, top 0, right 10, bottom 5}"""

    def line(self):
        base = self.value.type.strip_typedefs().fields()[0]
        plain_value = self.value[base]
        return "{" + ", ".join(f"{field.name} {int(plain_value[field])}"
                               for field in plain_value.type.fields()) + "}"


def color(word):
    channels = zip(("red", "green", "blue", "reserved"), struct.pack("<I", word))
    return "{" + ", ".join(f"{name} {byte}" for name, byte in channels) + "}"


class ColorRef(AsText):
    def line(self):
        return color(int(self.value["value_"]))


class Uid(AsText):
    def line(self):
        tail = [int(byte) for byte in read(int(self.value.address) + 8, "8B")]
        return "{%08X-%04X-%04x-%02X%02X-%02X%02X%02X%02X%02X%02X}" % (
            int(self.value["data1_"]), int(self.value["data2_"]), int(self.value["data3_"]), *tail)


class Time(AsText):
    def line(self):
        part = {name: int(self.value[name + "_"])
                for name in ("year", "month", "day_of_week", "day", "hour", "minute", "second",
                             "milliseconds")}
        day = DAYS[part["day_of_week"]] if part["day_of_week"] < 7 else "Unknown"
        month = MONTHS[part["month"]] if part["month"] < 13 else "Unknown"
        return "{} {} {day:02} {hour:02}:{minute:02}:{second:02}.{milliseconds:03}  {year}".format(
            day, month, **part)


class Timer(AsText):
    def line(self):
        return "{} days, {} hours, {} minutes, {}.{:03} seconds".format(
            *(int(self.value[name + "_"])
              for name in ("days", "hours", "minutes", "seconds", "milliseconds")))


class Variant(AsText):
    """vt_long 42"""

    def line(self):
        tag = str(self.value["type_"]).rpartition("::")[2]
        if tag == "vt_string":
            return tag + " " + plain(text_of(self.value["value_"]["text"].dereference()))
        bits = struct.pack("<Q", int(self.value["value_"]["bits"]) & 0xFFFFFFFFFFFFFFFF)
        if tag == "vt_bool":
            return tag + (" true" if bits[0] else " false")
        if tag == "vt_color":
            return tag + " " + color(struct.unpack("<Ixxxx", bits)[0])
        if tag == "vt_float":
            return "%s %.9g" % (tag, struct.unpack("<fxxxx", bits)[0])
        if tag == "vt_double":
            return "%s %.17g" % (tag, struct.unpack("<d", bits)[0])
        if tag in ("vt_char", "vt_uchar", "vt_short", "vt_ushort", "vt_long", "vt_ulong",
                   "vt_int64"):
            return "%s %d" % (tag, struct.unpack("<q", bits)[0])
        return tag # vt_empty, and what is no tag


class Buffer(AsText):
    """3 bytes: 01 02 03"""

    shown = 32

    def line(self):
        size = int(self.value["size_"])
        if size == 0:
            return "0 bytes"
        start = gdb.selected_inferior().read_memory(int(self.value["data_"]),
                                                    min(size, self.shown)).tobytes()
        return "%d byte%s: %s%s" % (size, "" if size == 1 else "s", start.hex(" "),
                                    " ..." if size > self.shown else "")


class Exception(AsText):
    # variant::exception 2 "Zel Variant Exception: out of range"

    def line(self):
        name = str(self.value.type.unqualified().strip_typedefs()).removeprefix("zel::")
        return "%s %d %s" % (name, int(self.value["type_"]), plain(text_of(self.value["message_"])))


class Logger(AsText):
    """2 infos, 0 warnings, 1 error"""

    def line(self):
        counts = [(read(int(self.value[name + "_counter_"].address), "I")[0], name)
                  for name in ("info", "warning", "error")]
        return ", ".join("%d %s%s" % (count, name, "" if count == 1 else "s")
                         for count, name in counts)


class KernelObj(AsText):
    # "ledger", handle 0x500000080

    def line(self):
        base = self.value.cast(gdb.lookup_type("zel::kernel_obj"))
        return "%s, handle 0x%x" % (plain(text_of(base["name_"])), int(base["handle"]))


class Thread(KernelObj):
    # "worker", handle 0x500000080, id 4711, started

    def line(self):
        thread = self.value.cast(gdb.lookup_type("zel::thread_obj"))
        started = read(int(thread["started_"].address), "B")[0]
        return "%s, id %d, %s" % (super().line(), read(int(thread["id_"].address), "I")[0],
                                  "started" if started else "not started")


class IniFile(AsText):
    # "C:\\etc\\app.ini"

    def line(self):
        return self.value.cast(gdb.lookup_type("zel::file_obj"))["file_path"]


class Store:
    """A store and the one below it; for a prefix, its path in front."""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        if str(self.value.type.unqualified().strip_typedefs()) == "zel::sub_profile":
            return plain(text_of(self.value["path"])) + " over"
        return "cache over"

    def children(self):
        yield "profile", self.value["profile"]


class AutoPtr:
    """The object, behind the number of those that share it."""

    def __init__(self, value):
        self.object = value["object_"]

    def to_string(self):
        if int(self.object) == 0:
            return "null"
        base = self.object.cast(pointer_to("zel::ref_obj"))
        count = read(int(base["count_"].address), "I")[0]
        return "%d reference%s to" % (count, "" if count == 1 else "s")

    def children(self):
        if int(self.object) != 0:
            value = self.object.dereference()
            yield "object", value.cast(value.dynamic_type)


def make_printers():
    printers = gdb.printing.RegexpCollectionPrettyPrinter("zel")
    for name, printer in (("string", String), ("path", Path), ("point", Fields), ("size", Fields),
                          ("rect", Fields), ("color_ref", ColorRef), ("uid", Uid), ("time", Time),
                          ("timer", Timer), ("variant", Variant), ("buffer", Buffer)):
        printers.add_printer(name, "^zel::%s$" % name, printer)
    printers.add_printer("auto_ptr", "^zel::auto_ptr<.*>$", AutoPtr)
    printers.add_printer("exception", "^zel::(.*::exception|memory_exception|exception)$", Exception)
    printers.add_printer("logger", "^zel::logger$", Logger)
    printers.add_printer("kernel_obj", "^zel::(event|mutex|semaphore)$", KernelObj)
    printers.add_printer("thread_obj", "^zel::thread_obj(_ex)?$", Thread)
    printers.add_printer("ini_file", "^zel::ini_file$", IniFile)
    printers.add_printer("store", "^zel::(cached|sub)_profile$", Store)
    return printers


gdb.printing.register_pretty_printer(gdb.current_objfile(), make_printers(), replace=True)
