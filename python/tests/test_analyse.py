"""analyse/to_frames: the documented conversion to counts (exact on a shared recording), the
resampler, and rates found on a synthetic recording given in physical units."""

import numpy as np
import pytest

import rtmonitor
from conftest import recording, synthetic_ecg_mv


def test_conversion_rebuilds_a_shared_recording_exactly():
    frames = rtmonitor.read_frames(recording("100"))
    ecg_mv = (frames["nHeartData"].reshape(-1).astype(float) - 512) / 200
    acc_g = (np.stack([frames[a].reshape(-1) for a in ("nAccX", "nAccY", "nAccZ")], axis=1) - 512) / 128
    rebuilt = rtmonitor.to_frames(ecg_mv, 200, acc=acc_g, fs_acc=25)
    assert rebuilt.tobytes() == frames.tobytes()


def test_missing_channels_are_flat_breathing_and_a_still_sensor_on_its_back():
    frames = rtmonitor.to_frames(np.zeros(2 * 360 + 100), 360)
    assert len(frames) == 2
    assert (frames["nHeartData"] == 512).all()
    assert (frames["nBreathChan1"] == 30000).all() and (frames["nBreathChan0"] == 30000).all()
    assert [int(frames[a][0, 0]) for a in ("nAccX", "nAccY", "nAccZ")] == [512, 512, 640]


def test_units_and_clipping():
    ecg_uv = np.array([0.0, 500.0, -500.0, 10000.0, -10000.0] * 40)
    frames = rtmonitor.to_frames(ecg_uv, 200, ecg_unit="uV")
    assert frames["nHeartData"][0, :5].tolist() == [512, 612, 412, 1023, 0]
    acc = np.tile([[0.0, 1.0, -1.0]], (25, 1))
    frames = rtmonitor.to_frames(np.zeros(200), 200, acc=acc * 9.80665, fs_acc=25, acc_unit="m/s2")
    assert [int(frames[a][0, 0]) for a in ("nAccX", "nAccY", "nAccZ")] == [512, 640, 384]


def test_respiration_is_scaled_to_a_2000_count_swing_around_30000():
    for amplitude in (0.001, 3000.0):
        # 18 breaths/min: three whole breaths in each 10-s window, so the moving average is flat.
        resp = amplitude * np.sin(2 * np.pi * 0.3 * np.arange(60 * 25) / 25)
        breath = rtmonitor.to_frames(np.zeros(60 * 200), 200, resp=resp, fs_resp=25)["nBreathChan1"]
        assert abs(np.median(breath) - 30000) <= 2
        assert 1980 <= np.ptp(breath) <= 2020


def test_resampler_keeps_the_pass_band_and_removes_what_cannot_be_represented():
    fs_in, seconds = 360, 10
    t = np.arange(fs_in * seconds) / fs_in
    out = rtmonitor.resample_poly(np.sin(2 * np.pi * 10 * t), 5, 9)
    assert len(out) == 2000
    t_out = np.arange(len(out)) / 200
    middle = slice(200, -200)
    assert np.max(np.abs(out[middle] - np.sin(2 * np.pi * 10 * t_out[middle]))) < 2e-3
    alias = rtmonitor.resample_poly(np.sin(2 * np.pi * 150 * t), 5, 9)
    assert np.max(np.abs(alias[middle])) < 1e-2


def test_resampler_matches_scipy():
    signal = pytest.importorskip("scipy.signal")
    x = np.random.default_rng(1).standard_normal(3000)
    for up, down in ((5, 9), (4, 5), (1, 5), (25, 16)):
        assert np.allclose(rtmonitor.resample_poly(x, up, down), signal.resample_poly(x, up, down), atol=1e-9)


def test_analyse_finds_the_rates_of_a_recording_in_physical_units():
    seconds = 90
    ecg = synthetic_ecg_mv(seconds, 500, 84)
    resp = 0.4 * np.sin(2 * np.pi * 0.3 * np.arange(seconds * 125) / 125)
    rows = rtmonitor.analyse(ecg, 500, resp=resp, fs_resp=125, dataframe=False)
    assert rows["second"].tolist() == list(range(seconds))
    assert (np.abs(rows["heart_rate"][30:] - 84) <= 2).all()
    assert (np.abs(rows["breath_rate"][60:] - 18) <= 1).all()
    assert (rows["posture"][10:] == 2).all()


@pytest.mark.parametrize("kwargs, message", [
    (dict(ecg=np.zeros(100), fs_ecg=200), "shorter than one second"),
    (dict(ecg=np.zeros((2, 400)), fs_ecg=200), "one-dimensional"),
    (dict(ecg=np.zeros(400), fs_ecg=0), "sampling rate"),
    (dict(ecg=np.zeros(400), fs_ecg=200, ecg_unit="mmHg"), "ecg_unit"),
    (dict(ecg=np.zeros(4000), fs_ecg=200, resp=np.zeros(100), fs_resp=25), "same time"),
    (dict(ecg=np.zeros(400), fs_ecg=200, acc=np.zeros((50, 2)), fs_acc=25), r"shape \(n, 3\)"),
    (dict(ecg=np.full(400, np.nan), fs_ecg=200), "no finite samples"),
])
def test_bad_recordings_raise_value_error(kwargs, message):
    with pytest.raises(ValueError, match=message):
        rtmonitor.to_frames(**kwargs)
