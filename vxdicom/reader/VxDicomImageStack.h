#pragma once

#include "platform/core/KcDArray.h"
#include "platform/core/KcPrimType.h"
#include "platform/core/KcString.h"
#include "platform/data/VxParamBundle.h"

class VxDicomImage;

/// The ordered images of one volume and the facts that follow from them:
/// slice locations (scaled by the unit factor), whether their spacing is
/// uniform, bounding box, sample type, value range, modality, and the DICOM
/// parameters the field will carry (bundle "DICOM").
class VxDicomImageStack
{
public:
    VxDicomImageStack();
    virtual ~VxDicomImageStack() = default;

    /// True when empty, or when the image matches the first one exactly in
    /// size, sample layout, pixel spacing and directions.
    bool accept(const VxDicomImage *image) const;
    /// Appends an image; returns the new count. Throws "DICOM: read error!"
    /// when the internal arrays disagree.
    int append(VxDicomImage *image);

    void setModality(const VxDicomImage *image);
    void setDataRange(VxDicomImage *image);
    void recomputeDataRange();
    /// Bytes the field's samples take.
    long memSize() const;
    /// Gantry/Detector Tilt (0018,1120) of the first image in degrees, or 0.
    float isSheared() const;
    /// Whether the rescaled values overflow the sample type; see the .cpp.
    bool checkForDataOverflow(float &scale, float &offset, KcPrimType &type) const;
    /// Builds the bundle "All" from the first image's file (group 0010 left
    /// out and the name "Anonymized" with anonymize).
    void setDicomParameters(bool anonymize);
    /// 1 uniform, 2 stacked.
    void setCoordType(int type) { coordType = type; }
    int getCoordType() const { return coordType; }

    KcDArray<VxDicomImage *> images;
    KcDArray<float> sliceLocations;
    KcString name = "Unknown";
    KcString label;
    int spacingState = 1;
    KcPrimType primType = KcPrimType::UInt8;
    int width = 0;
    int height = 0;
    int numSlices = 0;
    int minValue = 1;
    int maxValue = 0;
    KcString modality = "Unknown";
    float bbox[6] = {0, 0, 0, 0, 0, 0};
    VxParamBundle parameters;
    int coordType = 1;
};
