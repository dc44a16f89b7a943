#include "mantle/CMNAtomic.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace mantle
{
namespace
{

TEST(CMNAtomicTest, FourThreads_Count_NothingIsLost)
{
    CMNAtomic32 count{0};
    std::vector<std::thread> threads;
    for (int index = 0; index < 4; ++index) {
        threads.emplace_back([&count] {
            for (int step = 0; step < 10000; ++step)
                ++count;
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(count.load(), 40000);
    EXPECT_EQ(sizeof(CMNAtomic32), 4u);
}

}  // namespace
}  // namespace mantle
