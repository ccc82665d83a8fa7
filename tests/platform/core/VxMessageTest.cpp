#include "platform/core/VxMessage.h"

#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

TEST(VxMessage, CapturesGetWholeLinesWithPrefixesAlsoWhenQuietAndNested)
{
    VxMessage *msg = VxMessage::getTheMsg();
    VxMessageCapture capture;
    msg->printf("reading %s failed: %s", "ct/IM1", "cannot open: ct/IM1");
    msg->printf("+ %s\n", "ct/IM2");
    msg->warning("File %s was skipped", "x");
    msg->setQuiet(true);
    msg->error("%d of %d", 1, 2);
    msg->setQuiet(false);
    {
        VxMessageCapture inner;
        msg->printf("inner");
        EXPECT_EQ(inner.text(), "inner\n");
    }
    msg->printf("outer");
    EXPECT_EQ(capture.text(), "reading ct/IM1 failed: cannot open: ct/IM1\n"
                              "+ ct/IM2\n"
                              "Warning: File x was skipped\n"
                              "Error: 1 of 2\n"
                              "outer\n");
}

TEST(VxMessage, LinesFromManyThreadsNeverInterleave)
{
    VxMessageCapture capture;
    constexpr int threads = 8, lines = 400;
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
    while (std::getline(in, line)) {
        int t = -1, i = -1;
        char pad[64] = {};
        ASSERT_EQ(std::sscanf(line.c_str(), "thread %d line %d %63s", &t, &i, pad), 3) << line;
        EXPECT_STREQ(pad, "padding-padding-padding-padding") << line;
        seen.insert(line);
    }
    EXPECT_EQ(seen.size(), static_cast<size_t>(threads * lines));
}
