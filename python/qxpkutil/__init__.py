"""qxpkutil: find, measure and label peaks in spectra and chromatograms.

    import qxpkutil
    table = qxpkutil.find_peaks(mz, intensity, snr=5, fwhm="0.01@400")
    df = table.to_pandas()

Every trace of an mzML file: ``for t in qxpkutil.read_mzml(path): find_peaks(t.x, t.y)``;
many files on a Dask cluster: ``qxpkutil.dask.find_peaks_in_files(paths)``.
"""

from __future__ import annotations

import os
from typing import Iterator, Optional, Tuple, Union

from . import _core
from ._core import (
    Labels,
    Trace,
    baseline_level,
    resolution_smooth,
    smooth,
    smooth_baseline,
    subtract_noise,
    white_noise_level,
)
from ._table import PeakTable

__version__ = _core.__version__

__all__ = [
    "find_peaks",
    "detect_options",
    "PeakTable",
    "read_mzml",
    "read_text",
    "count_traces",
    "Trace",
    "Labels",
    "smooth",
    "resolution_smooth",
    "smooth_baseline",
    "subtract_noise",
    "baseline_level",
    "white_noise_level",
]

# Analyzer names accepted for width_law/analyzer, and the width law each one means.
_WIDTH_LAWS = {
    "auto": _core.WidthLaw.auto,
    "constant": _core.WidthLaw.constant,
    "quadrupole": _core.WidthLaw.constant,
    "tof": _core.WidthLaw.tof,
    "orbitrap": _core.WidthLaw.orbitrap,
    "ft-icr": _core.WidthLaw.ft_icr,
    "fticr": _core.WidthLaw.ft_icr,
}
_KINDS = {"spectrum": _core.SignalKind.spectrum, "chromatogram": _core.SignalKind.chromatogram}

PathLike = Union[str, os.PathLike]


def _choice(name: str, value: str, choices: dict):
    try:
        return choices[str(value).lower()]
    except KeyError:
        raise ValueError(f"{name}={value!r}: not one of {', '.join(choices)}") from None


def detect_options(
    *,
    kind: Optional[str] = None,
    snr: Optional[float] = None,
    fwhm: Union[float, str, None] = None,
    resolution: Optional[float] = None,
    resolution_at: Optional[float] = None,
    width_law: Optional[str] = None,
    analyzer: Optional[str] = None,
    max_charge: Optional[int] = None,
    gauss_refine: Optional[bool] = None,
    labels: Union[Labels, PathLike, None] = None,
    noise_region: Optional[Tuple[float, float]] = None,
    settings: Optional[PathLike] = None,
) -> _core.DetectOptions:
    """The library's DetectOptions from find_peaks' keywords (see find_peaks); an option
    left at None keeps the library's default."""
    o = _core.DetectOptions()
    if kind is not None:
        o.kind = _choice("kind", kind, _KINDS)
    if snr is not None:
        o.snr = float(snr)
    if isinstance(fwhm, str):
        o.parse_fwhm(fwhm)
    elif fwhm is not None:
        o.fwhm = float(fwhm)
    if resolution is not None:
        o.resolution = float(resolution)
    if resolution_at is not None:
        o.resolution_at = float(resolution_at)
    if width_law is not None and analyzer is not None:
        raise TypeError("give width_law or analyzer, not both")
    law = width_law if width_law is not None else analyzer
    if law is not None:
        o.width_law = _choice("width_law", law, _WIDTH_LAWS)
    if max_charge is not None:
        o.max_charge = int(max_charge)
    if gauss_refine is not None:
        o.gauss_refine = bool(gauss_refine)
    if labels is not None:
        o.labels = labels if isinstance(labels, Labels) else Labels.load(os.fspath(labels))
    if noise_region is not None:
        x1, x2 = noise_region
        o.noise_region = (float(x1), float(x2))
    if settings is not None:
        o.load_settings(os.fspath(settings))
    return o


