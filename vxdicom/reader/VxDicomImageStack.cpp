#include "vxdicom/reader/VxDicomImageStack.h"

#include "platform/data/VxParameter.h"
#include "vxdicom/params/DicomElementConversion.h"
#include "vxdicom/reader/DicomReaderSettings.h"
#include "vxdicom/reader/VxDicomFile.h"
#include "vxdicom/reader/VxDicomImage.h"

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <memory>

namespace {

// Kept between calls of append for the stack being built: stacks are built
// one after the other, never interleaved.
float referenceDistance = 0;
float extentX = 0;
float extentY = 0;

} // namespace

VxDicomImageStack::VxDicomImageStack() : parameters("DICOM") {}

bool VxDicomImageStack::accept(const VxDicomImage *image) const
{
    if (images.isEmpty())
        return true;
    if (!image)
        return false;
    const VxDicomImage *first = images[0];
    return image->width == first->width && image->height == first->height &&
           image->dataSize == first->dataSize && image->primType() == first->primType() &&
           image->bitsStored == first->bitsStored &&
           image->samplesPerPixel == first->samplesPerPixel &&
           image->bytesPerSample == first->bytesPerSample &&
           image->pixelSpacing[0] == first->pixelSpacing[0] &&
           image->pixelSpacing[1] == first->pixelSpacing[1] &&
           image->rowDirection[0] == first->rowDirection[0] &&
           image->rowDirection[1] == first->rowDirection[1] &&
           image->rowDirection[2] == first->rowDirection[2] &&
           image->columnDirection[0] == first->columnDirection[0] &&
           image->columnDirection[1] == first->columnDirection[1] &&
           image->columnDirection[2] == first->columnDirection[2];
}

int VxDicomImageStack::append(VxDicomImage *image)
{
    if (!image)
        return images.size();
    const float unit = dicomUnitFactor();
    images.append(image);
    sliceLocations.append(image->sliceLocation * unit);
    if (images.size() != sliceLocations.size())
        throw "DICOM: read error!";
    const int n = images.size();

    if (n == 1) {
        const char *patient = dicom::dicomGetById(image->file->data, 0x0010, 0x0010);
        if (patient && *patient)
            name = patient;
        primType = image->primType();
        width = image->width;
        height = image->height;
        extentX = static_cast<float>(width - 1) * image->pixelSpacing[0] * unit;
        extentY = static_cast<float>(height - 1) * image->pixelSpacing[1] * unit;
    } else if (n == 2) {
        referenceDistance = sliceLocations[1] - sliceLocations[0];
    } else if (spacingState == 1) {
        const float step = sliceLocations[n - 1] - sliceLocations[n - 2];
        if (std::fabs(step - referenceDistance) > 0.1f * dicomMaxDistError())
            spacingState = 2;
    }

    numSlices = n;
    bbox[0] = -extentX / 2;
    bbox[1] = extentX / 2;
    bbox[2] = -extentY / 2;
    bbox[3] = extentY / 2;
    bbox[4] = sliceLocations[0];
    bbox[5] = sliceLocations[n - 1];

    setDataRange(image);
    setModality(image);

    auto slice = std::make_unique<VxParamBundle>(image->parameters);
    slice->setString("Filename", image->file->fileName.c_str());
    slice->setName(KcString::format("Slice%03d", n - 1).c_str());
    parameters.insert(slice.release(), true);
    return n;
}

void VxDicomImageStack::setModality(const VxDicomImage *image)
{
    const char *m = dicom::dicomGetById(image->file->data, 0x0008, 0x0060);
    const KcString value(m);
    modality = (value == "MR" || value == "CT" || value == "NM") ? value : KcString("Unknown");
}

void VxDicomImageStack::setDataRange(VxDicomImage *image)
{
    const char *m = dicom::dicomGetById(image->file->data, 0x0008, 0x0060);
    const KcString value(m);
    // Fixed initial display windows for MR and CT.
    if (value == "MR") {
        minValue = 0;
        maxValue = 1000;
        return;
    }
    if (value == "CT") {
        minValue = -200;
        maxValue = 200;
        return;
    }
    int lo, hi;
    if (!image->dataRange(&lo, &hi)) {
        // An image read lazily learns its range when its samples are read
        // into the field, without keeping them.
        lo = image->minValue;
        hi = image->maxValue;
    }
    if (lo <= hi) {
        if (minValue > maxValue) {
            minValue = lo;
            maxValue = hi;
        } else {
            minValue = std::min(minValue, lo);
            maxValue = std::max(maxValue, hi);
        }
    }
}

