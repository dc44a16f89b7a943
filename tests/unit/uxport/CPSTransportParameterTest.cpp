#include "uxport/CPSTransportParameter.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <type_traits>

namespace uxport
{
namespace
{

static_assert(std::is_standard_layout_v<CPSTransportParameter>);
static_assert(std::is_same_v<decltype(CPSTransportParameter::SentLength), std::uint64_t>);
static_assert(std::is_same_v<decltype(CPSTransportParameter::Tag), std::uint32_t>);
static_assert(offsetof(CPSTransportParameter, SentLength) < offsetof(CPSTransportParameter, Tag));

TEST(CPSTransportParameter, Constructor_Fresh_HasNothingSentAndTagTwo)
{
    const CPSTransportParameter parameter;
    EXPECT_EQ(parameter.SentLength, 0u);
    EXPECT_EQ(parameter.Tag, 2u);
}

TEST(CPSTransportParameter, Copy_Any_GetsBothFields)
{
    CPSTransportParameter parameter;
    parameter.SentLength = 1ull << 40;
    parameter.Tag = 77;
    const CPSTransportParameter copy = parameter;
    EXPECT_EQ(copy.SentLength, 1ull << 40);
    EXPECT_EQ(copy.Tag, 77u);
}

}  // namespace
}  // namespace uxport
