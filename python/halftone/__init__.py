"""Band halftoning for print-mode tuning: the halftone library in Python, numpy arrays in and out.

The module talks to the installed shared library through ctypes, so it needs no compiler and
always runs the very routines a print host loads: the dots it returns are the host's dots. A job
goes band by band through the exported entry points, first band with phase 1, middle bands 0,
the last one 3, exactly as a host calls them.

    import numpy as np, halftone
    page = np.full((2, 256, 512), 128, np.uint8)          # two planes, lightness sense
    dots = halftone.run("RoundFaxest", page, mode=2, time=1)
    dots.shape  # (2, 256, 512): codes 0..3, 0 = no ink

The library is found through the environment variable HALFTONE_LIBRARY (a file path), then
where `cmake --install` put it, then by the system's loader.
"""
from __future__ import annotations

import ctypes
import os
import sys
from dataclasses import dataclass
from typing import Iterable, Optional, Sequence, Union

import numpy as np

from ._library import load_library

__all__ = [
    "Error", "MethodInfo", "Job", "methods", "method", "run", "run_lookup", "set_up", "set_host_folder",
    "set_fixed_time", "set_threads", "load_bitmap", "load_bitmap_with_bias", "load_mono_patterns",
    "load_duo_patterns", "load_layer_table", "build_bayer", "version", "unpack", "levels_text",
]

# Return codes of the library, with what they mean to a caller.
CODES = {
    20101: "a file could not be opened",
    20103: "a file read came up short",
    20104: "a file breaks its format; the table is left as it was",
    20301: "a fault was caught while loading",
    20302: "memory could not be had",
    20401: "call outside the contract, refused untouched",
    20402: "another thread is inside the library; refused untouched",
    20501: "the routine exists for hosts that resolve it, but does nothing",
}

PHASE_START, PHASE_MIDDLE, PHASE_END = 1, 0, 3
_BAND, _BAND_UNSIGNED, _PLANE, _LOOKUP_REF, _LOOKUP = 1, 2, 3, 4, 5
_LAYOUT_BAND, _LAYOUT_TURNED, _LAYOUT_ROWS = 0, 1, 2
_TABLE_NAMES = {0x01: "bitmap", 0x02: "bias", 0x04: "mono patterns", 0x08: "duo patterns",
                0x10: "layer table", 0x20: "bayer"}


class Error(RuntimeError):
    """A call the library refused or a load that failed; `code` is the library's return code."""

    def __init__(self, code: int, what: str) -> None:
        self.code = code
        self.meaning = CODES.get(code, "unknown code")
        super().__init__(f"{what}: {code} ({self.meaning})")


class _Info(ctypes.Structure):
    _fields_ = [("name", ctypes.c_char_p), ("family", ctypes.c_char_p), ("description", ctypes.c_char_p),
                ("output_bits", ctypes.c_int), ("entry_kind", ctypes.c_int), ("layout", ctypes.c_int),
                ("tables", ctypes.c_uint), ("entry", ctypes.c_void_p)]


_lib = load_library()
_u8p = ctypes.POINTER(ctypes.c_ubyte)
_lib.halftone_version.restype = ctypes.c_char_p
_lib.halftone_set_fixed_time.argtypes = [ctypes.c_longlong]
_lib.halftone_set_fixed_time.restype = None
_lib.halftone_set_host_folder.argtypes = [ctypes.c_char_p]
_lib.halftone_set_threads.argtypes = [ctypes.c_int]
_lib.halftone_method_get.argtypes = [ctypes.c_int, ctypes.POINTER(_Info)]
_lib.Itsdiufiavs.argtypes = [ctypes.c_int, ctypes.c_char_p]
for _name in ("PuaningFa", "PuaningFa13", "KaiDuaning", "NingJing", "NiceMents"):
    getattr(_lib, _name).argtypes = [ctypes.c_char_p, ctypes.c_int, ctypes.c_int]

_ENTRY_TYPES = {
    _BAND: ctypes.CFUNCTYPE(ctypes.c_int, _u8p, _u8p, ctypes.c_int, ctypes.c_int, ctypes.c_uint),
    _BAND_UNSIGNED: ctypes.CFUNCTYPE(ctypes.c_int, _u8p, _u8p, ctypes.c_uint, ctypes.c_uint, ctypes.c_uint),
    _PLANE: ctypes.CFUNCTYPE(ctypes.c_int, _u8p, _u8p, ctypes.c_uint, ctypes.c_uint),
    _LOOKUP_REF: ctypes.CFUNCTYPE(ctypes.c_int, _u8p, ctypes.POINTER(_u8p), ctypes.c_int, ctypes.c_int,
                                  ctypes.POINTER(ctypes.c_int), _u8p),
    _LOOKUP: ctypes.CFUNCTYPE(ctypes.c_int, _u8p, _u8p, ctypes.c_int, ctypes.c_int, ctypes.POINTER(ctypes.c_int), _u8p),
}


