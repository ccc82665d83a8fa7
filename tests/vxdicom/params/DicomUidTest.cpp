#include "vxdicom/params/DicomUid.h"

#include <gtest/gtest.h>

#include <QDate>
#include <QRegularExpression>
#include <QSet>
#include <QStringList>
#include <QTime>

#include <climits>
#include <cstdlib>
#include <random>

namespace {

/// UI syntax: digits and dots, at most 64 characters, no empty component. The
/// clock's components keep their fixed widths, so leading zeros are allowed
/// here; the root alone is checked for the strict form (isStrictUid).
::testing::AssertionResult isValidUid(const QString &uid)
{
    static const QRegularExpression syntax(
        QRegularExpression::anchoredPattern("[0-9]+(\\.[0-9]+)*"));
    if (uid.size() > 64)
        return ::testing::AssertionFailure()
               << uid.toStdString() << " has " << uid.size() << " characters";
    if (!syntax.match(uid).hasMatch())
        return ::testing::AssertionFailure() << uid.toStdString() << " is not UID syntax";
    return ::testing::AssertionSuccess();
}

/// PS3.5 section 9.1: no leading zero except in the component "0".
bool isStrictUid(const QString &uid)
{
    static const QRegularExpression syntax(
        QRegularExpression::anchoredPattern("(0|[1-9][0-9]*)(\\.(0|[1-9][0-9]*))*"));
    return uid.size() <= 64 && syntax.match(uid).hasMatch();
}

} // namespace

TEST(UidRoot, IsSeventeenCharactersOfValidUidUnderThe225Arc)
{
    const QString root = QString::fromLatin1(creatorUID);
    EXPECT_EQ(root.size(), 17);
    EXPECT_TRUE(root.startsWith("2.25."));
    EXPECT_TRUE(isStrictUid(root));
}

TEST(UidHashes, MatchPublishedVectors)
{
    // FNV-1a 32-bit test vectors (Fowler, Noll, Vo reference code).
    EXPECT_EQ(dicomStringHash(""), 0x811c9dc5u);
    EXPECT_EQ(dicomStringHash(nullptr), 0x811c9dc5u);
    EXPECT_EQ(dicomStringHash("a"), 0xe40c292cu);
    EXPECT_EQ(dicomStringHash("foobar"), 0xbf9cf968u);
    // MurmurHash3 fmix32.
    EXPECT_EQ(dicomIntHash(0), 0u);
    EXPECT_EQ(dicomIntHash(1), 0x514e28b7u);
    EXPECT_EQ(dicomIntHash(-1), 0x81f16f39u);
}

TEST(UidGeneration, WithoutNumbersGivesRootDateTwoTimeGroupsAndTwoNumbers)
{
    const QDate dayBefore = QDate::currentDate();
    const QString uid = generateSOPInstanceUID(-1, -1);
    const QDate dayAfter = QDate::currentDate();
    ASSERT_TRUE(isValidUid(uid));
    ASSERT_TRUE(uid.startsWith(QString::fromLatin1(creatorUID) + "."));

    const QStringList parts = uid.mid(qsizetype(std::strlen(creatorUID)) + 1).split('.');
    ASSERT_EQ(parts.size(), 5) << uid.toStdString();

    // Date: yyyymmdd as a number.
    EXPECT_TRUE(parts[0] == dayBefore.toString("yyyyMMdd") ||
                parts[0] == dayAfter.toString("yyyyMMdd"))
        << parts[0].toStdString();

    // Time: hhmmss and milliseconds with their leading zeros (6 and 3 digits).
    EXPECT_EQ(parts[1].size(), 6) << uid.toStdString();
    EXPECT_EQ(parts[2].size(), 3) << uid.toStdString();
    const int hms = parts[1].toInt();
    const QTime t(hms / 10000, hms / 100 % 100, hms % 100, parts[2].toInt());
    ASSERT_TRUE(t.isValid()) << uid.toStdString();
    const int apart = std::abs(t.msecsTo(QTime::currentTime()));
    EXPECT_TRUE(apart < 5000 || apart > 86400000 - 5000) << uid.toStdString();

    // The sixth group is the millisecond plus the hash of all text before it.
    const QString before = uid.left(uid.size() - parts[3].size() - parts[4].size() - 1);
    ASSERT_TRUE(before.endsWith('.'));
    bool ok = false;
    const unsigned sum = parts[3].toUInt(&ok);
    ASSERT_TRUE(ok) << "an unsigned 32-bit number: " << parts[3].toStdString();
    EXPECT_LE(sum - dicomStringHash(before.toLatin1().constData()), 999u);
    parts[4].toUInt(&ok);
    EXPECT_TRUE(ok) << "an unsigned 32-bit number: " << parts[4].toStdString();
}

TEST(UidGeneration, NumbersFollowTheRootAndNegativeOnesAreLeftOut)
{
    const QString root = QString::fromLatin1(creatorUID);
    EXPECT_TRUE(generateSOPInstanceUID(7, 12).startsWith(root + ".7.12."));
    EXPECT_TRUE(generateSOPInstanceUID(0, 0).startsWith(root + ".0.0."));
    const QString onlyFirst = generateSOPInstanceUID(5, -1);
    EXPECT_TRUE(onlyFirst.startsWith(root + ".5."));
    EXPECT_EQ(onlyFirst.count('.'), root.count('.') + 6);
    const QString onlySecond = generateSOPInstanceUID(-3, 9);
    EXPECT_TRUE(onlySecond.startsWith(root + ".9."));
    EXPECT_EQ(onlySecond.count('.'), root.count('.') + 6);
}

TEST(UidGeneration, LongResultsAreCutAt64AndNeverEndInADot)
{
    const QString uid = generateSOPInstanceUID(INT_MAX, INT_MAX);
    EXPECT_EQ(uid.size(), 64) << uid.toStdString();
    EXPECT_TRUE(uid.startsWith(QString::fromLatin1(creatorUID) + ".2147483647.2147483647."));
    EXPECT_TRUE(isValidUid(uid));

    // Numbers of every width move the cut across every position of the
    // date, time and hash groups, dots included.
    std::mt19937 rng(7);
    int cut = 0;
    for (int i = 0; i < 3000; ++i) {
        const int first =
            static_cast<int>(rng() % 11) == 0 ? -1 : static_cast<int>(rng() >> (rng() % 31 + 1));
        const int second =
            static_cast<int>(rng() % 11) == 0 ? -1 : static_cast<int>(rng() >> (rng() % 31 + 1));
        const QString u = generateSOPInstanceUID(first, second);
        ASSERT_TRUE(isValidUid(u)) << first << " " << second;
        cut += u.size() < 64 ? 0 : 1;
    }
    EXPECT_GT(cut, 100) << "the loop must reach the 64-character limit";
}

TEST(UidGeneration, VaryingTheNumbersGivesDistinctUids)
{
    QSet<QString> seen;
    for (int k = 0; k < 500; ++k)
        seen.insert(generateSOPInstanceUID(4711, k));
    EXPECT_EQ(seen.size(), 500);
}
