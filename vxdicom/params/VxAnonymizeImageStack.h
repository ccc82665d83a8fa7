#pragma once

#include "platform/data/VxCompModule.h"

/// The anonymizer: a compute module attached to a 3D field loaded from DICOM.
/// Pressing "DoIt" removes the patient's name and the source file names from
/// the field's DICOM parameters, in place, relabels the field "Anonymized"
/// and makes the field itself result 0 (no copy is made).
///
/// What it changes, in the field's bundle "DICOM":
/// - in "All", every string parameter whose text begins with "patient name"
///   (case-insensitive) becomes "patient name: <Anonymized>"; other wordings,
///   such as "other patient names", are left alone;
/// - every other sub-bundle (the single slices' bundles) loses its parameters
///   "Filename" and "Name".
/// Console: "anonymized patient name" per replaced parameter (again on a
/// second press, as the replaced text still begins with "patient name") and
/// "anonymized %d single slices' bundles". A field without "DICOM" is only
/// relabelled and passed on; without a connected field nothing happens.
class VxAnonymizeImageStack : public VxCompModule
{
    VX_TYPE_HEADER(VxAnonymizeImageStack)

public:
    VxAnonymizeImageStack();

    /// "Action:" with the one button "DoIt".
    VxPortButtonList portAction;

    void compute() override;
};
