// What the manager makes, for whom and when.
#include "manager/CPSConnectionManager.h"

#include <thread>

#include "acceptor/CPSAcceptorRaw.h"
#include "acceptor/CPSAcceptorTcp.h"
#include "acceptor/CPSAcceptorUdp.h"
#include "connector/CPSConnectorWrapper.h"
#include "mantle/CMNInetAddr.h"
#include "proxy/CPSAcceptorThreadProxy.h"
#include "proxy/CPSConnectorThreadProxy.h"
#include "reactor/CPSReactorBase.h"
#include "tests/unit/doubles/ManagerTest.h"

using mantle::CMNThreadManager;

namespace uxport
{
namespace
{

constexpr unsigned long UNKNOWN_TYPES[] = {0, 3, 4, 5, 6, 7, 9, 10, 16, 1000, ~0ul};
constexpr unsigned long ALL_TYPES[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 16, 1000, ~0ul};

// A raw transport that counts its holders.
class CRawTransport : public IPSRawTransport
{
public:
    unsigned long AddReference() override { return ++m_dwCount; }
    unsigned long ReleaseReference() override { return --m_dwCount; }
    unsigned long m_dwCount = 0;
};

class CPSConnectionFactoriesTest : public ManagerTest
{
protected:
    // What `out` holds before each call, to see whether it was touched.
    IPSAcceptor* const m_pNoAcceptor = reinterpret_cast<IPSAcceptor*>(this);
    IPSConnector* const m_pNoConnector = reinterpret_cast<IPSConnector*>(this);

    void ExpectServer(unsigned long type, MNResult result, IPSAcceptor* expected)
    {
        IPSAcceptor* out = m_pNoAcceptor;
        EXPECT_EQ(m_pManager->CreateConnectionServer(type, out), result) << type;
        EXPECT_EQ(out, expected) << type;
    }
    void ExpectClient(unsigned long type, MNResult result, IPSConnector* expected)
    {
        IPSConnector* out = m_pNoConnector;
        EXPECT_EQ(m_pManager->CreateConnectionClient(type, out), result) << type;
        EXPECT_EQ(out, expected) << type;
    }
    void ExpectProxies(const std::function<void()>& letNetworkDelete)
    {
        for (const unsigned long type : ALL_TYPES) {
            mantle::CMNAutoPtr<IPSAcceptor> acceptor;
            ASSERT_EQ(m_pManager->CreateConnectionServer(type, acceptor.ParaOut()), MN_OK) << type;
            EXPECT_NE(dynamic_cast<CPSAcceptorThreadProxy*>(acceptor.Get()), nullptr) << type;
            EXPECT_FALSE(acceptor->IsConnector());
            mantle::CMNAutoPtr<IPSConnector> connector;
            ASSERT_EQ(m_pManager->CreateConnectionClient(type, connector.ParaOut()), MN_OK) << type;
            EXPECT_NE(dynamic_cast<CPSConnectorThreadProxy*>(connector.Get()), nullptr) << type;
            EXPECT_TRUE(connector->IsConnector());
            EXPECT_EQ(NewLiveObjects(), 2);
            EXPECT_EQ(acceptor->AddReference(), 2u);
            EXPECT_EQ(acceptor->ReleaseReference(), 1u);
            EXPECT_EQ(connector->AddReference(), 2u);
            EXPECT_EQ(connector->ReleaseReference(), 1u);
            acceptor = nullptr;
            connector = nullptr;
            letNetworkDelete();
            EXPECT_EQ(NewLiveObjects(), 0) << type;
        }
    }

