#include "vxdicom/params/CsaHeader.h"

#include "platform/core/VxMessage.h"
#include "platform/data/VxParamBundle.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <QByteArray>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;
using BundlePtr = std::unique_ptr<VxParamBundle>;

// --- headers made by hand ------------------------------------------------------

void putWord(Bytes &b, uint32_t v)
{
    for (int i = 0; i < 4; ++i)
        b.push_back(static_cast<unsigned char>(v >> (8 * i)));
}

void putText(Bytes &b, const std::string &s, size_t width)
{
    for (size_t i = 0; i < width; ++i)
        b.push_back(i < s.size() ? static_cast<unsigned char>(s[i]) : 0);
}

/// Writes CSA headers field by field, as the vendor lays them out.
struct CsaWriter
{
    Bytes bytes;

    static CsaWriter csa2(uint32_t nTags)
    {
        CsaWriter w;
        putText(w.bytes, "SV10", 4);
        putText(w.bytes, "\4\3\2\1", 4);
        putWord(w.bytes, nTags);
        putWord(w.bytes, 77);
        return w;
    }
    static CsaWriter csa1(uint32_t nTags)
    {
        CsaWriter w;
        putWord(w.bytes, nTags);
        putWord(w.bytes, 77);
        return w;
    }
    CsaWriter &tag(const std::string &name, uint32_t vm, const std::string &vr, uint32_t syngodt,
                   uint32_t nItems, uint32_t xx = 77)
    {
        putText(bytes, name, 64);
        putWord(bytes, vm);
        putText(bytes, vr, 4);
        putWord(bytes, syngodt);
        putWord(bytes, nItems);
        putWord(bytes, xx);
        return *this;
    }
    /// An item header and its data, padded to a multiple of 4.
    CsaWriter &item(const std::string &data, unsigned char marker = 'M', int64_t lengthWord = -1)
    {
        const uint32_t len =
            lengthWord < 0 ? static_cast<uint32_t>(data.size()) : static_cast<uint32_t>(lengthWord);
        putWord(bytes, len);
        putWord(bytes, len);
        putWord(bytes, marker);
        putWord(bytes, len);
        for (char c : data)
            bytes.push_back(static_cast<unsigned char>(c));
        while (bytes.size() % 4)
            bytes.push_back(0);
        return *this;
    }
    CsaWriter &raw(const std::string &data)
    {
        for (char c : data)
            bytes.push_back(static_cast<unsigned char>(c));
        return *this;
    }
};

BundlePtr decode2(const Bytes &b, const char *name = "CSAImageHeaderInfo")
{
    // An exact-size heap copy, so that AddressSanitizer sees any read past the value.
    auto *copy = static_cast<unsigned char *>(std::malloc(b.empty() ? 1 : b.size()));
    if (!b.empty())
        std::memcpy(copy, b.data(), b.size());
    BundlePtr r(decode_csa2(b.empty() ? nullptr : copy, static_cast<int>(b.size()), name));
    std::free(copy);
    return r;
}

BundlePtr decode1(const Bytes &b, const char *name = "CSASeriesHeaderInfo")
{
    auto *copy = static_cast<unsigned char *>(std::malloc(b.empty() ? 1 : b.size()));
    if (!b.empty())
        std::memcpy(copy, b.data(), b.size());
    BundlePtr r(decode_csa1(b.empty() ? nullptr : copy, static_cast<int>(b.size()), name));
    std::free(copy);
    return r;
}

std::vector<std::string> entryNames(const VxParamBundle &b)
{
    std::vector<std::string> names;
    for (int i = 0; i < b.size(); ++i)
        names.push_back(b.entry(i)->name());
    return names;
}

std::string value(const VxParamBundle &tag, const char *item)
{
    const VxParamBundle *values = tag.bundle("values");
    if (!values)
        return "<no values>";
    const VxParameter *p = values->parameter(item);
    return p ? p->stringValue() : std::string("<no ") + item + ">";
}

