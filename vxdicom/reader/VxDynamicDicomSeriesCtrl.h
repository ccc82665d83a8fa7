#pragma once

#include "platform/core/KcDArray.h"
#include "platform/core/KcString.h"
#include "platform/data/VxDynamicSeriesCtrl.h"

#include <cstdio>

/// The time-series control of stacks loaded "as time series": one time step
/// per stack, and the file names the series was loaded from, so that the
/// control can write the command that recreates it.
class VxDynamicDicomSeriesCtrl : public VxDynamicSeriesCtrl
{
public:
    VxDynamicDicomSeriesCtrl() = default;
    /// Copies the file names (in load order, DICOMDIR references included).
    explicit VxDynamicDicomSeriesCtrl(const KcDArray<KcString> &names) : fileNames(names) {}

    /// Writes "load -dicom" and every file name between double quotes, then a
    /// newline. Returns 0 (also for a null file, when nothing is written).
    /// A '"', '\\', '$', '[' or ']' in a name gets a backslash in front, so
    /// that the script interpreter reads the name back unchanged.
    int saveCreation(FILE *file, const char *dataDir, int flags) override;

    const KcDArray<KcString> &names() const { return fileNames; }
    const char *typeName() const override { return "VxDynamicDicomSeriesCtrl"; }

private:
    KcDArray<KcString> fileNames;
};
