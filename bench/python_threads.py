"""Two threads, two spectra: how much of the second core find_peaks uses.

find_peaks releases the GIL while the library searches, so two threads searching two
arrays should take about as long as one thread searching one. Prints the best-of-N times
and the ratio two-threads / one-thread (1.0: perfect overlap, 2.0: none).

    PYTHONPATH=build/python /usr/bin/python3 bench/python_threads.py [points] [repeats]
"""
import sys
import threading
import time

import numpy as np

import qxpkutil


def spectrum(points, seed):
    rng = np.random.default_rng(seed)
    x = np.linspace(200.0, 2000.0, points)
    y = 20.0 + rng.normal(0.0, 1.0, points)
    for mz in rng.uniform(210.0, 1990.0, points // 2000):
        width = mz / 40000.0
        lo, hi = np.searchsorted(x, [mz - 8 * width, mz + 8 * width])
        y[lo:hi] += rng.uniform(50, 5000) * np.exp(-0.5 * ((x[lo:hi] - mz) / width) ** 2)
    return x, y


def best(fn, repeats):
    times = []
    for _ in range(repeats):
        start = time.perf_counter()
        fn()
        times.append(time.perf_counter() - start)
    return min(times)


def main():
    points = int(sys.argv[1]) if len(sys.argv) > 1 else 2_000_000
    repeats = int(sys.argv[2]) if len(sys.argv) > 2 else 5
    signals = [spectrum(points, seed) for seed in (1, 2)]

    def one():
        qxpkutil.find_peaks(*signals[0])

    def two():
        threads = [threading.Thread(target=qxpkutil.find_peaks, args=s) for s in signals]
        for t in threads:
            t.start()
        for t in threads:
            t.join()

    one()  # warm up
    t1, t2 = best(one, repeats), best(two, repeats)
    print(f"{points} points, best of {repeats}: one thread {t1:.3f} s, "
          f"two threads on two arrays {t2:.3f} s, ratio {t2 / t1:.2f} (1.0 ideal, 2.0 serial)")


if __name__ == "__main__":
    main()