/// True when `part` is what a walk of a shorter value yields of `full`: the
/// same tags, except that the last may miss some of its trailing values. The
/// tags before the last two are only compared by name: they come from the
/// same bytes, and comparing all of them at every cut would only cost time.
::testing::AssertionResult isPrefixOf(const VxParamBundle &part, const VxParamBundle &full)
{
    if (part.size() > full.size())
        return ::testing::AssertionFailure()
               << part.size() << " tags, full header has " << full.size();
    for (int t = 0; t < part.size(); ++t) {
        const VxParamBundle *a = part.entry(t)->asBundle();
        const VxParamBundle *b = full.entry(t)->asBundle();
        if (!a || !b || a->name() != b->name())
            return ::testing::AssertionFailure() << "tag " << t << " differs";
        if (t < part.size() - 2)
            continue;
        const bool last = t == part.size() - 1;
        if (!last && a->dump() != b->dump())
            return ::testing::AssertionFailure() << "tag " << t << " " << a->name() << " differs";
        for (const char *field : {"vm", "vr", "syngodt", "nitems", "xx"})
            if (a->getString(field, "?") != b->getString(field, "!"))
                return ::testing::AssertionFailure() << "tag " << a->name() << " field " << field;
        if (const VxParamBundle *va = a->bundle("values")) {
            const VxParamBundle *vb = b->bundle("values");
            if (!vb || va->size() > vb->size())
                return ::testing::AssertionFailure() << "tag " << a->name() << " has extra values";
            for (int i = 0; i < va->size(); ++i)
                if (va->entry(i)->name() != vb->entry(i)->name() ||
                    va->getString(va->entry(i)->name().c_str()) !=
                        vb->getString(vb->entry(i)->name().c_str()))
                    return ::testing::AssertionFailure() << "tag " << a->name() << " value " << i;
        }
    }
    return ::testing::AssertionSuccess();
}

// --- the reference: nibabel's parser over pydicom's bytes ----------------------------

const char *const kRealFileDirs[] = {
    "dcm_qa_mosaic/In/ep2d_Asc_2",            // Prisma VD13 mosaic
    "dcm_qa_mosaic/In/ep2d_Asc_HF_10",        // the same, head-to-foot
    "dcm_qa/In/Orientation/sag/sagasc35",     // Trio sagittal
    "dcm_qa/In/Orientation/axmb/AxInt36mb",   // multiband, JPEG 2000
    "dcm_qa_decubitus/In/HFDR/2_t1_fl2d_sag", // XA (2022)
    "dcm_qa_sag/In/2_gre_field_mapping",      // XA field map
    "dcm_qa_12bit/In",                        // 12-bit
    "dcm_qa_ts/In",                           // the same header in 9 transfer syntaxes
};

const QJsonObject &reference()
{
    static QJsonObject ref;
    static bool loaded = false;
    if (loaded)
        return ref;
    loaded = true;
    std::string command = std::string(VX_PYTHON) + " " VX_PARAMS_TEST_DIR "/csa_reference.py";
    for (const char *dir : kRealFileDirs) {
        const auto files = vxtest::sharedDicomFiles(dir);
        if (!files.empty())
            command += " '" + files.front() + "'";
    }
    std::string out;
    if (vxtest::runCommand(command, &out) == 0)
        ref = QJsonDocument::fromJson(QByteArray::fromStdString(out)).object();
    return ref;
}

#define REQUIRE_REFERENCE()                                                                        \
    do {                                                                                           \
        VX_REQUIRE_SHARED_DATA();                                                                  \
        if (!vxtest::havePythonModules({"pydicom", "nibabel"}))                                    \
            GTEST_SKIP() << "pydicom and nibabel are needed for " VX_PYTHON;                       \
        ASSERT_FALSE(reference().isEmpty()) << "csa_reference.py gave no output";                  \
    } while (0)

Bytes rawBytes(const QJsonObject &header)
{
    const QByteArray raw = QByteArray::fromBase64(header["raw"].toString().toLatin1());
    return Bytes(raw.begin(), raw.end());
}

