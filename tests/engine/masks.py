"""Compares masks and the values inside them with nibabel's. Argument: the folder of the atlas."""

import sys
from pathlib import Path

import nibabel
import numpy

share = Path(sys.argv[1])


def values_of(path):
    return nibabel.load(path).get_fdata()


def check(what, right):
    if not right:
        sys.exit(f"{what} is not right")


region = numpy.floor(values_of(share / "atlas_aal_frw.nii.gz").astype(numpy.float32)) == 41
check("the mask of a region", (values_of("mask_Left_amygdala.nii.gz") == region).all())

for name, centre in {"26_-12_4": (26, -12, 4), "odd": (-91, 33.7, 109.5)}.items():
    image = nibabel.load(f"mask_{name}.nii.gz")
    check("the grid", image.header["sform_code"] == 4 and image.shape == (91, 109, 91))
    places = nibabel.affines.apply_affine(image.affine, numpy.moveaxis(numpy.indices(image.shape), 0, -1))
    inside = numpy.linalg.norm(places - centre, axis=-1) <= 10
    check(f"the sphere {name}", inside.any() and (image.get_fdata() == inside).all())

analysis = values_of(share / "mask_gray_matter.nii.gz") > 0
for mask, path in {"Left_amygdala": Path("."), "26_-12_4": Path("."), "gray_matter": share}.items():
    used = (values_of(path / f"mask_{mask}.nii.gz") > 0) & analysis
    lines = Path(f"extract_{mask}.txt").read_text().splitlines()
    check("the number of voxels", f"# used_voxels = {used.sum()}" in lines)
    rows = [line.split("\t") for line in lines[1:] if not line.startswith("#")]
    check("the number of studies", len(rows) == 9)
    for study, _, g, variance, *_ in rows:
        for ours, suffix in ((g, "g"), (variance, "var")):
            mean = values_of(f"pp/{study}_{suffix}.nii.gz")[used].mean()
            check(f"{suffix} of {study} in {mask}", abs(float(ours) - mean) <= 1e-7 * abs(mean) + 1e-12)
