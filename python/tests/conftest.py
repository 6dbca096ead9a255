"""Signals and mzML files for the package's tests, written here rather than by the
library, so that the readers are never checked against their own writer."""

import base64
import struct
import zlib
from pathlib import Path

import numpy as np
import pytest


def three_peaks(first=400.0, spacing=2.0, step=0.002, sigma=0.004, seed=1):
    """Peaks of heights 1000, 3000 and 2000 on a baseline of 20 with white noise of sigma 1."""
    x = np.arange(first - spacing / 2, first + 2.5 * spacing, step)
    rng = np.random.default_rng(seed)
    y = 20.0 + rng.normal(0.0, 1.0, x.size)
    for k, height in enumerate((1000.0, 3000.0, 2000.0)):
        y += height * np.exp(-0.5 * ((x - first - k * spacing) / sigma) ** 2)
    return x, y


def _array(values, accession, name, compress):
    raw = struct.pack(f"<{len(values)}d", *values)
    if compress:
        raw = zlib.compress(raw)
    data = base64.b64encode(raw).decode()
    comp = ('<cvParam cvRef="MS" accession="MS:1000574" name="zlib compression"/>' if compress
            else '<cvParam cvRef="MS" accession="MS:1000576" name="no compression"/>')
    return (f'<binaryDataArray encodedLength="{len(data)}">'
            '<cvParam cvRef="MS" accession="MS:1000523" name="64-bit float"/>'
            f'{comp}<cvParam cvRef="MS" accession="{accession}" name="{name}"/>'
            f'<binary>{data}</binary></binaryDataArray>')


def write_mzml(path, spectra, compress=False):
    """An mzML 1.1 file of profile spectra, each (x, y, rt_minutes, ms_level)."""
    parts = []
    for i, (x, y, rt, level) in enumerate(spectra):
        parts.append(
            f'<spectrum index="{i}" id="scan={i + 1}" defaultArrayLength="{len(x)}">'
            f'<cvParam cvRef="MS" accession="MS:1000511" name="ms level" value="{level}"/>'
            '<cvParam cvRef="MS" accession="MS:1000128" name="profile spectrum"/>'
            '<scanList count="1"><scan><cvParam cvRef="MS" accession="MS:1000016" '
            f'name="scan start time" value="{rt}" unitCvRef="UO" unitAccession="UO:0000031" '
            'unitName="minute"/></scan></scanList><binaryDataArrayList count="2">'
            + _array(x, "MS:1000514", "m/z array", compress)
            + _array(y, "MS:1000515", "intensity array", compress)
            + "</binaryDataArrayList></spectrum>")
    Path(path).write_text(
        '<?xml version="1.0" encoding="utf-8"?>\n'
        '<mzML xmlns="http://psi.hupo.org/ms/mzml" version="1.1.0"><run id="r">'
        f'<spectrumList count="{len(spectra)}">' + "".join(parts) + "</spectrumList></run></mzML>\n")
    return Path(path)


def run_spectra(count, seed):
    """`count` spectra of one run: three peaks moving along x, two of them MS1."""
    return [(*three_peaks(first=400.0 + 7 * k, seed=seed * 100 + k), 0.5 * k, 1 if k % 3 else 2)
            for k in range(count)]


@pytest.fixture(scope="session")
def mzml_files(tmp_path_factory):
    """Four mzML files of five spectra each, two of them zlib-compressed."""
    folder = tmp_path_factory.mktemp("runs")
    return [write_mzml(folder / f"run{i}.mzML", run_spectra(5, i), compress=i % 2 == 1)
            for i in range(4)]