/// Compares one decoded tag with nibabel's: the five fields, and every item
/// nibabel reports (numbers compared as numbers, since nibabel converts them).
void expectTagMatches(const VxParamBundle &tag, const QJsonObject &ref, const std::string &where)
{
    SCOPED_TRACE(where + " tag " + ref["name"].toString().toStdString());
    EXPECT_EQ(tag.name(), ref["name"].toString().toStdString());
    EXPECT_EQ(tag.entry(0)->name(), "vm");
    EXPECT_EQ(tag.parameter("vm")->intValue(), ref["vm"].toInt());
    EXPECT_EQ(tag.parameter("vr")->stringValue(), ref["vr"].toString().toStdString());
    EXPECT_EQ(tag.parameter("syngodt")->intValue(), ref["syngodt"].toInt());
    EXPECT_EQ(tag.parameter("nitems")->intValue(), ref["nitems"].toInt());
    EXPECT_EQ(tag.parameter("xx")->intValue(), ref["xx"].toInt());
    EXPECT_EQ(entryNames(tag).size(), tag.bundle("values") ? 6u : 5u) << "five fields, then values";

    const QJsonArray items = ref["items"].toArray();
    int expectedValues = 0;
    for (int j = 0; j < items.size(); ++j) {
        char key[16];
        std::snprintf(key, sizeof key, "%04d", j);
        const QJsonValue item = items[j];
        if (item.isString()) {
            if (item.toString().isEmpty()) {
                EXPECT_EQ(value(tag, key).substr(0, 3), "<no") << "empty item " << key << " read";
                continue;
            }
            EXPECT_EQ(value(tag, key), item.toString().toStdString()) << key;
        } else {
            const QString ours = QString::fromStdString(value(tag, key)).trimmed();
            bool ok = false;
            const double got = ours.toDouble(&ok);
            EXPECT_TRUE(ok) << key << " '" << ours.toStdString() << "'";
            EXPECT_EQ(got, item.toDouble()) << key;
        }
        ++expectedValues;
    }
    const VxParamBundle *values = tag.bundle("values");
    EXPECT_EQ(values ? values->size() : 0, expectedValues);
}

} // namespace

// --- real headers ---------------------------------------------------------------

TEST(CsaRealHeaders, ImageHeadersMatchNibabelTagForTag)
{
    REQUIRE_REFERENCE();
    int checked = 0;
    for (auto it = reference().begin(); it != reference().end(); ++it) {
        const QJsonObject header = it.value().toObject()["image"].toObject();
        ASSERT_FALSE(header.isEmpty()) << it.key().toStdString();
        const QJsonArray tags = header["tags"].toArray();
        ASSERT_EQ(header["exact_tags"].toInt(), tags.size())
            << "image headers have no item longer than 255 bytes";

        const BundlePtr csa = decode2(rawBytes(header));
        ASSERT_TRUE(csa);
        EXPECT_EQ(csa->name(), "CSAImageHeaderInfo");
        ASSERT_EQ(csa->size(), tags.size()) << it.key().toStdString();
        for (int t = 0; t < tags.size(); ++t) {
            const VxParamBundle *tag = csa->entry(t)->asBundle();
            ASSERT_TRUE(tag);
            expectTagMatches(*tag, tags[t].toObject(), it.key().toStdString());
        }
        ++checked;
    }
    EXPECT_GE(checked, 6);
}

TEST(CsaRealHeaders, SeriesHeadersMatchNibabelUpToTheFirstItemLongerThan255Bytes)
{
    REQUIRE_REFERENCE();
    for (auto it = reference().begin(); it != reference().end(); ++it) {
        const QJsonObject header = it.value().toObject()["series"].toObject();
        ASSERT_FALSE(header.isEmpty()) << it.key().toStdString();
        const QJsonArray tags = header["tags"].toArray();
        const int exact = header["exact_tags"].toInt();

        const BundlePtr csa = decode2(rawBytes(header), "CSASeriesHeaderInfo");
        ASSERT_TRUE(csa);
        EXPECT_EQ(csa->name(), "CSASeriesHeaderInfo");
        ASSERT_GT(csa->size(), exact);
        for (int t = 0; t < exact; ++t)
            expectTagMatches(*csa->entry(t)->asBundle(), tags[t].toObject(),
                             it.key().toStdString());

        // The long item (MrPhoenixProtocol in these files): only the low byte of
        // its length is read, so its value is the text's first (length mod 256)
        // characters, and the walk goes on inside the text.
        ASSERT_TRUE(header.contains("long_item")) << "every series header here holds the protocol";
        const QJsonObject longItem = header["long_item"].toObject();
        const QJsonObject refTag = tags[exact].toObject();
        const VxParamBundle *tag = csa->entry(exact)->asBundle();
        ASSERT_TRUE(tag);
        EXPECT_EQ(tag->name(), refTag["name"].toString().toStdString());
        ASSERT_EQ(longItem["item"].toInt(), 0);
        const int lowByte = longItem["length"].toInt() % 256;
        ASSERT_GT(lowByte, 0);
        const std::string text = refTag["items"].toArray()[0].toString().toStdString();
        EXPECT_EQ(value(*tag, "0000"), text.substr(0, static_cast<size_t>(lowByte)))
            << it.key().toStdString();
    }
}