    void ExpectRefused(MNResult result)
    {
        for (const unsigned long type : ALL_TYPES) {
            ExpectServer(type, result, m_pNoAcceptor);
            ExpectClient(type, result, m_pNoConnector);
        }
    }
};

TEST_F(CPSConnectionFactoriesTest, Create_BeforeInit_ReturnsFailureAndLeavesOut)
{
    ExpectRefused(MN_ERROR_FAILURE);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSConnectionFactoriesTest, Create_BeforeInitWithoutThreadObject_ReturnsFailureAndLeavesOut)
{
    std::thread([this] { ExpectRefused(MN_ERROR_FAILURE); }).join();
}

TEST_F(CPSConnectionFactoriesTest, Create_OnAThreadWithoutThreadObject_ReturnsFailureAndLeavesOut)
{
    ASSERT_EQ(m_pManager->Init(1), MN_OK);
    std::thread([this] { ExpectRefused(MN_ERROR_FAILURE); }).join();
}

TEST_F(CPSConnectionFactoriesTest, Create_OnAUserThread_GivesProxiesWithOneReferenceForEveryType)
{
    ASSERT_EQ(m_pManager->Init(1), MN_OK);
    ExpectProxies([this] { OnNetworkThread([] {}); });
}

TEST_F(CPSConnectionFactoriesTest, Create_AfterInitZero_TreatsEverybodyAsAUserThread)
{
    ASSERT_EQ(m_pManager->Init(0), MN_OK);
    auto* reactor = dynamic_cast<CPSReactorBase*>(m_pManager->GetReactor());
    ASSERT_NE(reactor, nullptr);
    ExpectProxies([reactor] { reactor->DestoryPendingEvents(); });
}

TEST_F(CPSConnectionFactoriesTest, CreateServer_TcpOnTheNetworkThread_GivesAnAcceptorWithOneReference)
{
    ASSERT_EQ(m_pManager->Init(1), MN_OK);
    OnNetworkThread([this] {
        IPSAcceptor* acceptor = m_pNoAcceptor;
        ASSERT_EQ(m_pManager->CreateConnectionServer(2, acceptor), MN_OK);
        ASSERT_NE(dynamic_cast<CPSAcceptorTcp*>(acceptor), nullptr);
        EXPECT_FALSE(acceptor->IsConnector());
        EXPECT_EQ(acceptor->AddReference(), 2u);
        EXPECT_EQ(acceptor->ReleaseReference(), 1u);
        EXPECT_EQ(NewLiveObjects(), 1);
        EXPECT_EQ(acceptor->ReleaseReference(), 0u);
        EXPECT_EQ(NewLiveObjects(), 0);
    });
}

TEST_F(CPSConnectionFactoriesTest, CreateServer_DatagramTypesOnTheNetworkThread_GiveAnAcceptorWithOneReference)
{
    ASSERT_EQ(m_pManager->Init(1), MN_OK);
    OnNetworkThread([this] {
        for (const unsigned long type : {1ul, 8ul}) {
            IPSAcceptor* acceptor = m_pNoAcceptor;
            ASSERT_EQ(m_pManager->CreateConnectionServer(type, acceptor), MN_OK);
            EXPECT_EQ(dynamic_cast<CPSAcceptorRaw*>(acceptor) != nullptr, type == 1);
            EXPECT_EQ(dynamic_cast<CPSAcceptorUdp*>(acceptor) != nullptr, type == 8);
            EXPECT_FALSE(acceptor->IsConnector());
            EXPECT_EQ(NewLiveObjects(), 1);
            EXPECT_EQ(acceptor->ReleaseReference(), 0u);
            EXPECT_EQ(NewLiveObjects(), 0);
        }
    });
}

TEST_F(CPSConnectionFactoriesTest, CreateServer_UnknownTypesOnTheNetworkThread_ReturnInvalidArgAndNull)
{
    ASSERT_EQ(m_pManager->Init(1), MN_OK);
    OnNetworkThread([this] {
        for (const unsigned long type : UNKNOWN_TYPES)
            ExpectServer(type, MN_ERROR_INVALID_ARG, nullptr);
        EXPECT_EQ(NewLiveObjects(), 0);
    });
}

TEST_F(CPSConnectionFactoriesTest, CreateClient_TcpOnTheNetworkThread_GivesAConnectorWithOneReference)
{
    ASSERT_EQ(m_pManager->Init(1), MN_OK);
    OnNetworkThread([this] {
        IPSConnector* connector = m_pNoConnector;
        ASSERT_EQ(m_pManager->CreateConnectionClient(2, connector), MN_OK);
        auto* wrapper = dynamic_cast<CPSConnectorWrapper*>(connector);
        ASSERT_NE(wrapper, nullptr);
        EXPECT_EQ(wrapper->Init(2), MN_ERROR_ALREADY_INITIALIZED);
        EXPECT_TRUE(connector->IsConnector());
        EXPECT_EQ(connector->AddReference(), 2u);
        EXPECT_EQ(connector->ReleaseReference(), 1u);
        EXPECT_EQ(NewLiveObjects(), 1);
        EXPECT_EQ(connector->ReleaseReference(), 0u);
        EXPECT_EQ(NewLiveObjects(), 0);
    });
}

TEST_F(CPSConnectionFactoriesTest, CreateClient_DatagramTypesOnTheNetworkThread_GiveAConnectorWithOneReference)
{
    ASSERT_EQ(m_pManager->Init(1), MN_OK);
    OnNetworkThread([this] {
        for (const unsigned long type : {1ul, 8ul}) {
            IPSConnector* connector = m_pNoConnector;
            ASSERT_EQ(m_pManager->CreateConnectionClient(type, connector), MN_OK);
            auto* wrapper = dynamic_cast<CPSConnectorWrapper*>(connector);
            ASSERT_NE(wrapper, nullptr);
            EXPECT_EQ(wrapper->Init(type), MN_ERROR_ALREADY_INITIALIZED);
            EXPECT_EQ(NewLiveObjects(), 1);
            EXPECT_EQ(connector->ReleaseReference(), 0u);
            EXPECT_EQ(NewLiveObjects(), 0);
        }
    });
}

TEST_F(CPSConnectionFactoriesTest, CreateClient_UnknownTypesOnTheNetworkThread_ReturnInvalidArgAndNull)
{
    ASSERT_EQ(m_pManager->Init(1), MN_OK);
    OnNetworkThread([this] {
        for (const unsigned long type : UNKNOWN_TYPES)
            ExpectClient(type, MN_ERROR_INVALID_ARG, nullptr);
        EXPECT_EQ(NewLiveObjects(), 0);
    });
}

TEST_F(CPSConnectionFactoriesTest, Create_OnTheNetworkThread_UsesTheManagersReactor)
{
    ASSERT_EQ(m_pManager->Init(1), MN_OK);
    OnNetworkThread([this] {
        IPSConnector* connector = nullptr;
        ASSERT_EQ(m_pManager->CreateConnectionClient(2, connector), MN_OK);
        EXPECT_EQ(connector->AsycConnect(nullptr, CMNInetAddr("10.0.0.2", 80), nullptr, nullptr, 0, 0), MN_OK);
        EXPECT_EQ(connector->CancelConnect(), MN_OK);
        EXPECT_EQ(connector->ReleaseReference(), 0u);
    });
}

TEST_F(CPSConnectionFactoriesTest, CreateRawSocket_Any_ReturnsZeroAndLeavesThePointer)
{
    CRawTransport raw;
    {
        mantle::CMNAutoPtr<IPSRawTransport> out(&raw);
        EXPECT_EQ(m_pManager->CreateRawSocket(2, 1, out), MN_OK);
        EXPECT_EQ(out.Get(), &raw);
        EXPECT_EQ(raw.m_dwCount, 1u);
        mantle::CMNAutoPtr<IPSRawTransport> empty;
        EXPECT_EQ(m_pManager->CreateRawSocket(10, 58, empty), MN_OK);
        EXPECT_FALSE(empty);
    }
    EXPECT_EQ(raw.m_dwCount, 0u);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

}  // namespace
}  // namespace uxport
