#pragma once

#include "platform/core/KcString.h"

/// A file name with the path helpers the host offers.
class KcFilename : public KcString
{
public:
    using KcString::KcString;
    KcFilename() = default;
    KcFilename(const KcString &s) : KcString(s) {}

    /// Everything before the last '/', without it; "." when there is no '/',
    /// "/" for a file in the root directory.
    KcString directory() const;

    /// The part after the last '/' (the whole name when there is none).
    KcString lastComponent() const;

    /// Turns DICOM and DOS path separators ('\\') into '/' in place.
    void fixSlashes();

    /// Joins a directory and a relative name with exactly one '/' between them.
    static KcFilename join(const KcString &dir, const KcString &name);
};