TEST(CsaRealHeaders, EveryTruncationOfARealHeaderYieldsAPrefixAndStaysInside)
{
    REQUIRE_REFERENCE();
    const QJsonObject file = reference().begin().value().toObject();
    const Bytes image = rawBytes(file["image"].toObject());
    const BundlePtr full = decode2(image);
    ASSERT_TRUE(full);
    for (size_t k = 0; k <= image.size(); ++k) {
        const BundlePtr part = decode2(Bytes(image.begin(), image.begin() + static_cast<long>(k)));
        ASSERT_TRUE(part) << "cut at " << k;
        ASSERT_TRUE(isPrefixOf(*part, *full)) << "cut at " << k;
    }
    // The series header is large: every byte of its first 6000, where tags,
    // items and the long protocol item begin.
    const Bytes series = rawBytes(file["series"].toObject());
    const BundlePtr fullSeries = decode2(series);
    ASSERT_TRUE(fullSeries);
    for (size_t k = 0; k <= series.size(); k += (k < 6000 ? 1 : 397)) {
        const BundlePtr part =
            decode2(Bytes(series.begin(), series.begin() + static_cast<long>(k)));
        ASSERT_TRUE(part) << "cut at " << k;
        ASSERT_TRUE(isPrefixOf(*part, *fullSeries)) << "cut at " << k;
    }
}

// --- the layout, on headers made here ----------------------------------------------

TEST(CsaLayout, NoTagsGiveAnEmptyBundleWithTheCallersName)
{
    const BundlePtr csa = decode2(CsaWriter::csa2(0).bytes, "CSASeriesHeaderInfo");
    ASSERT_TRUE(csa);
    EXPECT_EQ(csa->name(), "CSASeriesHeaderInfo");
    EXPECT_EQ(csa->size(), 0);
}

TEST(CsaLayout, TagWithoutItemsHasItsFiveParametersInOrderAndNoValues)
{
    const BundlePtr csa =
        decode2(CsaWriter::csa2(1).tag("UsedChannelMask", 1, "UL", 9, 0, 205).bytes);
    ASSERT_TRUE(csa);
    ASSERT_EQ(csa->size(), 1);
    const VxParamBundle *tag = csa->bundle("UsedChannelMask");
    ASSERT_TRUE(tag);
    EXPECT_EQ(entryNames(*tag), (std::vector<std::string>{"vm", "vr", "syngodt", "nitems", "xx"}));
    EXPECT_EQ(tag->parameter("vm")->intValue(), 1);
    EXPECT_EQ(tag->parameter("vm")->type(), VxParameter::Int);
    EXPECT_EQ(tag->parameter("vr")->stringValue(), "UL");
    EXPECT_EQ(tag->parameter("vr")->type(), VxParameter::String);
    EXPECT_EQ(tag->parameter("syngodt")->intValue(), 9);
    EXPECT_EQ(tag->parameter("nitems")->intValue(), 0);
    EXPECT_EQ(tag->parameter("xx")->intValue(), 205);
}

TEST(CsaLayout, ItemsOfLengthZeroAreNotValues)
{
    const BundlePtr csa = decode2(CsaWriter::csa2(2)
                                      .tag("A", 1, "IS", 6, 3)
                                      .item("")
                                      .item("")
                                      .item("")
                                      .tag("B", 1, "DS", 3, 1)
                                      .item("1.5")
                                      .bytes);
    ASSERT_TRUE(csa);
    ASSERT_EQ(csa->size(), 2);
    EXPECT_EQ(csa->bundle("A")->bundle("values"), nullptr);
    EXPECT_EQ(value(*csa->bundle("B"), "0000"), "1.5")
        << "the walk stays aligned after empty items";
}

TEST(CsaLayout, ItemOfLengthFiveAdvancesTheWalkBy24Bytes)
{
    const BundlePtr csa = decode2(CsaWriter::csa2(2)
                                      .tag("A", 2, "LO", 19, 2)
                                      .item("hello")
                                      .item("hi")
                                      .tag("B", 1, "IS", 6, 1)
                                      .item("7")
                                      .bytes);
    ASSERT_TRUE(csa);
    const VxParamBundle *a = csa->bundle("A");
    ASSERT_TRUE(a);
    EXPECT_EQ(entryNames(*a->bundle("values")), (std::vector<std::string>{"0000", "0001"}));
    EXPECT_EQ(value(*a, "0000"), "hello");
    EXPECT_EQ(value(*a, "0001"), "hi");
    ASSERT_TRUE(csa->bundle("B"));
    EXPECT_EQ(value(*csa->bundle("B"), "0000"), "7");
}

