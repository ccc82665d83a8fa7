// The dicom:: layer on any bytes: dicomReadBuffer parses and decodes every
// frame; then every element is read as the module reads it (text, dictionary,
// raw bytes, the items of sequences) and the structure's promises checked.

#include "fuzz/FuzzSupport.h"

#include "platform/dicom/dicom.h"

#include <climits>
#include <cstring>
#include <string>

namespace {

// Touches every byte (ASan sees a short buffer) and keeps the compiler from
// dropping the reads.
unsigned touch(const unsigned char *p, size_t n)
{
    unsigned sum = 0;
    for (size_t i = 0; i < n; ++i)
        sum += p[i];
    return sum;
}

// The items of an encoded sequence value, walked with the layer's header
// reader and length helper as the DICOMDIR and parameter code walk them.
void walkItems(const unsigned char *p, const unsigned char *end, bool big, bool explicitVR,
               int depth)
{
    if (depth > 8)
        return;
    while (p < end) {
        dicom::dicomElementHeader h;
        if (!dicom::dicomReadElementHeader(p, end, big, explicitVR, &h))
            return;
        VXFUZZ_CHECK(h.headerSize > 0 && h.headerSize <= end - p);
        const unsigned char *value = p + h.headerSize;
        long length = h.length;
        if (h.length == 0xFFFFFFFFu) {
            const bool isItem = h.group == 0xFFFE && h.element == 0xE000;
            length = dicom::dicomAdjustLength(value, end, big, explicitVR, isItem);
            if (length < 0)
                return;
            VXFUZZ_CHECK(length <= end - value);
        } else if (h.length > size_t(end - value)) {
            return;
        }
        if (h.group == 0xFFFE && h.element == 0xE000)
            walkItems(value, value + length, big, explicitVR, depth + 1);
        p = value + length;
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    vxfuzz::quietConsole();
    dicom::dicomInitialize();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::string why;
    dicom::dicomStruct *d = dicom::dicomReadBuffer(data, size, "input", &why);
    if (!d) {
        VXFUZZ_CHECK(!why.empty());
        return 0;
    }
    VXFUZZ_CHECK(d->numElements > 0 && d->elements);
    volatile unsigned sink = 0;
    uint32_t previous = 0;
    for (int i = 0; i < d->numElements; ++i) {
        const dicom::dicomDataElement &e = d->elements[i];
        const uint32_t key = (uint32_t(e.group) << 16) | e.element;
        VXFUZZ_CHECK(key >= previous);
        previous = key;
        VXFUZZ_CHECK(e.length >= 0);
        const bool pixels = e.group == 0x7FE0 && e.element == 0x0010;
        if (pixels)
            VXFUZZ_CHECK(e.data == nullptr);
        else
            VXFUZZ_CHECK((e.data != nullptr) == (e.length > 0));
        if (e.data)
            sink = sink + touch(e.data, size_t(e.length));
        if (const char *text = dicom::dicomGetById(d, e.group, e.element))
            sink = sink + unsigned(std::strlen(text));
        VXFUZZ_CHECK(dicom::dicomFindElement(d, e.group, e.element) != nullptr);
        if (const char *name = dicom::dicomDictionaryName(e.group, e.element))
            sink = sink + unsigned(std::strlen(name));
        sink = sink + unsigned(dicom::dicomDictionaryType(e.group, e.element));
        const bool sequence = e.vr[0] == 'S' && e.vr[1] == 'Q';
        if (e.data && (sequence || (!d->explicitVR &&
                                    dicom::dicomDictionaryType(e.group, e.element) == dicom::SQ)))
            walkItems(e.data, e.data + e.length, d->bigEndian, d->explicitVR, 0);
    }

    if (d->pixelData) {
        VXFUZZ_CHECK(d->frames > 0 && d->rows > 0 && d->columns > 0);
        const long long expected =
            1LL * d->rows * d->columns * d->bytesPerSample * d->samplesPerPixel;
        VXFUZZ_CHECK(d->frameSize == expected && d->frameSize <= INT_MAX);
        VXFUZZ_CHECK(d->compression != dicom::COMPRESSION_UNSUPPORTED);
        sink = sink + touch(d->pixelData, size_t(d->frameSize) * size_t(d->frames));
    }
    dicom::dicomFree(d);
    return 0;
}
