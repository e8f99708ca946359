#!/usr/bin/env python3
"""Writes peak_heights.tsv: how many local maxima smooth Gaussian fields have, by their height.

Usage: peak_heights.py >peak_heights.tsv
White noise on a lattice is smoothed with a Gaussian kernel so wide that the lattice hardly matters.
"""

import numpy
from scipy import ndimage

FWHM, SIZE, FIELDS = 10, 160, 60


def maxima(random):
    """The heights of the local maxima of a field, which goes on beyond each side at the opposite one."""
    frequencies = numpy.fft.fftfreq(SIZE)[:, None, None], numpy.fft.fftfreq(SIZE)[:, None], numpy.fft.rfftfreq(SIZE)
    sigma = FWHM / numpy.sqrt(8 * numpy.log(2))
    kernel = numpy.exp(-2 * (numpy.pi * sigma) ** 2 * sum(f**2 for f in frequencies))
    field = numpy.fft.irfftn(numpy.fft.rfftn(random.standard_normal((SIZE,) * 3)) * kernel, (SIZE,) * 3)
    field /= (2 * sigma * numpy.sqrt(numpy.pi)) ** -1.5
    return field[field == ndimage.maximum_filter(field, 3, mode="wrap")]


heights = numpy.concatenate([maxima(numpy.random.default_rng(seed)) for seed in range(FIELDS)])
volume = FIELDS * (SIZE / FWHM) ** 3
print("# height\tabove, in the cube of the kernel's full width at half maximum\tstandard error")
for height in numpy.arange(-1, 4, 0.5):
    count = (heights > height).sum()
    print(f"{height:.1f}\t{count / volume:.5f}\t{numpy.sqrt(count) / volume:.5f}")
