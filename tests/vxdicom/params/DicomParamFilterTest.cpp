#include "vxdicom/params/DicomParamFilter.h"

#include "platform/data/VxParamBundle.h"
#include "platform/data/VxParameter.h"

#include <gtest/gtest.h>

#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace {

std::vector<std::string> names(const VxParamBundle &b)
{
    std::vector<std::string> out;
    for (int i = 0; i < b.size(); ++i)
        out.push_back(b.entry(i)->name());
    return out;
}

/// A bundle "All" as the reader builds it, with a decoded vendor header among
/// the parameters.
std::unique_ptr<VxParamBundle> sampleAll()
{
    auto all = std::make_unique<VxParamBundle>("All");
    all->setString("G0008-0000", "group length: 400");
    all->setString("G0008-0020", "study date: 20240101");
    all->setString("G0010-0000", "group length: 60");
    all->setString("G0010-0010", "patient name: Doe^John");
    all->setString("G0010-0020", "patient id: 12345");
    all->setString("G0019-100B", " [DS]: 17.5");
    auto csa = std::make_unique<VxParamBundle>("CSAImageHeaderInfo");
    csa->setString("G0029-1099", "inside: a header");
    all->insert(csa.release());
    all->setString("G0029-0010", "private creator: SIEMENS CSA HEADER");
    all->setString("G0028-0010", "rows: 64");
    all->setString("Filename", "IM-0001-0001.dcm");
    all->setInt("G0020-0013", 7);
    return all;
}

} // namespace

// --- decodeDicomParam ---------------------------------------------------------

struct ParamPartRow
{
    const char *name;
    const char *text;
    int what;
    int index;
    const char *expected; ///< nullptr: a null text
    const char *why;
};

void PrintTo(const ParamPartRow &r, std::ostream *os)
{
    *os << r.name << " '" << r.text << "' part " << r.what << " [" << r.index << "] (" << r.why
        << ")";
}

class DecodeParam : public ::testing::TestWithParam<ParamPartRow>
{
};

TEST_P(DecodeParam, TakesTheTextApart)
{
    const ParamPartRow &r = GetParam();
    const VxParameter p(r.name, r.text);
    const QString got = decodeDicomParam(&p, static_cast<ReturnParamContent>(r.what), r.index);
    if (!r.expected)
        EXPECT_TRUE(got.isNull()) << "got '" << got.toStdString() << "': " << r.why;
    else
        EXPECT_EQ(got.toStdString(), r.expected) << r.why;
}

INSTANTIATE_TEST_SUITE_P(
    Rows, DecodeParam,
    ::testing::Values(
        ParamPartRow{"G0028-0010", "Rows: 512", ContentName, 0, "Rows",
                     "text before ':' without '['"},
        ParamPartRow{"G0028-0010", "Rows: 512", ContentGroup, 0, "0028", "name characters 1 to 4"},
        ParamPartRow{"G0028-0010", "Rows: 512", ContentElement, 0, "0010",
                     "name characters 6 to 9"},
        ParamPartRow{"G0028-0010", "Rows: 512", ContentValue, 0, "512", "after ':', trimmed"},
        ParamPartRow{"G0028-0010", "Rows: 512", ContentVR, 0, "US",
                     "no '[': the dictionary's VR of Rows"},
        ParamPartRow{"G0028-0010", "Rows: 512", ContentValueItem, 0, "512", "the only item"},
        ParamPartRow{"G0010-0010", "patient name [PN]: Doe^John", ContentName, 0, "patient name",
                     "before '['"},
        ParamPartRow{"G0010-0010", "patient name [pn]: Doe^John", ContentVR, 0, "PN",
                     "two letters after '[', upper case"},
        ParamPartRow{"GF000-F000", "new Private Element [DT]:20240101 120000", ContentValue, 0,
                     "20240101 120000", "the element table's form: no blank after ':'"},
        ParamPartRow{"GF000-F000", "new Private Element [DT]:20240101 120000", ContentValueItem, 1,
                     "120000", "second blank-separated item"},
        ParamPartRow{"G0028-0030", "pixel spacing: 0.5 0.25", ContentValueItem, 2, nullptr,
                     "index 2 of two items"},
        ParamPartRow{"G0028-0030", "pixel spacing: 0.5 0.25", ContentValueItem, -1, nullptr,
                     "negative index"},
        ParamPartRow{"G0028-0030", "pixel spacing:  0.5  0.25 ", ContentValueItem, 1, "",
                     "single blanks split: the doubled blank makes an empty item"},
        ParamPartRow{"G0028-0030", "pixel spacing:  0.5  0.25 ", ContentValueItem, 2, "0.25",
                     "empty items count"},
        ParamPartRow{"G0019-100B", " [DS]: 17.5", ContentName, 0, "",
                     "private: no name, trimmed to empty"},
        ParamPartRow{"G0008-0032", "acquisition time: 12:30:15", ContentValue, 0, "12:30:15",
                     "everything after the first ':'"},
        ParamPartRow{"g7fe0-0010", "pixel data: 00", ContentGroup, 0, "7FE0", "group upper-cased"},
        ParamPartRow{"G0008-0020", "date: x [DA]", ContentName, 0, nullptr, "':' before '[': null"},
        ParamPartRow{"G0008-0020", "date: x [DA]", ContentGroup, 0, nullptr,
                     "':' before '[': null for every part"},
        ParamPartRow{"G0008-0020", "date: x [DA]", ContentValue, 0, nullptr,
                     "':' before '[': null"},
        ParamPartRow{"G0008-0020", "no colon here", ContentElement, 0, nullptr, "no ':': null"},
        ParamPartRow{"G0008-0020", "no colon [DA]", ContentVR, 0, nullptr, "no ':': null"}));

