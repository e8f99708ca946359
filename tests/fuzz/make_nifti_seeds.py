"""Makes the seeds of the fuzz target of images: small images as nibabel and nifti_tool write them.

Usage: make_nifti_seeds.py FOLDER
"""

import itertools
import os
import subprocess
import sys
import tempfile

import nibabel
import numpy

PLAIN, AS_IT_IS, COMPRESSED, PAIR = range(4)
ALL_TYPES = 4

target = os.path.abspath(sys.argv[1])
os.makedirs(target, exist_ok=True)


def seed(name, kind, content):
    with open(os.path.join(target, name), "wb") as file:
        file.write(bytes([kind]) + content)


def content(path):
    with open(path, "rb") as file:
        return file.read()


with tempfile.TemporaryDirectory() as folder:
    os.chdir(folder)
    for kind, order in itertools.product(["u1", "i2", "i4", "f4", "f8", "i8"], "<>"):
        values = numpy.arange(12).astype(kind).reshape(2, 3, 1, 2)
        header = nibabel.Nifti1Header(endianness=order)
        header.set_data_dtype(kind)
        image = nibabel.Nifti1Image(values, numpy.diag([2, 2, 2, 1]), header)
        image.header.set_slope_inter(2, 1)
        image.to_filename("x.nii")
        image.to_filename("x.nii.gz")
        name = f"{kind}_{'little' if order == '<' else 'big'}"
        seed(name, PLAIN + ALL_TYPES, content("x.nii"))
        if kind in ("i2", "f4"):
            seed(name + "_compressed", COMPRESSED, content("x.nii"))
            seed(name + "_gzip", AS_IT_IS, content("x.nii.gz"))
    pair = nibabel.Nifti1Pair(numpy.arange(12, dtype="i2").reshape(2, 3, 2), numpy.eye(4))
    pair.to_filename("x.hdr")
    seed("pair", PAIR, content("x.hdr")[:348] + content("x.img"))
    subprocess.run(["nifti_tool", "-make_im", "-prefix", "t.nii", "-new_dim", "7", "2", "2", "1",
                    "2", "1", "1", "2"], check=True)
    seed("tool", PLAIN, content("t.nii"))
