// A user thread that ends while it owns an acceptor and connections.
#include <gtest/gtest.h>

#include "ipstack/ipstack.h"
#include "tests/integration/support/CUserClient.h"

using namespace uxport;

namespace
{

constexpr unsigned short PORT = 7034;

// Lives on a thread of its own and takes whoever comes.
class COwner : public IPSAcceptorConnectorSink, public IPSTransportSink
{
public:
    COwner() { EXPECT_EQ(MN_OK, m_Thread.Create(mantle::CMNThreadManager::Instance()->GetNewThreadType())); }

    void Start()
    {
        EXPECT_EQ(MN_OK, m_Thread.SendEvent(new CWorkEvent([this] {
            EXPECT_EQ(MN_OK, IPSConnectionManager::Instance()->CreateConnectionServer(CONNECTION_TYPE_TCP,
                                                                                      m_pAcceptor.ParaOut()));
            EXPECT_EQ(MN_OK, m_pAcceptor->StartListen(this, Loopback(PORT), 0, 0));
        })));
    }

    void End()
    {
        m_Thread.Stop();
        m_Thread.Join();
    }

    void Release()
    {
        m_pAcceptor = nullptr;
        m_pTransport = nullptr;
    }

    MNResult OnConnectIndication(long, IPSTransport* transport, IPSAcceptorConnectorId*) override
    {
        m_pTransport = transport;
        EXPECT_EQ(MN_OK, transport->OpenWithSink(this));
        CMNMessageBlock block(1);
        block.Write("!", 1);
        return transport->SendData(block, nullptr);
    }
    MNResult OnReceive(CMNMessageBlock&, IPSTransport*, CPSTransportParameter*) override
    {
        ++m_nCallbacks;
        return MN_OK;
    }
    MNResult OnSend(IPSTransport*, CPSTransportParameter*) override
    {
        ++m_nCallbacks;
        return MN_OK;
    }
    MNResult OnDisconnect(long, IPSTransport*) override
    {
        ++m_nCallbacks;
        return MN_OK;
    }

    int m_nCallbacks = 0;

private:
    mantle::CMNThreadUser m_Thread;
    mantle::CMNAutoPtr<IPSAcceptor> m_pAcceptor;
    mantle::CMNAutoPtr<IPSTransport> m_pTransport;
};

class ProxyThreadEndTest : public testing::Test
{
protected:
    void SetUp() override
    {
        m_Owner.Start();
        ASSERT_EQ(MN_OK, m_pClient->Connect(Loopback(PORT), 5));
        ASSERT_TRUE(m_User.RunUntil([this] { return m_pClient->m_qwReceived == 1; })) << "the greeting";
    }

    void TearDown() override
    {
        m_Network.Run([this] { m_Owner.Release(); });
        m_pClient.reset();
        EXPECT_EQ(m_lBefore, m_User.SettleTo(m_lBefore));
        EXPECT_EQ(0, m_Owner.m_nCallbacks);
    }

    CNetwork m_Network;
    CUserLoop m_User{m_Network};
    const long m_lBefore = mantle::CMNLiveObjects::Count();
    COwner m_Owner;
    std::unique_ptr<CUserClient> m_pClient = std::make_unique<CUserClient>(m_User);
};

TEST_F(ProxyThreadEndTest, ThreadEnded_DataArrives_ConnectionIsClosed)
{
    m_Owner.End();
    m_pClient->Send("anybody there?");
    ASSERT_TRUE(m_User.RunUntil([this] { return m_pClient->m_nOnDisconnect == 1; }));
    EXPECT_EQ(1U, m_pClient->m_qwReceived);
}

TEST_F(ProxyThreadEndTest, ThreadEnded_PeerDisconnects_NothingIsDelivered)
{
    m_Owner.End();
    m_pClient->Drop();
    m_User.Settle();
}

TEST_F(ProxyThreadEndTest, ThreadEnded_SomebodyConnects_IsDisconnected)
{
    m_Owner.End();
    CUserClient late(m_User);
    ASSERT_EQ(MN_OK, late.Connect(Loopback(PORT), 5));
    ASSERT_TRUE(m_User.RunUntil([&] { return late.m_nOnDisconnect == 1; }));
    EXPECT_EQ(0U, late.m_qwReceived);
}

TEST_F(ProxyThreadEndTest, EverythingReleasedBehindTheEnd_PeerHearsIt)
{
    m_Owner.End();
    m_Network.Run([this] { m_Owner.Release(); });
    ASSERT_TRUE(m_User.RunUntil([this] { return m_pClient->m_nOnDisconnect == 1; }));
}

}  // namespace
