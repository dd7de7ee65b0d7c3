"""The two records as numpy dtypes, turning what callers hand in into frames, and frame files.

FRAME_DTYPE is one input frame (ParamsIn: 330 little-endian signed 32-bit words, 1320 bytes, the
layout of frame files); RESULT_DTYPE is one output record (ParamsOut: 281 words, 1124 bytes) in
the machine's own byte order, as the library writes it. Field names are those of rtmonitor.h.
"""

import os
from collections.abc import Mapping

import numpy as np

FRAME_BYTES = 1320
RESULT_BYTES = 1124

FRAME_DTYPE = np.dtype([
    ("nDeviceId", "<i4"),
    ("nFrameSeq", "<i4"),
    ("nHeartData", "<i4", (200,)),  # ECG counts, 200 samples/s
    ("nHeartMode", "<i4"),
    ("nReservedA", "<i4"),
    ("nBreathChan1", "<i4", (25,)),  # analysed respiration, 25 samples/s
    ("nBreathChan0", "<i4", (25,)),  # displayed respiration, 25 samples/s
    ("nReservedB", "<i4"),
    ("nAccX", "<i4", (25,)),  # accelerometer counts: 512 = 0 g, 128 per g
    ("nAccY", "<i4", (25,)),
    ("nAccZ", "<i4", (25,)),
])

RESULT_DTYPE = np.dtype([
    ("nHeartRate", "=i4"),
    ("nHeartReserved", "=i4"),
    ("nHeartWave", "=i4", (200,)),
    ("nBreathDisplay1", "=i4", (25,)),
    ("nBreathDisplay0", "=i4", (25,)),
    ("nBreathRate", "=i4"),
    ("nBreathState", "=i4"),
    ("nMovement", "=i4", (25,)),
    ("nPosture", "=i4"),
    ("nHeartStatus", "=i4"),
])

assert FRAME_DTYPE.itemsize == FRAME_BYTES and RESULT_DTYPE.itemsize == RESULT_BYTES

# The names of `rtmonitor replay` (its columns and --waves groups) for the fields of RESULT_DTYPE.
RESULT_COLUMNS = {
    "heart_rate": "nHeartRate",
    "heart_status": "nHeartStatus",
    "breath_rate": "nBreathRate",
    "breath_state": "nBreathState",
    "posture": "nPosture",
    "heart_wave": "nHeartWave",
    "breath_display1": "nBreathDisplay1",
    "breath_display0": "nBreathDisplay0",
    "movement": "nMovement",
}


class Result(np.record):
    """One output record that answers to both vocabularies of the package.

    Every field is there by its rtmonitor.h name (r.nHeartRate, r["nHeartRate"]) and by the name
    process_frames and `rtmonitor replay` give it (r.heart_rate, r["heart_rate"]; see
    RESULT_COLUMNS), with replay's movement_mean and movement_max (mean and largest of the 25
    movement levels) besides. The bytes are RESULT_DTYPE's: np.asarray(r).tobytes() is the record.
    """

    def __getattr__(self, name):
        # Only reached for names that are not fields or attributes of the record itself.
        field = RESULT_COLUMNS.get(name)
        if field is not None:
            return self[field]
        if name == "movement_mean":
            return int(self["nMovement"].sum(dtype=np.int64)) / 25.0
        if name == "movement_max":
            return int(self["nMovement"].max())
        raise AttributeError(f"an rtmonitor result has no field {name!r}")

    def __getitem__(self, key):
        if isinstance(key, str) and key not in RESULT_DTYPE.names:
            if key in RESULT_COLUMNS:
                key = RESULT_COLUMNS[key]
            elif key in ("movement_mean", "movement_max"):
                return getattr(self, key)
        return super().__getitem__(key)

    def __dir__(self):
        return sorted(set(super().__dir__()) | set(RESULT_DTYPE.names) | set(RESULT_COLUMNS)
                      | {"movement_mean", "movement_max"})


RESULT_RECORD_DTYPE = np.dtype((Result, RESULT_DTYPE))

# What the library reads: the frame in the machine's byte order (the same as FRAME_DTYPE on
# little-endian machines, so frame files go in without a copy there).
NATIVE_FRAME_DTYPE = FRAME_DTYPE.newbyteorder("=")

_INT32 = np.iinfo(np.int32)


def _frame_layout(dtype):
    """True when dtype has FRAME_DTYPE's fields, shapes and offsets (int32 of either byte order)."""
    if dtype.names != FRAME_DTYPE.names or dtype.itemsize != FRAME_BYTES:
        return False
    for name in FRAME_DTYPE.names:
        want, want_offset = FRAME_DTYPE.fields[name][:2]
        got, got_offset = dtype.fields[name][:2]
        if got_offset != want_offset or got.shape != want.shape or got.base.kind != "i" or got.base.itemsize != 4:
            return False
    return True


