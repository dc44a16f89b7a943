// The interfaces together: their bases, and the order of their operations, on which binaries rely.
#include "uxport/uxport.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <type_traits>

#include "acceptor/CPSAcceptorTcp.h"
#include "connector/CPSConnectorTcpT.h"
#include "connector/CPSConnectorWrapper.h"
#include "manager/CPSConnectionManager.h"
#include "socket/CPSSocketTcp.h"
#include "transport/CPSTransportTcp.h"

namespace uxport
{
namespace
{

using mantle::IMNReferenceControl;
using CConnector = CPSConnectorTcpT<CPSConnectorWrapper, CPSTransportTcp, CPSSocketTcp>;

static_assert(std::is_base_of_v<IMNReferenceControl, IPSAcceptorConnectorId>);
static_assert(std::is_base_of_v<IPSAcceptorConnectorId, IPSAcceptor>);
static_assert(std::is_base_of_v<IPSAcceptorConnectorId, IPSConnector>);
static_assert(std::is_base_of_v<IMNReferenceControl, IPSTransport>);
static_assert(std::is_base_of_v<IMNEventQueue, IPSReactor> && std::is_base_of_v<IMNTimerQueue, IPSReactor>);
static_assert(!std::is_base_of_v<IMNReferenceControl, IPSConnectionManager>);
static_assert(!std::is_base_of_v<IMNReferenceControl, IPSAcceptorConnectorSink>);
static_assert(!std::is_base_of_v<IMNReferenceControl, IPSTransportSink>);
static_assert(std::is_abstract_v<IPSAcceptor> && std::is_abstract_v<IPSConnector> && std::is_abstract_v<IPSTransport>);

static_assert(std::has_virtual_destructor_v<IPSAcceptorConnectorId> && std::has_virtual_destructor_v<IPSAcceptor> &&
              std::has_virtual_destructor_v<IPSConnector> && std::has_virtual_destructor_v<IPSTransport> &&
              std::has_virtual_destructor_v<IPSAcceptorConnectorSink> &&
              std::has_virtual_destructor_v<IPSTransportSink> && std::has_virtual_destructor_v<IPSConnectionManager> &&
              std::has_virtual_destructor_v<IPSConnectorInternal> && std::has_virtual_destructor_v<IPSRawTransport>);

static_assert(std::is_base_of_v<IPSEventHandler, CPSTransportBase> &&
              std::is_base_of_v<IPSTransport, CPSTransportBase>);
static_assert(std::is_base_of_v<mantle::CMNTimerWrapperIDSink, CPSTransportTcp>);
static_assert(std::is_base_of_v<IPSEventHandler, CPSAcceptorTcp> && std::is_base_of_v<CPSAcceptorBase, CPSAcceptorTcp>);
static_assert(std::is_base_of_v<mantle::IMNObserver, CConnector>);

#if defined(__GXX_ABI_VERSION) && defined(__x86_64__)

constexpr bool ORDER_IS_VISIBLE = true;

// The place of a virtual operation in its class's table (the destructor takes two): in this ABI a pointer to it
// holds its offset there, plus one.
template <class Operation>
long SlotOf(Operation operation)
{
    std::ptrdiff_t words[2] = {};
    static_assert(sizeof operation == sizeof words);
    std::memcpy(words, &operation, sizeof words);
    EXPECT_EQ(words[0] & 1, 1) << "not virtual";
    return static_cast<long>((words[0] - 1) / static_cast<std::ptrdiff_t>(sizeof(void*)));
}

#else

constexpr bool ORDER_IS_VISIBLE = false;

template <class Operation>
long SlotOf(Operation)
{
    return -1;
}

#endif

class InterfaceOrder : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!ORDER_IS_VISIBLE)
            GTEST_SKIP() << "the order of virtual operations can be looked at on x86-64 only";
    }
};

TEST_F(InterfaceOrder, Acceptor_Operations_AreInTheirSlots)
{
    EXPECT_EQ(SlotOf(&IPSAcceptor::AddReference), 0);
    EXPECT_EQ(SlotOf(&IPSAcceptor::ReleaseReference), 1);
    EXPECT_EQ(SlotOf(&IPSAcceptor::IsConnector), 4);
    EXPECT_EQ(SlotOf(&IPSAcceptor::StartListen), 5);
    EXPECT_EQ(SlotOf(&IPSAcceptor::StopListen), 6);
    EXPECT_EQ(SlotOf(&CPSAcceptorTcp::GetHandle), 7);
    EXPECT_EQ(SlotOf(&CPSAcceptorTcp::OnInput), 8);
    EXPECT_EQ(SlotOf(&CPSAcceptorTcp::OnOutput), 9);
    EXPECT_EQ(SlotOf(&CPSAcceptorTcp::OnClose), 10);
}

TEST_F(InterfaceOrder, Connector_Operations_AreInTheirSlots)
{
    EXPECT_EQ(SlotOf(&IPSConnector::IsConnector), 4);
    EXPECT_EQ(SlotOf(&IPSConnector::AsycConnect), 5);
    EXPECT_EQ(SlotOf(&IPSConnector::CancelConnect), 6);
    EXPECT_EQ(SlotOf(&CPSConnectorWrapper::AddReference), 0);
    EXPECT_EQ(SlotOf(&CPSConnectorWrapper::ReleaseReference), 1);
    EXPECT_EQ(SlotOf(&CPSConnectorWrapper::Init), 7);
    EXPECT_EQ(SlotOf(&CPSConnectorWrapper::OnConnectIndication), 8);
    EXPECT_EQ(SlotOf(&CPSConnectorWrapper::OnTimeout), 9);
}

