"""Finding the library, its version, and reading frame files."""

import numpy as np
import pytest

import rtmonitor
from rtmonitor import _library


def test_version_is_the_package_version():
    assert rtmonitor.version() == rtmonitor.__version__


def test_no_library_error_names_all_three_places(tmp_path):
    build = [tmp_path / "build" / "librtmonitor.so"]
    with pytest.raises(rtmonitor.LibraryNotFoundError) as caught:
        _library.locate(environ={}, build_tree=build, installed=[], sonames=("librtmonitor-absent.so.0",))
    message = str(caught.value)
    assert "RTMONITOR_LIBRARY" in message
    assert str(build[0]) in message
    assert "librtmonitor-absent.so.0" in message


def test_explicit_library_that_does_not_load_is_an_error(tmp_path):
    missing = tmp_path / "librtmonitor.so"
    with pytest.raises(rtmonitor.LibraryNotFoundError, match=f"RTMONITOR_LIBRARY={missing}"):
        _library.locate(environ={"RTMONITOR_LIBRARY": str(missing)}, build_tree=[], installed=[])


def test_read_frames_maps_whole_frames(tmp_path, synthetic_frames):
    path = tmp_path / "a.frames"
    synthetic_frames[:7].tofile(path)
    frames = rtmonitor.read_frames(path)
    assert isinstance(frames, np.memmap) and not frames.flags.writeable
    assert frames.dtype == rtmonitor.FRAME_DTYPE and frames.tobytes() == synthetic_frames[:7].tobytes()


def test_read_frames_refuses_empty_and_cut_files(tmp_path):
    empty = tmp_path / "empty.frames"
    empty.write_bytes(b"")
    with pytest.raises(ValueError, match="empty"):
        rtmonitor.read_frames(empty)
    cut = tmp_path / "cut.frames"
    cut.write_bytes(b"\0" * (2 * 1320 + 100))
    with pytest.raises(ValueError, match="byte offset 2640 .100 of 1320 bytes"):
        rtmonitor.read_frames(cut)
