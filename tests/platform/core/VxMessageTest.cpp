#include "platform/core/VxMessage.h"

#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

// Reader threads print at once: each line arrives whole, with its newline,
// also while a nested capture was open and the console was quiet.
TEST(VxMessage, LinesFromManyThreadsNeverInterleave)
{
    VxMessageCapture capture;
    VxMessage::getTheMsg()->setQuiet(true);
    {
        VxMessageCapture inner;
    }
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
    VxMessage::getTheMsg()->setQuiet(false);
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
