"""The peak table find_peaks returns: columns of the library's Peak record."""

from __future__ import annotations

from typing import Any, Dict, Iterator

import numpy as np

from . import _core

# The Peak record's fields, in its order, with their numpy types.
FIELDS = (
    ("apex_x", np.float64),
    ("apex_y", np.float64),
    ("centroid_x", np.float64),
    ("left_x", np.float64),
    ("right_x", np.float64),
    ("apex_index", np.int32),
    ("left_index", np.int32),
    ("right_index", np.int32),
    ("area", np.float64),
    ("height", np.float64),
    ("baseline", np.float64),
    ("fwhm", np.float64),
    ("noise", np.float64),
    ("snr", np.float64),
    ("charge", np.int32),
    ("marks", np.uint32),
    ("label", object),
)


class PeakTable:
    """The peaks of one trace, in apex-x order; values that were not measured are NaN.

    ``len(table)`` counts them, ``table["snr"]`` is one column as a numpy array,
    ``to_numpy()`` gives a structured array and ``to_pandas()`` a DataFrame, both with
    the fields of the library's Peak record (apex_x, apex_y, centroid_x, left_x, right_x,
    apex_index, left_index, right_index, area, height, baseline, fwhm, noise, snr, charge,
    marks, label).
    """

    def __init__(self, core: _core.PeakTable) -> None:
        self._core = core
        columns = core.columns()
        columns["label"] = np.array(columns["label"], dtype=object)
        self._columns: Dict[str, np.ndarray] = columns

    def __len__(self) -> int:
        return len(self._core)

    def __getitem__(self, field: str) -> np.ndarray:
        return self._columns[field]

    def __iter__(self) -> Iterator[str]:
        return iter(self._columns)

    def __repr__(self) -> str:
        return f"<qxpkutil.PeakTable with {len(self)} peaks>"

    @property
    def fields(self) -> tuple:
        """The column names, in the Peak record's order."""
        return tuple(name for name, _ in FIELDS)

    @property
    def report(self) -> Dict[str, Any]:
        """What the automatic mode chose: noise, fwhm_at_median_x, points_per_fwhm,
        width_law and the number of segments run."""
        return self._core.report

    def to_numpy(self) -> np.ndarray:
        """A structured array, one record per peak; label is a str field."""
        width = max((len(s) for s in self._columns["label"]), default=0)
        dtype = [(n, t if t is not object else f"U{max(width, 1)}") for n, t in FIELDS]
        out = np.empty(len(self), dtype=dtype)
        for name, _ in FIELDS:
            out[name] = self._columns[name]
        return out

    def to_pandas(self):
        """A pandas DataFrame, one row per peak (ImportError without pandas)."""
        import pandas as pd

        return pd.DataFrame({name: self._columns[name] for name, _ in FIELDS})

    def signal_to_noise(self, x, y, targets, baseline):
        """The library's S/N calculator: for each (x, delta) target, (found apex x, S/N)
        of the most intense peak within x +- delta, with baseline and noise measured over
        the ``baseline`` (x1, x2) range of the same arrays; (0.0, -1.0) where none."""
        return self._core.signal_to_noise(x, y, list(targets), tuple(baseline))

    def resolution(self, x, y, targets, percent: int = 50, min_intensity: int = 50):
        """The library's resolution calculator: for each (x, delta) target, (found apex x,
        apex x / width at ``percent`` of the height), -1 below ``min_intensity``."""
        return self._core.resolution(x, y, list(targets), percent, min_intensity)
