// The value text codec on any text: the canonical form of one value and of a
// multi-valued text for every VR, the VR code lookup, and the hexadecimal and
// ASCII helpers on the raw bytes (copied into a buffer of exactly their
// length, so that a read past the end is seen).

#include "fuzz/FuzzSupport.h"

#include "vxdicom/params/DicomValueCodec.h"

#include <cstdlib>
#include <cstring>
#include <memory>

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    vxfuzz::quietConsole();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size > 1 << 16)
        return 0;
    // One byte more than the input for the NUL of the C-string forms; the
    // functions that take a length are given `size` and must not read it.
    std::unique_ptr<char[]> bytes(new char[size + 1]);
    if (size)
        std::memcpy(bytes.get(), data, size);
    bytes[size] = '\0';
    const QString text = QString::fromUtf8(bytes.get(), qsizetype(size));

    for (int vr = 0; vr <= 25; ++vr) {
        const QString one = parseSingleDicomDataString(text, dicom::valRep(vr));
        const QString many = parseDicomDataString(text, dicom::valRep(vr));
        VXFUZZ_CHECK(!many.startsWith(QLatin1Char(' ')) && !many.endsWith(QLatin1Char(' ')));
        (void)one.size();
    }
    const dicom::valRep vr = decodeVRString(text);
    VXFUZZ_CHECK(int(vr) >= 0 && int(vr) <= 25);
    (void)encodeVRString(vr);
    (void)getVRDescription(vr);
    VXFUZZ_CHECK(!encodeQString(text).contains(QLatin1Char('\\')));

    const auto *raw = reinterpret_cast<const unsigned char *>(bytes.get());
    const int n = int(size);
    (void)isASCII(raw, n);
    (void)encodeBytesToQString(raw, n);

    int decodedLength = -1;
    unsigned char *decoded = hexDecode(bytes.get(), unsigned(size), decodedLength);
    VXFUZZ_CHECK(decoded && decodedLength == n / 2 && decoded[decodedLength] == 0);
    std::free(decoded);

    int encodedLength = -1;
    char *encoded = hexEncode(raw, n, encodedLength);
    VXFUZZ_CHECK(encoded && encodedLength == (n > 0 ? 2 * n : 1) &&
                 std::strlen(encoded) == size_t(encodedLength));
    std::free(encoded);
    return 0;
}
