// The reader's records on any bytes: the input is written to a file and read
// as the reading loop reads it (VxDicomFile, header only, pixels later), its
// images are stacked and turned into a field as the silent load does; then the
// same file is read with its pixels at once. Thrown texts are the expected
// way to refuse a file; anything else is a fault, and so is a temporary file
// left behind.

#include "fuzz/FuzzSupport.h"

#include "platform/data/VxField3.h"
#include "platform/data/VxParamBundle.h"
#include "vxdicom/reader/VxDicomField.h"
#include "vxdicom/reader/VxDicomFile.h"
#include "vxdicom/reader/VxDicomImage.h"
#include "vxdicom/reader/VxDicomImageStack.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include <dirent.h>
#include <sys/stat.h>

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

std::string tempDir;

bool isEmptyDir(const std::string &dir)
{
    DIR *d = opendir(dir.c_str());
    if (!d)
        return false;
    int entries = 0;
    while (const dirent *e = readdir(d))
        if (std::strcmp(e->d_name, ".") != 0 && std::strcmp(e->d_name, "..") != 0)
            ++entries;
    closedir(d);
    return entries == 0;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    vxfuzz::quietConsole();
    // The gunzip service's temporary files go here, where the target can
    // see that none outlives a read.
    tempDir = vxfuzz::scratchDir() + "/tmp";
    mkdir(tempDir.c_str(), 0700);
    setenv("TMPDIR", tempDir.c_str(), 1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // gzip and compress data are read as the reader reads ".gz" and ".Z"
    // names: through the host's gunzip service and a temporary file.
    const char *name = "input.dcm";
    if (size >= 2 && data[0] == 0x1F && data[1] == 0x8B)
        name = "input.dcm.gz";
    else if (size >= 2 && data[0] == 0x1F && data[1] == 0x9D)
        name = "input.dcm.Z";
    const std::string path = vxfuzz::writeScratchFile(name, data, size);
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
        VXFUZZ_CHECK(isEmptyDir(tempDir));
    }
    return 0;
}
