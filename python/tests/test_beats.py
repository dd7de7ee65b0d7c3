"""Beats: Device.process and process_frames give the beats the library confirms, per device, in
the same rows whichever way they are asked for; a loaded snapshot reports the saved frame's beats."""

import numpy as np
import pytest

import rtmonitor
from conftest import recording

COLUMNS = ["device", "frame", "sample", "time_s", "rr_ms", "width_ms", "rate", "type", "stability"]


def device_beats(frames):
    rows = []
    with rtmonitor.Device() as device:
        for i, frame in enumerate(frames):
            _, beats = device.process(frame, beats=True)
            rows += [(i, int(b["sample"]), int(b["rr_ms"])) for b in beats]
    return rows


def test_device_and_batch_give_the_same_beats(synthetic_frames):
    results, beats = rtmonitor.process_frames(synthetic_frames, dataframe=False, beats=True)
    assert list(beats.dtype.names) == COLUMNS
    assert len(results) == len(synthetic_frames)
    batch = [(int(r["frame"]), int(r["sample"]), int(r["rr_ms"])) for r in beats]
    assert batch == device_beats(synthetic_frames)
    # 72 beats/min for two minutes, less the start-up: RR intervals near 833 ms, each R peak in or
    # before the frame that reports it, in time order.
    assert 120 < len(beats) <= 144
    assert np.all(np.abs(beats["rr_ms"][5:] - 833) <= 20)
    assert np.all(beats["sample"] // 200 <= beats["frame"])
    assert np.all(np.diff(beats["sample"]) > 0)
    assert np.array_equal(beats["time_s"], beats["sample"] / 200.0)
    assert set(beats["type"].tolist()) == {4}


def test_beats_are_counted_per_device(synthetic_frames):
    # Two devices interleaved frame by frame: each device's samples count its own frames.
    two = np.repeat(np.asarray(synthetic_frames)[:60], 2)
    two["nDeviceId"][1::2] = 9
    _, beats = rtmonitor.process_frames(two, dataframe=False, beats=True)
    _, one = rtmonitor.process_frames(synthetic_frames[:60], dataframe=False, beats=True)
    for device in (two["nDeviceId"][0], 9):
        mine = beats[beats["device"] == device]
        assert mine["sample"].tolist() == one["sample"].tolist()


def test_a_loaded_device_reports_the_saved_frames_beats(synthetic_frames):
    with rtmonitor.Device() as device:
        for frame in synthetic_frames[:40]:
            device.process(frame)
            if len(device.beats()):
                break
        assert len(device.beats()) > 0
        with rtmonitor.Device.load(device.save()) as resumed:
            assert resumed.beats().tobytes() == device.beats().tobytes()


def test_a_snapshot_of_the_former_format_is_refused_with_its_reason(synthetic_frames):
    with rtmonitor.Device() as device:
        device.process(synthetic_frames[0])
        old = bytearray(device.save())
    old[8:12] = (1).to_bytes(4, "little")
    with pytest.raises(ValueError, match="format 1.*beats"):
        rtmonitor.Device.load(bytes(old))


def test_record_100_beats_table():
    pandas = pytest.importorskip("pandas")
    _, beats = rtmonitor.process_frames(recording("100"), beats=True)
    assert isinstance(beats, pandas.DataFrame)
    assert list(beats.columns) == COLUMNS
    assert len(beats) == 2202
