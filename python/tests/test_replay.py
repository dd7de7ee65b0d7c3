"""process_frames equals `rtmonitor replay` frame by frame: the shared recordings, and several
devices interleaved in one file."""

import csv
import subprocess

import numpy as np
import pytest

import rtmonitor
from conftest import RECORDINGS, recording


def replay(tool, path, tmp_path):
    out = tmp_path / "replay.csv"
    subprocess.run([tool, "replay", str(path), "--out", str(out)], check=True, capture_output=True)
    with open(out, newline="") as f:
        return list(csv.DictReader(f))


def assert_same_as_replay(table, rows):
    assert list(table.dtype.names) == list(rows[0].keys())
    assert len(table) == len(rows)
    for name in table.dtype.names:
        if name == "movement_mean":
            # The tool prints the mean with two decimals; compare what it printed.
            ours = [f"{v:.2f}" for v in table[name]]
        else:
            ours = [str(v) for v in table[name].tolist()]
        theirs = [row[name] for row in rows]
        if ours != theirs:
            first = next(i for i, (a, b) in enumerate(zip(ours, theirs)) if a != b)
            pytest.fail(f"column {name} differs first at frame {first}: {ours[first]} here, {theirs[first]} in replay")


@pytest.mark.parametrize("name", RECORDINGS)
def test_shared_recording_equals_replay(name, tool, tmp_path):
    path = recording(name)
    assert_same_as_replay(rtmonitor.process_frames(rtmonitor.read_frames(path), dataframe=False),
                          replay(tool, path, tmp_path))


def test_interleaved_devices_equal_replay(tool, tmp_path):
    path = tmp_path / "three.frames"
    subprocess.run([tool, "synth", "--out", str(path), "--minutes", "2", "--devices", "3"], check=True,
                   capture_output=True)
    table = rtmonitor.process_frames(str(path), dataframe=False)
    assert set(table["device"].tolist()) == {1, 2, 3}
    assert_same_as_replay(table, replay(tool, path, tmp_path))


def test_dataframe_has_the_replay_columns(synthetic_frames):
    pandas = pytest.importorskip("pandas")
    table = rtmonitor.process_frames(synthetic_frames)
    assert isinstance(table, pandas.DataFrame)
    assert np.array_equal(table["heart_rate"].to_numpy(),
                          rtmonitor.process_frames(synthetic_frames, dataframe=False)["heart_rate"])