TEST(CsaLayout, ItemWithAnotherMarkerSkipsItsHeaderOnly)
{
    // Item 0 carries marker 'X' and 20 bytes of data; those 20 bytes are
    // themselves an item header (marker 'M', length 3) and "abc" + padding.
    CsaWriter inner;
    inner.item("abc", 'M');
    ASSERT_EQ(inner.bytes.size(), 20u);
    const std::string innerText(inner.bytes.begin(), inner.bytes.end());
    const BundlePtr csa = decode2(CsaWriter::csa2(2)
                                      .tag("A", 0, "ST", 22, 2)
                                      .item(innerText, 'X')
                                      .tag("B", 1, "IS", 6, 1)
                                      .item("42", 0xCD)
                                      .bytes);
    ASSERT_TRUE(csa);
    ASSERT_EQ(csa->size(), 2);
    const VxParamBundle *a = csa->bundle("A");
    ASSERT_TRUE(a && a->bundle("values") && csa->bundle("B"));
    EXPECT_EQ(entryNames(*a->bundle("values")), std::vector<std::string>{"0001"})
        << "the skipped item keeps its index: the names have a gap";
    EXPECT_EQ(value(*a, "0001"), "abc") << "item 1 is read from item 0's data";
    EXPECT_EQ(value(*csa->bundle("B"), "0000"), "42") << "0xCD is the other accepted marker";
}

TEST(CsaLayout, OnlyTheLowByteOfCountsAndLengthsIsRead)
{
    // n = 0x101 reads 1; nitems = 0x102 reads 2; length 0x103 reads 3.
    const BundlePtr csa = decode2(CsaWriter::csa2(0x101)
                                      .tag("Wide", 0x201, "IS", 0x306, 0x102, 0x4CD)
                                      .item("abc", 'M', 0x103)
                                      .item("de")
                                      .bytes);
    ASSERT_TRUE(csa);
    ASSERT_EQ(csa->size(), 1);
    const VxParamBundle *tag = csa->bundle("Wide");
    EXPECT_EQ(tag->parameter("vm")->intValue(), 1);
    EXPECT_EQ(tag->parameter("syngodt")->intValue(), 6);
    EXPECT_EQ(tag->parameter("nitems")->intValue(), 2);
    EXPECT_EQ(tag->parameter("xx")->intValue(), 0xCD);
    EXPECT_EQ(value(*tag, "0000"), "abc");
    EXPECT_EQ(value(*tag, "0001"), "de");
}

TEST(CsaLayout, TextsEndAtTheirFirstNul)
{
    const BundlePtr csa = decode2(CsaWriter::csa2(1)
                                      .tag(std::string(64, 'N'), 1, "ABCD", 1, 1)
                                      .item(std::string("ab\0cd", 5))
                                      .bytes);
    ASSERT_TRUE(csa);
    const VxParamBundle *tag = csa->entry(0)->asBundle();
    EXPECT_EQ(tag->name(), std::string(64, 'N')) << "a name of 64 characters has no NUL";
    EXPECT_EQ(tag->parameter("vr")->stringValue(), "ABCD") << "a VR of 4 characters has no NUL";
    EXPECT_EQ(value(*tag, "0000"), "ab");
}

// --- hostile headers ------------------------------------------------------------

TEST(CsaHostile, MoreThan128TagsIsAnErrorWithAMessage)
{
    for (uint32_t n : {129u, 200u, 255u}) {
        VxMessageCapture console;
        EXPECT_EQ(decode2(CsaWriter::csa2(n).bytes), nullptr) << n;
        EXPECT_TRUE(console.contains("Error: n not between 0 and 128")) << n;
        console.clear();
        EXPECT_EQ(decode1(CsaWriter::csa1(n).bytes), nullptr) << n;
        EXPECT_TRUE(console.contains("Error: n not between 0 and 128")) << n;
    }
    VxMessageCapture console;
    const BundlePtr csa = decode2(CsaWriter::csa2(128).bytes);
    ASSERT_TRUE(csa) << "128 is allowed";
    EXPECT_EQ(csa->size(), 0) << "no tag fits in the value";
    EXPECT_EQ(console.text(), "");
}

