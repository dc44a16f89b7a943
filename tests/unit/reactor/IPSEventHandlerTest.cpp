#include "uxport/IPSEventHandler.h"

#include "tests/unit/reactor/ReactorSupport.h"
#include "tests/unit/scripted/ScriptedStackTest.h"

using namespace uxport;

namespace
{

class IPSEventHandlerTest : public ScriptedStackTest
{
};

TEST_F(IPSEventHandlerTest, Defaults_EveryOperation_AnswersMinusOne)
{
    IPSEventHandler handler;
    EXPECT_EQ(handler.GetHandle(), -1);
    EXPECT_EQ(handler.OnInput(3), -1);
    EXPECT_EQ(handler.OnOutput(3), -1);
    EXPECT_EQ(handler.OnException(3), -1);
    EXPECT_EQ(handler.OnClose(3, 63), -1);
}

// Relies on the default of everything but the handle.
class CSilentHandler : public IPSEventHandler
{
public:
    int GetHandle() const override { return 5; }
};

TEST_F(IPSEventHandlerTest, Defaults_FirstReadiness_RemovesTheHandler)
{
    for (const long mask : {READ_MASK, WRITE_MASK}) {
        CTestReactor reactor;
        reactor.Open();
        CSilentHandler handler;
        ASSERT_EQ(reactor.RegisterHandler(&handler, mask), MN_OK);
        EXPECT_EQ(reactor.ProcessHandleEvent(5, mask, 0, 0, 0), MN_OK);
        EXPECT_FALSE(reactor.IsRegistered(5));
        reactor.Close();
    }
}

}  // namespace
