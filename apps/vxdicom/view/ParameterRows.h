#pragma once

// The parameter tree of the viewer, without widgets: a field's parameter
// bundle as rows to show, DICOM attributes decoded, and the filter.

#include <QString>

#include <vector>

class VxParamBundle;

namespace vxview {

/// One row of the tree. A DICOM attribute ("G%04X-%04X" whose text is
/// "name [VR]: value") shows its tag as "(GGGG,EEEE)", its dictionary name,
/// its VR and its value; another parameter its name, its type and its value;
/// a bundle (the "DICOM" and "All" bundles, a slice's bundle, a decoded CSA
/// header) its name and its entries as children.
struct ParameterRow
{
    QString name;
    QString description;
    QString vr; ///< the VR of an attribute; "int", "float" or "string" otherwise
    QString value;
    bool bundle = false;
    std::vector<ParameterRow> children;
};

/// The rows of a bundle's entries, in the bundle's order.
std::vector<ParameterRow> parameterRows(const VxParamBundle &bundle);

/// Whether a row's own texts hold `filter` (case-insensitive; an empty
/// filter matches every row); of a bundle only the name counts.
bool rowMatches(const ParameterRow &row, const QString &filter);

} // namespace vxview
