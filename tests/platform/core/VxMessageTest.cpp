#include "platform/core/VxMessage.h"

#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

TEST(VxMessage, CaptureReceivesLinesWithPrefixesAndNewlines)
{
    VxMessageCapture capture;
    VxMessage::getTheMsg()->printf("reading %s failed: %s", "ct/IM1", "cannot open: ct/IM1");
    VxMessage::getTheMsg()->printf("+ %s\n", "ct/IM2");
    VxMessage::getTheMsg()->warning("File %s was skipped", "x");
    VxMessage::getTheMsg()->error("%d of %d", 1, 2);
    EXPECT_EQ(capture.text(), "reading ct/IM1 failed: cannot open: ct/IM1\n"
                              "+ ct/IM2\n"
                              "Warning: File x was skipped\n"
                              "Error: 1 of 2\n");
    EXPECT_TRUE(capture.contains("+ ct/IM2"));
    capture.clear();
    EXPECT_EQ(capture.text(), "");
}

TEST(VxMessage, NestedCapturesRestoreThePreviousSink)
{
    VxMessageCapture outer;
    {
        VxMessageCapture inner;
        VxMessage::getTheMsg()->printf("inner");
        EXPECT_EQ(inner.text(), "inner\n");
    }
    VxMessage::getTheMsg()->printf("outer");
    EXPECT_EQ(outer.text(), "outer\n");
}

TEST(VxMessage, QuietModeStillFeedsTheSink)
{
    VxMessageCapture capture;
    VxMessage::getTheMsg()->setQuiet(true);
    EXPECT_TRUE(VxMessage::getTheMsg()->isQuiet());
    VxMessage::getTheMsg()->printf("still here");
    VxMessage::getTheMsg()->setQuiet(false);
    EXPECT_EQ(capture.text(), "still here\n");
}

TEST(VxMessage, LinesFromManyThreadsNeverInterleave)
{
    VxMessageCapture capture;
    constexpr int threads = 8;
    constexpr int lines = 400;
    std::vector<std::thread> pool;
    for (int t = 0; t < threads; ++t)
        pool.emplace_back([t] {
            for (int i = 0; i < lines; ++i)
                VxMessage::getTheMsg()->printf("thread %d line %d %s", t, i,
                                               "padding-padding-padding-padding");
        });
    for (auto &th : pool)
        th.join();

    std::istringstream in(capture.text());
    std::set<std::string> seen;
    std::string line;
    int count = 0;
    while (std::getline(in, line)) {
        ++count;
        int t = -1, i = -1;
        char pad[64] = {};
        ASSERT_EQ(std::sscanf(line.c_str(), "thread %d line %d %63s", &t, &i, pad), 3) << line;
        EXPECT_STREQ(pad, "padding-padding-padding-padding") << line;
        seen.insert(line);
    }
    EXPECT_EQ(count, threads * lines);
    EXPECT_EQ(seen.size(), static_cast<size_t>(threads * lines));
}