@dataclass(frozen=True)
class MethodInfo:
    """One method of the library's registry."""
    name: str
    family: str
    description: str
    output_bits: int
    tables: tuple[str, ...]
    banded: bool  # takes bands of P planes; otherwise one whole plane a call
    layout: str   # "band", "turned" (w rows of h pixels) or "rows"
    _kind: int = 0
    _entry: int = 0


def version() -> str:
    """The library's version, "major.minor.patch"."""
    return _lib.halftone_version().decode()


def methods() -> list[MethodInfo]:
    """Every method of the library's registry, in registry order."""
    out = []
    for i in range(_lib.halftone_method_count()):
        info = _Info()
        _check(_lib.halftone_method_get(i, ctypes.byref(info)), "halftone_method_get")
        out.append(MethodInfo(
            name=info.name.decode(), family=info.family.decode(), description=info.description.decode(),
            output_bits=info.output_bits, tables=tuple(n for bit, n in _TABLE_NAMES.items() if info.tables & bit),
            banded=info.entry_kind in (_BAND, _BAND_UNSIGNED),
            layout={_LAYOUT_BAND: "band", _LAYOUT_TURNED: "turned"}.get(info.layout, "rows"),
            _kind=info.entry_kind, _entry=info.entry))
    return out


def method(name: str) -> MethodInfo:
    """The registry record of `name`; KeyError when the library has no such method."""
    for m in methods():
        if m.name == name:
            return m
    raise KeyError(f"no method named {name!r}; see halftone.methods()")


def _check(rc: int, what: str) -> int:
    if rc != 0:
        raise Error(rc, what)
    return rc


def _checked_load(rc: int, what: str) -> None:
    # Some loaders return 0 by design whatever happened; the status call tells.
    _check(rc, what)
    _check(_lib.halftone_last_load_status(), what)


# ---- Set-up ------------------------------------------------------------------------------------

def levels_text(levels: Union[str, Sequence[int]]) -> str:
    """The library's level text ("0,85,170,255,": every value ends in a comma) from ints or text."""
    if isinstance(levels, str):
        return levels
    values = [int(v) for v in levels]
    if not 1 <= len(values) <= 9 or any(not 0 <= v <= 255 for v in values):
        raise ValueError("levels: one to nine values in 0..255")
    return "".join(f"{v}," for v in values)


def default_levels(bits: int) -> str:
    """The levels the `halftone` command uses by default for a method of this output depth."""
    return "0,36,73,109,146,182,219,255," if bits == 4 else "0,85,170,255,"


def set_up(mode: int = 0, levels: Union[str, Sequence[int]] = "0,85,170,255,") -> None:
    """Reload the tone curves from the host folder, select the pair of `mode`, set the levels."""
    _check(_lib.Itsdiufiavs(int(mode), levels_text(levels).encode()), "Itsdiufiavs")


def set_host_folder(folder: Optional[Union[str, os.PathLike]]) -> None:
    """Read tone curves and Moths/ tables from `folder` (None: the host program's folder)."""
    _check(_lib.halftone_set_host_folder(None if folder is None else os.fsencode(folder)), "halftone_set_host_folder")


def set_fixed_time(seconds: Optional[int]) -> None:
    """Seed every random source from `seconds` (None: the clock again): reproducible dots."""
    _lib.halftone_set_fixed_time(-1 if seconds is None else int(seconds))


def set_threads(n: int) -> int:
    """Threads a band may use for its planes (same dots whatever the count); returns the count set."""
    rc = _lib.halftone_set_threads(int(n))
    if rc == 20402:
        raise Error(rc, "halftone_set_threads")
    return rc


def load_bitmap(name: str) -> None:
    """Threshold bitmap Moths/<name> (PuaningFa)."""
    _checked_load(_lib.PuaningFa(name.encode(), 0, 0), f"PuaningFa {name}")


def load_bitmap_with_bias(name: str) -> None:
    """Threshold bitmap and the bias matrix derived from it (PuaningFa13)."""
    _checked_load(_lib.PuaningFa13(name.encode(), 0, 0), f"PuaningFa13 {name}")


def load_mono_patterns(name: str, width: int, rows: int) -> None:
    """1-bit pattern stack of 256 patterns, `width` x `rows` each (KaiDuaning)."""
    _checked_load(_lib.KaiDuaning(name.encode(), int(width), int(rows)), f"KaiDuaning {name}")


def load_duo_patterns(name: str, width: int, rows: int) -> None:
    """2-bit pattern stack (NingJing)."""
    _checked_load(_lib.NingJing(name.encode(), int(width), int(rows)), f"NingJing {name}")


