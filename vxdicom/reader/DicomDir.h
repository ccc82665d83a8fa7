#pragma once

#include "platform/core/KcDArray.h"
#include "platform/core/KcString.h"

class VxDicomFile;

/// Appends the files that a DICOMDIR references to `names` and returns the new
/// number of names. Referenced File IDs are joined to the directory of the
/// last name in `names` at the time of the call. A File-set Consistency Flag
/// of 1 contributes nothing. A malformed record sequence ends the walk with
/// the names found so far; the walk never reads outside the value.
int extractDicomDir(VxDicomFile *dicomDir, KcDArray<KcString> &names);
