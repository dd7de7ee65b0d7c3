"""Shared fixtures: the checkout's paths, the built tool, the shared recordings, a synthetic recording."""

import os
import shutil
from pathlib import Path

import numpy as np
import pytest

import rtmonitor

REPO = Path(__file__).resolve().parent.parent.parent
DATA = REPO.parent / "shared" / "data"
RECORDINGS = ("100", "03700181", "v102s")


# Under CTest (RTM_PYTEST_SKIP_STATUS set) a run that skipped anything exits with that status, which
# CTest reports as a skipped test, so a skip is never counted as a pass; failures still fail.
_skipped = []


def pytest_runtest_logreport(report):
    if report.skipped and not hasattr(report, "wasxfail"):
        _skipped.append(report.nodeid)


def pytest_collectreport(report):
    if report.skipped:
        _skipped.append(report.nodeid)


def pytest_sessionfinish(session, exitstatus):
    status = os.environ.get("RTM_PYTEST_SKIP_STATUS")
    if status and exitstatus == 0 and _skipped:
        session.exitstatus = int(status)


@pytest.fixture(scope="session")
def tool():
    """The rtmonitor tool: RTMONITOR_TOOL (set by CTest), else build/rtmonitor, else PATH."""
    for candidate in (os.environ.get("RTMONITOR_TOOL"), REPO / "build" / "rtmonitor", shutil.which("rtmonitor")):
        if candidate and Path(candidate).is_file():
            return str(candidate)
    pytest.skip("the rtmonitor tool is not built (run `make`, or set RTMONITOR_TOOL)")


def recording(name):
    path = DATA / f"{name}.frames"
    if not path.is_file():
        pytest.skip(f"shared recording {path} is absent")
    return path


def synthetic_ecg_mv(seconds, fs, bpm):
    """P-QRS-T beats in mV at a steady rate, on a slow baseline wander."""
    t = np.arange(int(seconds * fs)) / fs
    phase = (t * bpm / 60.0) % 1.0
    wave = (0.1 * np.exp(-((phase - 0.15) / 0.03) ** 2) - 0.15 * np.exp(-((phase - 0.28) / 0.01) ** 2)
            + 1.2 * np.exp(-((phase - 0.30) / 0.012) ** 2) + 0.25 * np.exp(-((phase - 0.60) / 0.05) ** 2))
    return wave + 0.05 * np.sin(2 * np.pi * 0.1 * t)


@pytest.fixture(scope="session")
def synthetic_frames():
    """Two minutes of one device: ECG at 72/min (360 samples/s), breathing at 15/min (50 samples/s)."""
    seconds = 120
    resp = 0.4 * np.sin(2 * np.pi * 0.25 * np.arange(seconds * 50) / 50)
    return rtmonitor.to_frames(synthetic_ecg_mv(seconds, 360, 72), 360, resp=resp, fs_resp=50)
