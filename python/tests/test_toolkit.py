import numpy as np
import pytest

import qxpkutil
from conftest import three_peaks


def test_smoothing_keeps_a_constant_and_refuses_bad_widths():
    # Widths from 202 on have a normalised kernel; narrower ones an under-normalised one
    # (which found peaks depend on), so only a wide one keeps a constant.
    flat = np.full(1000, 7.0)
    np.testing.assert_allclose(qxpkutil.smooth(flat, 301), flat)
    x = np.linspace(100.0, 200.0, flat.size)
    np.testing.assert_allclose(qxpkutil.resolution_smooth(x, flat, 50.0), flat)
    for width in (0, 2002, 1001):
        with pytest.raises(ValueError):
            qxpkutil.smooth(flat, width)
    with pytest.raises(ValueError, match="not ascending"):
        qxpkutil.resolution_smooth(x[::-1], flat, 50.0)


def test_noise_estimates_find_the_noise_they_were_given():
    rng = np.random.default_rng(3)
    noise = rng.normal(50.0, 2.0, 4096)
    assert qxpkutil.white_noise_level(noise) == pytest.approx(2.0, rel=0.1)
    assert qxpkutil.white_noise_level(noise.astype(np.float32)) == pytest.approx(
        qxpkutil.white_noise_level(noise), rel=1e-5)
    x = np.arange(noise.size, dtype=float)
    level, spread = qxpkutil.baseline_level(x, noise, 0.0, x[-1])
    assert level == pytest.approx(noise.mean()) and spread == pytest.approx(noise.std())
    with pytest.raises(ValueError):
        qxpkutil.baseline_level(x, noise, 5.0, 5.0)


def test_baseline_runs_under_the_peaks():
    x, y = three_peaks()
    slope = 20.0 + 3.0 * (x - x[0])
    base = qxpkutil.smooth_baseline(y + slope - 20.0, level=256)
    np.testing.assert_allclose(base, slope, atol=5.0)  # under peaks of 1000 and more
    denoised = qxpkutil.subtract_noise(y)
    assert np.std(denoised[:200]) < 0.5 * np.std(y[:200])


def test_calculators_on_a_table():
    x, y = three_peaks()
    table = qxpkutil.find_peaks(x, y)
    (found, snr), (none, missing) = table.signal_to_noise(
        x, y, [(402.0, 0.1), (403.0, 0.1)], baseline=(399.0, 399.8))
    base, noise = qxpkutil.baseline_level(x, y, 399.0, 399.8, n_sigma=2)
    apex = table["apex_y"][1]
    assert found == table["apex_x"][1] and snr == pytest.approx((apex - base) / noise)
    assert (none, missing) == (0.0, -1.0)
    [(_, resolution)] = table.resolution(x, y, [(402.0, 0.1)])
    fwhm = 0.004 * 2.3548  # the Gaussian's
    assert resolution == pytest.approx(402.0 / fwhm, rel=0.05)
