"""Devices over the library's handle interface, and whole frame sequences through them.

A Device owns one rtm_device handle: one analysis state, fed one frame per second in time order.
process_frames runs a sequence of frames of any number of interleaved devices (one handle per
device id, created on the id's first frame) and gives the per-frame table of `rtmonitor replay`.
"""

import ctypes

import numpy as np

from . import _library
from .records import RESULT_DTYPE, RESULT_RECORD_DTYPE, as_frame, as_frames

_MAGIC = b"RTMSTATE"


class Device:
    """One device's analysis state. Use as a context manager, or call close(), to free it.

    The frame's nDeviceId is not read: the Device is the device. Devices may be used from
    several threads at once, one Device by one thread at a time.
    """

    def __init__(self):
        self._lib = _library.load()
        self._handle = self._lib.rtm_device_create()
        if not self._handle:
            raise MemoryError("rtm_device_create: out of memory")

    def _live(self):
        if not self._handle:
            raise ValueError("this Device is closed")
        return self._handle

    def process(self, frame):
        """Analyses one frame; returns its output record, a rtmonitor.Result (RESULT_DTYPE).

        Its fields answer to both names: those of rtmonitor.h (result.nHeartRate) and the columns
        of process_frames and `rtmonitor replay` (result.heart_rate, result["breath_rate"],
        result.movement_max).

        frame: 1320 bytes, a record of FRAME_DTYPE, 330 integer words, or a mapping of frame
        fields (those left out are 0). Anything else raises ValueError.
        """
        buf = as_frame(frame)
        out = np.zeros(1, RESULT_DTYPE)
        self._lib.rtm_device_process(self._live(), buf.ctypes.data, out.ctypes.data)
        return out.view(RESULT_RECORD_DTYPE)[0]

    def save(self):
        """The complete analysis state as a snapshot (bytes), to continue with Device.load."""
        size = self._lib.rtm_device_state_size()
        buf = ctypes.create_string_buffer(size)
        if not self._lib.rtm_device_save(self._live(), buf, size):
            raise RuntimeError("rtm_device_save refused a buffer of rtm_device_state_size() bytes")
        return buf.raw

    @classmethod
    def load(cls, snapshot):
        """A new Device continuing from a snapshot of Device.save.

        Raises ValueError when the library refuses it (another library version or build, a
        truncated or corrupted snapshot, or not a snapshot at all).
        """
        data = bytes(snapshot)
        device = cls()
        if not device._lib.rtm_device_load(device._handle, data, len(data)):
            reason = _snapshot_problem(data, device._lib)
            device.close()
            raise ValueError(f"snapshot refused: {reason}")
        return device

    def close(self):
        """Frees the handle; further use raises ValueError. Closing twice is harmless."""
        if getattr(self, "_handle", None):
            self._lib.rtm_device_destroy(self._handle)
            self._handle = None

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()

    def __del__(self):
        self.close()


def _snapshot_problem(data, lib):
    size = lib.rtm_device_state_size()
    if len(data) != size:
        return f"{len(data)} bytes, but this library's snapshots are {size} bytes"
    if data[:8] != _MAGIC:
        return "not an rtmonitor snapshot (it does not start with RTMSTATE)"
    made_by = data[16:32].rstrip(b"\0").decode("ascii", "replace")
    ours = lib.rtm_version().decode()
    if made_by != ours:
        return f"made by library version {made_by}, this is {ours}"
    return "corrupted (checksum mismatch) or from a build with another state layout"


def process_records(frames):
    """Every frame through the library: one output record (RESULT_DTYPE) per frame, in order.

    frames: as for process_frames. Devices are told apart by nDeviceId; each gets its own handle
    on its first frame, and all handles are freed before returning.
    """
    frames = as_frames(frames)
    lib = _library.load()
    out = np.zeros(len(frames), RESULT_DTYPE)
    handles = {}
    try:
        in_base, out_base = frames.ctypes.data, out.ctypes.data
        in_size, out_size = frames.dtype.itemsize, out.dtype.itemsize
        for i, device_id in enumerate(frames["nDeviceId"].tolist()):
            handle = handles.get(device_id)
            if handle is None:
                handle = lib.rtm_device_create()
                if not handle:
                    raise MemoryError("rtm_device_create: out of memory")
                handles[device_id] = handle
            lib.rtm_device_process(handle, in_base + i * in_size, out_base + i * out_size)
    finally:
        for handle in handles.values():
            lib.rtm_device_destroy(handle)
    return out


TABLE_COLUMNS = ("frame", "device", "seq", "heart_rate", "heart_status", "breath_rate", "breath_state",
                 "posture", "movement_mean", "movement_max")


def _table(columns, dataframe):
    """A pandas DataFrame when pandas is there (and dataframe is not False), else a structured array."""
    if dataframe is not False:
        try:
            import pandas
        except ImportError:
            if dataframe:
                raise
        else:
            return pandas.DataFrame(columns)
    table = np.zeros(len(next(iter(columns.values()))), [(k, v.dtype) for k, v in columns.items()])
    for name, values in columns.items():
        table[name] = values
    return table


def summary_columns(records):
    """The result columns of `rtmonitor replay` from output records (movement: mean and max of 25)."""
    return {
        "heart_rate": records["nHeartRate"],
        "heart_status": records["nHeartStatus"],
        "breath_rate": records["nBreathRate"],
        "breath_state": records["nBreathState"],
        "posture": records["nPosture"],
        "movement_mean": records["nMovement"].sum(axis=1, dtype=np.int64) / 25.0,
        "movement_max": records["nMovement"].max(axis=1),
    }


def process_frames(frames, dataframe=None):
    """Runs frames through the library; one row per frame with the columns of `rtmonitor replay`.

    frames: a frame file's path, the array of read_frames (or any FRAME_DTYPE array), bytes of
    whole frames, or integers shaped (n, 330). Columns: frame (index from 0), device, seq,
    heart_rate, heart_status, breath_rate, breath_state, posture, movement_mean, movement_max.
    Returns a pandas DataFrame when pandas is installed (dataframe=False: always a numpy
    structured array). Unlike the tool, which analyses at most 64 devices per file, any number of
    devices is analysed.
    """
    frames = as_frames(frames)
    records = process_records(frames)
    columns = {
        "frame": np.arange(len(frames), dtype=np.int64),
        "device": frames["nDeviceId"].astype(np.int32),
        "seq": frames["nFrameSeq"].astype(np.int32),
    }
    columns.update(summary_columns(records))
    return _table(columns, dataframe)
