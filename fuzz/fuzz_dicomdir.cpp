// The DICOMDIR walk on any bytes. The first byte chooses the encoding of the
// rest (bit 0 big endian, bit 1 explicit VR), which is walked as a Directory
// Record Sequence value; then the rest is read as a file and, when it is a
// DICOMDIR, expanded as the reading loop expands one.

#include "fuzz/FuzzSupport.h"

#include "vxdicom/reader/DicomDir.h"
#include "vxdicom/reader/VxDicomFile.h"

#include <cstring>
#include <memory>

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    vxfuzz::quietConsole();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 1)
        return 0;
    const bool bigEndian = data[0] & 1;
    const bool explicitVR = data[0] & 2;
    const size_t n = size - 1;
    std::unique_ptr<unsigned char[]> value(new unsigned char[n ? n : 1]);
    if (n)
        std::memcpy(value.get(), data + 1, n);

    KcDArray<KcString> ids;
    dicomDirFileIds(value.get(), n, bigEndian, explicitVR, ids);
    VXFUZZ_CHECK(size_t(ids.size()) <= n / 8);
    for (const KcString &id : ids)
        VXFUZZ_CHECK(id.size() <= n);

    const std::string path = vxfuzz::writeScratchFile("DICOMDIR", data + 1, n);
    try {
        VxDicomFile file(path.c_str(), 0, 1);
        if (file.isDicomDir()) {
            KcDArray<KcString> names;
            names.append(path);
            const int count = extractDicomDir(&file, names);
            VXFUZZ_CHECK(count == names.size() && count >= 1);
            VXFUZZ_CHECK(names[0] == path);
        }
    } catch (const char *text) {
        VXFUZZ_CHECK(text && *text);
    }
    return 0;
}
