#include "vxdicom/params/DicomParamFilter.h"

#include "platform/data/VxParamBundle.h"
#include "platform/data/VxParameter.h"

#include <gtest/gtest.h>

#include <memory>
#include <tuple>

namespace {

// The parts of "name [VR]: value" texts, and cleaning and filtering of element bundles.
TEST(DecodeDicomParam, TakesTheTextApart)
{
    // expected nullptr: a null text.
    const std::tuple<const char *, const char *, ReturnParamContent, int, const char *> rows[] = {
        {"G0028-0010", "Rows: 512", ContentName, 0, "Rows"},
        {"G0028-0010", "Rows: 512", ContentGroup, 0, "0028"},
        {"G0028-0010", "Rows: 512", ContentElement, 0, "0010"},
        {"G0028-0010", "Rows: 512", ContentValue, 0, "512"},
        {"G0028-0010", "Rows: 512", ContentVR, 0, "US"}, // no '[': the dictionary's VR
        {"G0010-0010", "patient name [pn]: Doe^John", ContentName, 0, "patient name"},
        {"G0010-0010", "patient name [pn]: Doe^John", ContentVR, 0, "PN"},
        // The element table's form: no blank after ':'.
        {"GF000-F000", "new Private Element [DT]:20240101 120000", ContentValueItem, 1, "120000"},
        {"G0028-0030", "pixel spacing: 0.5 0.25", ContentValueItem, 2, nullptr},
        {"G0028-0030", "pixel spacing: 0.5 0.25", ContentValueItem, -1, nullptr},
        {"G0028-0030", "pixel spacing:  0.5  0.25 ", ContentValueItem, 1, ""}, // blanks split
        {"G0028-0030", "pixel spacing:  0.5  0.25 ", ContentValueItem, 2, "0.25"},
        {"G0019-100B", " [DS]: 17.5", ContentName, 0, ""},
        {"G0008-0032", "acquisition time: 12:30:15", ContentValue, 0, "12:30:15"},
        {"g7fe0-0010", "pixel data: 00", ContentGroup, 0, "7FE0"},
        {"G0008-0020", "date: x [DA]", ContentGroup, 0, nullptr}, // ':' before '['
        {"G0008-0020", "no colon [DA]", ContentVR, 0, nullptr},
    };
    for (const auto &[name, text, what, index, expected] : rows) {
        const VxParameter p(name, text);
        const QString got = decodeDicomParam(&p, what, index);
        SCOPED_TRACE(std::string(text) + " part " + std::to_string(what) + " [" +
                     std::to_string(index) + "]");
        EXPECT_EQ(got.isNull() ? "<null>" : got.toStdString(), expected ? expected : "<null>");
    }
    for (int what = ContentName; what <= ContentElement; ++what)
        EXPECT_TRUE(decodeDicomParam(nullptr, ReturnParamContent(what), 0).isNull());
}

TEST(Fix, CleansTextsOfEveryBundleInPlace)
{
    VxParamBundle top("DICOM");
    top.setString("G0008-103E", "series description: ep2d\\ \n");
    top.setString("G0008-1030", "study description: head\tneck");
    top.setString("G0020-4000", "image comments: say \"hi\"   ");
    top.setString("G0010-0010", "patient name: M\xC3\xBCller^Anna");
    top.setString("G0018-1030", "protocol name: a\\b\\\\");
    top.setInt("G0020-0013", 7);
    auto inner = std::make_unique<VxParamBundle>("All");
    inner->setString("G0051-100E", " [CS]: Tra>Cor(-6.2)\r\n\\");
    top.insert(inner.release());
    fix(&top);
    fix(nullptr);
    EXPECT_EQ(top.getString("G0008-103E"), "series description: ep2d");
    EXPECT_EQ(top.getString("G0008-1030"), "study description: head neck");
    EXPECT_EQ(top.getString("G0020-4000"), "image comments: say  hi");
    EXPECT_EQ(top.getString("G0010-0010"), "patient name: M ller^Anna") << "a blank per non-ASCII";
    EXPECT_EQ(top.getString("G0018-1030"), "protocol name: a\\b") << "inner separators stay";
    EXPECT_EQ(top.parameter("G0020-0013")->intValue(), 7);
    EXPECT_EQ(top.bundle("All")->getString("G0051-100E"), " [CS]: Tra>Cor(-6.2)");
}

// The groups of each policy, in order, without group lengths, nested bundles
// and entries without "name: value" text; the input is left unchanged.
TEST(FilterDicomParamBundle, KeepsTheGroupsOfThePolicy)
{
    VxParamBundle all("All");
    for (const char *name :
         {"G0008-0000", "G0008-0020", "G0010-0000", "G0010-0010", "G0010-0020", "G0019-100B"})
        all.setString(name, std::string("text: ") + name);
    auto csa = std::make_unique<VxParamBundle>("CSAImageHeaderInfo");
    csa->setString("G0029-1099", "inside: a header");
    all.insert(csa.release());
    all.setString("G0029-0010", "private creator: SIEMENS CSA HEADER");
    all.setString("G0028-0010", "rows: 64");
    all.setString("Filename", "IM-0001-0001.dcm");
    all.setInt("G0020-0013", 7);
    const std::string everything =
        "G0008-0020 G0010-0010 G0010-0020 G0019-100B G0029-0010 G0028-0010 ";
    for (auto [policy, kept] : {std::pair<int, std::string>{FilterAll, everything},
                                {-5, everything},
                                {FilterPrivate, "G0019-100B G0029-0010 "},
                                {FilterPatient, "G0010-0010 G0010-0020 "},
                                {FilterPublicNonPatient, "G0008-0020 G0028-0010 "},
                                {4, ""}}) {
        std::unique_ptr<VxParamBundle> out(
            filterDicomParamBundle(&all, DicomParamFilterPolicy(policy)));
        ASSERT_TRUE(out);
        EXPECT_EQ(out->name(), "DICOM");
        EXPECT_EQ(out->size(), policy == 4 ? 0 : 1) << policy;
        std::string names;
        for (int i = 0; out->bundle("All") && i < out->bundle("All")->size(); ++i)
            names += out->bundle("All")->entry(i)->name() + " ";
        EXPECT_EQ(names, kept) << policy;
        all.setString("G0010-0010", "patient name: changed");
        EXPECT_TRUE(policy != FilterPatient ||
                    out->bundle("All")->getString("G0010-0010") == "text: G0010-0010")
            << "a copy";
        all.setString("G0010-0010", "text: G0010-0010");
    }
    EXPECT_EQ(filterDicomParamBundle(nullptr, FilterAll), nullptr);
    EXPECT_EQ(all.size(), 11);
}

} // namespace
