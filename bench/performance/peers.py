#!/usr/bin/env python3
"""Whole-process and peer timings for run.sh, and the table of every figure.

  peers.py WORK QXPEAK LIBRARY_JSON

WORK holds spectrum.bin (written by qxpkutil_performance --write-spectrum); QXPEAK is the
built tool; LIBRARY_JSON the library benchmark's aggregate report. Peers are timed when
they are installed: scipy.signal.find_peaks in process, OpenMS PeakPickerHiRes as a whole
process on the same spectrum written as mzML, with qxpeak timed the same way. Prints a
Markdown table.
"""
import base64
import json
import os
import shutil
import statistics
import struct
import subprocess
import sys
import time

REPEATS = 5


def read_spectrum(path):
    with open(path, "rb") as f:
        (n,) = struct.unpack("<I", f.read(4))
        x = f.read(8 * n)
        y = f.read(8 * n)
    return n, x, y


def mzml_spectrum(index, n, xbytes, ybytes):
    """One profile MS1 spectrum, uncompressed 64-bit arrays."""
    def array(raw, accession, name):
        text = base64.b64encode(raw).decode()
        return (
            f'<binaryDataArray encodedLength="{len(text)}">'
            '<cvParam cvRef="MS" accession="MS:1000523" name="64-bit float"/>'
            '<cvParam cvRef="MS" accession="MS:1000576" name="no compression"/>'
            f'<cvParam cvRef="MS" accession="{accession}" name="{name}"/>'
            f"<binary>{text}</binary></binaryDataArray>")
    return (
        f'<spectrum index="{index}" id="scan={index + 1}" defaultArrayLength="{n}">'
        '<cvParam cvRef="MS" accession="MS:1000579" name="MS1 spectrum"/>'
        '<cvParam cvRef="MS" accession="MS:1000511" name="ms level" value="1"/>'
        '<cvParam cvRef="MS" accession="MS:1000128" name="profile spectrum"/>'
        '<scanList count="1"><cvParam cvRef="MS" accession="MS:1000795" name="no combination"/>'
        '<scan><cvParam cvRef="MS" accession="MS:1000016" name="scan start time" '
        f'value="{index * 0.5}" unitCvRef="UO" unitAccession="UO:0000010" unitName="second"/>'
        "</scan></scanList>"
        '<binaryDataArrayList count="2">'
        + array(xbytes, "MS:1000514", "m/z array")
        + array(ybytes, "MS:1000515", "intensity array")
        + "</binaryDataArrayList></spectrum>")


def write_mzml(path, spectra):
    """spectra: a list of (n, x bytes, y bytes)."""
    with open(path, "w") as f:
        f.write(
            '<?xml version="1.0" encoding="utf-8"?>\n'
            '<mzML xmlns="http://psi.hupo.org/ms/mzml" version="1.1.0">'
            '<cvList count="2"><cv id="MS" fullName="Proteomics Standards Initiative Mass '
            'Spectrometry Ontology" URI="https://raw.githubusercontent.com/HUPO-PSI/'
            'psi-ms-CV/master/psi-ms.obo"/><cv id="UO" fullName="Unit Ontology" '
            'URI="https://raw.githubusercontent.com/bio-ontology-research-group/'
            'unit-ontology/master/unit.obo"/></cvList>'
            '<fileDescription><fileContent><cvParam cvRef="MS" accession="MS:1000579" '
            'name="MS1 spectrum"/></fileContent></fileDescription>'
            '<softwareList count="1"><software id="bench" version="1">'
            '<cvParam cvRef="MS" accession="MS:1000799" name="custom unreleased software tool" '
            'value="bench"/></software></softwareList>'
            '<instrumentConfigurationList count="1"><instrumentConfiguration id="IC1">'
            '<cvParam cvRef="MS" accession="MS:1000031" name="instrument model"/>'
            "</instrumentConfiguration></instrumentConfigurationList>"
            '<dataProcessingList count="1"><dataProcessing id="DP1">'
            '<processingMethod order="0" softwareRef="bench"><cvParam cvRef="MS" '
            'accession="MS:1000544" name="Conversion to mzML"/></processingMethod>'
            "</dataProcessing></dataProcessingList>"
            '<run id="bench" defaultInstrumentConfigurationRef="IC1">'
            f'<spectrumList count="{len(spectra)}" defaultDataProcessingRef="DP1">\n')
        for i, (n, xb, yb) in enumerate(spectra):
            f.write(mzml_spectrum(i, n, xb, yb))
            f.write("\n")
        f.write("</spectrumList></run></mzML>\n")