def find_peaks(
    x,
    y,
    *,
    kind: Optional[str] = None,
    snr: Optional[float] = None,
    fwhm: Union[float, str, None] = None,
    resolution: Optional[float] = None,
    resolution_at: Optional[float] = None,
    width_law: Optional[str] = None,
    analyzer: Optional[str] = None,
    max_charge: Optional[int] = None,
    gauss_refine: Optional[bool] = None,
    labels: Union[Labels, PathLike, None] = None,
    noise_region: Optional[Tuple[float, float]] = None,
    settings: Optional[PathLike] = None,
) -> PeakTable:
    """Finds the peaks of one trace and returns them as a PeakTable.

    ``x`` ascending and finite, ``y`` finite and as long: float64 arrays (anything numpy
    converts), or float32 ``x`` with uint32 ``y`` (the count family, read in place when
    contiguous). The GIL is released while the search runs, so threads run in parallel.

    Options (keywords; None keeps the library's default, the same as ``qxpeak FILE``):
      kind          "spectrum" (default) or "chromatogram" (no charges, width in time)
      snr           minimum signal-to-noise of a peak (3)
      fwhm          peak width: a number in x units, or text such as "0.01@400", "4s", "20ppm"
      resolution    resolving power x / FWHM at ``resolution_at`` (400) instead of fwhm
      width_law     how the width scales with x: "auto", "constant", "tof", "orbitrap",
                    "ft-icr"; ``analyzer`` is the same keyword under another name
      max_charge    highest isotope charge assigned (4; 0: none)
      gauss_refine  refine each centroid with a Gaussian fit
      labels        a Labels list or the path of a label file, matched onto the peaks
      noise_region  (x1, x2): S/N from the baseline and noise over that range
      settings      path of an INI file of classic segments ('qxpeak settings' writes one),
                    checked as qxpeak checks it; the automatic options are then not used

    Raises ValueError with the library's message for bad input (lengths differ, NaN,
    unsorted x, an option out of range) and TypeError for an unknown option.
    """
    options = detect_options(
        kind=kind, snr=snr, fwhm=fwhm, resolution=resolution, resolution_at=resolution_at,
        width_law=width_law, analyzer=analyzer, max_charge=max_charge,
        gauss_refine=gauss_refine, labels=labels, noise_region=noise_region, settings=settings)
    return PeakTable(_core.detect(x, y, options))


def read_mzml(
    path: PathLike, *, ms_level: int = 0, list: str = "auto", indices=()
) -> Iterator[Trace]:
    """The traces of an mzML file (plain or indexed, zlib or gzip or not), read one Trace
    at a time: ``.x`` and ``.y`` as numpy arrays, ``.id``, ``.rt`` (seconds, NaN when
    unknown), ``.ms_level``, ``.kind``, ``.index``; a trace that cannot be searched comes
    with ``.problem`` set and empty arrays, and the rest of the file follows. ``list`` is "auto" (the spectra, or the
    chromatograms when there is none), "spectra" or "chromatograms"; ``ms_level`` keeps
    spectra of that level; ``indices`` keeps the positions in the given inclusive
    (first, last) ranges. ValueError with the reader's message for a file that cannot be read or is
    broken (when opened, or when the iteration reaches the break)."""
    ranges = [(int(a), int(b)) for a, b in indices]
    return _core.MzmlReader(os.fspath(path), ms_level, list, ranges)


def count_traces(path: PathLike, *, list: str = "auto") -> int:
    """How many spectra (or chromatograms, as ``list`` says) an mzML file holds."""
    return _core.count_traces(os.fspath(path), list)


def read_text(path: PathLike, *, kind: str = "spectrum") -> Trace:
    """A two-column text signal: x and y separated by a tab, a comma or blanks; a header
    line, blank lines and '#' comments are skipped. ``kind="chromatogram"`` reads it as a
    chromatogram, x in seconds. ValueError for a bad file."""
    chromatogram = _choice("kind", kind, _KINDS) == _core.SignalKind.chromatogram
    return _core.read_text(os.fspath(path), chromatogram)


def __getattr__(name: str):
    # The readers and the Dask layer load on first use.
    if name == "dask":
        import importlib

        return importlib.import_module(".dask", __name__)
    raise AttributeError(f"module 'qxpkutil' has no attribute {name!r}")
