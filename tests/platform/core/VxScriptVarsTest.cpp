#include "platform/core/VxScriptVars.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

TEST(VxScriptVars, ConcurrentWritersOfDistinctNames)
{
    VxScriptVars *vars = VxScriptVars::instance();
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t, vars] {
            const std::string name = "threadVar" + std::to_string(t);
            for (int i = 0; i < 1000; ++i)
                vars->set(name.c_str(), std::to_string(i).c_str());
        });
    for (auto &th : threads)
        th.join();
    for (int t = 0; t < 4; ++t) {
        const std::string name = "threadVar" + std::to_string(t);
        EXPECT_STREQ(vars->get(name.c_str()), "999");
        vars->unset(name.c_str());
    }
}
