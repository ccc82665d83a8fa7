// The reader's records on any bytes: the input is written to a file and read
// as the reading loop reads it (VxDicomFile, header only, pixels later), its
// images are stacked and turned into a field as the silent load does; then the
// same file is read with its pixels at once. Thrown texts are the expected
// way to refuse a file; anything else is a fault.

#include "fuzz/FuzzSupport.h"

#include "platform/data/VxField3.h"
#include "platform/data/VxParamBundle.h"
#include "vxdicom/reader/VxDicomField.h"
#include "vxdicom/reader/VxDicomFile.h"
#include "vxdicom/reader/VxDicomImage.h"
#include "vxdicom/reader/VxDicomImageStack.h"

#include <algorithm>
#include <memory>
#include <vector>

namespace {

void checkImage(VxDicomImage &image)
{
    VXFUZZ_CHECK(image.width > 0 && image.height > 0);
    VXFUZZ_CHECK(image.bytesPerSample == 1 || image.bytesPerSample == 2);
    VXFUZZ_CHECK(image.samplesPerPixel == 1 || image.samplesPerPixel == 3 ||
                 image.samplesPerPixel == 4);
    VXFUZZ_CHECK(1LL * image.width * image.height * image.samplesPerPixel *
                     int(image.bytesPerSample) ==
                 image.dataSize);
    VXFUZZ_CHECK(image.compareOrientation(image, 0.0f) == 0);
    int lo = 0, hi = 0;
    if (image.hasPixels() && image.dataRange(&lo, &hi))
        VXFUZZ_CHECK(lo <= hi);
    (void)image.parameters.dump();
}

// The images in ascending slice location, as far as they fit the first one,
// made into a field as the load pipeline does in silent mode.
void buildField(const KcDArray<VxDicomImage *> &images)
{
    std::vector<VxDicomImage *> sorted(images.data(), images.data() + images.size());
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const VxDicomImage *a, const VxDicomImage *b) {
                         return a->sliceLocation < b->sliceLocation;
                     });
    VxDicomImageStack stack;
    for (VxDicomImage *image : sorted)
        if (stack.accept(image))
            stack.append(image);
    stack.setCoordType(stack.spacingState == 1 ? 1 : 2);
    stack.setDicomParameters(false);
    std::unique_ptr<VxField3> field(createField3(stack));
    flipField3(field.get(), stack);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    vxfuzz::quietConsole();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string path = vxfuzz::writeScratchFile("input.dcm", data, size);
    for (int delayed : {1, 0}) {
        try {
            VxDicomFile file(path.c_str(), 0, delayed);
            VXFUZZ_CHECK(file.data != nullptr);
            (void)file.dicomDataElements()->dump();
            for (VxDicomImage *image : file.images)
                checkImage(*image);
            if (!file.images.isEmpty())
                buildField(file.images);
        } catch (const char *text) {
            VXFUZZ_CHECK(text && *text);
        }
    }
    return 0;
}