TEST_F(InterfaceOrder, TcpConnector_Operations_AreInTheirSlots)
{
    EXPECT_EQ(SlotOf(&IPSConnectorInternal::Connect), 0);
    EXPECT_EQ(SlotOf(&IPSConnectorInternal::Close), 1);
    EXPECT_EQ(SlotOf(&CConnector::GetHandle), 0);
    EXPECT_EQ(SlotOf(&CConnector::OnInput), 1);
    EXPECT_EQ(SlotOf(&CConnector::OnOutput), 2);
    EXPECT_EQ(SlotOf(&CConnector::OnException), 3);
    EXPECT_EQ(SlotOf(&CConnector::OnClose), 4);
    EXPECT_EQ(SlotOf(&CConnector::Connect), 7);
    EXPECT_EQ(SlotOf(&CConnector::Close), 8);
    EXPECT_EQ(SlotOf(&CConnector::OnObserve), 9);
}

TEST_F(InterfaceOrder, Sinks_Operations_AreInTheirSlots)
{
    EXPECT_EQ(SlotOf(&IPSAcceptorConnectorSink::OnConnectIndication), 0);
    EXPECT_EQ(SlotOf(&IPSTransportSink::OnReceive), 0);
    EXPECT_EQ(SlotOf(&IPSTransportSink::OnSend), 1);
    EXPECT_EQ(SlotOf(&IPSTransportSink::OnDisconnect), 2);
}

TEST_F(InterfaceOrder, Transport_Operations_AreInTheirSlots)
{
    EXPECT_EQ(SlotOf(&IPSTransport::AddReference), 0);
    EXPECT_EQ(SlotOf(&IPSTransport::ReleaseReference), 1);
    EXPECT_EQ(SlotOf(&IPSTransport::OpenWithSink), 4);
    EXPECT_EQ(SlotOf(&IPSTransport::GetSink), 5);
    EXPECT_EQ(SlotOf(&IPSTransport::SendData), 6);
    EXPECT_EQ(SlotOf(&IPSTransport::SetOption), 7);
    EXPECT_EQ(SlotOf(&IPSTransport::GetOption), 8);
    EXPECT_EQ(SlotOf(&IPSTransport::Disconnect), 9);
    EXPECT_EQ(SlotOf(&IPSTransport::GetPeerAddr), 10);
    EXPECT_EQ(SlotOf(&IPSTransport::GetLocalAddr), 11);
}

TEST_F(InterfaceOrder, TcpTransport_Operations_AreInTheirSlots)
{
    EXPECT_EQ(SlotOf(&CPSTransportTcp::GetHandle), 0);
    EXPECT_EQ(SlotOf(&CPSTransportTcp::OnInput), 1);
    EXPECT_EQ(SlotOf(&CPSTransportTcp::OnOutput), 2);
    EXPECT_EQ(SlotOf(&CPSTransportTcp::OnException), 3);
    EXPECT_EQ(SlotOf(&CPSTransportBase::OnClose), 4);
    EXPECT_EQ(SlotOf(&CPSTransportBase::AddReference), 7);
    EXPECT_EQ(SlotOf(&CPSTransportBase::ReleaseReference), 8);
    EXPECT_EQ(SlotOf(&CPSTransportBase::OpenWithSink), 9);
    EXPECT_EQ(SlotOf(&CPSTransportBase::GetSink), 10);
    EXPECT_EQ(SlotOf(&CPSTransportBase::Disconnect), 11);
    EXPECT_EQ(SlotOf(&CPSTransportBase::GetPeerAddr), 12);
    EXPECT_EQ(SlotOf(&CPSTransportBase::GetLocalAddr), 13);
    EXPECT_EQ(SlotOf(&CPSTransportBase::Open_t), 14);
    EXPECT_EQ(SlotOf(&CPSTransportBase::Close_t), 15);
    EXPECT_EQ(SlotOf(&CPSTransportTcp::SendData), 16);
    EXPECT_EQ(SlotOf(&CPSTransportTcp::SetOption), 17);
    EXPECT_EQ(SlotOf(&CPSTransportTcp::GetOption), 18);
    EXPECT_EQ(SlotOf(&CPSTransportTcp::OnTimer), 19);
}

TEST_F(InterfaceOrder, Manager_Operations_AreInTheirSlots)
{
    EXPECT_EQ(SlotOf(&IPSConnectionManager::Init), 0);
    EXPECT_EQ(SlotOf(&IPSConnectionManager::CreateConnectionClient), 1);
    EXPECT_EQ(SlotOf(&IPSConnectionManager::CreateConnectionServer), 2);
    EXPECT_EQ(SlotOf(&IPSConnectionManager::IsNetworkThread), 3);
    EXPECT_EQ(SlotOf(&IPSConnectionManager::GetReactor), 4);
    EXPECT_EQ(SlotOf(&IPSConnectionManager::CreateRawSocket), 5);
}

}  // namespace
}  // namespace uxport
