#include "uxport/IPSEventHandler.h"

#include <gtest/gtest.h>

#include <type_traits>

namespace uxport
{
namespace
{

static_assert(std::has_virtual_destructor_v<IPSEventHandler>);

TEST(IPSEventHandler, Defaults_Any_HaveNoHandleAndAskToBeRemoved)
{
    IPSEventHandler handler;
    EXPECT_EQ(handler.GetHandle(), -1);
    EXPECT_EQ(handler.OnInput(7), -1);
    EXPECT_EQ(handler.OnOutput(7), -1);
    EXPECT_EQ(handler.OnException(7), -1);
    EXPECT_EQ(handler.OnClose(7, READ_MASK), -1);
}

}  // namespace
}  // namespace uxport