def _check_int32(values, what):
    values = np.asarray(values)
    if values.dtype.kind not in "iu" and values.dtype != bool:
        raise ValueError(f"{what} must hold whole numbers (32-bit signed words), not {values.dtype}")
    if values.size and (values.min() < _INT32.min or values.max() > _INT32.max):
        raise ValueError(f"{what} has values outside the 32-bit signed range")
    return values


def _from_mapping(fields):
    unknown = sorted(set(fields) - set(FRAME_DTYPE.names))
    if unknown:
        raise ValueError(f"unknown frame field(s) {', '.join(map(str, unknown))}; "
                         f"the fields are {', '.join(FRAME_DTYPE.names)}")
    frame = np.zeros(1, NATIVE_FRAME_DTYPE)
    for name, value in fields.items():
        shape = FRAME_DTYPE.fields[name][0].shape
        value = _check_int32(value, f"frame field {name}")
        if value.shape != shape:
            raise ValueError(f"frame field {name} takes {shape[0] if shape else 1} value(s), "
                             f"got shape {value.shape}")
        frame[name][0] = value
    return frame


def as_frames(frames):
    """Frames as a C-contiguous 1-D array of NATIVE_FRAME_DTYPE (a view when that needs no copy).

    Accepts a path of a frame file, bytes of whole 1320-byte frames, a mapping of frame fields (one
    frame; fields left out are 0), an array (or record) of FRAME_DTYPE, or integers shaped
    (330,) or (n, 330) in word order. Anything else raises ValueError saying what was wrong.
    """
    if isinstance(frames, (str, os.PathLike)):
        frames = read_frames(frames)
    if isinstance(frames, Mapping):
        return _from_mapping(frames)
    if isinstance(frames, (bytes, bytearray, memoryview)):
        raw = memoryview(frames).cast("B")
        if raw.nbytes == 0 or raw.nbytes % FRAME_BYTES:
            raise ValueError(f"a frame is {FRAME_BYTES} bytes (330 little-endian 32-bit words); got {raw.nbytes} bytes")
        return np.frombuffer(raw, FRAME_DTYPE).astype(NATIVE_FRAME_DTYPE, copy=False)
    array = np.asarray(frames)
    if array.dtype.names is not None:
        if not _frame_layout(array.dtype):
            raise ValueError(f"frames must have rtmonitor.FRAME_DTYPE (fields {', '.join(FRAME_DTYPE.names)}, "
                             f"32-bit integers, {FRAME_BYTES} bytes); got {array.dtype}")
        array = array.reshape(-1)
    else:
        if array.shape[-1:] != (330,) or array.ndim > 2:
            raise ValueError(f"frames given as words must have shape (330,) or (n, 330); got shape {array.shape}")
        array = _check_int32(array, "frame words").astype("=i4", copy=False).reshape(-1, 330)
        array = np.ascontiguousarray(array).view(NATIVE_FRAME_DTYPE).reshape(-1)
    return np.ascontiguousarray(array.astype(NATIVE_FRAME_DTYPE, copy=False))


def as_frame(frame):
    """One frame as a 1-element NATIVE_FRAME_DTYPE array; see as_frames for what is accepted."""
    if isinstance(frame, (str, os.PathLike)):
        raise ValueError(f"process() takes one frame, not a path ({frame!r}); use rtmonitor.process_frames for a file")
    if isinstance(frame, (bytes, bytearray, memoryview)) and memoryview(frame).nbytes != FRAME_BYTES:
        raise ValueError(f"a frame is {FRAME_BYTES} bytes (330 little-endian 32-bit words); "
                         f"got {memoryview(frame).nbytes} bytes")
    frames = as_frames(frame)
    if frames.size != 1:
        raise ValueError(f"process() takes one frame, got {frames.size}; use rtmonitor.process_frames for many")
    return frames


def read_frames(path):
    """A frame file as a read-only numpy array of FRAME_DTYPE, mapped from the file (no copy).

    A frame file is the raw concatenation of 1320-byte frames, no header. An empty file or one
    that ends inside a frame raises ValueError naming the byte offset of the incomplete frame.
    """
    size = os.path.getsize(path)
    if size == 0:
        raise ValueError(f"{path}: empty file, no frames")
    if size % FRAME_BYTES:
        complete = size // FRAME_BYTES
        raise ValueError(f"{path}: incomplete frame at byte offset {complete * FRAME_BYTES} "
                         f"({size % FRAME_BYTES} of {FRAME_BYTES} bytes) after {complete} complete frames; "
                         "a frame file holds whole 1320-byte frames")
    return np.memmap(path, dtype=FRAME_DTYPE, mode="r")