def load_layer_table(name: str) -> None:
    """Text layer table (NiceMents)."""
    _checked_load(_lib.NiceMents(name.encode(), 0, 0), f"NiceMents {name}")


def build_bayer() -> None:
    """The 16 x 16 ordered-dither matrix (SincesKai)."""
    _check(_lib.SincesKai(), "SincesKai")


# ---- Dots --------------------------------------------------------------------------------------

def _stride(pixels: int, bits: int) -> int:
    return ((pixels * bits + 31) >> 5) * 4


def unpack(packed: np.ndarray, bits: int, pixels: int) -> np.ndarray:
    """Dot codes, one byte a pixel, from packed rows (..., stride) at 1, 2 or 4 bits a pixel."""
    per_byte = 8 // bits
    shifts = np.arange(8 - bits, -1, -bits, dtype=np.uint8)
    codes = (packed[..., :, None] >> shifts) & ((1 << bits) - 1)
    return codes.reshape(*packed.shape[:-1], packed.shape[-1] * per_byte)[..., :pixels].astype(np.uint8)


def _as_planes(planes: np.ndarray) -> np.ndarray:
    if not isinstance(planes, np.ndarray):
        raise TypeError("planes: a numpy array")
    if planes.dtype != np.uint8:
        raise TypeError(f"planes: dtype uint8 wanted, not {planes.dtype}")
    if planes.ndim == 2:
        planes = planes[None]
    if planes.ndim != 3:
        raise ValueError("planes: H x W or P x H x W")
    if not 1 <= planes.shape[0] <= 255 or planes.shape[1] < 1 or planes.shape[2] < 1:
        raise ValueError("planes: 1 to 255 planes of at least one pixel")
    if planes.shape[2] > 0x7FFFFFFF // 8:
        raise ValueError("planes: too wide")
    return planes


class Job:
    """One job of P planes `width` pixels wide, sent band by band as a host sends it.

        with halftone.Job("RoundFaxest", width=512, planes=4) as job:
            for i, band in enumerate(bands):                 # each P x rows x 512, uint8
                dots = job.band(band, last=i == len(bands) - 1)

    The first band starts the job (phase 1), the one marked `last` ends it (phase 3); a job
    left without a last band keeps the library's rows until the next job starts.
    """

    def __init__(self, method_name: str, width: int, planes: int = 1, *, packed: bool = False) -> None:
        self.method = method(method_name)
        if not self.method.banded:
            raise ValueError(f"{method_name} takes one whole plane a call, not bands: use run()")
        if width < 1 or not 1 <= planes <= 255:
            raise ValueError("width at least 1, planes 1..255")
        self.width, self.planes, self.packed = int(width), int(planes), packed
        self._fn = _ENTRY_TYPES[self.method._kind](self.method._entry)
        self._started = self._ended = False

    def band(self, band: np.ndarray, *, last: bool = False) -> np.ndarray:
        """Halftone one band (P x rows x W, or rows x W for one plane); returns its dots."""
        if self._ended:
            raise RuntimeError("the job has ended")
        band = _as_planes(band)
        p, rows, w = band.shape
        if p != self.planes or w != self.width:
            raise ValueError(f"band of {p} x {w}: this job takes {self.planes} planes {self.width} wide")
        bits = self.method.output_bits
        src = np.zeros((rows, p, _stride(w, 8)), np.uint8)
        src[:, :, :w] = band.transpose(1, 0, 2)
        dst = np.zeros((rows, p, _stride(w, bits)), np.uint8)
        phase = PHASE_START if not self._started else PHASE_END if last else PHASE_MIDDLE
        flags = (p << 8) | (phase << 16)
        rc = self._fn(src.ctypes.data_as(_u8p), dst.ctypes.data_as(_u8p), w, rows, flags)
        _check(rc, f"{self.method.name} band")
        self._started = True
        self._ended = last and phase == PHASE_END
        packed = np.ascontiguousarray(dst.transpose(1, 0, 2))
        return packed if self.packed else unpack(packed, bits, w)

    def __enter__(self) -> "Job":
        return self

    def __exit__(self, *exc: object) -> None:
        self._ended = True


