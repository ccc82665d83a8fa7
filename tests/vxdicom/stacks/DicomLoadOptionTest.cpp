#include "vxdicom/stacks/DicomLoadOption.h"

#include <gtest/gtest.h>

#include <cstdlib>

TEST(DicomLoadOption, AllowedPoliciesAreCountedAndIndexedLowestBitFirst)
{
    DicomLoadOption o;
    o.setOptions(23); // ignore, constant, monotonic, linear
    EXPECT_EQ(o.numAllowedOptions(), 4);
    EXPECT_EQ(o.getOption(0), DicomLoadOption::Ignore);
    EXPECT_EQ(o.getOption(2), DicomLoadOption::Monotonic);
    EXPECT_EQ(o.getOption(3), DicomLoadOption::Linear) << "strictly monotonic is skipped";
    EXPECT_EQ(o.getOption(4), DicomLoadOption::Ignore) << "beyond the allowed ones";
    o.setOptions(0);
    EXPECT_EQ(o.numAllowedOptions(), 0);
    EXPECT_EQ(o.getOption(0), DicomLoadOption::Ignore);
    o.setOptions(0xFF);
    EXPECT_EQ(o.numAllowedOptions(), 5) << "only five bits exist";

    DicomLoadOption::Id id;
    KcString text;
    o.setOptions(31);
    o.getOption(3, id, text);
    EXPECT_EQ(id, DicomLoadOption::StrictlyMonotonic);
    EXPECT_EQ(text, "strictly monot.");
}

TEST(DicomLoadOption, DescriptionsAreTheDisplayTexts)
{
    EXPECT_EQ(DicomLoadOption::description(1), "ignore");
    EXPECT_EQ(DicomLoadOption::description(2), "constant");
    EXPECT_EQ(DicomLoadOption::description(4), "monotonic");
    EXPECT_EQ(DicomLoadOption::description(8), "strictly monot.");
    EXPECT_EQ(DicomLoadOption::description(16), "linear");
    EXPECT_EQ(DicomLoadOption::description(3), "unused");
    EXPECT_EQ(DicomLoadOption::description(0), "unused");
}

TEST(DicomLoadOption, TextFormAndParsing)
{
    DicomLoadOption slice(32, 4161, DicomLoadOption::StrictlyMonotonic, "slice location", 31);
    EXPECT_EQ(slice.toString(), "<32|4161|8|31|slice location>");
    DicomLoadOption unnamed(1, 2, DicomLoadOption::Ignore, nullptr, 3);
    EXPECT_EQ(unnamed.name, "unknown");

    DicomLoadOption o;
    ASSERT_TRUE(o.fromString("16|16|2|3|Foo"));
    EXPECT_EQ(o.name, "patient name") << "the dictionary's name wins for a known element";
    EXPECT_EQ(o.group, 16);
    EXPECT_EQ(o.value, DicomLoadOption::Constant);

    ASSERT_TRUE(o.fromString("-1|-1|1|23|load index"));
    EXPECT_EQ(o.group, -1);
    EXPECT_EQ(o.options, 23);
    EXPECT_EQ(o.name, "load index");

    DicomLoadOption untouched(7, 7, DicomLoadOption::Linear, "keep", 16);
    EXPECT_FALSE(untouched.fromString("1|2|3|x|Foo")) << "fourth field not an integer";
    EXPECT_FALSE(untouched.fromString("1|2|3|4")) << "only three separators";
    EXPECT_EQ(untouched.toString(), "<7|7|16|16|keep>") << "a failed parse leaves the object";

    // A private element keeps its stored name, '|' included.
    DicomLoadOption priv(0x0019, 0x10FF, DicomLoadOption::Constant, "vendor|thing", 3);
    const KcString stored = priv.toString();
    DicomLoadOption back;
    ASSERT_TRUE(back.fromString(KcString(stored.substr(1, stored.size() - 2))));
    EXPECT_EQ(back.name, "vendor|thing");
    EXPECT_EQ(back.toString(), stored);
}

TEST(DicomLoadOption, StoredListDropsUnparseableEntries)
{
    const KcString text = "<16|16|2|3|x><garbage><32|4161|8|31|y><><-1|-1|1|3|file name>";
    KcDArray<DicomLoadOption *> list = dicomLoadOptionsFromString(text);
    ASSERT_EQ(list.size(), 3);
    EXPECT_EQ(list[0]->name, "patient name");
    EXPECT_EQ(list[1]->name, "slice location");
    EXPECT_EQ(list[2]->name, "file name");
    EXPECT_EQ(dicomLoadOptionsToString(list),
              "<16|16|2|3|patient name><32|4161|8|31|slice location><-1|-1|1|3|file name>");
    for (DicomLoadOption *o : list)
        delete o;
}

namespace {
struct EnvGuard
{
    explicit EnvGuard(const char *n) : name(n)
    {
        const char *v = std::getenv(n);
        had = v != nullptr;
        if (had)
            old = v;
    }
    ~EnvGuard()
    {
        if (had)
            setenv(name, old.c_str(), 1);
        else
            unsetenv(name);
    }
    const char *name;
    bool had;
    std::string old;
};

KcString defaultsText()
{
    KcDArray<DicomLoadOption *> list = defaultDicomLoadOptions();
    const KcString text = dicomLoadOptionsToString(list);
    for (DicomLoadOption *o : list)
        delete o;
    return text;
}
} // namespace

TEST(DicomLoadOption, DefaultCriteriaAndTheirEnvironmentVariants)
{
    EnvGuard a("ZENTA_MHT_STEREOTAXIS");
    EnvGuard b("ZENTA_ZIEHM_RECONSTRUCTION");
    unsetenv("ZENTA_MHT_STEREOTAXIS");
    unsetenv("ZENTA_ZIEHM_RECONSTRUCTION");
    EXPECT_EQ(defaultsText(),
              "<16|16|2|3|patient name><16|32|2|3|patient id><32|14|2|3|series instance uid>"
              "<8|33|2|3|series date><32|17|1|3|series number><24|32|2|3|scanning sequence>"
              "<32|55|2|3|image orientation patient><32|19|8|31|instance number>"
              "<32|4161|8|31|slice location><-1|-1|1|3|file name><-1|-1|1|23|load index>");

    setenv("ZENTA_ZIEHM_RECONSTRUCTION", "0", 1);
    EXPECT_NE(defaultsText().find("<32|4161|1|31|slice location>"), std::string::npos)
        << "only the presence of the variable matters";

    setenv("ZENTA_MHT_STEREOTAXIS", "1", 1);
    EXPECT_EQ(defaultsText().find("slice location"), std::string::npos);
}
