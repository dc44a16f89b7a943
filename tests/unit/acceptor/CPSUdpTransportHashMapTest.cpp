#include "acceptor/CPSUdpTransportHashMap.h"

#include <future>
#include <type_traits>
#include <vector>

#include "acceptor/CPSAcceptorUdp.h"
#include "ipstack/ps_defines.h"
#include "mantle/CMNThreadManager.h"
#include "tests/unit/doubles/CChildProcess.h"
#include "tests/unit/doubles/EndpointTest.h"
#include "tests/unit/doubles/ScriptedNetwork.h"
#include "transport/CPSTransportUdp.h"
#include "uxport/IPSAcceptor.h"

namespace uxport
{
namespace
{

const CMNInetAddr LOCAL("10.0.0.1", 53);
const CMNInetAddr OTHER("10.0.0.1", 54);
const CMNInetAddr PEER("10.0.0.2", 4000);

static_assert(std::is_base_of_v<mantle::CMNCleanUpBase, CPSUdpTransportHashMap>);

class CPSUdpTransportHashMapTest : public EndpointTest
{
protected:
    static constexpr int s_nHandle = 9;

    void SetUp() override
    {
        EndpointTest::SetUp();
        m_pMap = std::make_unique<CPSUdpTransportHashMap>();
    }
    void TearDown() override
    {
        m_pMap.reset();
        m_Transports.clear();
        EndpointTest::TearDown();
    }

    CPSTransportUdp& Make()
    {
        m_Transports.emplace_back(new CPSTransportUdp(&m_Reactor, PEER, nullptr));
        return *m_Transports.back();
    }

    std::unique_ptr<CPSUdpTransportHashMap> m_pMap;
    std::vector<mantle::CMNAutoPtr<CPSTransportUdp>> m_Transports;
};

TEST_F(CPSUdpTransportHashMapTest, Empty_Asked_HasNothing)
{
    EXPECT_EQ(m_pMap->Find({PEER, LOCAL}), nullptr);
    m_pMap->Remove({PEER, LOCAL});
    m_pMap->RemoveAllOf(LOCAL);
    EXPECT_EQ(m_pMap->GetCount(), 0u);
}

TEST_F(CPSUdpTransportHashMapTest, Added_Found_OneReferenceHeld)
{
    CPSTransportUdp& transport = Make();
    m_pMap->Add({PEER, LOCAL}, &transport);
    EXPECT_EQ(m_pMap->Find({PEER, LOCAL}), &transport);
    EXPECT_EQ(m_pMap->Find({PEER, OTHER}), nullptr);
    EXPECT_EQ(transport.AddReference(), 3u);
    EXPECT_EQ(transport.ReleaseReference(), 2u);
}

TEST_F(CPSUdpTransportHashMapTest, KeyPresent_AddedAgain_FirstStays)
{
    CPSTransportUdp& first = Make();
    CPSTransportUdp& second = Make();
    m_pMap->Add({PEER, LOCAL}, &first);
    m_pMap->Add({PEER, LOCAL}, &second);
    EXPECT_EQ(m_pMap->Find({PEER, LOCAL}), &first);
    EXPECT_EQ(m_pMap->GetCount(), 1u);
    EXPECT_EQ(second.AddReference(), 2u);
    EXPECT_EQ(second.ReleaseReference(), 1u);
}

TEST_F(CPSUdpTransportHashMapTest, Removed_Any_ForgetsTheSocketAndGivesTheReferenceBack)
{
    CPSTransportUdp& transport = Make();
    m_pMap->Add({PEER, LOCAL}, &transport);
    transport.GetPeer().SetHandle(s_nHandle);
    m_pMap->Remove({PEER, LOCAL});
    EXPECT_EQ(transport.GetHandle(), -1);
    EXPECT_EQ(transport.AddReference(), 2u);
    EXPECT_EQ(transport.ReleaseReference(), 1u);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSUdpTransportHashMapTest, RemovedAllOfOneAddress_Many_OthersStay)
{
    constexpr unsigned short COUNT = 500;
    for (unsigned short port = 1; port <= COUNT; ++port) {
        m_pMap->Add({CMNInetAddr("10.0.0.2", port), LOCAL}, &Make());
        m_pMap->Add({CMNInetAddr("10.0.0.2", port), OTHER}, &Make());
    }
    m_pMap->RemoveAllOf(LOCAL);
    EXPECT_EQ(m_pMap->GetCount(), std::size_t{COUNT});
    for (unsigned short port = 1; port <= COUNT; ++port) {
        EXPECT_EQ(m_pMap->Find({CMNInetAddr("10.0.0.2", port), LOCAL}), nullptr);
        EXPECT_NE(m_pMap->Find({CMNInetAddr("10.0.0.2", port), OTHER}), nullptr);
    }
}

TEST_F(CPSUdpTransportHashMapTest, Gone_WithEntries_GivesTheReferencesBackAndClearsThePointer)
{
    m_pMap->Add({PEER, LOCAL}, new CPSTransportUdp(&m_Reactor, PEER, nullptr));
    CPSUdpTransportHashMap::s_pUdpTransports = m_pMap.get();
    m_pMap.reset();
    EXPECT_EQ(CPSUdpTransportHashMap::s_pUdpTransports, nullptr);
    Turn();
    EXPECT_EQ(NewLiveObjects(), 0);
}

// Peers of a server on the network thread, every second one kept, up to the end of the process and beyond.
class CServer : public IPSAcceptorConnectorSink
{
public:
    static constexpr int s_nPeers = 6;
    static constexpr int s_nListener = 7;