TEST(DecodeDicomParam, NullParameterGivesNullText)
{
    for (int what = ContentName; what <= ContentElement; ++what)
        EXPECT_TRUE(decodeDicomParam(nullptr, static_cast<ReturnParamContent>(what), 0).isNull());
}

// --- fix ------------------------------------------------------------------------

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
    EXPECT_EQ(top.getString("G0008-103E"), "series description: ep2d")
        << "line break, blank and dangling separator removed";
    EXPECT_EQ(top.getString("G0008-1030"), "study description: head neck") << "tab becomes a blank";
    EXPECT_EQ(top.getString("G0020-4000"), "image comments: say  hi") << "quotes become blanks";
    EXPECT_EQ(top.getString("G0010-0010"), "patient name: M ller^Anna")
        << "one blank per non-ASCII character";
    EXPECT_EQ(top.getString("G0018-1030"), "protocol name: a\\b") << "inner separators stay";
    EXPECT_EQ(top.parameter("G0020-0013")->type(), VxParameter::Int)
        << "other types are left alone";
    EXPECT_EQ(top.parameter("G0020-0013")->intValue(), 7);
    EXPECT_EQ(top.bundle("All")->getString("G0051-100E"), " [CS]: Tra>Cor(-6.2)")
        << "sub-bundles too";

    fix(nullptr);
}

// --- filterDicomParamBundle ------------------------------------------------------

struct FilterRow
{
    int policy;
    std::vector<std::string> kept;
    const char *why;
};

void PrintTo(const FilterRow &r, std::ostream *os)
{
    *os << "policy " << r.policy << " (" << r.why << ")";
}

class FilterPolicy : public ::testing::TestWithParam<FilterRow>
{
};

TEST_P(FilterPolicy, KeepsTheGroupsOfThePolicyWithoutGroupLengths)
{
    const FilterRow &r = GetParam();
    const auto all = sampleAll();
    std::unique_ptr<VxParamBundle> out(
        filterDicomParamBundle(all.get(), static_cast<DicomParamFilterPolicy>(r.policy)));
    ASSERT_TRUE(out);
    EXPECT_EQ(out->name(), "DICOM");
    ASSERT_EQ(names(*out), std::vector<std::string>{"All"});
    EXPECT_EQ(names(*out->bundle("All")), r.kept) << r.why;
}

INSTANTIATE_TEST_SUITE_P(
    Policies, FilterPolicy,
    ::testing::Values(
        FilterRow{
            FilterAll,
            {"G0008-0020", "G0010-0010", "G0010-0020", "G0019-100B", "G0029-0010", "G0028-0010"},
            "every element but group lengths, nested bundles and entries without 'name: "
            "value' text (the integer); in order"},
        FilterRow{
            -5,
            {"G0008-0020", "G0010-0010", "G0010-0020", "G0019-100B", "G0029-0010", "G0028-0010"},
            "a negative policy is FilterAll"},
        FilterRow{FilterPrivate, {"G0019-100B", "G0029-0010"}, "odd groups"},
        FilterRow{FilterPatient, {"G0010-0010", "G0010-0020"}, "group 0010 without G0010-0000"},
        FilterRow{
            FilterPublicNonPatient, {"G0008-0020", "G0028-0010"}, "even groups other than 0010"}));

TEST(FilterDicomParamBundle, PolicyAbove3GivesDicomWithoutAll)
{
    const auto all = sampleAll();
    std::unique_ptr<VxParamBundle> out(
        filterDicomParamBundle(all.get(), static_cast<DicomParamFilterPolicy>(4)));
    ASSERT_TRUE(out);
    EXPECT_EQ(out->name(), "DICOM");
    EXPECT_EQ(out->size(), 0);
}

TEST(FilterDicomParamBundle, NullGivesNullAndCopiesAreIndependent)
{
    EXPECT_EQ(filterDicomParamBundle(nullptr, FilterAll), nullptr);

    auto all = sampleAll();
    std::unique_ptr<VxParamBundle> out(filterDicomParamBundle(all.get(), FilterPatient));
    all->setString("G0010-0010", "patient name: changed");
    EXPECT_EQ(out->bundle("All")->getString("G0010-0010"), "patient name: Doe^John");
    EXPECT_EQ(all->size(), sampleAll()->size()) << "the input is not changed";
}
