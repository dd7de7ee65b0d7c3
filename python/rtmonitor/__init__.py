"""rtmonitor from Python: real-time vital-signs and activity analysis, one frame per second.

    rtmonitor.version()                 the library's version
    rtmonitor.Device()                  one device: process(frame), save(), Device.load(snapshot)
    rtmonitor.read_frames(path)         a frame file as a numpy array (FRAME_DTYPE), mapped, no copy
    rtmonitor.process_frames(frames)    per-frame results, the columns of `rtmonitor replay`
    rtmonitor.analyse(ecg, fs_ecg, ...) a recording in physical units, one row per second

The package calls librtmonitor through ctypes; see rtmonitor._library for where it is looked for.
"""

from . import _library
from ._library import LibraryNotFoundError
from .analyse import analyse, resample_poly, to_frames
from .device import Device, process_frames, process_records
from .records import FRAME_BYTES, FRAME_DTYPE, RESULT_BYTES, RESULT_DTYPE, read_frames

# Kept equal to the library's version (a test checks it).
__version__ = "0.2.0"

__all__ = ["Device", "FRAME_BYTES", "FRAME_DTYPE", "LibraryNotFoundError", "RESULT_BYTES", "RESULT_DTYPE",
           "analyse", "process_frames", "process_records", "read_frames", "resample_poly", "to_frames",
           "version"]


def version():
    """The version of the loaded library, e.g. "0.2.0"."""
    return _library.load().rtm_version().decode("ascii")
