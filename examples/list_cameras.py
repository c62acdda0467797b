#!/usr/bin/env python3
"""Lists cameras through the GenTL producers of GENICAM_GENTL64_PATH, with nothing but Python itself."""
import ctypes
import os
import pathlib
import sys


def libraries():
    for entry in filter(None, os.environ.get("GENICAM_GENTL64_PATH", "").split(":")):
        path = pathlib.Path(entry)
        yield from sorted(path.glob("*.cti")) if path.is_dir() else [path]


def text(function, *arguments):
    """The answer of a function that fills a text and its size."""
    size, buffer = ctypes.c_size_t(1024), ctypes.create_string_buffer(1024)
    check(function(*arguments, buffer, ctypes.byref(size)))
    return buffer.value.decode()


def check(code):
    if code != 0:
        number, size, reason = ctypes.c_int32(), ctypes.c_size_t(1024), ctypes.create_string_buffer(1024)
        gentl.GCGetLastError(ctypes.byref(number), reason, ctypes.byref(size))
        sys.exit(f"GenTL error {code}: {reason.value.decode()}")


def handle(function, *arguments):
    result = ctypes.c_void_p()
    check(function(*arguments, ctypes.byref(result)))
    return result


def count(function, parent):
    number = ctypes.c_uint32()
    check(function(parent, ctypes.byref(number)))
    return number.value


for library in libraries():
    gentl = ctypes.CDLL(str(library))
    check(gentl.GCInitLib())
    system = handle(gentl.TLOpen)
    check(gentl.TLUpdateInterfaceList(system, None, ctypes.c_uint64(1000)))
    for i in range(count(gentl.TLGetNumInterfaces, system)):
        interface = handle(gentl.TLOpenInterface, system, text(gentl.TLGetInterfaceID, system, i).encode())
        check(gentl.IFUpdateDeviceList(interface, None, ctypes.c_uint64(1000)))
        for k in range(count(gentl.IFGetNumDevices, interface)):
            print(library.name, text(gentl.IFGetDeviceID, interface, k))
    check(gentl.TLClose(system))
    check(gentl.GCCloseLib())
