"""Whole recordings in physical units in, one row of results per second out.

Conversion to the counts the analysis expects (the project's documented input scale):
  ECG             counts = 512 + round(mV x 200), clipped to 0..1023, 200 samples/s
  respiration     counts = 30000 + round((x - median(x)) x k), clipped to 1..65534, 25 samples/s,
                  where k makes the median peak-to-peak swing of 10-s windows (after removing a
                  centred 10-s moving average) 2000 counts: the unit of x does not matter
  accelerometer   counts = 512 + round(g x 128), 25 samples/s, columns X, Y, Z
A missing respiration becomes a flat 30000 in both channels (no breathing rate: status 2); a
missing accelerometer becomes a still sensor lying on its back (512, 512, 640). Both respiration
channels get the same samples. NaN samples (gaps) are interpolated linearly before resampling.

Resampling uses scipy.signal.resample_poly when scipy can be imported, otherwise resample_poly
below: the same Kaiser-windowed-sinc polyphase design in numpy, equal up to floating-point rounding
(a count may differ by one where a value sits at .5). The tool's `rtmonitor import` converts with
libsamplerate and its own respiration scaling, so its frames can differ from these by a few counts;
frames written by the tool and run through process_frames give exactly the tool's results.
"""

from fractions import Fraction

import numpy as np

from .device import _table, process_records, summary_columns
from .records import NATIVE_FRAME_DTYPE

ECG_RATE = 200
SLOW_RATE = 25  # respiration and accelerometer
ECG_COUNTS_PER_MV = 200
ACC_COUNTS_PER_G = 128
RESP_CENTRE = 30000
RESP_SWING_COUNTS = 2000
STILL_ON_BACK = (512, 512, 640)

_ECG_UNITS = {"mV": 1.0, "uV": 1e-3, "µV": 1e-3, "V": 1e3}
_ACC_UNITS = {"g": 1.0, "m/s2": 1 / 9.80665, "m/s^2": 1 / 9.80665, "mg": 1e-3}


def _kaiser_lowpass(up, down):
    # The filter of scipy.signal.resample_poly's default: firwin(20 * max + 1, 1 / max, kaiser 5.0) * up.
    max_rate = max(up, down)
    half_len = 10 * max_rate
    m = np.arange(2 * half_len + 1) - half_len
    h = np.sinc(m / max_rate) / max_rate * np.kaiser(2 * half_len + 1, 5.0)
    return h / h.sum() * up, half_len


