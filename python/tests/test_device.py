"""Device: every form of frame gives the same analysis, snapshots continue a device exactly,
and bad frames or snapshots are refused with a ValueError that says what was wrong."""

import numpy as np
import pytest

import rtmonitor


def run(device, frames):
    return np.concatenate([np.atleast_1d(np.asarray(device.process(f))) for f in frames])


def test_device_equals_batch_run(synthetic_frames):
    with rtmonitor.Device() as device:
        records = run(device, synthetic_frames)
    assert records.dtype == rtmonitor.RESULT_DTYPE
    assert records.tobytes() == rtmonitor.process_records(synthetic_frames).tobytes()


def test_every_frame_form_gives_the_same_record(synthetic_frames):
    frame = synthetic_frames[5]
    forms = [
        frame,
        frame.tobytes(),
        bytearray(frame.tobytes()),
        np.frombuffer(frame.tobytes(), "<i4"),
        np.frombuffer(frame.tobytes(), "<i4").astype(">i4"),
        {name: frame[name] for name in rtmonitor.FRAME_DTYPE.names},
    ]
    outputs = []
    for form in forms:
        with rtmonitor.Device() as device:
            outputs.append(np.asarray(device.process(form)).tobytes())
    assert all(o == outputs[0] for o in outputs)


def test_snapshot_continues_identically(synthetic_frames):
    whole = rtmonitor.process_records(synthetic_frames)
    for cut in (1, 45, 100):
        with rtmonitor.Device() as first:
            run(first, synthetic_frames[:cut])
            snapshot = first.save()
        with rtmonitor.Device.load(snapshot) as resumed:
            rest = run(resumed, synthetic_frames[cut:])
        assert rest.tobytes() == whole[cut:].tobytes(), f"cut at frame {cut}"


def test_bad_snapshots_are_refused(synthetic_frames):
    with rtmonitor.Device() as device:
        run(device, synthetic_frames[:3])
        snapshot = device.save()
    corrupted = bytearray(snapshot)
    corrupted[-1] ^= 1
    other_version = bytearray(snapshot)
    other_version[16:32] = b"9.9.9".ljust(16, b"\0")
    cases = {
        snapshot[:-1]: "bytes",
        b"x" * len(snapshot): "not an rtmonitor snapshot",
        bytes(corrupted): "corrupted",
        bytes(other_version): "version 9.9.9",
    }
    for data, message in cases.items():
        with pytest.raises(ValueError, match=message):
            rtmonitor.Device.load(data)


@pytest.mark.parametrize("frame, message", [
    (b"\0" * 1319, "1320 bytes.*got 1319"),
    (b"\0" * 2640, "1320 bytes.*got 2640"),
    (np.zeros(330), "whole numbers.*float64"),
    (np.zeros(329, np.int32), r"shape \(330,\)"),
    (np.zeros(2, rtmonitor.FRAME_DTYPE), "one frame, got 2"),
    (np.zeros(1, [("nDeviceId", "<i4"), ("rest", "<i4", (329,))]), "FRAME_DTYPE"),
    (np.zeros(1, rtmonitor.RESULT_DTYPE), "FRAME_DTYPE"),
    (np.array([2**31], np.int64).repeat(330), "32-bit signed range"),
    ({"nHeartRate": 1}, "unknown frame field.*nHeartRate"),
    ({"nHeartData": np.zeros(199, int)}, "nHeartData takes 200"),
    ({"nAccX": np.full(25, 0.5)}, "nAccX must hold whole numbers"),
    ("a.frames", "not a path"),
    ("frame", "not a path"),
])
def test_bad_frames_raise_value_error(frame, message):
    with rtmonitor.Device() as device, pytest.raises(ValueError, match=message):
        device.process(frame)


def test_closed_device_refuses_work():
    device = rtmonitor.Device()
    device.close()
    device.close()
    with pytest.raises(ValueError, match="closed"):
        device.process(b"\0" * 1320)


def test_result_answers_to_the_c_names_and_to_the_replay_columns(synthetic_frames):
    table = rtmonitor.process_frames(synthetic_frames, dataframe=False)
    with rtmonitor.Device() as device:
        results = [device.process(f) for f in synthetic_frames]
    assert any(r.heart_rate > 0 for r in results)  # the comparison below is not over zeros only
    for row, r in zip(table, results):
        for column in ("heart_rate", "heart_status", "breath_rate", "breath_state", "posture",
                       "movement_mean", "movement_max"):
            assert getattr(r, column) == r[column] == row[column], column
        assert r.heart_rate == r.nHeartRate and r["breath_rate"] == r["nBreathRate"]
    last = results[-1]
    assert np.array_equal(last.heart_wave, last.nHeartWave) and np.array_equal(last["movement"], last.nMovement)
    assert {"heart_rate", "nHeartRate", "movement_max"} <= set(dir(last))
    with pytest.raises(AttributeError, match="heart_rat"):
        last.heart_rat
