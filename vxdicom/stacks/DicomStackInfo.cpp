#include "vxdicom/stacks/DicomStackInfo.h"

#include "platform/dicom/dicom.h"
#include "vxdicom/reader/VxDicomFile.h"
#include "vxdicom/reader/VxDicomImage.h"
#include "vxdicom/stacks/DicomCriterion.h"

#include <QStringList>

#include <algorithm>
#include <cmath>

namespace {

QString num(double v)
{
    return QString::number(v, 'g', 6);
}

QString header(const VxDicomImage *image, uint16_t group, uint16_t element)
{
    if (!image || !image->file || !image->file->data)
        return QString();
    return dicomHeaderText(dicom::dicomGetById(image->file->data, group, element)).trimmed();
}

QString vector3(const float v[3])
{
    return QStringLiteral("%1 %2 %3").arg(num(v[0]), num(v[1]), num(v[2]));
}

// The range the samples can hold, from Bits Stored and the sign.
void storedRange(const VxDicomImage *image, double &lo, double &hi)
{
    const int bits = std::clamp(image->bitsStored > 0 ? image->bitsStored
                                                      : static_cast<int>(image->bytesPerSample * 8),
                                1, 32);
    if (image->isSigned) {
        lo = -std::ldexp(1.0, bits - 1);
        hi = std::ldexp(1.0, bits - 1) - 1;
    } else {
        lo = 0;
        hi = std::ldexp(1.0, bits) - 1;
    }
}

QString valueRangeText(const KcDArray<VxDicomImage *> &images)
{
    const VxDicomImage *first = images[0];
    const double slope = first->rescaleSlope;
    const double intercept = first->rescaleIntercept;
    auto rescaled = [&](double lo, double hi) {
        double a = lo * slope + intercept, b = hi * slope + intercept;
        if (a > b)
            std::swap(a, b);
        return QStringLiteral("%1 .. %2").arg(num(a), num(b));
    };
    const bool identity = slope == 1 && intercept == 0;

    bool inMemory = true;
    double lo = 0, hi = 0;
    for (int i = 0; i < images.size() && inMemory; ++i) {
        int a = 0, b = 0;
        if (!images[i]->hasPixels() || !images[i]->dataRange(&a, &b)) {
            inMemory = false;
            break;
        }
        lo = i == 0 ? a : std::min<double>(lo, a);
        hi = i == 0 ? b : std::max<double>(hi, b);
    }
    if (inMemory) {
        QString text = QStringLiteral("%1 .. %2").arg(num(lo), num(hi));
        if (!identity)
            text += QStringLiteral(" stored, %1 rescaled").arg(rescaled(lo, hi));
        return text;
    }
    storedRange(first, lo, hi);
    QString text = QStringLiteral("read when loaded; %1 bits stored (%2 .. %3)")
                       .arg(first->bitsStored)
                       .arg(num(lo), num(hi));
    if (!identity)
        text += QStringLiteral(", rescaled %1").arg(rescaled(lo, hi));
    return text;
}

QString spacingText(const KcDArray<VxDicomImage *> &images, bool uniform, bool monotonous)
{
    if (images.size() < 2)
        return QStringLiteral("single image, slice thickness %1 mm")
            .arg(num(images[0]->sliceThickness));
    double lo = 0, hi = 0;
    for (int i = 1; i < images.size(); ++i) {
        const double step =
            std::fabs(static_cast<double>(images[i]->sliceLocation) - images[i - 1]->sliceLocation);
        lo = i == 1 ? step : std::min(lo, step);
        hi = i == 1 ? step : std::max(hi, step);
    }
    // Equal steps are shown as their mean, the slice distance of the field.
    const double mean = std::fabs(static_cast<double>(images[images.size() - 1]->sliceLocation) -
                                  images[0]->sliceLocation) /
                        (images.size() - 1);
    QString text = std::fabs(hi - lo) <= 1e-4 * std::max(1.0, hi)
                       ? QStringLiteral("%1 mm").arg(num(mean))
                       : QStringLiteral("%1 .. %2 mm").arg(num(lo), num(hi));
    if (!monotonous)
        text += QStringLiteral(", <b>slice locations out of order</b>");
    else
        text += uniform ? QStringLiteral(", uniform") : QStringLiteral(", <b>not uniform</b>");
    return text;
}

} // namespace

QString dicomOrientationText(const VxDicomImage *image)
{
    if (!image || !image->hasRowDirection())
        return QStringLiteral("unknown");
    const float *n = image->normal;
    int axis = 0;
    for (int k = 1; k < 3; ++k)
        if (std::fabs(n[k]) > std::fabs(n[axis]))
            axis = k;
    static const char *const planes[] = {"sagittal", "coronal", "axial"};
    QString text = QString::fromLatin1(planes[axis]);
    const double length =
        std::sqrt(double(n[0]) * n[0] + double(n[1]) * n[1] + double(n[2]) * n[2]);
    if (length > 0) {
        const double degrees =
            std::acos(std::min(1.0, std::fabs(n[axis]) / length)) * 180.0 / 3.14159265358979323846;
        if (degrees > 0.5)
            text += QStringLiteral(", tilted by %1 degrees").arg(QString::number(degrees, 'f', 1));
    }
    return text;
}

