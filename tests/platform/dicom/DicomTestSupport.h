#pragma once

#include "platform/dicom/dicom.h"
#include "tests/support/TestSupport.h"

#include <QCryptographicHash>
#include <QJsonDocument>
#include <QJsonObject>

namespace dicomtest {

struct Free
{
    void operator()(dicom::dicomStruct *d) const { dicom::dicomFree(d); }
};
using DicomPtr = std::unique_ptr<dicom::dicomStruct, Free>;

inline DicomPtr read(const std::string &path, bool delayed, std::string *why = nullptr)
{
    return DicomPtr(dicom::dicomReadFile(path.c_str(), delayed ? 1 : 0, why));
}

/// One image in nine transfer syntaxes (1-3 native, 4 RLE, 5-8 JPEG, JPEG-LS, 9 JPEG 2000).
inline std::string ts(int n)
{
    return vxtest::sharedPath("dcm_qa_ts/In/" + std::to_string(n) + ".dcm");
}

/// Every frame of a delayed read, concatenated; empty with *why set on failure.
inline std::vector<unsigned char> decodeFrames(const dicom::dicomStruct &d, std::string *why)
{
    const size_t size = size_t(d.frameSize);
    std::vector<unsigned char> all(size * size_t(d.frames));
    for (int k = 0; k < d.frames; ++k)
        if (!dicom::dicomReadImageData(&d, nullptr, k, &all[size * size_t(k)], size, why)) {
            *why = "frame " + std::to_string(k) + ": " + *why;
            return {};
        }
    return all;
}

inline std::vector<unsigned char> fullPixels(const dicom::dicomStruct &d)
{
    return {d.pixelData,
            d.pixelData ? d.pixelData + size_t(d.frameSize) * size_t(d.frames) : nullptr};
}

/// pydicom_reference.py MODE ARGS...: its JSON answer.
inline QJsonObject runReference(const std::string &mode, std::vector<std::string> args)
{
    args.insert(args.begin(), mode);
    return vxtest::pythonJson(VX_TEST_DIR "/pydicom_reference.py", args).object();
}

inline std::string sha256(const unsigned char *p, size_t n)
{
    return QCryptographicHash::hash(QByteArrayView(p, qsizetype(n)), QCryptographicHash::Sha256)
        .toHex()
        .toStdString();
}

} // namespace dicomtest

#define REQUIRE_PYDICOM()                                                                          \
    VX_REQUIRE_SHARED_DATA();                                                                      \
    VX_REQUIRE(vxtest::havePythonModules({"pydicom", "numpy"}), "pydicom and numpy")
