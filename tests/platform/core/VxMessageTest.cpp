#include "platform/core/VxMessage.h"

#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <thread>

// Lines of many threads arrive whole, also after a nested capture and while quiet.
TEST(VxMessage, LinesFromManyThreadsNeverInterleave)
{
    VxMessageCapture capture;
    VxMessage::getTheMsg()->setQuiet(true);
    std::make_unique<VxMessageCapture>().reset();
    std::vector<std::thread> pool;
    for (int t = 0; t < 8; ++t)
        pool.emplace_back([t] {
            for (int i = 0; i < 400; ++i)
                VxMessage::getTheMsg()->printf("thread %d line %d %s", t, i, "padding-padding");
        });
    for (auto &th : pool)
        th.join();
    VxMessage::getTheMsg()->setQuiet(false);
    std::istringstream in(capture.text());
    std::set<std::string> seen;
    for (std::string line; std::getline(in, line); seen.insert(line)) {
        int t = -1, i = -1, end = 0;
        std::sscanf(line.c_str(), "thread %d line %d padding-padding%n", &t, &i, &end);
        EXPECT_EQ(size_t(end), line.size()) << line;
    }
    EXPECT_EQ(seen.size(), 8u * 400u);
}
