#pragma once

#include "platform/core/KcDArray.h"

#include <set>
#include <string>

class VxField3;

namespace vxdicom_cli {

struct SaveOptions
{
    enum Format { NiftiGz, Nifti, Nrrd };
    std::string directory; ///< empty: nothing is saved
    Format format = NiftiGz;
    /// File names already written into the folder by earlier loads of the same
    /// run (a script with several load commands); null: this save alone.
    std::set<std::string> *usedNames = nullptr;
};

/// "nii.gz", "nii" or "nrrd".
bool parseSaveFormat(const char *text, SaveOptions::Format &format);

/// One line per field: label, dimensions, sample type, voxel size and
/// bounding box in the field's unit, the transformation (when there is one)
/// and the load command.
void printFieldSummary(const VxField3 &field);

/// While it lives, large fields that `save` will write as .nii are written
/// while they are read, under the names their labels give (nothing when
/// `save` writes no .nii). The output folder is made for that.
class WriteAheadScope
{
public:
    explicit WriteAheadScope(const SaveOptions &save);
    ~WriteAheadScope();
    WriteAheadScope(const WriteAheadScope &) = delete;
    WriteAheadScope &operator=(const WriteAheadScope &) = delete;
};

/// Prints the summaries of the fields a load made (and of a time-series
/// control added to the pool after `poolBefore` objects) and saves them when
/// a folder is given. Returns the exit status: 0 when the load succeeded,
/// made at least one field and everything was saved; 1 otherwise.
int reportAndSave(const KcDArray<VxField3 *> &fields, int poolBefore, const SaveOptions &save,
                  bool loadSucceeded);

} // namespace vxdicom_cli
