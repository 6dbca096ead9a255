import gzip

import pandas as pd
import pytest

import qxpkutil
import qxpkutil.dask as qd

distributed = pytest.importorskip("distributed")


def _serial(paths, **options):
    return pd.concat([qd.peaks_of_file(p, **options) for p in paths], ignore_index=True)


@pytest.fixture(scope="module")
def cluster():
    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                                  host="127.0.0.1", dashboard_address=None) as c:
        yield c


def test_cluster_gives_the_serial_result(mzml_files, cluster):
    labels = qxpkutil.Labels()
    labels.add("first", 400.0, 0.05)
    expected = _serial(mzml_files, labels=labels)
    with distributed.Client(cluster) as client:
        got = qd.find_peaks_in_files(mzml_files, client=client, labels=labels).compute()
        chunked = qd.find_peaks_in_files(mzml_files, client=client, chunk_spectra=2,
                                         labels=labels).compute()
    by_address = qd.find_peaks_in_files([str(p) for p in mzml_files], client=cluster.scheduler_address,
                                        labels=labels)
    from_address = by_address.compute()
    distributed.default_client().close()  # the client find_peaks_in_files opened
    for df in (got, chunked, from_address):
        pd.testing.assert_frame_equal(df.reset_index(drop=True), expected)
    assert list(expected.columns) == list(qd.COLUMNS)
    assert set(expected["file"]) == {str(p) for p in mzml_files}
    assert (expected["label"] == "first").sum() >= 4  # the first spectrum of every file
    assert expected["rt_s"].max() == pytest.approx(4 * 0.5 * 60)


def test_folder_ms_level_and_empty_input(mzml_files, tmp_path):
    folder = mzml_files[0].parent
    gzipped = tmp_path / "run.mzML.gz"
    gzipped.write_bytes(gzip.compress(mzml_files[0].read_bytes()))
    pd.testing.assert_frame_equal(
        qd.find_peaks_in_files(tmp_path).compute().drop(columns="file"),
        qd.peaks_of_file(mzml_files[0]).drop(columns="file"))
    ms2 = qd.find_peaks_in_files(folder, ms_level=2).compute()  # default scheduler
    assert set(ms2["ms_level"]) == {2} and set(ms2["file"]) == {str(p) for p in mzml_files}
    assert len(qd.find_peaks_in_files([]).compute()) == 0
    with pytest.raises(TypeError):
        qd.find_peaks_in_files(folder, bogus=1)
