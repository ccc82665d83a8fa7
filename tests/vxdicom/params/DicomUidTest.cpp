// Generated UIDs: the root, the hashes they are built from, their layout, the
// 64-character cut and uniqueness.

#include "vxdicom/params/DicomUid.h"

#include <gtest/gtest.h>

#include <QDate>
#include <QRegularExpression>
#include <QSet>
#include <QTime>

#include <climits>
#include <random>

namespace {

// UI syntax: digits and dots, at most 64 characters, no empty component;
// strict: no leading zero except in the component "0".
bool isUid(const QString &uid, bool strict = false)
{
    static const QRegularExpression loose(QRegularExpression::anchoredPattern("\\d+(\\.\\d+)*"));
    static const QRegularExpression exact(
        QRegularExpression::anchoredPattern("(0|[1-9]\\d*)(\\.(0|[1-9]\\d*))*"));
    return uid.size() <= 64 && (strict ? exact : loose).match(uid).hasMatch();
}

// Root, the numbers given (negative ones left out), date, time of day in two
// fixed-width groups and two more numbers; cut at 64 characters, never ending in a dot.
TEST(UidGeneration, RootHashesLayoutCutAndUniqueness)
{
    const QString root = QString::fromLatin1(creatorUID);
    EXPECT_TRUE(root.size() == 17 && root.startsWith("2.25.") && isUid(root, true));
    // FNV-1a 32-bit reference vectors, MurmurHash3 fmix32.
    for (auto [text, hash] : {std::pair<const char *, uint32_t>{"", 0x811c9dc5u},
                              {nullptr, 0x811c9dc5u},
                              {"a", 0xe40c292cu},
                              {"foobar", 0xbf9cf968u}})
        EXPECT_EQ(dicomStringHash(text), hash) << (text ? text : "null");
    for (auto [v, hash] : {std::pair{0, 0u}, {1, 0x514e28b7u}, {-1, 0x81f16f39u}})
        EXPECT_EQ(dicomIntHash(v), hash) << v;

    const QString day = QDate::currentDate().toString("yyyyMMdd"),
                  uid = generateSOPInstanceUID(-1, -1);
    ASSERT_TRUE(isUid(uid) && uid.startsWith(root + ".")) << uid.toStdString();
    const QStringList parts = uid.mid(root.size() + 1).split('.');
    ASSERT_EQ(parts.size(), 5) << uid.toStdString();
    EXPECT_TRUE(parts[0] == day || parts[0] == QDate::currentDate().toString("yyyyMMdd"));
    const QTime t = QTime::fromString(parts[1] + parts[2], "hhmmsszzz");
    ASSERT_TRUE(t.isValid()) << uid.toStdString();
    const int apart = std::abs(t.msecsTo(QTime::currentTime()));
    EXPECT_TRUE(apart < 5000 || apart > 86400000 - 5000) << uid.toStdString();
    bool ok3 = false, ok4 = false;
    parts[3].toUInt(&ok3), parts[4].toUInt(&ok4);
    EXPECT_TRUE(ok3 && ok4) << "two unsigned 32-bit numbers: " << uid.toStdString();
    EXPECT_TRUE(generateSOPInstanceUID(7, 12).startsWith(root + ".7.12."));
    EXPECT_TRUE(generateSOPInstanceUID(0, 0).startsWith(root + ".0.0."));
    for (const QString &one : {generateSOPInstanceUID(5, -1), generateSOPInstanceUID(-3, 5)}) {
        EXPECT_TRUE(one.startsWith(root + ".5.")) << one.toStdString();
        EXPECT_EQ(one.count('.'), root.count('.') + 6);
    }
    const QString longest = generateSOPInstanceUID(INT_MAX, INT_MAX);
    EXPECT_EQ(longest.size(), 64);
    EXPECT_TRUE(longest.startsWith(root + ".2147483647.2147483647."));
    // Numbers of every width move the cut across every position, dots included.
    std::mt19937 rng(7);
    auto number = [&rng] { return rng() % 11 == 0 ? -1 : int(rng() >> (rng() % 31 + 1)); };
    int cut = 0;
    for (int i = 0; i < 3000; ++i) {
        const int first = number(), second = number();
        const QString u = generateSOPInstanceUID(first, second);
        ASSERT_TRUE(isUid(u)) << first << " " << second << ": " << u.toStdString();
        cut += u.size() == 64;
    }
    EXPECT_GT(cut, 100) << "the loop must reach the 64-character limit";
    QSet<QString> seen;
    for (int k = 0; k < 500; ++k)
        seen.insert(generateSOPInstanceUID(4711, k));
    EXPECT_EQ(seen.size(), 500);
}

} // namespace
