import math
import pickle

import numpy as np
import pytest

import qxpkutil
from conftest import run_spectra, write_mzml


@pytest.mark.parametrize("compress", [False, True])
def test_mzml_traces_hold_what_was_written(tmp_path, compress):
    spectra = run_spectra(4, seed=7)
    path = write_mzml(tmp_path / "a.mzML", spectra, compress=compress)
    traces = list(qxpkutil.read_mzml(path))
    assert [t.id for t in traces] == ["scan=1", "scan=2", "scan=3", "scan=4"]
    for t, (x, y, rt_minutes, level) in zip(traces, spectra):
        np.testing.assert_array_equal(t.x, x)
        np.testing.assert_array_equal(t.y, y)
        assert (t.rt, t.ms_level, t.kind) == (rt_minutes * 60, level, "spectrum")
    assert qxpkutil.count_traces(path) == 4
    assert [t.index for t in qxpkutil.read_mzml(path, ms_level=1)] == [1, 2]
    assert [t.index for t in qxpkutil.read_mzml(path, indices=[(2, 3)])] == [2, 3]


def test_bad_traces_are_marked_and_bad_files_raise_with_their_name(tmp_path):
    spectra = run_spectra(3, seed=2)
    x, y, rt, level = spectra[1]
    spectra[1] = (x, y[:-1], rt, level)  # fewer intensities than declared
    good = write_mzml(tmp_path / "b.mzML", spectra)
    traces = list(qxpkutil.read_mzml(good))
    assert [bool(t.problem) for t in traces] == [False, True, False]
    assert len(traces[1].x) == 0 and len(qxpkutil.find_peaks(traces[1].x, traces[1].y)) == 0
    whole = good.read_text()
    for name, text in [("cut.mzML", whole[: len(whole) // 2]), ("plain.mzML", "not xml")]:
        (tmp_path / name).write_text(text)
        with pytest.raises(ValueError, match=name):
            list(qxpkutil.read_mzml(tmp_path / name))
    with pytest.raises(ValueError):
        qxpkutil.read_mzml(tmp_path / "missing.mzML")


def test_text_signal(tmp_path):
    (tmp_path / "s.txt").write_text("mz\tintensity\n# comment\n100.0\t5\n100.5,7\n\n101 9\n")
    t = qxpkutil.read_text(tmp_path / "s.txt")
    assert t.x.tolist() == [100.0, 100.5, 101.0] and t.y.tolist() == [5.0, 7.0, 9.0]
    assert t.id == "" and math.isnan(t.rt) and t.kind == "spectrum"
    assert qxpkutil.read_text(tmp_path / "s.txt", kind="chromatogram").kind == "chromatogram"
    (tmp_path / "bad.txt").write_text("1 2\n3 x\n")
    with pytest.raises(ValueError, match="bad.txt"):
        qxpkutil.read_text(tmp_path / "bad.txt")


def test_labels_load_and_travel(tmp_path):
    (tmp_path / "l.lbs").write_text("Label\tX Value\tDelta X\nfirst\t400.0\t0.05\nthird\t404.0\t0.05\n")
    labels = qxpkutil.Labels.load(str(tmp_path / "l.lbs"))
    copy = pickle.loads(pickle.dumps(labels))
    assert [copy[i] for i in range(len(copy))] == [labels[i] for i in range(len(labels))]
    assert labels[-1][0] == "third"