    static CServer& Instance()
    {
        static CServer& server = *new CServer;
        return server;
    }

    void Start()
    {
        CScriptedStack& stack = CScriptedStack::Instance();
        StartScriptedNetwork(s_nListener);
        OnScriptedNetwork([this] {
            EXPECT_EQ(IPSConnectionManager::Instance()->CreateConnectionServer(CONNECTION_TYPE_UDP, m_pAcceptor),
                      MN_OK);
            EXPECT_EQ(m_pAcceptor->StartListen(this, LOCAL, 0, 0), MN_OK);
        });
        for (unsigned short i = 0; i < s_nPeers; ++i) {
            const auto port = static_cast<unsigned short>(4000 + i);
            stack.On("ps_recvfrom", s_nListener).WithAddress("10.0.0.2", port).WithData("x");
        }
        stack.SetReadyOnce(s_nListener, PS_POLLIN);
        m_Complete.get_future().wait();
    }

    MNResult OnConnectIndication(long, IPSTransport* transport, IPSAcceptorConnectorId*) override
    {
        if (++m_nIndications % 2 == 0)
            m_Kept.emplace_back(transport);
        if (m_nIndications == s_nPeers)
            m_Complete.set_value();
        return MN_OK;
    }

    IPSAcceptor* m_pAcceptor = nullptr;
    int m_nIndications = 0;
    std::vector<mantle::CMNAutoPtr<IPSTransport>> m_Kept;
    std::promise<void> m_Complete;
};

TEST(UdpTableEndTest, MainReturns_ListeningWithPeers_EndsCleanly)
{
    CChildProcess::Run([] { CServer::Instance().Start(); });
}

TEST(UdpTableEndTest, CleanUp_PeersInTheTable_TheyDieInItAndOthersLiveOnClosedToEverything)
{
    CChildProcess::Run([] {
        CServer& server = CServer::Instance();
        server.Start();
        const long before = mantle::CMNLiveObjects::Count();
        mantle::CMNThreadManager::Instance()->CleanUp();
        EXPECT_EQ(CPSUdpTransportHashMap::s_pUdpTransports, nullptr);
        EXPECT_EQ(before - mantle::CMNLiveObjects::Count(), CServer::s_nPeers / 2);
        EXPECT_EQ(server.m_Kept.front()->Disconnect(0), MN_OK);
        EXPECT_EQ(server.m_pAcceptor->StopListen(0), MN_OK);
        server.m_Kept.clear();
        EXPECT_EQ(CScriptedStack::Instance().CountOf("ps_close", CServer::s_nListener), 1u);
    });
}

TEST(UdpTableEndTest, AfterTheCleanUp_NewAcceptor_MakesNoNewTable)
{
    CChildProcess::Run([] {
        CServer::Instance().Start();
        mantle::CMNThreadManager::Instance()->CleanUp();
        mantle::CMNAutoPtr<CPSAcceptorUdp> acceptor(new CPSAcceptorUdp(nullptr));
        EXPECT_EQ(CPSUdpTransportHashMap::s_pUdpTransports, nullptr);
        EXPECT_EQ(acceptor->StartListen(&CServer::Instance(), OTHER, 0, 0), MN_ERROR_FAILURE);
        EXPECT_EQ(acceptor->RemoveTransport(PEER, nullptr), MN_OK);
    });
}

}  // namespace
}  // namespace uxport