TEST(CsaHostile, CountsPastTheEndYieldWhatFits)
{
    // 255 items declared, two present.
    const BundlePtr csa =
        decode2(CsaWriter::csa2(3).tag("A", 1, "IS", 6, 255).item("1").item("2").bytes);
    ASSERT_TRUE(csa);
    ASSERT_EQ(csa->size(), 1) << "the other two tags are not in the value";
    EXPECT_EQ(csa->bundle("A")->parameter("nitems")->intValue(), 255);
    EXPECT_EQ(entryNames(*csa->bundle("A")->bundle("values")),
              (std::vector<std::string>{"0000", "0001"}));
}

TEST(CsaHostile, ItemLengthPastTheEndIsNotRead)
{
    // Length 200 declared, 8 bytes left.
    CsaWriter w =
        CsaWriter::csa2(2).tag("A", 1, "LO", 19, 2).item("ok").item("", 'M', 200).raw("12345678");
    const BundlePtr csa = decode2(w.bytes);
    ASSERT_TRUE(csa);
    ASSERT_EQ(csa->size(), 1);
    EXPECT_EQ(entryNames(*csa->bundle("A")->bundle("values")), std::vector<std::string>{"0000"});
}

TEST(CsaHostile, ShortValuesAndNullData)
{
    const Bytes header = CsaWriter::csa2(1).bytes;
    for (size_t k = 0; k < 16; ++k) {
        const Bytes b(header.begin(), header.begin() + static_cast<long>(k));
        const BundlePtr csa = decode2(b);
        ASSERT_TRUE(csa) << k;
        EXPECT_EQ(csa->size(), 0) << k;
    }
    BundlePtr none(decode_csa2(nullptr, 1000, "X"));
    ASSERT_TRUE(none);
    EXPECT_EQ(none->size(), 0);
    BundlePtr negative(decode_csa2(header.data(), -5, "X"));
    ASSERT_TRUE(negative);
    EXPECT_EQ(negative->size(), 0);
    BundlePtr none1(decode_csa1(nullptr, 1000, "X"));
    ASSERT_TRUE(none1);
}

TEST(CsaHostile, RandomBytesNeverLeaveTheValue)
{
    // Random headers with small counts so that the walk goes deep.
    VxMessageCapture console;
    std::mt19937 rng(20240607);
    for (int round = 0; round < 3000; ++round) {
        Bytes b(static_cast<size_t>(rng() % 700));
        for (auto &c : b)
            c = static_cast<unsigned char>(rng() % 4 == 0 ? 'M' : rng() % 8);
        if (b.size() >= 4)
            std::memcpy(b.data(), "SV10", 4);
        if (b.size() > 8)
            b[8] = static_cast<unsigned char>(rng() % 140);
        const BundlePtr two = decode2(b);
        if (b.size() > 8 && b[8] > 128) {
            EXPECT_EQ(two, nullptr);
        }
        const BundlePtr one = decode1(b);
        if (!b.empty() && b[0] <= 128) {
            EXPECT_TRUE(one && one->size() == 0);
        }
    }
}

// --- the older layout -------------------------------------------------------------

TEST(Csa1, WalksItsItemsAndKeepsNothing)
{
    const BundlePtr csa = decode1(CsaWriter::csa1(2)
                                      .tag("A", 1, "IS", 6, 2)
                                      .item("12")
                                      .item("hello")
                                      .tag("B", 1, "DS", 3, 1)
                                      .item("1.5")
                                      .bytes);
    ASSERT_TRUE(csa);
    EXPECT_EQ(csa->name(), "CSASeriesHeaderInfo");
    EXPECT_EQ(csa->size(), 0);
}

TEST(Csa1, EveryTruncationStaysInside)
{
    const Bytes full = CsaWriter::csa1(3)
                           .tag("A", 1, "IS", 6, 2)
                           .item("12")
                           .item("hello")
                           .tag("B", 1, "DS", 3, 255)
                           .item("1.5")
                           .tag("C", 1, "LO", 19, 1)
                           .item("", 'M', 250)
                           .bytes;
    for (size_t k = 0; k <= full.size(); ++k) {
        const BundlePtr csa = decode1(Bytes(full.begin(), full.begin() + static_cast<long>(k)));
        ASSERT_TRUE(csa) << k;
        EXPECT_EQ(csa->size(), 0) << k;
    }
}
