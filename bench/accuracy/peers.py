#!/usr/bin/env python3
"""Runs peer peak pickers on the accuracy benchmark's traces and scores them the same way.

    build/bench/accuracy/qxpkutil_accuracy --dump out/accuracy
    python3 bench/accuracy/peers.py out/accuracy --accuracy build/bench/accuracy/qxpkutil_accuracy

Peers (each skipped when it is not installed):
  scipy    scipy.signal.find_peaks (Debian python3-scipy): peaks whose prominence exceeds
           --scipy-snr (3) times a local robust noise (MAD of first differences over blocks
           of 1000 points) and whose half-prominence width is at least 2 points; the
           position is the midpoint of the half-prominence crossings
  openms   OpenMS PeakPickerHiRes (Debian topp) with its median S/N estimator at
           --openms-snr (2), fed with one profile mzML per set (chromatograms as spectra
           with x in seconds)
  qxpeak   this project's tool with no options, when --qxpeak names its binary
  qxpkutil DetectPeaks's own tables, written by --dump (nothing is run: a check that --score
           agrees with the program's table)
scipy and OpenMS both see the trace after a Gaussian filter of SD --smooth (2) points. These
three values were the best of a small sweep on seed 1, so the two stand as hand-tuned peers.
Each peer's peak table goes beside the trace as TRACE.PEER.tsv; then qxpkutil_accuracy
--score prints its table and the targets.
"""
import argparse
import base64
import csv
import os
import shutil
import struct
import subprocess
import sys
import xml.etree.ElementTree as ET
import zlib

import numpy as np


def read_sets(root):
    with open(os.path.join(root, "sets.tsv"), newline="") as f:
        sets = [row["set"] for row in csv.DictReader(f, delimiter="\t")]
    traces = {}
    for s in sets:
        folder = os.path.join(root, s)
        names = sorted(n[:-4] for n in os.listdir(folder) if n.endswith(".txt"))
        traces[s] = [os.path.join(folder, n) for n in names]
    return sets, traces


def load(stem):
    xy = np.loadtxt(stem + ".txt", ndmin=2)
    return xy[:, 0], xy[:, 1]


def smoothed(y, points):
    """A Gaussian filter of SD `points` samples: both peers find far fewer noise peaks on
    smoothed data, and the benchmark's traces have at least 4 points per FWHM."""
    if points <= 0:
        return y
    from scipy.ndimage import gaussian_filter1d
    return gaussian_filter1d(y, points)


def write_found(path, rows):
    with open(path, "w") as f:
        f.write("apex_x\tcentroid_x\theight\n")
        for apex, centroid, height in rows:
            f.write(f"{apex!r}\t{centroid!r}\t{height!r}\n")


# ---------------------------------------------------------------------------------------

def local_noise(y, block=1000):
    """Noise SD per point: MAD of first differences in blocks, over the non-zero points
    (zero-filled data store zeros that are not noise)."""
    noise = np.empty_like(y)
    for start in range(0, len(y), block):
        part = y[start:start + block]
        part = part[part != 0.0]
        d = np.diff(part)
        sd = 1.4826 * np.median(np.abs(d - np.median(d))) / np.sqrt(2.0) if len(d) > 4 else 0.0
        noise[start:start + block] = sd
    positive = noise[noise > 0]
    floor = np.median(positive) if len(positive) else 1.0
    return np.where(noise > 0, noise, floor)


def run_scipy(stem, k, smooth):
    from scipy.signal import find_peaks
    x, y = load(stem)
    index = np.arange(len(x), dtype=float)
    peaks, props = find_peaks(smoothed(y, smooth), prominence=k * local_noise(y), width=2.0,
                              rel_height=0.5)
    left = np.interp(props["left_ips"], index, x)
    right = np.interp(props["right_ips"], index, x)
    rows = zip(x[peaks], 0.5 * (left + right), props["prominences"])
    write_found(stem + ".scipy.tsv", rows)


# ---------------------------------------------------------------------------------------

def encode(values):
    return base64.b64encode(np.asarray(values, dtype="<f8").tobytes()).decode("ascii")


def write_mzml(path, traces, smooth):
    parts = ['<?xml version="1.0" encoding="utf-8"?>\n'
             '<mzML xmlns="http://psi.hupo.org/ms/mzml" version="1.1.0">\n'
             '<cvList count="2"><cv id="MS" fullName="PSI-MS" URI="psi-ms.obo"/>'
             '<cv id="UO" fullName="Unit Ontology" URI="uo.obo"/></cvList>\n'
             '<fileDescription><fileContent><cvParam cvRef="MS" accession="MS:1000579" '
             'name="MS1 spectrum"/></fileContent></fileDescription>\n'
             '<softwareList count="1"><software id="bench" version="1"/></softwareList>\n'
             '<instrumentConfigurationList count="1"><instrumentConfiguration id="ic"/>'
             '</instrumentConfigurationList>\n'
             '<dataProcessingList count="1"><dataProcessing id="dp"><processingMethod order="0" '
             'softwareRef="bench"><cvParam cvRef="MS" accession="MS:1000544" '
             'name="Conversion to mzML"/></processingMethod></dataProcessing>'
             '</dataProcessingList>\n'
             '<run id="run" defaultInstrumentConfigurationRef="ic">\n'
             f'<spectrumList count="{len(traces)}" defaultDataProcessingRef="dp">\n']
    for i, stem in enumerate(traces):
        x, y = load(stem)
        y = smoothed(y, smooth)
        parts.append(
            f'<spectrum index="{i}" id="scan={i + 1}" defaultArrayLength="{len(x)}">'
            '<cvParam cvRef="MS" accession="MS:1000511" name="ms level" value="1"/>'
            '<cvParam cvRef="MS" accession="MS:1000128" name="profile spectrum"/>'
            '<binaryDataArrayList count="2">')
        for values, accession, name in ((x, "MS:1000514", "m/z array"),
                                        (y, "MS:1000515", "intensity array")):
            text = encode(values)
            parts.append(
                f'<binaryDataArray encodedLength="{len(text)}">'
                '<cvParam cvRef="MS" accession="MS:1000523" name="64-bit float"/>'
                '<cvParam cvRef="MS" accession="MS:1000576" name="no compression"/>'
                f'<cvParam cvRef="MS" accession="{accession}" name="{name}"/>'
                f'<binary>{text}</binary></binaryDataArray>')
        parts.append('</binaryDataArrayList></spectrum>\n')
    parts.append('</spectrumList></run></mzML>\n')
    with open(path, "w") as f:
        f.write("".join(parts))


