#pragma once

#include "platform/core/KcDArray.h"

#include <QString>

#include <unordered_map>

class VxDicomImage;

/// Which volume of a series an image belongs to, when its series repeats
/// slice positions (fMRI, DTI, multi-echo, field maps: several volumes in one
/// series, or in one multi-frame file).
struct DicomVolume
{
    int series = 0; ///< which split series (an index shared by its images)
    int index = 0;  ///< 0-based, in acquisition order
    int count = 1;  ///< volumes of the series
    /// What told the volumes apart: an element's dictionary name, or "order
    /// of appearance".
    QString toldApartBy;
};

/// Splits every series that repeats slice positions into volumes. A series
/// is the images of one Series Instance UID with one orientation and image
/// size; it repeats positions when a slice location (to 0.01 mm) occurs more
/// than once. The volumes are told apart by the first of these elements
/// whose values split the series into as many groups as a position repeats,
/// none of them repeating a position: temporal position identifier,
/// temporal position index, acquisition number, diffusion b-value with
/// gradient direction, diffusion gradient direction, echo number, trigger
/// time. When none does, the k-th image at a position belongs to volume k.
/// Volumes are numbered in acquisition order: instance number, then file,
/// frame and tile order of their first image.
/// Images of series that repeat nothing get no entry.
std::unordered_map<const VxDicomImage *, DicomVolume>
dicomVolumesOf(const KcDArray<VxDicomImage *> &images);
