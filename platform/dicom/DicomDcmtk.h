#pragma once

// DCMTK-facing internals of the dicom:: layer (included by its .cpp files only).

#include "platform/dicom/DicomInternal.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcfilefo.h"

#include <memory>
#include <string>

namespace dicom {

/// Parses the whole data set of a source with DCMTK; values longer than a
/// few kilobytes stay in the file until they are used. Null on failure.
std::unique_ptr<DcmFileFormat> loadWholeDataSet(const ByteSource &source, std::string *why);

/// A DCMTK condition as a reason text.
std::string conditionText(const OFCondition &condition);

struct DecoderState
{
    std::unique_ptr<DcmFileFormat> file;
    std::string key;    ///< the path the data set came from; empty for a buffer
    int nextFrame = -1; ///< the frame the fragment below belongs to
    Uint32 nextFragment = 0;
};

} // namespace dicom
