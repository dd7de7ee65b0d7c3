"""Finding and loading librtmonitor, and the C prototypes of its handle interface.

The library is looked for, in this order:
  1. the file named by the RTMONITOR_LIBRARY environment variable;
  2. the build tree of the source checkout this package sits in (build/librtmonitor.so);
  3. the installed library: the directory recorded by ``make install``, then the soname
     librtmonitor.so.0 (and librtmonitor.so) through the dynamic loader's usual search.
It is loaded on first use, so ``import rtmonitor`` works without it.
"""

import ctypes
import os
import threading
from pathlib import Path

ENV_VAR = "RTMONITOR_LIBRARY"
SONAMES = ("librtmonitor.so.0", "librtmonitor.so")


class LibraryNotFoundError(OSError):
    """No usable librtmonitor was found; the message names every place that was tried."""


def _build_tree_candidates():
    # python/rtmonitor/_library.py in a checkout: `make` builds the library in <root>/build.
    # An installed copy of the package has no build tree beside it.
    package_parent = Path(__file__).resolve().parent.parent
    root = package_parent.parent
    if package_parent.name != "python" or not (root / "CMakeLists.txt").is_file():
        return []
    return [root / "build" / "librtmonitor.so"]


def _installed_candidates():
    try:
        from . import _installed  # written by the install step, absent in a checkout
    except ImportError:
        return []
    return [Path(_installed.LIBDIR) / name for name in SONAMES]


def _declare(lib):
    """Prototypes of the handle interface; fails on a library older than the handles' beats."""
    vp, sz = ctypes.c_void_p, ctypes.c_size_t
    lib.rtm_device_create.restype = vp
    lib.rtm_device_create.argtypes = []
    lib.rtm_device_process.restype = ctypes.c_int
    lib.rtm_device_process.argtypes = [vp, vp, vp]
    lib.rtm_device_destroy.restype = None
    lib.rtm_device_destroy.argtypes = [vp]
    lib.rtm_device_state_size.restype = sz
    lib.rtm_device_state_size.argtypes = []
    lib.rtm_device_save.restype = ctypes.c_int
    lib.rtm_device_save.argtypes = [vp, vp, sz]
    lib.rtm_device_load.restype = ctypes.c_int
    lib.rtm_device_load.argtypes = [vp, vp, sz]
    lib.rtm_version.restype = ctypes.c_char_p
    lib.rtm_version.argtypes = []
    lib.rtm_device_beats.restype = sz
    lib.rtm_device_beats.argtypes = [vp, vp, sz]
    return lib


def _open(path):
    lib = ctypes.CDLL(str(path))
    try:
        return _declare(lib)
    except AttributeError as e:
        raise LibraryNotFoundError(
            f"{path} is a librtmonitor without the handle interface ({e}); "
            "this package needs librtmonitor 0.3.0 or later") from None


def locate(environ=None, build_tree=None, installed=None, sonames=SONAMES):
    """Loads the library from the first place that has one; see the module's docstring.

    The arguments replace the real places (for tests); None means the real one.
    """
    environ = os.environ if environ is None else environ
    build_tree = _build_tree_candidates() if build_tree is None else build_tree
    installed = _installed_candidates() if installed is None else installed

    explicit = environ.get(ENV_VAR)
    if explicit:
        # A library named explicitly is the one wanted: never quietly use another one instead.
        try:
            return _open(explicit)
        except OSError as e:
            raise LibraryNotFoundError(f"{ENV_VAR}={explicit} cannot be loaded: {e}") from None

    tried = [f"1. the {ENV_VAR} environment variable: not set"]
    for path in build_tree:
        if Path(path).is_file():
            return _open(path)
    if build_tree:
        tried.append("2. the build tree: " + ", ".join(str(p) for p in build_tree) + ": not built")
    else:
        tried.append("2. the build tree: none (this copy of the package is not in a source checkout)")
    failures = []
    for path in installed:
        if Path(path).is_file():
            return _open(path)
        failures.append(f"{path}: absent")
    for name in sonames:
        try:
            return _open(name)
        except LibraryNotFoundError:
            raise
        except OSError as e:
            failures.append(str(e))
    tried.append("3. the installed library (" + " or ".join(sonames) + "):\n       " + "\n       ".join(failures))
    raise LibraryNotFoundError(
        "cannot find the rtmonitor library. Looked at:\n  " + "\n  ".join(tried) +
        f"\nBuild it with `make` in the source tree, install it with `make install`, or set {ENV_VAR} "
        "to the path of librtmonitor.so.")


_lock = threading.Lock()
_lib = None


def load():
    """The loaded library (found once, on first use)."""
    global _lib
    with _lock:
        if _lib is None:
            _lib = locate()
        return _lib
