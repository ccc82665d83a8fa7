#pragma once

// Helpers shared by the dicom:: layer tests.

#include "platform/dicom/dicom.h"

#include <QJsonObject>

#include <memory>
#include <string>
#include <vector>

namespace dicomtest {

struct Free
{
    void operator()(dicom::dicomStruct *d) const { dicom::dicomFree(d); }
};
using DicomPtr = std::unique_ptr<dicom::dicomStruct, Free>;

DicomPtr read(const std::string &path, bool delayed, std::string *why = nullptr);

/// Every frame of a delayed read, decoded with dicomReadImageData in order
/// and concatenated; empty with *why set on failure.
std::vector<unsigned char> decodeFrames(const dicom::dicomStruct &d, std::string *why,
                                        const char *path = nullptr);

/// The pixels a full (non-delayed) read holds: frames x frameSize bytes.
std::vector<unsigned char> fullPixels(const dicom::dicomStruct &d);

/// Runs pydicom_reference.py MODE ARGS... and parses its JSON output.
QJsonObject runReference(const std::string &mode, const std::vector<std::string> &args,
                         std::string *error);

/// Lower-case hexadecimal SHA-256.
std::string sha256(const unsigned char *p, size_t n);
inline std::string sha256(const std::vector<unsigned char> &v)
{
    return sha256(v.data(), v.size());
}

/// True when pydicom and numpy can be used from /usr/bin/python3.
bool havePydicom();

} // namespace dicomtest
