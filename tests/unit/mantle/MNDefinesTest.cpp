#include "mantle/MNDefines.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace mantle
{
namespace
{

TEST(MNDefinesTest, Table_Walked_EachCodeHasItsOwnNameNumberAndText)
{
    std::set<MNResult> numbers;
    std::set<std::string> texts;
    int entries = 0;
#define MN_WALK(name, number, text)               \
  EXPECT_EQ(name, static_cast<MNResult>(number)); \
  EXPECT_STREQ(MNResultName(number), #name);      \
  EXPECT_STREQ(MNResultText(number), text);       \
  numbers.insert(number);                         \
  texts.insert(text);                             \
  ++entries;
    MN_RESULT_MAP(MN_WALK)
#undef MN_WALK
    EXPECT_EQ(entries, 13);
    EXPECT_EQ(numbers.size(), 13u);
    EXPECT_EQ(texts.size(), 13u);
}

TEST(MNDefinesTest, NumberThatIsNoCode_Named_Unknown)
{
    EXPECT_STREQ(MNResultName(10007), "unknown");
    EXPECT_STREQ(MNResultText(1), "unknown");
}

}  // namespace
}  // namespace mantle
