#!/usr/bin/python3
"""Copies an enhanced multi-frame file with pydicom, changing its functional
groups: the Pixel Measures become shared, except that frame 2 keeps a group
of its own with Pixel Spacing 1.5\\1.5; frame 3 loses its Plane Position
group, and the top level gets Image Position (Patient) 10\\20\\30 to fall
back to.

    functional_groups_edit.py IN OUT
"""
import sys

import pydicom

ds = pydicom.dcmread(sys.argv[1])
frames = ds.PerFrameFunctionalGroupsSequence
# Pixel Measures move to the shared groups; frame 2 keeps one of its own.
ds.SharedFunctionalGroupsSequence[0].PixelMeasuresSequence = frames[0].PixelMeasuresSequence
for k, frame in enumerate(frames):
    if k == 1:
        frame.PixelMeasuresSequence[0].PixelSpacing = [1.5, 1.5]
    else:
        del frame.PixelMeasuresSequence
del frames[2].PlanePositionSequence
ds.ImagePositionPatient = [10, 20, 30]
ds.save_as(sys.argv[2], write_like_original=False)
