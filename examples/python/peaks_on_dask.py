"""The peaks of every mzML file of a folder, on a local Dask cluster of two processes.

    python3 peaks_on_dask.py runs/
"""
import sys

from dask.distributed import Client, LocalCluster

import qxpkutil.dask

if __name__ == "__main__":  # worker processes import this file too
    with LocalCluster(n_workers=2, processes=True, host="127.0.0.1") as cluster, \
            Client(cluster) as client:
        peaks = qxpkutil.dask.find_peaks_in_files(sys.argv[1], client=client, ms_level=1,
                                                  snr=5).compute()
    print(peaks.groupby("file").size().rename("peaks"))
