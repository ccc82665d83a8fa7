#include "platform/core/KcString.h"

#include <gtest/gtest.h>

#include <QString>

#include <string>

TEST(KcString, NullCStringIsEmpty)
{
    const char *none = nullptr;
    EXPECT_TRUE(KcString(none).isEmpty());
    EXPECT_TRUE(KcString(none, 5).isEmpty());
    EXPECT_EQ(KcString("abcdef", 3), "abc");
    EXPECT_EQ(KcString("abc").length(), 3);
}

TEST(KcString, PrefixAndSuffixTests)
{
    const KcString name("scan.dcm.gz");
    EXPECT_TRUE(name.endsWith(".gz"));
    EXPECT_FALSE(name.endsWith(".Z"));
    EXPECT_TRUE(name.startsWith("scan"));
    EXPECT_FALSE(name.startsWith("scan.dcm.gz.more"));
    EXPECT_FALSE(name.endsWith("xscan.dcm.gz"));
    EXPECT_TRUE(name.startsWith(""));
    EXPECT_TRUE(name.endsWith(nullptr));
    EXPECT_TRUE(KcString().endsWith(""));
}

TEST(KcString, FormatAndQStringRoundTripUtf8)
{
    EXPECT_EQ(KcString::format("%3d. of %d.", 7, 12), "  7. of 12.");
    EXPECT_EQ(KcString::format("%s", ""), "");
    const std::string longText(5000, 'x');
    EXPECT_EQ(KcString::format("<%s>", longText.c_str()).size(), 5002u);

    // "Müller^Jürgen" in UTF-8 bytes.
    const KcString utf8("M\xc3\xbcller^J\xc3\xbcrgen");
    const QString q = utf8.toQString();
    EXPECT_EQ(q.size(), 13);
    EXPECT_EQ(q.at(1), QChar(0x00FC));
    EXPECT_EQ(KcString::fromQString(q), utf8);
}
