// The helper thread that faults in the far end of a new volume must never
// change a byte the reading loop wrote, wherever the two meet, and must end
// when asked or when the reader has passed it.

#include "vxdicom/reader/VolumePrefault.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <thread>

namespace {

struct FreeDeleter
{
    void operator()(unsigned char *p) const { std::free(p); }
};

std::unique_ptr<unsigned char, FreeDeleter> alignedVolume(size_t bytes)
{
    void *p = nullptr;
    if (posix_memalign(&p, size_t(2) << 20, bytes) != 0)
        return nullptr;
    return std::unique_ptr<unsigned char, FreeDeleter>(static_cast<unsigned char *>(p));
}

unsigned char pattern(size_t i)
{
    return static_cast<unsigned char>((i * 2654435761u) >> 13);
}

// The bytes of the volume that no longer hold the pattern.
size_t bytesChanged(const unsigned char *volume, size_t bytes)
{
    size_t wrong = 0;
    for (size_t i = 0; i < bytes; ++i)
        wrong += volume[i] != pattern(i);
    return wrong;
}

} // namespace

TEST(VolumePrefault, SlicesWrittenWhileItRunsKeepEveryByte)
{
    // A volume whose length is not a whole number of pages, filled slice by
    // slice front to back as the reading loop fills it.
    const size_t slice = 512 * 512 * 2 + 6;
    const size_t slices = 200;
    const size_t bytes = slice * slices;
    auto volume = alignedVolume(bytes);
    ASSERT_TRUE(volume);
    {
        VolumePrefault prefault(volume.get(), bytes, 0);
        for (size_t k = 0; k < slices; ++k) {
            unsigned char *s = volume.get() + k * slice;
            for (size_t i = 0; i < slice; ++i)
                s[i] = pattern(k * slice + i);
            prefault.readerAt((k + 1) * slice);
        }
        prefault.stop();
        prefault.stop(); // a second stop is harmless
    }
    EXPECT_EQ(bytesChanged(volume.get(), bytes), 0u);
}

TEST(VolumePrefault, PopulatesTheFarEndWithoutWritingIntoIt)
{
    const size_t bytes = size_t(48) << 20;
    auto volume = alignedVolume(bytes);
    ASSERT_TRUE(volume);
    for (size_t i = 0; i < bytes; ++i)
        volume.get()[i] = pattern(i);
    {
        // The reader stays at the front: the helper goes all the way down to
        // it (one chunk apart) and ends by itself.
        VolumePrefault prefault(volume.get(), bytes, 0);
        while (!prefault.finished())
            std::this_thread::yield();
        EXPECT_LT(prefault.populatedFrom(), bytes / 2);
    }
    EXPECT_EQ(bytesChanged(volume.get(), bytes), 0u);
}

TEST(VolumePrefault, EndsWhenStoppedAndLeavesSmallOrMissingVolumesAlone)
{
    const size_t bytes = size_t(48) << 20;
    auto volume = alignedVolume(bytes);
    ASSERT_TRUE(volume);
    {
        VolumePrefault prefault(volume.get(), bytes, 0);
        prefault.stop();
    }
    VolumePrefault below(volume.get(), bytes); // under the default minimum
    EXPECT_EQ(below.populatedFrom(), bytes);
    EXPECT_FALSE(below.finished()); // no thread was started
    VolumePrefault none(nullptr, bytes, 0);
    EXPECT_FALSE(none.finished());
}
