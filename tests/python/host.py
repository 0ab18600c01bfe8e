"""The recording host of the tests: what was sent, as Python values."""

import ctypes
import struct

import numpy as np
from plugin_tools import BUILD

# By field_type_t of records.h; texts and samples are taken as they are.
NUMBERS = {0: "<I", 1: "<i", 2: "<Q", 3: "<d"}
CHARACTER, CHARS, STRING, SAMPLES, VALUES = range(4, 9)
# By the tag of a variant.
VARIANTS = {0: None, 1: "<?7x", 7: "<i4x", 8: "<I4x", 9: "<q", 10: "<Q", 12: "<d"}


def name_hash(name):
    h = 5381
    for byte in name.encode():
        h = (h * 33 & 0xFFFFFFFF) ^ (byte - 256 & 0xFFFFFFFF if byte > 127 else byte)
    return h


def variant(raw):
    form = VARIANTS[raw[8]]
    return form and struct.unpack(form, raw[:8])[0]


class Message:
    """One message: its fields are attributes."""

    def __init__(self, library, i):
        self._library, self._i = library, i

    @property
    def message_id(self):
        return self._library.recorder_id(self._i)

    def __getattr__(self, name):
        address, size = ctypes.c_void_p(), ctypes.c_size_t()
        kind = self._library.recorder_field(self._i, name.encode(), ctypes.byref(address), ctypes.byref(size))
        if kind < 0:
            raise AttributeError(name)
        if kind == SAMPLES:
            if size.value == 0:
                return np.empty(0)
            return np.ctypeslib.as_array((ctypes.c_double * (size.value // 8)).from_address(address.value))
        raw = ctypes.string_at(address, size.value)
        if kind in NUMBERS:
            return struct.unpack(NUMBERS[kind], raw)[0]
        if kind == VALUES:
            return tuple(variant(raw[at : at + 16]) for at in range(0, len(raw), 16))
        return raw.decode() if kind in (STRING, CHARACTER) else raw


class Host:
    def __init__(self):
        library = ctypes.CDLL(str(BUILD / "tests" / "libhost_recorder.so"))
        library.recorder_handler.restype = ctypes.c_void_p
        library.recorder_id.restype = ctypes.c_uint32
        library.recorder_stop_reading.restype = ctypes.c_uint64
        library.recorder_field.argtypes = [
            ctypes.c_size_t,
            ctypes.c_char_p,
            ctypes.POINTER(ctypes.c_void_p),
            ctypes.POINTER(ctypes.c_size_t),
        ]
        self.library = library

    def capsule(self):
        new_capsule = ctypes.pythonapi.PyCapsule_New
        new_capsule.restype = ctypes.py_object
        new_capsule.argtypes = [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_void_p]
        return new_capsule(self.library.recorder_handler(), None, None)

    def __len__(self):
        return self.library.recorder_count()

    def __getitem__(self, i):
        if not -len(self) <= i < len(self):
            raise IndexError(i)
        return Message(self.library, i % len(self))