def run(method_name: str, planes: np.ndarray, *, mode: int = 0, levels: Union[str, Sequence[int], None] = None,
        band_rows: int = 64, time: Optional[int] = None, threads: int = 1, packed: bool = False) -> np.ndarray:
    """Halftone a whole picture with one method, as the `halftone` command does.

    `planes` is uint8, H x W or P x H x W, in lightness sense (255 = no ink). Returns the dot
    codes P x H x W (one byte a pixel, 0 = no ink), or with `packed` the rows as the library
    writes them, P x H x stride. Banded methods run as one job of bands of `band_rows` rows;
    the one-plane methods run once per plane (identity lookup), their dots in their own layout
    (a turned method's plane is W rows of H pixels). `levels` defaults to the command's.
    """
    info = method(method_name)
    planes = _as_planes(planes)
    if band_rows < 1:
        raise ValueError("band_rows: at least 1")
    set_fixed_time(time)
    set_up(mode, default_levels(info.output_bits) if levels is None else levels)
    set_threads(threads)
    try:
        if not info.banded:
            return np.stack([run_lookup(method_name, p, packed=packed) for p in planes])
        p, h, w = planes.shape
        job = Job(method_name, w, p, packed=packed)
        rows = min(band_rows, h)
        bands = [job.band(planes[:, top:top + rows], last=top + rows >= h) for top in range(0, h, rows)]
        return np.concatenate(bands, axis=1)
    finally:
        set_threads(1)


def run_lookup(method_name: str, plane: np.ndarray, lookup: Optional[Sequence[int]] = None, *,
               packed: bool = False) -> np.ndarray:
    """One whole plane through a one-plane method (the rotated, four-way and single-plane ones).

    `lookup` maps each input level (256 signed ints; identity when None). Returns the dots in
    the method's layout: turned methods give W rows of H pixels.
    """
    info = method(method_name)
    if info.banded:
        raise ValueError(f"{method_name} takes bands: use run() or Job")
    if not isinstance(plane, np.ndarray) or plane.dtype != np.uint8 or plane.ndim != 2:
        raise TypeError("plane: a 2-D uint8 numpy array")
    h, w = plane.shape
    if h < 1 or w < 1:
        raise ValueError("plane: at least one pixel")
    table = np.arange(256, dtype=np.intc) if lookup is None else np.asarray(lookup, dtype=np.intc)
    if table.shape != (256,):
        raise ValueError("lookup: 256 values")
    src = np.zeros((h, _stride(w, 8)), np.uint8)
    src[:, :w] = plane
    turned = info.layout == "turned"
    out_rows, out_pixels = (w, h) if turned else (h, w)
    stride = _stride(out_pixels, 1)
    # Some turned methods also write the last input row unturned: room for both layouts.
    dst = np.zeros(max(stride * out_rows, _stride(w, 1) * h), np.uint8)
    fn = _ENTRY_TYPES[info._kind](info._entry)
    if info._kind == _PLANE:
        rc = fn(src.ctypes.data_as(_u8p), dst.ctypes.data_as(_u8p), w, h)
    elif info._kind == _LOOKUP_REF:
        ref = dst.ctypes.data_as(_u8p)
        rc = fn(src.ctypes.data_as(_u8p), ctypes.byref(ref), w, h, table.ctypes.data_as(ctypes.POINTER(ctypes.c_int)),
                None)
    else:
        rc = fn(src.ctypes.data_as(_u8p), dst.ctypes.data_as(_u8p), w, h,
                table.ctypes.data_as(ctypes.POINTER(ctypes.c_int)), None)
    _check(rc, method_name)
    rows = dst[:stride * out_rows].reshape(out_rows, stride)
    return rows.copy() if packed else unpack(rows, 1, out_pixels)


# ---- Looking at dots ---------------------------------------------------------------------------

def preview(dots: np.ndarray, bits: int) -> np.ndarray:
    """A grey picture of one plane's codes: white paper, each drop size at its share of full ink."""
    full = (1 << bits) - 1
    return (255 - dots.astype(np.uint16) * 255 // full).astype(np.uint8)


def save_png(path: Union[str, os.PathLike], image: np.ndarray) -> None:
    """Writes an 8-bit grey (H x W) or RGB (H x W x 3) picture as PNG, with zlib from the standard library."""
    import struct
    import zlib
    image = np.ascontiguousarray(image, dtype=np.uint8)
    colour = 2 if image.ndim == 3 else 0
    h, w = image.shape[:2]
    raw = b"".join(b"\0" + image[y].tobytes() for y in range(h))

    def chunk(kind: bytes, data: bytes) -> bytes:
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))

    with open(path, "wb") as f:
        f.write(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", w, h, 8, colour, 0, 0, 0)) +
                chunk(b"IDAT", zlib.compress(raw, 6)) + chunk(b"IEND", b""))


def tone_response(method_name: str, *, levels: Iterable[int] = range(0, 256, 8), size: int = 64, mode: int = 0,
                  time: int = 1) -> list[tuple[int, float]]:
    """Ink coverage of flat patches (input level, coverage 0..1), measured below the patch's first
    quarter so the diffusion has settled; codes count as code / (2^bits - 1)."""
    info = method(method_name)
    full = (1 << info.output_bits) - 1
    out = []
    for level in levels:
        dots = run(method_name, np.full((size, size), level, np.uint8), mode=mode, time=time)
        out.append((int(level), float(dots[:, size // 4:].mean()) / full))
    return out
