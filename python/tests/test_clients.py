"""qxpeak's outputs read by the tools people already use: pymzML, pandas and json."""
import json
import os
import subprocess

import pandas
import pytest


def test_outputs_read_by_pymzml_pandas_and_json(mzml_files, tmp_path):
    binary = os.environ.get("QXPKUTIL_QXPEAK")
    if not binary:
        pytest.skip("QXPKUTIL_QXPEAK is not set (run through ctest in a build with the tool)")
    pymzml = pytest.importorskip("pymzml")
    subprocess.run([binary, str(mzml_files[1]), "-f", "tsv,json,mzml", "-d", str(tmp_path), "-q"],
                   check=True, capture_output=True)
    table = pandas.read_csv(tmp_path / "run1.peaks.tsv", sep="\t")
    listing = json.loads((tmp_path / "run1.peaks.json").read_text())
    spectra = list(pymzml.run.Reader(str(tmp_path / "run1.centroided.mzML")))
    assert len(table) > 0 and table["centroid_x"].notna().all()
    assert len(spectra) == 5
    # Every spectrum holds its peaks' centroids, as the table lists them.
    for index, spectrum in enumerate(spectra):
        mine = table[table["trace"] == index]["centroid_x"].to_numpy()
        assert spectrum.get("MS:1000127") is not None or spectrum["centroid spectrum"] is not None
        assert list(spectrum.mz) == pytest.approx(list(mine), rel=1e-12)
    assert listing
