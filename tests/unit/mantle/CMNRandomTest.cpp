#include "mantle/CMNRandom.h"

#include <gtest/gtest.h>

#include <set>

namespace mantle
{
namespace
{

TEST(CMNRandomTest, Fill_LongBuffer_NotConstant)
{
    unsigned char bytes[1000] = {};
    CMNRandom::Fill(bytes, sizeof(bytes));
    const std::set<unsigned char> values(bytes, bytes + sizeof(bytes));
    EXPECT_GT(values.size(), 200U);
}

}  // namespace
}  // namespace mantle
