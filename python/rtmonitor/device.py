"""Devices over the library's handle interface, and whole frame sequences through them.

A Device owns one rtm_device handle: one analysis state, fed one frame per second in time order.
process_frames runs a sequence of frames of any number of interleaved devices (one handle per
device id, created on the id's first frame) and gives the per-frame table of `rtmonitor replay`,
and with beats=True the table of every beat the analyser confirmed.
"""

import ctypes

import numpy as np

from . import _library
from .records import RESULT_DTYPE, RESULT_RECORD_DTYPE, as_frame, as_frames

_MAGIC = b"RTMSTATE"
_SNAPSHOT_FORMAT = 2
_BEATS_MAX = 20  # RTM_BEATS_MAX

# rtm_beat: one confirmed beat (see rtm_device_beats in rtmonitor.h). sample: the R peak as an
# input sample index at 200 samples/s counted from the device's first frame; rr_ms, width_ms in
# ms; rate in beats/min; type as the analyser computes it (4, artefact, for every beat in running
# operation: it carries no rhythm information); stability 0..2.
BEAT_DTYPE = np.dtype([("sample", "<i8"), ("rr_ms", "<i4"), ("width_ms", "<i4"), ("rate", "<i4"),
                       ("type", "<i4"), ("stability", "<i4"), ("reserved", "<i4")])
assert BEAT_DTYPE.itemsize == 32

BEAT_COLUMNS = ("device", "frame", "sample", "time_s", "rr_ms", "width_ms", "rate", "type", "stability")


def _beats_of(lib, handle):
    """The beats of the handle's last frame, an array of BEAT_DTYPE, oldest first."""
    out = np.zeros(_BEATS_MAX, BEAT_DTYPE)
    n = lib.rtm_device_beats(handle, out.ctypes.data, _BEATS_MAX)
    return out[:min(n, _BEATS_MAX)]


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

    def process(self, frame, beats=False):
        """Analyses one frame; returns its output record, a rtmonitor.Result (RESULT_DTYPE).

        Its fields answer to both names: those of rtmonitor.h (result.nHeartRate) and the columns
        of process_frames and `rtmonitor replay` (result.heart_rate, result["breath_rate"],
        result.movement_max).

        frame: 1320 bytes, a record of FRAME_DTYPE, 330 integer words, or a mapping of frame
        fields (those left out are 0). Anything else raises ValueError.
        beats=True: returns (record, beats), beats being the frame's confirmed beats as beats()
        gives them.
        """
        buf = as_frame(frame)
        out = np.zeros(1, RESULT_DTYPE)
        self._lib.rtm_device_process(self._live(), buf.ctypes.data, out.ctypes.data)
        record = out.view(RESULT_RECORD_DTYPE)[0]
        return (record, self.beats()) if beats else record

    def beats(self):
        """The beats the analyser confirmed during the last process() call, oldest first: an
        array of BEAT_DTYPE (fields sample, rr_ms, width_ms, rate, type, stability; see
        BEAT_DTYPE). Usually 0 to 2 a frame; a beat is confirmed once the next R peak is found,
        so its sample may lie in an earlier frame. Restored by Device.load.
        """
        return _beats_of(self._lib, self._live())

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
    if len(data) >= 12 and data[:8] == _MAGIC:
        made_in = int.from_bytes(data[8:12], "little")
        if made_in != _SNAPSHOT_FORMAT:
            return (f"snapshot format {made_in}, this library reads format {_SNAPSHOT_FORMAT} "
                    "(format 1, of library 0.2.0, does not carry the device's beats)")
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
    return _run(as_frames(frames), None)


def _run(frames, beats):
    """process_records; when beats is a list, (frame index, BEAT_DTYPE array) is appended to it
    for every frame that confirmed beats."""
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
            if beats is not None and lib.rtm_device_beats(handle, None, 0):
                beats.append((i, _beats_of(lib, handle)))
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


def process_frames(frames, dataframe=None, beats=False):
    """Runs frames through the library; one row per frame with the columns of `rtmonitor replay`.

    frames: a frame file's path, the array of read_frames (or any FRAME_DTYPE array), bytes of
    whole frames, or integers shaped (n, 330). Columns: frame (index from 0), device, seq,
    heart_rate, heart_status, breath_rate, breath_state, posture, movement_mean, movement_max.
    Returns a pandas DataFrame when pandas is installed (dataframe=False: always a numpy
    structured array). Unlike the tool, which analyses at most 64 devices per file, any number of
    devices is analysed.

    beats=True returns (results, beats): beats has one row per confirmed beat, in the order the
    frames reported them, with the columns device, frame (the index of the frame that reported
    it), sample (the R peak, counted per device from its first frame at 200 samples/s), time_s
    (sample / 200), rr_ms, width_ms, rate, type (4, artefact, for every beat in running
    operation) and stability, as `rtmonitor replay --beats` writes them.
    """
    frames = as_frames(frames)
    found = [] if beats else None
    records = _run(frames, found)
    columns = {
        "frame": np.arange(len(frames), dtype=np.int64),
        "device": frames["nDeviceId"].astype(np.int32),
        "seq": frames["nFrameSeq"].astype(np.int32),
    }
    columns.update(summary_columns(records))
    results = _table(columns, dataframe)
    if not beats:
        return results
    return results, _table(_beat_columns(frames, found), dataframe)


def _beat_columns(frames, found):
    rows = np.concatenate([b for _, b in found]) if found else np.zeros(0, BEAT_DTYPE)
    frame = np.concatenate([np.full(len(b), i, np.int64) for i, b in found]) if found else np.zeros(0, np.int64)
    return {
        "device": frames["nDeviceId"][frame].astype(np.int32),
        "frame": frame,
        "sample": rows["sample"],
        "time_s": rows["sample"] / 200.0,
        "rr_ms": rows["rr_ms"],
        "width_ms": rows["width_ms"],
        "rate": rows["rate"],
        "type": rows["type"],
        "stability": rows["stability"],
    }