QString dicomStackInfoText(const KcDArray<VxDicomImage *> &images, bool uniform, bool monotonous,
                           const QString &breakReason)
{
    if (images.isEmpty() || !images[0])
        return QStringLiteral("Empty stack");
    const VxDicomImage *first = images[0];
    const int n = images.size();
    QStringList lines;
    lines << QStringLiteral("<b>%1 image%2</b>").arg(n).arg(n == 1 ? "" : "s");
    lines << QStringLiteral("size: %1 x %2 x %3").arg(first->width).arg(first->height).arg(n);
    QString voxel =
        QStringLiteral("%1 x %2").arg(num(first->pixelSpacing[0]), num(first->pixelSpacing[1]));
    if (n > 1)
        voxel += QStringLiteral(" x %1").arg(
            num(std::fabs(double(images[n - 1]->sliceLocation) - first->sliceLocation) / (n - 1)));
    lines << QStringLiteral("voxel size: %1 mm").arg(voxel);
    lines << QStringLiteral("slice spacing: %1").arg(spacingText(images, uniform, monotonous));
    lines << QStringLiteral("value range: %1").arg(valueRangeText(images));
    const QString modality = header(first, 0x0008, 0x0060);
    lines << QStringLiteral("modality: %1")
                 .arg(modality.isEmpty() ? QStringLiteral("unknown") : modality.toHtmlEscaped());
    QString orientation = dicomOrientationText(first);
    if (first->hasRowDirection())
        orientation += QStringLiteral(" (row %1, column %2)")
                           .arg(vector3(first->rowDirection), vector3(first->columnDirection));
    lines << QStringLiteral("orientation: %1").arg(orientation);
    lines << (breakReason.isEmpty()
                  ? QStringLiteral("next stack: none (last stack)")
                  : QStringLiteral("next stack broke off: %1").arg(breakReason.toHtmlEscaped()));
    return lines.join(QStringLiteral("<br>"));
}

QString dicomImageInfoText(const VxDicomImage *image)
{
    if (!image)
        return QString();
    QStringList lines;
    if (image->file) {
        lines << QStringLiteral("file: %1").arg(QString::fromStdString(image->file->fileName));
        if (image->tile >= 0)
            lines << QStringLiteral("mosaic tile: %1 of %2 (frame %3)")
                         .arg(image->tile + 1)
                         .arg(image->file->images.size() / std::max(1, image->file->data->frames))
                         .arg(image->frame + 1);
        else if (image->file->images.size() > 1)
            lines << QStringLiteral("frame: %1 of %2")
                         .arg(image->frame + 1)
                         .arg(image->file->images.size());
    }
    static const unsigned short tags[][2] = {
        {0x0010, 0x0010}, {0x0010, 0x0020}, {0x0008, 0x0020}, {0x0008, 0x1030},
        {0x0008, 0x0060}, {0x0020, 0x0011}, {0x0008, 0x103E}, {0x0020, 0x0013},
        {0x0008, 0x0032}, {0x0018, 0x0050}, {0x0028, 0x1050}, {0x0028, 0x1051},
    };
    for (const auto &tag : tags) {
        const QString value = header(image, tag[0], tag[1]);
        const char *name = dicom::dicomDictionaryName(tag[0], tag[1]);
        if (!value.isEmpty() && name)
            lines << QStringLiteral("%1: %2").arg(QString::fromUtf8(name), value);
    }
    lines << QStringLiteral("image size: %1 x %2, %3 sample%4 per pixel, %5 bits stored (%6)")
                 .arg(image->width)
                 .arg(image->height)
                 .arg(image->samplesPerPixel)
                 .arg(image->samplesPerPixel == 1 ? "" : "s")
                 .arg(image->bitsStored)
                 .arg(image->isSigned ? "signed" : "unsigned");
    lines << QStringLiteral("pixel spacing: %1 mm along a row, %2 mm down a column")
                 .arg(num(image->pixelSpacing[0]), num(image->pixelSpacing[1]));
    lines << QStringLiteral("slice location: %1 mm").arg(num(image->sliceLocation));
    if (image->hasPosition)
        lines << QStringLiteral("position: %1 mm").arg(vector3(image->position));
    if (image->hasRowDirection()) {
        lines << QStringLiteral("row direction: %1").arg(vector3(image->rowDirection));
        lines << QStringLiteral("column direction: %1").arg(vector3(image->columnDirection));
    }
    lines << QStringLiteral("orientation: %1").arg(dicomOrientationText(image));
    lines << QStringLiteral("rescale: slope %1, intercept %2")
                 .arg(num(image->rescaleSlope), num(image->rescaleIntercept));
    return lines.join(QLatin1Char('\n'));
}
