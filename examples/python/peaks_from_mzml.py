"""A DataFrame of the peaks of every MS1 spectrum of an mzML file.

    python3 peaks_from_mzml.py run.mzML
"""
import sys

import pandas as pd

import qxpkutil


def peaks_of_run(path):
    frames = []
    for trace in qxpkutil.read_mzml(path, ms_level=1):
        peaks = qxpkutil.find_peaks(trace.x, trace.y, snr=5).to_pandas()
        peaks.insert(0, "rt_s", trace.rt)  # seconds
        peaks.insert(0, "id", trace.id)
        frames.append(peaks)
    return pd.concat(frames, ignore_index=True)


if __name__ == "__main__":
    peaks = peaks_of_run(sys.argv[1])
    print(peaks[["id", "rt_s", "centroid_x", "apex_y", "fwhm", "snr", "charge"]])
