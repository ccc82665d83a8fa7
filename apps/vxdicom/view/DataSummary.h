#pragma once

// The rows of the viewer's data list, without widgets.

#include <QString>

class VxField3;
class VxPoolObject;

namespace vxview {

/// What the data list says of an object: its label, the dimensions, the
/// sample type, the voxel size (millimetres, mean slice distance of stacked
/// fields) and the modality of the field it shows. A time-series control
/// shows its current step and says how many steps it has.
struct DataSummary
{
    QString label;
    QString dims;      ///< "256 x 256 x 35", "64 x 64 x 9, 3 steps"
    QString type;      ///< "int16", "uint8 x 3" (colour)
    QString voxelSize; ///< "0.98 x 0.98 x 3.5 mm", "... (stacked)"
    QString modality;
};

/// The field a data object shows: a field with a lattice itself, or the
/// first field of a time-series control's current step; null otherwise.
VxField3 *displayedField(VxPoolObject *object);

/// The summary of a pool object; empty texts but the label for an object
/// that shows no field.
DataSummary summarize(VxPoolObject &object);

} // namespace vxview