def read_mzml_spectra(path):
    ns = "{http://psi.hupo.org/ms/mzml}"
    spectra = []
    for _, elem in ET.iterparse(path):
        if elem.tag != ns + "spectrum":
            continue
        arrays = {}
        for bda in elem.iter(ns + "binaryDataArray"):
            acc = {p.get("accession") for p in bda.iter(ns + "cvParam")}
            raw = base64.b64decode(bda.find(ns + "binary").text or "")
            if "MS:1000574" in acc:
                raw = zlib.decompress(raw)
            kind = "f" if "MS:1000521" in acc else "d"
            values = np.array(struct.unpack(f"<{len(raw) // struct.calcsize(kind)}{kind}", raw))
            if "MS:1000514" in acc:
                arrays["x"] = values
            elif "MS:1000515" in acc:
                arrays["y"] = values
        spectra.append((arrays.get("x", np.array([])), arrays.get("y", np.array([]))))
        elem.clear()
    return spectra


def run_openms(set_name, stems, k, smooth, scratch):
    source = os.path.join(scratch, set_name + ".mzML")
    picked = os.path.join(scratch, set_name + ".picked.mzML")
    write_mzml(source, stems, smooth)
    subprocess.run(["PeakPickerHiRes", "-in", source, "-out", picked, "-no_progress",
                    "-algorithm:signal_to_noise", str(k),
                    "-algorithm:SignalToNoise:write_log_messages", "false"],
                   check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    for stem, (x, y) in zip(stems, read_mzml_spectra(picked)):
        write_found(stem + ".openms.tsv", ((v, v, float("nan")) for v in x))


# ---------------------------------------------------------------------------------------

def run_qxpeak(binary, stem):
    subprocess.run([binary, stem + ".txt", "-o", stem + ".qxpeak.tsv", "-q", "-j", "1"],
                   check=True, stdout=subprocess.DEVNULL)


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("dump", help="folder written by qxpkutil_accuracy --dump")
    parser.add_argument("--accuracy", default="build/bench/accuracy/qxpkutil_accuracy",
                        help="the qxpkutil_accuracy binary (for --score)")
    parser.add_argument("--qxpeak", help="the qxpeak binary; scored when given")
    parser.add_argument("--peers", default="scipy,openms,qxpeak,qxpkutil",
                        help="comma-separated peers to run")
    parser.add_argument("--smooth", type=float, default=2.0,
                        help="Gaussian smoothing before scipy and OpenMS, SD in points")
    parser.add_argument("--scipy-snr", type=float, default=3.0,
                        help="scipy: prominence at least this times the local noise")
    parser.add_argument("--openms-snr", type=float, default=2.0,
                        help="OpenMS: its signal_to_noise parameter")
    args = parser.parse_args()

    sets, traces = read_sets(args.dump)
    peers = [p for p in args.peers.split(",") if p]
    if "openms" in peers and not shutil.which("PeakPickerHiRes"):
        print("openms: PeakPickerHiRes not found (Debian package topp); skipped", file=sys.stderr)
        peers.remove("openms")
    if "scipy" in peers:
        try:
            import scipy.signal  # noqa: F401
        except ImportError:
            print("scipy: not installed (Debian python3-scipy); skipped", file=sys.stderr)
            peers.remove("scipy")
    if "qxpeak" in peers and not args.qxpeak:
        peers.remove("qxpeak")
    first = traces[sets[0]][0] if sets and traces[sets[0]] else ""
    if "qxpkutil" in peers and not os.path.exists(first + ".qxpkutil.tsv"):
        peers.remove("qxpkutil")
    scratch = os.path.join(args.dump, "mzml")
    os.makedirs(scratch, exist_ok=True)
    for peer in peers:
        pairs = []
        for s in sets:
            if peer == "openms":
                run_openms(s, traces[s], args.openms_snr, args.smooth, scratch)
            for stem in traces[s]:
                if peer == "scipy":
                    run_scipy(stem, args.scipy_snr, args.smooth)
                elif peer == "qxpeak":
                    run_qxpeak(args.qxpeak, stem)
                pairs += [stem + ".truth.tsv", f"{stem}.{peer}.tsv"]
        print(f"\n### {peer}\n", flush=True)
        subprocess.run([args.accuracy, "--score", *pairs], check=True)


if __name__ == "__main__":
    main()
