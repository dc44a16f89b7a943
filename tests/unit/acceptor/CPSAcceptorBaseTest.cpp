#include "acceptor/CPSAcceptorBase.h"

#include <thread>
#include <type_traits>

#include "tests/unit/doubles/EndpointTest.h"

namespace uxport
{
namespace
{

// A protocol that does nothing but tell when it is deleted.
class CPlainAcceptor : public CPSAcceptorBase
{
public:
    explicit CPlainAcceptor(IPSReactor* reactor) : CPSAcceptorBase(reactor) {}
    ~CPlainAcceptor() override { CScriptedStack::Instance().Note("deleted"); }
    MNResult StartListen(IPSAcceptorConnectorSink*, const CMNInetAddr&, unsigned short, unsigned short) override
    {
        return MN_OK;
    }
    MNResult StopListen(long) override { return MN_OK; }
    bool HasReactor(const IPSReactor* reactor) const { return m_pReactor == reactor && m_pSink == nullptr; }
};

static_assert(std::is_abstract_v<CPSAcceptorBase>);
static_assert(std::is_base_of_v<IPSAcceptor, CPSAcceptorBase>);

class CPSAcceptorBaseTest : public EndpointTest
{
protected:
    CPlainAcceptor* m_pAcceptor = new CPlainAcceptor(&m_Reactor);
};

TEST_F(CPSAcceptorBaseTest, Constructor_Fresh_KnowsItsReactorAndNoSink)
{
    EXPECT_TRUE(m_pAcceptor->HasReactor(&m_Reactor));
    delete m_pAcceptor;
}

TEST_F(CPSAcceptorBaseTest, IsConnector_Acceptor_IsFalse)
{
    IPSAcceptorConnectorId* id = m_pAcceptor;
    EXPECT_FALSE(id->IsConnector());
    delete m_pAcceptor;
}

TEST_F(CPSAcceptorBaseTest, References_TakenAndReleased_AreCountedAndTheLastDeletesAtOnce)
{
    IPSAcceptor* acceptor = m_pAcceptor;
    EXPECT_EQ(acceptor->AddReference(), 1u);
    EXPECT_EQ(acceptor->AddReference(), 2u);
    EXPECT_EQ(acceptor->ReleaseReference(), 1u);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
    EXPECT_EQ(acceptor->ReleaseReference(), 0u);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"deleted"}));
    EXPECT_EQ(NewLiveObjects(), 0);
}

TEST_F(CPSAcceptorBaseTest, TryAddReference_CountIsZero_DoesNot)
{
    EXPECT_FALSE(m_pAcceptor->TryAddReference());
    EXPECT_EQ(m_pAcceptor->AddReference(), 1u);
    EXPECT_TRUE(m_pAcceptor->TryAddReference());
    EXPECT_EQ(m_pAcceptor->ReleaseReference(), 1u);
    EXPECT_EQ(m_pAcceptor->ReleaseReference(), 0u);
}

TEST_F(CPSAcceptorBaseTest, References_OnAnotherThread_AreReported)
{
    ExpectReports(2);
    m_pAcceptor->AddReference();
    std::thread([this] {
        EXPECT_EQ(m_pAcceptor->AddReference(), 2u);
        EXPECT_EQ(m_pAcceptor->ReleaseReference(), 1u);
    }).join();
    EXPECT_EQ(m_pAcceptor->ReleaseReference(), 0u);
}

TEST_F(CPSAcceptorBaseTest, Release_CountIsZero_IsReportedAndDeletesNothing)
{
    ExpectReports(1);
    EXPECT_EQ(m_pAcceptor->ReleaseReference(), 0u);
    EXPECT_EQ(NewLiveObjects(), 1);
    delete m_pAcceptor;
}

}  // namespace
}  // namespace uxport