def timed(cmd):
    """Wall seconds, CPU seconds (user + system of the children) and peak RSS in MiB."""
    before = os.times()
    start = time.perf_counter()
    proc = subprocess.run(["/usr/bin/time", "-f", "%M"] + cmd, stdout=subprocess.DEVNULL,
                          stderr=subprocess.PIPE, text=True, check=False)
    wall = time.perf_counter() - start
    after = os.times()
    if proc.returncode != 0:
        raise RuntimeError(f"{' '.join(cmd)} failed: {proc.stderr.strip()[-400:]}")
    cpu = (after.children_user - before.children_user) + (after.children_system -
                                                          before.children_system)
    rss = int(proc.stderr.strip().splitlines()[-1]) / 1024.0
    return wall, cpu, rss


def median_run(cmd, repeats=REPEATS):
    runs = [timed(cmd) for _ in range(repeats)]
    return (statistics.median(r[0] for r in runs), statistics.median(r[1] for r in runs),
            max(r[2] for r in runs))


def scipy_time(ybytes):
    try:
        import numpy as np
        from scipy.signal import find_peaks
    except ImportError:
        return None
    y = np.frombuffer(ybytes, dtype="<f8")
    # A noise condition comparable to S/N 3: the robust sigma of point-to-point differences.
    sigma = 1.4826 * np.median(np.abs(np.diff(y) - np.median(np.diff(y)))) / np.sqrt(2.0)
    base = np.median(y)
    times = []
    found = 0
    for _ in range(REPEATS):
        start = time.process_time()
        peaks, _ = find_peaks(y, height=base + 3 * sigma, prominence=3 * sigma, width=1)
        times.append(time.process_time() - start)
        found = len(peaks)
    return statistics.median(times), found


def library_rows(path):
    with open(path) as f:
        report = json.load(f)
    rows = {}
    for b in report["benchmarks"]:
        if b.get("aggregate_name") != "median":
            continue
        scale = {"ms": 1.0, "us": 1e-3, "ns": 1e-6, "s": 1e3}[b["time_unit"]]
        rows[b["run_name"]] = (b["cpu_time"] * scale, b.get("peaks"))
    return rows


