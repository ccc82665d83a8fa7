#include "tests/platform/dicom/DicomTestSupport.h"

#include "tests/support/TestSupport.h"

#include <QByteArray>
#include <QCryptographicHash>
#include <QJsonDocument>

namespace dicomtest {

DicomPtr read(const std::string &path, bool delayed, std::string *why)
{
    std::string reason;
    DicomPtr d(dicom::dicomReadFile(path.c_str(), delayed ? 1 : 0, &reason));
    if (why)
        *why = reason;
    return d;
}

std::vector<unsigned char> decodeFrames(const dicom::dicomStruct &d, std::string *why,
                                        const char *path)
{
    std::vector<unsigned char> all(size_t(d.frameSize) * size_t(d.frames));
    std::vector<unsigned char> frame(size_t(d.frameSize) + 1);
    for (int k = 0; k < d.frames; ++k) {
        std::string reason;
        if (!dicom::dicomReadImageData(&d, path, k, frame.data(), frame.size(), &reason)) {
            if (why)
                *why = "frame " + std::to_string(k) + ": " + reason;
            return {};
        }
        std::copy(frame.begin(), frame.begin() + d.frameSize, all.begin() + long(k) * d.frameSize);
    }
    return all;
}

std::vector<unsigned char> fullPixels(const dicom::dicomStruct &d)
{
    if (!d.pixelData)
        return {};
    return std::vector<unsigned char>(d.pixelData,
                                      d.pixelData + size_t(d.frameSize) * size_t(d.frames));
}

QJsonObject runReference(const std::string &mode, const std::vector<std::string> &args,
                         std::string *error)
{
    std::string command =
        std::string(VX_PYTHON) + " " +
        vxtest::shellQuote(std::string(VX_DICOM_TEST_DIR) + "/pydicom_reference.py") + " " + mode;
    for (const std::string &a : args)
        command += " " + vxtest::shellQuote(a);
    std::string out;
    const int status = vxtest::runCommand(command, &out);
    if (status != 0) {
        if (error)
            *error = "pydicom_reference.py " + mode + " exited with " + std::to_string(status);
        return {};
    }
    QJsonParseError parseError;
    const QJsonDocument doc = QJsonDocument::fromJson(QByteArray::fromStdString(out), &parseError);
    if (!doc.isObject()) {
        if (error)
            *error = "pydicom_reference.py " + mode + ": " + parseError.errorString().toStdString();
        return {};
    }
    return doc.object();
}

std::string sha256(const unsigned char *p, size_t n)
{
    return QCryptographicHash::hash(QByteArrayView(reinterpret_cast<const char *>(p), qsizetype(n)),
                                    QCryptographicHash::Sha256)
        .toHex()
        .toStdString();
}

bool havePydicom()
{
    static const bool have = vxtest::havePythonModules({"pydicom", "numpy"});
    return have;
}

} // namespace dicomtest
