import json
import os
import subprocess
from concurrent.futures import ThreadPoolExecutor

import numpy as np
import pytest

import qxpkutil
from conftest import three_peaks

NAN = float("nan")


def _reference(path):
    """qxpeak's peaks on a file (the C++ entry point with its defaults), from its JSON."""
    binary = os.environ.get("QXPKUTIL_QXPEAK")
    if not binary:
        pytest.skip("QXPKUTIL_QXPEAK is not set (run through ctest in a build with the tool)")
    out = subprocess.run([binary, str(path), "-f", "json", "-o", "-", "-q"], check=True,
                         capture_output=True, text=True).stdout
    keys = ("apex_x", "apex_y", "centroid_x", "area", "height", "fwhm", "noise", "snr")
    return [(t["index"], *(NAN if p[k] is None else p[k] for k in keys), p["charge"] or 0,
             p["flags"]) for t in json.loads(out)["traces"] for p in t["peaks"]]


def test_same_peaks_as_the_cpp_entry_point(mzml_files):
    for path in mzml_files[:2]:
        ours = []
        for trace in qxpkutil.read_mzml(path):
            t = qxpkutil.find_peaks(trace.x, trace.y)
            for p in t.to_numpy():
                ours.append((trace.index, p["apex_x"], p["apex_y"], p["centroid_x"], p["area"],
                             p["height"], p["fwhm"], p["noise"], p["snr"], p["charge"], p["marks"]))
        reference = _reference(path)
        assert len(ours) == len(reference) > 0
        # NaN (not measured) equals NaN here: compare the exact bits through repr.
        assert [tuple(map(repr, map(float, r))) for r in ours] == \
               [tuple(map(repr, map(float, r))) for r in reference]


def test_count_family_matches_the_widened_double_family():
    x, y = three_peaks()
    xs, ys = x.astype(np.float32), np.round(y).astype(np.uint32)
    counts = qxpkutil.find_peaks(xs, ys).to_numpy()
    widened = qxpkutil.find_peaks(xs.astype(np.float64), ys.astype(np.float64)).to_numpy()
    assert len(counts) == 3
    np.testing.assert_array_equal(counts, widened)
    # A strided view is copied, not misread.
    strided = qxpkutil.find_peaks(np.repeat(xs, 2)[::2], np.repeat(ys, 2)[::2]).to_numpy()
    np.testing.assert_array_equal(strided, counts)


def test_table_forms_agree():
    x, y = three_peaks()
    labels = qxpkutil.Labels()
    labels.add("big", 402.0, 0.05)
    t = qxpkutil.find_peaks(x, y, labels=labels)
    a, df = t.to_numpy(), t.to_pandas()
    assert len(t) == len(a) == len(df) == 3
    assert list(a.dtype.names) == list(df.columns) == list(t.fields)
    np.testing.assert_allclose(a["apex_x"], [400.0, 402.0, 404.0], atol=0.002)
    assert list(df["label"]) == ["", "big", ""]
    assert (a["snr"] > 100).all() and (a["fwhm"] > 0).all()



@pytest.mark.parametrize("x, y, message", [
    ([1.0, 3.0, 2.0], [1.0, 2.0, 3.0], "not ascending"),
    ([1.0, 2.0, 3.0], [1.0, 2.0], "3 values but y has 2"),
    ([1.0, 2.0, 3.0], [1.0, NAN, 3.0], "not a finite number"),
    (np.ones((2, 2)), np.ones((2, 2)), "one-dimensional"),
    (["a", "b"], [1.0, 2.0], "not an array of numbers"),
])
def test_bad_input_raises_the_library_message(x, y, message):
    with pytest.raises(ValueError, match=message):
        qxpkutil.find_peaks(x, y)


@pytest.mark.parametrize("options, error", [
    (dict(bogus=1), TypeError),
    (dict(width_law="tof", analyzer="tof"), TypeError),
    (dict(kind="image"), ValueError),
    (dict(snr=-1), ValueError),
    (dict(max_charge=-3), ValueError),
    (dict(fwhm="wide"), ValueError),
    (dict(labels="/nonexistent.lbs"), ValueError),
    (dict(settings="/nonexistent.ini"), ValueError),
])
def test_bad_options_raise(options, error):
    x, y = three_peaks()
    with pytest.raises(error):
        qxpkutil.find_peaks(x, y, **options)


def test_options_reach_the_library():
    x, y = three_peaks()
    default = qxpkutil.find_peaks(x, y)
    tallest = qxpkutil.find_peaks(x, y, snr=2500)  # heights 1000, 3000, 2000 over noise 1
    assert list(tallest["apex_x"].round(2)) == [402.0]
    assert qxpkutil.find_peaks(x, y, fwhm="0.0094@400").report["fwhm_at_median_x"] == \
        pytest.approx(0.0094, rel=0.01)
    region = qxpkutil.find_peaks(x, y, noise_region=(399.0, 399.8))
    assert not np.allclose(region["snr"], default["snr"])
    chrom = qxpkutil.find_peaks(x, y, kind="chromatogram")
    assert (chrom["charge"] == 0).all()


def test_classic_settings_from_an_ini_file(tmp_path):
    ini = tmp_path / "classic.ini"
    ini.write_text("[qxpeak\\PeakSettingsTrace-0]\nNumDetectSegments=1\nPeakThresholdPct-0=50\n")
    x, y = three_peaks()
    classic = qxpkutil.find_peaks(x, y, settings=ini)
    assert classic.report["segments"] == 1
    with pytest.raises(ValueError, match="no \\[other"):
        qxpkutil.detect_options().load_settings(str(ini), "other")
    # Checked as qxpeak checks it, with its words.
    ini.write_text("[qxpeak\\PeakSettingsTrace-0]\nPeakFilterWidth-0=wide\n")
    with pytest.raises(ValueError, match="PeakFilterWidth-0=wide is not a whole number from 1 to 2001"):
        qxpkutil.find_peaks(x, y, settings=ini)


def test_threads_get_the_same_tables():
    signals = [three_peaks(seed=s) for s in range(4)]
    serial = [qxpkutil.find_peaks(x, y).to_numpy() for x, y in signals]
    with ThreadPoolExecutor(len(signals)) as pool:
        results = list(pool.map(lambda s: qxpkutil.find_peaks(*s).to_numpy(), signals))
    for a, b in zip(serial, results):
        np.testing.assert_array_equal(a, b)
