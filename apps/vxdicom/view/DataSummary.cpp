#include "apps/vxdicom/view/DataSummary.h"

#include "apps/vxdicom/view/SliceGeometry.h"

#include "platform/core/VxPoolObject.h"
#include "platform/data/VxDynamicSeriesCtrl.h"
#include "platform/data/VxField3.h"

#include <string>

namespace vxview {

VxField3 *displayedField(VxPoolObject *object)
{
    if (auto *field = dynamic_cast<VxField3 *>(object))
        return field->lattice() ? field : nullptr;
    if (auto *series = dynamic_cast<VxDynamicSeriesCtrl *>(object)) {
        auto *field = dynamic_cast<VxField3 *>(series->currentData(0));
        return field && field->lattice() ? field : nullptr;
    }
    return nullptr;
}

DataSummary summarize(VxPoolObject &object)
{
    DataSummary s;
    s.label = object.label().toQString();
    const VxField3 *field = displayedField(&object);
    if (!field)
        return s;
    const VxLattice3 &lat = *field->lattice();
    s.dims = QStringLiteral("%1 x %2 x %3").arg(lat.dim(0)).arg(lat.dim(1)).arg(lat.dim(2));
    if (const auto *series = dynamic_cast<const VxDynamicSeriesCtrl *>(&object))
        s.dims += QStringLiteral(", %1 steps").arg(series->nSteps());
    s.type = QString::fromLatin1(lat.primType().name());
    if (lat.nComponents() > 1)
        s.type += QStringLiteral(" x %1").arg(lat.nComponents());
    FieldFrame frame;
    std::string why;
    if (frameOf(*field, frame, &why)) {
        s.voxelSize = QStringLiteral("%1 x %2 x %3 mm")
                          .arg(frame.spacingMm(0), 0, 'g', 4)
                          .arg(frame.spacingMm(1), 0, 'g', 4)
                          .arg(frame.spacingMm(2), 0, 'g', 4);
        if (!frame.axis[2].isUniform())
            s.voxelSize += QStringLiteral(" (stacked)");
    } else {
        s.voxelSize = QString::fromStdString(why);
    }
    s.modality = field->parameters().getString("Modality").toQString();
    return s;
}

} // namespace vxview