def main():
    work, qxpeak, library_json = sys.argv[1:4]
    lib = library_rows(library_json)
    n, xb, yb = read_spectrum(os.path.join(work, "spectrum.bin"))
    mzml = os.path.join(work, "spectrum.mzML")
    write_mzml(mzml, [(n, xb, yb)])

    table = []  # (what, figure, note)

    def ms(v):
        return f"{v:.1f} ms" if v < 100 else f"{v:.0f} ms"

    for name, label in [
            ("BM_ClassicDriver/points:1000000/noise:0/pct:1", "classic driver, 1 M points"),
            ("BM_ClassicDriver/points:1000000/noise:1/pct:1",
             "classic driver, 1 M points, automatic noise"),
            ("BM_ClassicDriver/points:1000000/noise:0/pct:0",
             "classic driver, 1 M points, area percentage 0"),
            ("BM_ClassicDriver/points:10000000/noise:0/pct:1", "classic driver, 10 M points"),
            ("BM_ClassicDriver/points:10000000/noise:1/pct:1",
             "classic driver, 10 M points, automatic noise"),
            ("BM_AutomaticMode/points:1000000", "automatic mode (DetectPeaks), 1 M points"),
            ("BM_StreamOnce/points:1000000", "one pass over the intensities (floor)")]:
        if name in lib:
            t, peaks = lib[name]
            points = 10_000_000 if "10000000" in name else 1_000_000
            note = f"{t * 1e6 / points:.1f} ns/point"
            if peaks is not None:
                note += f", {peaks:.0f} peaks"
            table.append((label, ms(t), note))

    fastest_peer = None
    sp = scipy_time(yb)
    if sp is not None:
        t, found = sp[0] * 1e3, sp[1]
        table.append(("scipy find_peaks (height, prominence, width), in process", ms(t),
                      f"{found} peaks"))
        fastest_peer = ("scipy", t)

    qx_wall, qx_cpu, qx_rss = median_run([qxpeak, mzml, "--mass", "--filter-width", "7", "-q",
                                          "-j", "1", "-o", os.path.join(work, "out.tsv")])
    table.append(("qxpeak on the spectrum as mzML, whole process", ms(qx_cpu * 1e3),
                  f"wall {ms(qx_wall * 1e3)}, peak RSS {qx_rss:.0f} MiB"))
    picker = shutil.which("PeakPickerHiRes")
    if picker:
        pp_wall, pp_cpu, pp_rss = median_run([picker, "-in", mzml, "-out",
                                              os.path.join(work, "picked.mzML"), "-threads", "1",
                                              "-algorithm:signal_to_noise", "3"])
        table.append(("OpenMS PeakPickerHiRes (S/N 3), whole process", ms(pp_cpu * 1e3),
                      f"wall {ms(pp_wall * 1e3)}, peak RSS {pp_rss:.0f} MiB; qxpeak is "
                      f"{pp_cpu / qx_cpu:.1f}x faster"))

    if fastest_peer is not None:
        key = "BM_ClassicDriver/points:1000000/noise:0/pct:1"
        if key in lib:
            table.append(("classic driver against scipy", f"{fastest_peer[1] / lib[key][0]:.2f}x",
                          "peer time / our time, same spectrum, same run"))
        key = "BM_AutomaticMode/points:1000000"
        if key in lib:
            table.append(("automatic mode against scipy",
                          f"{fastest_peer[1] / lib[key][0]:.2f}x",
                          "peer time / our time, same spectrum, same run"))

    # A run of 200 spectra x 50,000 points: one thread against two.
    run_spectra = []
    for k in range(200):
        start = (k * 4001) % (n - 50_000)
        run_spectra.append((50_000, xb[8 * start:8 * (start + 50_000)],
                            yb[8 * start:8 * (start + 50_000)]))
    run = os.path.join(work, "run.mzML")
    write_mzml(run, run_spectra)
    size = os.path.getsize(run) / 2**20
    # -j 1 and -j 2 alternate, so that a change in the machine's load hits both alike; the
    # speed-up is the median of the paired ratios. Each run starts from the same state, an
    # empty output folder (emptied outside the timing). Replacing the previous run's table
    # is timed too: the file system frees the old table's blocks inside the rename, a cost
    # that grows with the table and does not shrink with threads.
    def run_with(j, replace):
        out = os.path.join(work, f"out{j}")
        if not replace:
            shutil.rmtree(out, ignore_errors=True)
        os.makedirs(out, exist_ok=True)
        return timed([qxpeak, run, "--mass", "--filter-width", "7", "-q", "-j", j, "-d", out])

    def paired(replace):
        pairs = [(run_with("1", replace), run_with("2", replace)) for _ in range(7)]
        return (statistics.median(a[0] for a, _ in pairs),
                statistics.median(b[0] for _, b in pairs),
                statistics.median(a[0] / b[0] for a, b in pairs),
                max(a[2] for a, _ in pairs), max(b[2] for _, b in pairs))

    w1, w2, speedup, rss1, rss2 = paired(replace=False)
    r1, r2, rspeedup, _, _ = paired(replace=True)
    table.append((f"qxpeak -j 1, 200 x 50,000 points ({size:.0f} MiB mzML)", ms(w1 * 1e3),
                  f"wall, new output; peak RSS {rss1:.0f} MiB"))
    table.append(("qxpeak -j 2, same run", ms(w2 * 1e3),
                  f"wall, new output; {speedup:.2f}x faster than -j 1 (median of 7 paired "
                  f"runs); peak RSS {rss2:.0f} MiB"))
    table.append(("qxpeak -j 1 / -j 2, replacing the last run's output",
                  f"{ms(r1 * 1e3)} / {ms(r2 * 1e3)}",
                  f"wall; {rspeedup:.2f}x (median of 7 paired runs)"))

    print("| figure | time | note |")
    print("|---|---|---|")
    for row in table:
        print(f"| {row[0]} | {row[1]} | {row[2]} |")


if __name__ == "__main__":
    main()
