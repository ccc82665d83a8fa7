#pragma once

// Internals of the dicom:: layer shared between its source files. May be
// included only by platform/dicom/*.cpp (it is the place where DCMTK types
// and the layer's private state meet).

#include "platform/dicom/dicom.h"

#include <string>

namespace dicom {

/// Lower-case words of a DCMTK keyword ("SOPInstanceUID" -> "sop instance uid").
std::string keywordToDictionaryName(const char *keyword);

/// The module's VR code of a DCMTK DcmEVR value (pseudo-VRs resolved as
/// dicomDictionaryType documents).
valRep valRepOfDcmEVR(int evr);

} // namespace dicom
