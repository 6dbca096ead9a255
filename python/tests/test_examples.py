"""The examples the README and docs/python.md show, run on generated files."""
import re
import subprocess
import sys
from pathlib import Path

EXAMPLES = Path(__file__).resolve().parents[2] / "examples" / "python"


def _run(script, *args):
    return subprocess.run([sys.executable, str(EXAMPLES / script), *map(str, args)],
                          check=True, capture_output=True, text=True, timeout=300).stdout


def test_dataframe_from_an_mzml_file(mzml_files):
    out = _run("peaks_from_mzml.py", mzml_files[0])
    # Three peaks in each of the three MS1 spectra of five.
    assert out.count("scan=") == 9 and "scan=4" not in out


def test_folder_on_a_local_cluster(mzml_files):
    out = _run("peaks_on_dask.py", mzml_files[0].parent)
    assert len(re.findall(r"run\d\.mzML\s+9\n", out)) == 4  # nine MS1 peaks per file
