#include "platform/core/KcFilename.h"

#include <gtest/gtest.h>

TEST(KcFilename, DirectoryAndLastComponent)
{
    struct Row
    {
        const char *name;
        const char *directory;
        const char *last;
        const char *why;
    };
    const Row rows[] = {
        {"ct/IM0001", "ct", "IM0001", "relative path"},
        {"/data/cd/DICOMDIR", "/data/cd", "DICOMDIR", "absolute path"},
        {"IM0001", ".", "IM0001", "no directory part means the current directory"},
        {"/IM0001", "/", "IM0001", "a file in the root directory"},
        {"a/b/", "a/b", "", "a trailing slash leaves an empty last component"},
        {"", ".", "", "empty name"},
    };
    for (const Row &r : rows) {
        const KcFilename f(r.name);
        EXPECT_EQ(f.directory(), r.directory) << r.why;
        EXPECT_EQ(f.lastComponent(), r.last) << r.why;
    }
}

TEST(KcFilename, FixSlashesTurnsDicomDirSeparatorsIntoSlashes)
{
    KcFilename f("DICOM\\ST000000\\SE000001\\IM000007");
    f.fixSlashes();
    EXPECT_EQ(f, "DICOM/ST000000/SE000001/IM000007");
    KcFilename plain("a/b");
    plain.fixSlashes();
    EXPECT_EQ(plain, "a/b");
}

TEST(KcFilename, JoinPutsExactlyOneSlashBetween)
{
    EXPECT_EQ(KcFilename::join("/cd", "IM1"), "/cd/IM1");
    EXPECT_EQ(KcFilename::join("/cd/", "IM1"), "/cd/IM1");
    EXPECT_EQ(KcFilename::join("/cd/", "/IM1"), "/cd/IM1");
    EXPECT_EQ(KcFilename::join("/cd", "/IM1"), "/cd/IM1");
    EXPECT_EQ(KcFilename::join("", "IM1"), "IM1");
    EXPECT_EQ(KcFilename::join("/cd", ""), "/cd");
}
