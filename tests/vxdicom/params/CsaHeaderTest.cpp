// Siemens CSA headers: real ones against nibabel's parser, and hostile bytes (exact-size copies).

#include "vxdicom/params/CsaHeader.h"

#include "platform/core/VxMessage.h"
#include "platform/data/VxParamBundle.h"
#include "tests/support/TestSupport.h"

#include <QByteArray>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <cstring>
#include <random>

namespace {

using Bytes = std::vector<unsigned char>;
using BundlePtr = std::unique_ptr<VxParamBundle>;
using Names = std::vector<std::string>;

/// Writes CSA headers field by field, as the vendor lays them out.
struct Csa
{
    Bytes bytes;
    Csa &text(std::string s, size_t width)
    {
        s.resize(width, '\0');
        bytes.insert(bytes.end(), s.begin(), s.end());
        return *this;
    }
    Csa &word(uint32_t v) { return text({char(v), char(v >> 8), char(v >> 16), char(v >> 24)}, 4); }
    static Csa csa2(int n) { return Csa().text("SV10", 4).text("\4\3\2\1", 4).word(n).word(77); }
    Csa &tag(const std::string &name, uint32_t vm, const std::string &vr, uint32_t syngodt,
             uint32_t nItems, std::vector<std::string> items = {}, uint32_t xx = 77)
    {
        text(name, 64).word(vm).text(vr, 4).word(syngodt).word(nItems).word(xx);
        for (const std::string &data : items)
            item(data);
        return *this;
    }
    Csa &item(const std::string &data, int64_t length = -1)
    {
        const uint32_t n = length < 0 ? uint32_t(data.size()) : uint32_t(length);
        word(n).word(n).word('M').word(n).text(data, data.size());
        return text("", (4 - bytes.size() % 4) % 4);
    }
};

BundlePtr decode(const Bytes &b, bool csa1 = false, const char *name = "CSAImageHeaderInfo")
{
    const std::unique_ptr<unsigned char[]> copy(new unsigned char[b.empty() ? 1 : b.size()]);
    std::copy(b.begin(), b.end(), copy.get());
    return BundlePtr(csa1 ? decode_csa1(copy.get(), int(b.size()), name)
                          : decode_csa2(b.empty() ? nullptr : copy.get(), int(b.size()), name));
}

Names entryNames(const VxParamBundle *b)
{
    Names names;
    for (int i = 0; b && i < b->size(); ++i)
        names.push_back(b->entry(i)->name());
    return names;
}

std::string value(const VxParamBundle *tag, const char *item)
{
    const VxParamBundle *values = tag ? tag->bundle("values") : nullptr;
    const VxParameter *p = values ? values->parameter(item) : nullptr;
    return p ? p->stringValue() : std::string("<no ") + item + ">";
}

/// One decoded tag against nibabel's: the five fields, then every item (numbers as numbers).
void expectTagMatches(const VxParamBundle *tag, const QJsonObject &ref)
{
    ASSERT_TRUE(tag);
    SCOPED_TRACE(ref["name"].toString().toStdString());
    EXPECT_EQ(tag->name(), ref["name"].toString().toStdString());
    Names fields = {"vm", "vr", "syngodt", "nitems", "xx", "values"};
    EXPECT_EQ(entryNames(tag), Names(fields.begin(), fields.end() - !tag->bundle("values")));
    for (const char *field : {"vm", "vr", "syngodt", "nitems", "xx"})
        EXPECT_EQ(tag->parameter(field)->stringValue(),
                  ref[field].toVariant().toString().toStdString())
            << field;
    const QJsonArray items = ref["items"].toArray();
    int values = 0;
    for (int j = 0; j < items.size(); ++j) {
        char key[16];
        std::snprintf(key, sizeof key, "%04d", j);
        const std::string got = value(tag, key), want = items[j].toString().toStdString();
        values += !items[j].isString() || !want.empty(); // empty items are not values
        if (items[j].isString()) {
            EXPECT_EQ(want.empty() ? got.substr(0, 3) : got, want.empty() ? "<no" : want) << key;
        } else {
            EXPECT_EQ(QString::fromStdString(got).trimmed().toDouble(), items[j].toDouble()) << key;
        }
    }
    EXPECT_EQ(int(entryNames(tag->bundle("values")).size()), values);
}

// Headers match tag for tag (up to an item past 255 bytes); every cut yields the leading tags.
TEST(CsaRealHeaders, HeadersMatchNibabelAndTheirCutsYieldAPrefix)
{
    VX_REQUIRE_SHARED_DATA();
    VX_REQUIRE(vxtest::havePythonModules({"pydicom", "nibabel"}), "pydicom and nibabel");
    std::vector<std::string> firstFiles;
    for (const char *dir :
         {"dcm_qa_mosaic/In/ep2d_Asc_2", "dcm_qa_mosaic/In/ep2d_Asc_HF_10",
          "dcm_qa/In/Orientation/sag/sagasc35", "dcm_qa/In/Orientation/axmb/AxInt36mb",
          "dcm_qa_decubitus/In/HFDR/2_t1_fl2d_sag", "dcm_qa_sag/In/2_gre_field_mapping",
          "dcm_qa_12bit/In", "dcm_qa_ts/In"})
        if (const auto files = vxtest::sharedDicomFiles(dir); !files.empty())
            firstFiles.push_back(files.front());
    const QJsonObject reference =
        vxtest::pythonJson(VX_TEST_DIR "/csa_reference.py", firstFiles).object();
    const auto rawBytes = [](const QJsonObject &header) {
        const QByteArray raw = QByteArray::fromBase64(header["raw"].toString().toLatin1());
        return Bytes(raw.begin(), raw.end());
    };
    EXPECT_GE(reference.size(), 6);
    for (auto it = reference.begin(); it != reference.end(); ++it) {
        SCOPED_TRACE(it.key().toStdString());
        const QJsonObject image = it.value().toObject()["image"].toObject(),
                          series = it.value().toObject()["series"].toObject();
        const QJsonArray imageTags = image["tags"].toArray(), seriesTags = series["tags"].toArray();
        ASSERT_EQ(image["exact_tags"].toInt(), imageTags.size()) << "no item longer than 255 bytes";
        const BundlePtr csa = decode(rawBytes(image));
        ASSERT_TRUE(csa && csa->name() == "CSAImageHeaderInfo");
        ASSERT_EQ(csa->size(), imageTags.size());
        for (int t = 0; t < imageTags.size(); ++t)
            expectTagMatches(csa->entry(t)->asBundle(), imageTags[t].toObject());
        const int exact = series["exact_tags"].toInt();
        const BundlePtr s = decode(rawBytes(series), false, "CSASeriesHeaderInfo");
        ASSERT_TRUE(s && s->name() == "CSASeriesHeaderInfo");
        ASSERT_GT(s->size(), exact);
        for (int t = 0; t < exact; ++t)
            expectTagMatches(s->entry(t)->asBundle(), seriesTags[t].toObject());
        ASSERT_EQ(series["long_item"]["item"].toInt(-1), 0) << "every one holds the protocol";
        const int lowByte = series["long_item"]["length"].toInt() % 256;
        const VxParamBundle *tag = s->entry(exact)->asBundle();
        ASSERT_TRUE(tag && lowByte > 0);
        EXPECT_EQ(tag->name(), seriesTags[exact]["name"].toString().toStdString());
        EXPECT_EQ(value(tag, "0000"), seriesTags[exact]["items"][0].toString().toStdString().substr(
                                          0, size_t(lowByte)));
    }
    for (const char *kind : {"image", "series"}) {
        const Bytes header = rawBytes(reference.begin().value().toObject()[kind].toObject());
        const BundlePtr full = decode(header);
        const Names all = entryNames(full.get());
        for (size_t k = 0; k <= header.size(); k += (k < 6000 ? 1 : 397)) {
            const BundlePtr part = decode(Bytes(header.begin(), header.begin() + long(k)));
            const Names names = entryNames(part.get());
            ASSERT_TRUE(part && names.size() <= all.size() &&
                        std::equal(names.begin(), names.end(), all.begin()))
                << kind << " cut at " << k;
            const int t = part->size() - 2;
            ASSERT_TRUE(t < 0 ||
                        part->entry(t)->asBundle()->dump() == full->entry(t)->asBundle()->dump())
                << kind << " cut at " << k;
        }
    }
}

// Both layouts: over 128 tags is an error; counts and lengths past the end yield what fits.
TEST(CsaHostile, CountsAndLengthsPastTheEndAndRandomBytesStayInside)
{
    for (const auto &[n, csa1] : {std::pair{129u, false}, {255u, true}}) {
        VxMessageCapture console;
        EXPECT_EQ(decode((csa1 ? Csa().word(n).word(77) : Csa::csa2(n)).bytes, csa1), nullptr) << n;
        EXPECT_TRUE(console.contains("Error: n not between 0 and 128")) << n;
    }
    EXPECT_EQ(decode(Csa::csa2(128).bytes)->size(), 0) << "128 is allowed";
    BundlePtr csa = decode(Csa::csa2(3).tag("A", 1, "IS", 6, 255, {"1", "2"}).bytes);
    ASSERT_EQ(csa->size(), 1);
    EXPECT_EQ(csa->bundle("A")->parameter("nitems")->intValue(), 255);
    EXPECT_EQ(entryNames(csa->bundle("A")->bundle("values")), (Names{"0000", "0001"}));
    csa = decode(
        Csa::csa2(2).tag("A", 1, "LO", 19, 2, {"ok"}).item("", 200).text("12345678", 8).bytes);
    ASSERT_EQ(csa->size(), 1);
    EXPECT_EQ(entryNames(csa->bundle("A")->bundle("values")), Names{"0000"}) << "200 bytes, 8 left";
    EXPECT_EQ(BundlePtr(decode_csa2(nullptr, 1000, "X"))->size(), 0);
    EXPECT_TRUE(BundlePtr(decode_csa1(nullptr, 1000, "X")));
    std::mt19937 rng(20240607); // small counts, so that the walk goes deep
    for (int round = 0; round < 3000; ++round) {
        Bytes b(rng() % 700);
        for (auto &c : b)
            c = uint8_t(rng() % 4 == 0 ? 'M' : rng() % 8);
        if (b.size() >= 4)
            std::memcpy(b.data(), "SV10", 4);
        if (b.size() > 8)
            b[8] = uint8_t(rng() % 140);
        const BundlePtr two = decode(b), one = decode(b, true);
        EXPECT_EQ(two == nullptr, b.size() > 8 && b[8] > 128);
        EXPECT_EQ(one && one->size() == 0, b.empty() || b[0] <= 128);
    }
}

} // namespace
