"""Peaks of many files on a Dask cluster: one task per file, or per chunk of spectra for
large runs, gathered into one Dask DataFrame with a row per peak.

    from dask.distributed import Client
    import qxpkutil.dask
    df = qxpkutil.dask.find_peaks_in_files("runs/", client=Client(), snr=5)
    peaks = df.compute()          # a pandas DataFrame

The files must be readable at the same path by every worker (a shared folder).
"""

from __future__ import annotations

import glob
import os
from typing import Any, Iterable, List, Optional, Sequence, Tuple, Union

import dask
import dask.dataframe as dd
import numpy as np
import pandas as pd

from . import count_traces, detect_options, find_peaks, read_mzml, read_text
from ._table import FIELDS

__all__ = ["find_peaks_in_files", "peaks_of_file", "expand_paths", "COLUMNS"]

# Where each peak comes from, named as in qxpeak's tables, then the Peak record's fields.
_SOURCE = (
    ("file", object),
    ("trace", np.int32),
    ("id", object),
    ("rt_s", np.float64),
    ("ms_level", np.int32),
)
COLUMNS = tuple(name for name, _ in _SOURCE + FIELDS)

_TEXT_SUFFIXES = (".txt", ".tsv", ".csv", ".xy", ".dat")
_MZML_SUFFIXES = (".mzml", ".mzml.gz")

PathLike = Union[str, os.PathLike]


def _empty() -> pd.DataFrame:
    return pd.DataFrame({name: pd.Series(dtype=t) for name, t in _SOURCE + FIELDS})


def expand_paths(paths: Union[PathLike, Iterable[PathLike]]) -> List[str]:
    """The files a ``paths`` argument names: a folder gives its mzML files (.mzML or
    .mzML.gz, sorted), a pattern with wildcards its matches (sorted), a file itself; a
    list each of these."""
    if isinstance(paths, (str, os.PathLike)):
        paths = [paths]
    files: List[str] = []
    for p in map(os.fspath, paths):
        if os.path.isdir(p):
            files += sorted(os.path.join(p, f) for f in os.listdir(p)
                            if f.lower().endswith(_MZML_SUFFIXES))
        elif glob.has_magic(p):
            files += sorted(glob.glob(p))
        else:
            files.append(p)
    return files


def _is_text(path: str) -> bool:
    name = path.lower()
    return name.removesuffix(".gz").endswith(_TEXT_SUFFIXES)


def peaks_of_file(path: PathLike, *, start: Optional[int] = None, stop: Optional[int] = None,
                  ms_level: int = 0, **options: Any) -> pd.DataFrame:
    """The peaks of every trace of one file (spectra ``start`` <= index < ``stop`` when
    given) as a pandas DataFrame with the columns of COLUMNS; the serial form of one task.
    Each trace is searched as its kind says unless ``kind`` is given."""
    path = os.fspath(path)
    if _is_text(path):
        traces = [read_text(path, kind=options.get("kind") or "spectrum")]
    else:
        ranges = [] if start is None else [(start, (stop if stop is not None else 2**62) - 1)]
        traces = list(read_mzml(path, ms_level=ms_level, indices=ranges))
    frames = []
    for t in traces:
        table = find_peaks(t.x, t.y, **{"kind": t.kind, **options}).to_pandas()
        n = len(table)
        table.insert(0, "ms_level", np.full(n, t.ms_level, np.int32))
        table.insert(0, "rt_s", np.full(n, t.rt))
        table.insert(0, "id", [t.id] * n)
        table.insert(0, "trace", np.full(n, t.index, np.int32))
        table.insert(0, "file", [path] * n)
        frames.append(table)
    if not frames:
        return _empty()
    return pd.concat(frames, ignore_index=True).astype(
        {name: t for name, t in _SOURCE + FIELDS if t is not object})


def _client(client):
    if isinstance(client, str):
        from distributed import Client

        return Client(client)
    return client


def _compute(client, tasks: Sequence):
    if client is None:
        return dask.compute(*tasks)
    return client.gather(client.compute(list(tasks)))


def find_peaks_in_files(paths: Union[PathLike, Iterable[PathLike]], client=None, *,
                        chunk_spectra: Optional[int] = None, ms_level: int = 0,
                        **options: Any) -> dd.DataFrame:
    """The peaks of every trace of many files as a Dask DataFrame, one row per peak, with
    the columns file, trace, id, rt_s (seconds), ms_level and the peak
    fields (see COLUMNS); rows in file order, then trace order.

    ``paths``: files, folders (their mzML files) or wildcard patterns; text files (.txt,
    .csv, ...) are one trace each. One task per file, or with ``chunk_spectra`` one task per
    that many spectra of an mzML file (the spectra are counted first, one task per file).
    ``client``: a ``dask.distributed.Client``, a scheduler address such as
    "tcp://10.0.0.5:8786", or None for the current default scheduler. With a client the
    work starts at once on it (persisted); ``.compute()`` gathers a pandas DataFrame.
    ``ms_level`` keeps spectra of that level; the other keywords are find_peaks' options,
    checked here before any task runs (TypeError or ValueError).
    """
    detect_options(**options)  # fail here, not in every task
    if chunk_spectra is not None and int(chunk_spectra) < 1:
        raise ValueError("chunk_spectra must be at least 1")
    client = _client(client)
    files = expand_paths(paths)
    parts: List[Tuple[str, Optional[int], Optional[int]]] = []
    if chunk_spectra:
        mzml = [f for f in files if not _is_text(f)]
        counts = dict(zip(mzml, _compute(client, [dask.delayed(count_traces)(f) for f in mzml])))
        for f in files:
            if f in counts:
                parts += [(f, a, a + int(chunk_spectra))
                          for a in range(0, counts[f], int(chunk_spectra))]
            else:
                parts.append((f, None, None))
    else:
        parts = [(f, None, None) for f in files]
    task = dask.delayed(peaks_of_file, pure=True)
    delayed = [task(f, start=a, stop=b, ms_level=ms_level, **options) for f, a, b in parts]
    if not delayed:
        return dd.from_pandas(_empty(), npartitions=1)
    frame = dd.from_delayed(delayed, meta=_empty(), verify_meta=False)
    return client.persist(frame) if client is not None else frame
