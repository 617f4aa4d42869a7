"""Finding and loading the halftone shared library."""
from __future__ import annotations

import ctypes
import ctypes.util
import os
import sys
from pathlib import Path


def _candidates() -> list[str]:
    env = os.environ.get("HALFTONE_LIBRARY")
    if env:
        return [env]  # asked for by name: that file or nothing
    names = ["halftone.dll"] if sys.platform == "win32" else ["libhalftone.so.1", "libhalftone.so"]
    found: list[str] = []
    # Where `cmake --install` put it, recorded beside this module at install time.
    recorded = Path(__file__).with_name("_installed_library.txt")
    if recorded.is_file():
        found.append(recorded.read_text().strip())
    for prefix in ("/usr/local/lib", "/usr/lib"):
        for arch in ("", os.uname().machine + "-linux-gnu" if hasattr(os, "uname") else ""):
            found += [str(Path(prefix, arch, n)) for n in names]
    by_loader = ctypes.util.find_library("halftone")
    found += names + ([by_loader] if by_loader else [])
    return found


def load_library() -> ctypes.CDLL:
    """The library: $HALFTONE_LIBRARY, the installed one, or whatever the system loader finds."""
    tried = []
    for path in _candidates():
        if os.path.isabs(path) and not os.path.exists(path):
            tried.append(path)
            continue
        try:
            return ctypes.CDLL(path)
        except OSError as e:
            tried.append(f"{path} ({e})")
    raise ImportError("halftone: the shared library was not found; install it with cmake --install or set "
                      "HALFTONE_LIBRARY to its path. Tried: " + "; ".join(tried))
