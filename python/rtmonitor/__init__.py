"""rtmonitor from Python: real-time vital-signs and activity analysis, one frame per second.

    rtmonitor.version()                 the library's version
    rtmonitor.Device()                  one device: process(frame), beats(), save(), Device.load(snapshot);
                                        a result answers to rtmonitor.h's names (nHeartRate) and
                                        to process_frames' columns (heart_rate)
    rtmonitor.read_frames(path)         a frame file as a numpy array (FRAME_DTYPE), mapped, no copy
    rtmonitor.process_frames(frames)    per-frame results, the columns of `rtmonitor replay`
                                        (beats=True: and a table of every confirmed beat)
    rtmonitor.analyse(ecg, fs_ecg, ...) a recording in physical units, one row per second

The package calls librtmonitor through ctypes; see rtmonitor._library for where it is looked for.
"""

import importlib

from . import _library
from ._library import LibraryNotFoundError

# Kept equal to the library's version (a test checks it).
__version__ = "0.3.0"

__all__ = ["BEAT_DTYPE", "Device", "FRAME_BYTES", "FRAME_DTYPE", "LibraryNotFoundError", "RESULT_BYTES", "RESULT_DTYPE",
           "Result",
           "analyse", "process_frames", "process_records", "read_frames", "resample_poly", "to_frames",
           "version"]


# Everything but version() needs numpy; it is imported on first use, so that any interpreter can
# at least ask which library it would use (python3 -c "import rtmonitor; print(rtmonitor.version())").
_LAZY = {
    "analyse": "analyse", "resample_poly": "analyse", "to_frames": "analyse",
    "BEAT_DTYPE": "device", "Device": "device", "process_frames": "device", "process_records": "device",
    "FRAME_BYTES": "records", "FRAME_DTYPE": "records", "RESULT_BYTES": "records", "RESULT_DTYPE": "records",
    "Result": "records", "read_frames": "records",
}


def __getattr__(name):
    module = _LAZY.get(name)
    if module is None:
        raise AttributeError("module 'rtmonitor' has no attribute %r" % name)
    try:
        loaded = importlib.import_module("." + module, __name__)
    except ModuleNotFoundError as e:
        if e.name == "numpy":
            raise ModuleNotFoundError(
                "rtmonitor.%s needs numpy, which this interpreter (%s) lacks: install it (Debian: "
                "apt-get install python3-numpy, for /usr/bin/python3) or use an interpreter that has it"
                % (name, __import__("sys").executable), name="numpy") from e
        raise
    # Importing the submodule binds its name here (rtmonitor.analyse the module); every name it
    # provides is bound now instead, the function analyse included.
    for attr, home in _LAZY.items():
        if home == module:
            globals()[attr] = getattr(loaded, attr)
    return globals()[name]


def __dir__():
    return sorted(list(globals()) + list(_LAZY))


def version():
    """The version of the loaded library, e.g. "0.3.0"."""
    return _library.load().rtm_version().decode("ascii")