void VxDicomImageStack::recomputeDataRange()
{
    minValue = 1;
    maxValue = 0;
    for (VxDicomImage *image : images)
        setDataRange(image);
}

long VxDicomImageStack::memSize() const
{
    const int spp = images.isEmpty() ? 1 : images[0]->samplesPerPixel;
    return static_cast<long>(width) * height * numSlices * spp * primType.size();
}

float VxDicomImageStack::isSheared() const
{
    if (images.isEmpty())
        return 0;
    const char *tilt = dicom::dicomGetById(images[0]->file->data, 0x0018, 0x1120);
    return tilt ? static_cast<float>(std::atof(tilt)) : 0.0f;
}

bool VxDicomImageStack::checkForDataOverflow(float &scale, float &offset, KcPrimType &type) const
{
    scale = 1;
    offset = 0;
    type = primType;
    if (images.isEmpty())
        return false;

    bool valid = false;
    double rmin = 0, rmax = 1;
    for (const VxDicomImage *image : images) {
        // A constant image counts too: its one value must fit as well.
        if (image->minValue > image->maxValue)
            continue;
        const double lo =
            image->rescaleIntercept + image->minValue * static_cast<double>(image->rescaleSlope);
        const double hi =
            image->rescaleIntercept + image->maxValue * static_cast<double>(image->rescaleSlope);
        if (!valid) {
            rmin = lo;
            rmax = std::max(1.0, hi);
            valid = true;
        } else {
            rmin = std::min(rmin, lo);
            rmax = std::max(rmax, hi);
        }
    }
    if (!valid)
        return false;

    if (type == KcPrimType::UInt16 && rmin >= -32768 && rmax < 32768) {
        type = KcPrimType::Int16;
        return false;
    }
    if (type == KcPrimType::Int16 && rmin >= 0 && rmax >= 32768 && rmax < 65536) {
        type = KcPrimType::UInt16;
        return false;
    }

    double lower, upper;
    switch (type) {
    case KcPrimType::UInt8:
        lower = 0;
        upper = 255;
        break;
    case KcPrimType::Int16:
        lower = -32768;
        upper = 32767;
        break;
    case KcPrimType::UInt16:
        lower = 0;
        upper = 65535;
        break;
    case KcPrimType::Int32:
        lower = -9.223372036854776e18;
        upper = 9.223372036854776e18;
        break;
    default:
        lower = 0;
        upper = 1;
        break;
    }
    if (rmin >= lower && rmax <= upper)
        return false;

    if (rmin == rmax) {
        scale = 1;
        offset = static_cast<float>(lower - rmax);
        return true;
    }
    if (type == KcPrimType::Int16 && rmin >= 0) {
        type = KcPrimType::UInt16;
        lower = 0;
        upper = 65535;
    }
    scale = static_cast<float>((upper - lower) / (rmax - rmin));
    offset = static_cast<float>(lower - scale * rmin);
    return true;
}

void VxDicomImageStack::setDicomParameters(bool anonymize)
{
    if (images.isEmpty())
        return;
    if (anonymize)
        name = "Anonymized";
    const dicom::dicomStruct *d = images[0]->file->data;
    auto all = std::make_unique<VxParamBundle>("All");
    for (int i = 0; i < d->numElements; ++i) {
        const dicom::dicomDataElement &e = d->elements[i];
        if (e.group == 0x7FE0 && e.element == 0x0010)
            continue;
        // The per-frame functional groups of an enhanced object hold one item
        // per frame of the whole file (megabytes, as hexadecimal text in every
        // volume made from it); what they say of this stack's frames is in
        // its image records: position, orientation, spacing and rescale.
        if (e.group == 0x5200 && e.element == 0x9230)
            continue;
        if (anonymize && e.group == 0x0010)
            continue;
        if (d->skipBinaryParameters) {
            const dicom::valRep vr = dicomElementVR(e);
            if (vr == dicom::SQ || vr == dicom::OB || vr == dicom::OW || vr == dicom::UN)
                continue;
        }
        const char *value = dicom::dicomGetById(images[0]->file->data, e.group, e.element);
        if (VxParamBase *p = convertDicomByIdToVxParamBase(&e, value, 0))
            all->insert(p, true);
    }
    parameters.insert(all.release(), true);
}