def resample_poly(x, up, down):
    """x resampled by up/down with a Kaiser-windowed-sinc low-pass; len(x) * up / down samples (rounded up).

    Output sample k is at input time k * down / up (zero delay); samples beyond the ends count as 0.
    """
    x = np.asarray(x, dtype=np.float64)
    g = np.gcd(up, down)
    up, down = up // g, down // g
    if up == down:
        return x.copy()
    h, half_len = _kaiser_lowpass(up, down)
    n_out = -(-len(x) * up // down)
    taps = -(-len(h) // up)
    phases = np.zeros((up, taps))
    for p in range(up):
        phases[p, :len(h[p::up])] = h[p::up]
    # Output k sits at position k * down + half_len of the zero-stuffed input filtered by h.
    pad = taps
    padded = np.concatenate([np.zeros(pad), x, np.zeros(pad)])
    out = np.empty(n_out)
    back = np.arange(taps)
    chunk = max(1, (1 << 21) // taps)
    for start in range(0, n_out, chunk):
        pos = np.arange(start, min(n_out, start + chunk), dtype=np.int64) * down + half_len
        idx = pos // up + pad
        out[start:start + len(pos)] = np.einsum(
            "ij,ij->i", padded[idx[:, None] - back[None, :]], phases[pos % up])
    return out


def _resample(x, fs, target):
    ratio = (Fraction(target) / Fraction(fs)).limit_denominator(1000)
    if ratio == 1:
        return np.asarray(x, dtype=np.float64)
    try:
        from scipy.signal import resample_poly as scipy_resample_poly
    except ImportError:
        return resample_poly(x, ratio.numerator, ratio.denominator)
    return scipy_resample_poly(np.asarray(x, dtype=np.float64), ratio.numerator, ratio.denominator)


def _fill_gaps(x, what):
    x = np.asarray(x, dtype=np.float64)
    bad = ~np.isfinite(x)
    if bad.all():
        raise ValueError(f"{what} has no finite samples")
    if bad.any():
        x = x.copy()
        where = np.flatnonzero(~bad)
        x[bad] = np.interp(np.flatnonzero(bad), where, x[where])
    return x


def _fit(x, n, what, fs):
    """x cut or extended (last value repeated) to n samples; more than a second off is an error."""
    if abs(len(x) - n) > SLOW_RATE:
        raise ValueError(f"{what} lasts {len(x) / SLOW_RATE:.1f} s at {fs} samples/s, but the ECG "
                         f"{n / SLOW_RATE:.1f} s: the signals of one recording must cover the same time")
    return np.concatenate([x[:n], np.full(max(0, n - len(x)), x[-1])])


def _respiration_counts(x):
    window = 10 * SLOW_RATE
    if len(x) > window:
        # Centred moving average over window + 1 samples, by running sums (long recordings).
        sums = np.concatenate([[0.0], np.cumsum(np.pad(x, window // 2, mode="edge"))])
        detrended = x - (sums[window + 1:] - sums[:-window - 1]) / (window + 1)
        whole = len(x) // window * window
        swings = np.ptp(detrended[:whole].reshape(-1, window), axis=1)
    else:
        swings = np.array([np.ptp(x)])
    swing = np.median(swings)
    if not swing > 0:
        return np.full(len(x), RESP_CENTRE)
    counts = RESP_CENTRE + np.round((x - np.median(x)) * (RESP_SWING_COUNTS / swing))
    return np.clip(counts, 1, 65534)


def _check_rate(fs, what):
    if fs is None or not np.isfinite(fs) or fs <= 0:
        raise ValueError(f"{what} needs its sampling rate in samples/s (a positive number), got {fs!r}")
    return fs


def _signal(x, what):
    x = np.asarray(x)
    if x.dtype.kind not in "iuf":
        raise ValueError(f"{what} must be numbers, not {x.dtype}")
    return x


def to_frames(ecg, fs_ecg, resp=None, fs_resp=None, acc=None, fs_acc=None, ecg_unit="mV",
              resp_unit=None, acc_unit="g", device_id=1):
    """A recording as input frames (FRAME_DTYPE, one per whole second of ECG; a last partial second is dropped).

    ecg: 1-D, in ecg_unit ("mV", "uV", "V", or "counts" for values already on the 0..1023 scale).
    resp: 1-D in any unit (scaled as the module's docstring says), or resp_unit="counts" to use
    the values as they are. acc: shape (n, 3) (X, Y, Z) in acc_unit ("g", "mg", "m/s2", or
    "counts"). Frames are numbered 0, 1, ... for device_id, heart mode 0.
    """
    ecg = _signal(ecg, "ecg")
    if ecg.ndim != 1:
        raise ValueError(f"ecg must be one-dimensional (one lead), got shape {ecg.shape}")
    fs_ecg = _check_rate(fs_ecg, "ecg")
    if ecg_unit == "counts":
        ecg_counts = _resample(_fill_gaps(ecg, "ecg"), fs_ecg, ECG_RATE)
    elif ecg_unit in _ECG_UNITS:
        ecg_mv = _resample(_fill_gaps(ecg, "ecg"), fs_ecg, ECG_RATE) * _ECG_UNITS[ecg_unit]
        ecg_counts = 512 + np.round(ecg_mv * ECG_COUNTS_PER_MV)
    else:
        raise ValueError(f"ecg_unit must be one of {', '.join(_ECG_UNITS)} or counts, not {ecg_unit!r}")
    seconds = len(ecg_counts) // ECG_RATE
    if seconds == 0:
        raise ValueError(f"ecg is shorter than one second ({len(ecg)} samples at {fs_ecg} samples/s)")
    n_slow = seconds * SLOW_RATE

    frames = np.zeros(seconds, NATIVE_FRAME_DTYPE)
    frames["nDeviceId"] = device_id
    frames["nFrameSeq"] = np.arange(seconds)
    frames["nHeartData"] = np.clip(np.round(ecg_counts[:seconds * ECG_RATE]), 0, 1023).reshape(seconds, ECG_RATE)

    if resp is None:
        breath = np.full(n_slow, RESP_CENTRE)
    else:
        resp = _signal(resp, "resp")
        if resp.ndim != 1:
            raise ValueError(f"resp must be one-dimensional, got shape {resp.shape}")
        fs_resp = _check_rate(fs_resp, "resp")
        breath = _fit(_resample(_fill_gaps(resp, "resp"), fs_resp, SLOW_RATE), n_slow, "resp", fs_resp)
        if resp_unit == "counts":
            breath = np.round(breath)
        elif resp_unit is None:
            breath = _respiration_counts(breath)
        else:
            raise ValueError(f"resp_unit must be None (scale automatically) or counts, not {resp_unit!r}")
    frames["nBreathChan1"] = breath.reshape(seconds, SLOW_RATE)
    frames["nBreathChan0"] = frames["nBreathChan1"]

    if acc is None:
        for name, value in zip(("nAccX", "nAccY", "nAccZ"), STILL_ON_BACK):
            frames[name] = value
    else:
        acc = _signal(acc, "acc")
        if acc.ndim != 2 or 3 not in acc.shape:
            raise ValueError(f"acc must have shape (n, 3): columns X, Y, Z; got shape {acc.shape}")
        if acc.shape[1] != 3:
            acc = acc.T
        fs_acc = _check_rate(fs_acc, "acc")
        if acc_unit == "counts":
            scale, offset = 1.0, 0
        elif acc_unit in _ACC_UNITS:
            scale, offset = _ACC_UNITS[acc_unit] * ACC_COUNTS_PER_G, 512
        else:
            raise ValueError(f"acc_unit must be one of {', '.join(_ACC_UNITS)} or counts, not {acc_unit!r}")
        for axis, name in enumerate(("nAccX", "nAccY", "nAccZ")):
            values = _fit(_resample(_fill_gaps(acc[:, axis], "acc"), fs_acc, SLOW_RATE), n_slow, "acc", fs_acc)
            frames[name] = (offset + np.round(values * scale)).reshape(seconds, SLOW_RATE)
    return frames


def analyse(ecg, fs_ecg, resp=None, fs_resp=None, acc=None, fs_acc=None, ecg_unit="mV", resp_unit=None,
            acc_unit="g", dataframe=None):
    """Analyses a whole recording; one row per second.

    Arguments as for to_frames (which shows the conversion). Columns: second (from 0: the row
    covers [second, second + 1) of the recording), heart_rate (beats/min, 0 = none),
    heart_status (quality 0/1), breath_rate (breaths/min), breath_state (2 no usable signal,
    0 no judgement, 1), posture (class 0..9), movement_mean and movement_max (levels 1..1023).
    A pandas DataFrame when pandas is installed (dataframe=False: a numpy structured array).
    """
    frames = to_frames(ecg, fs_ecg, resp, fs_resp, acc, fs_acc, ecg_unit=ecg_unit, resp_unit=resp_unit,
                       acc_unit=acc_unit)
    columns = {"second": np.arange(len(frames), dtype=np.int64)}
    columns.update(summary_columns(process_records(frames)))
    return _table(columns, dataframe)
