#include "connhub/IMNUDPTransport.h"

#include <ifaddrs.h>
#include <netinet/in.h>

#include <cerrno>
#include <future>
#include <thread>

#include "unit/connhub/UDPTransportTest.h"

namespace connhub
{
namespace
{

using mantle::CMNInetAddr;
using mantle::CMNLiveObjects;

bool HasIp6()
{
    ifaddrs* list = nullptr;
    bool found = false;
    if (getifaddrs(&list) == 0) {
        for (const ifaddrs* entry = list; entry; entry = entry->ifa_next) {
            if (entry->ifa_addr && entry->ifa_addr->sa_family == AF_INET6) {
                const auto* address = reinterpret_cast<const sockaddr_in6*>(entry->ifa_addr);
                found = found || IN6_IS_ADDR_LOOPBACK(&address->sin6_addr);
            }
        }
        freeifaddrs(list);
    }
    return found;
}

TEST_F(UDPTransportTest, NullSink_Created_Refused)
{
    IMNUDPTransport* transport = reinterpret_cast<IMNUDPTransport*>(this);
    EXPECT_EQ(CMNConnectionManager::Instance()->CreateUDPTransport(nullptr, transport), mantle::MN_ERROR_INVALID_ARG);
    EXPECT_EQ(transport, nullptr);
}

TEST_F(UDPTransportTest, NotOpen_Used_NotInitialized)
{
    const long live = CMNLiveObjects::Count();
    Make(m_SinkA, m_A);
    EXPECT_EQ(CMNLiveObjects::Count(), live + 1);
    EXPECT_EQ(Send(m_A, "x", CMNInetAddr("127.0.0.1", 9)), mantle::MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(m_A->GetLocalAddress(m_AddressA), mantle::MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(m_A->GetCounters().m_qwSent, 0u);
    m_A.ParaOut();
    EXPECT_EQ(CMNLiveObjects::Count(), live);
}

TEST_F(UDPTransportTest, Open_OpenedAgain_AlreadyInitialized)
{
    MakeOpen(m_SinkA, m_A, m_AddressA);
    EXPECT_EQ(m_A->Open(CMNInetAddr("127.0.0.1", 0)), mantle::MN_ERROR_ALREADY_INITIALIZED);
    CMNInetAddr still;
    EXPECT_EQ(m_A->GetLocalAddress(still), mantle::MN_OK);
    EXPECT_EQ(still, m_AddressA);
}

TEST_F(UDPTransportTest, PortInUse_Opened_RefusedAndTheNextOpenWorks)
{
    MakeOpen(m_SinkA, m_A, m_AddressA);
    Make(m_SinkB, m_B);
    EXPECT_EQ(m_B->Open(m_AddressA), mantle::MN_ERROR_FAILURE);
    EXPECT_EQ(Send(m_B, "x", m_AddressA), mantle::MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(m_B->Open(CMNInetAddr("127.0.0.1", 0)), mantle::MN_OK);
    EXPECT_EQ(Send(m_B, "x", m_AddressA), mantle::MN_OK);
    EXPECT_TRUE(m_SinkA.WaitFor(1));
}

TEST_F(UDPTransportTest, AddressOfAnotherMachine_Opened_Refused)
{
    Make(m_SinkA, m_A);
    EXPECT_EQ(m_A->Open(CMNInetAddr("203.0.113.1", 0)), mantle::MN_ERROR_FAILURE);
    EXPECT_EQ(m_A->Open(CMNInetAddr("127.0.0.1", 0)), mantle::MN_OK);
}

TEST_F(UDPTransportTest, Open_Released_AddressIsFreeAtOnce)
{
    MakeOpen(m_SinkA, m_A, m_AddressA);
    MakeOpen(m_SinkB, m_B, m_AddressB);
    for (int round = 0; round < 200; ++round) {
        Send(m_B, "on the way", m_AddressA);
        Make(m_SinkA, m_A);
        ASSERT_EQ(m_A->Open(m_AddressA), mantle::MN_OK) << round;
    }
}

TEST_F(UDPTransportTest, Open_Sent_ReceivedWithTheSendersAddress)
{
    MakeOpen(m_SinkA, m_A, m_AddressA);
    MakeOpen(m_SinkB, m_B, m_AddressB);
    EXPECT_EQ(Send(m_A, "hello", m_AddressB), mantle::MN_OK);
    ASSERT_TRUE(m_SinkB.WaitFor(1));
    EXPECT_EQ(m_SinkB.Get()[0].m_strData, "hello");
    EXPECT_EQ(m_SinkB.Get()[0].m_From, m_AddressA);
    EXPECT_EQ(m_B->GetCounters().m_qwReceived, 1u);
    EXPECT_EQ(m_B->GetCounters().m_qwReceivedBytes, 5u);
    EXPECT_EQ(m_A->GetCounters().m_qwSentBytes, 5u);
}

TEST_F(UDPTransportTest, OpenOnIp6_Sent_ReceivedWithTheSendersAddress)
{
    if (!HasIp6())
        GTEST_SKIP() << "this machine has no ::1";
    MakeOpen(m_SinkA, m_A, m_AddressA, "::1");
    MakeOpen(m_SinkB, m_B, m_AddressB, "::1");
    EXPECT_EQ(Send(m_A, "hello", m_AddressB), mantle::MN_OK);
    ASSERT_TRUE(m_SinkB.WaitFor(1));
    EXPECT_EQ(m_SinkB.Get()[0].m_strData, "hello");
    EXPECT_EQ(m_SinkB.Get()[0].m_From, m_AddressA);
    EXPECT_EQ(Send(m_A, "hello", CMNInetAddr("127.0.0.1", 9)), mantle::MN_ERROR_INVALID_ARG);
}

TEST_F(UDPTransportTest, Open_SentWhatIsNoDatagram_Refused)
{
    MakeOpen(m_SinkA, m_A, m_AddressA);
    EXPECT_EQ(m_A->SendTo(nullptr, 1, m_AddressA), mantle::MN_ERROR_INVALID_ARG);
    EXPECT_EQ(Send(m_A, std::string(65508, 'x'), m_AddressA), mantle::MN_ERROR_INVALID_ARG);
    EXPECT_EQ(Send(m_A, "x", CMNInetAddr()), mantle::MN_ERROR_INVALID_ARG);
    EXPECT_EQ(Send(m_A, "x", CMNInetAddr("no address", 9)), mantle::MN_ERROR_INVALID_ARG);
    EXPECT_EQ(Send(m_A, "x", CMNInetAddr("::1", 9)), mantle::MN_ERROR_INVALID_ARG);
    EXPECT_EQ(m_A->GetCounters().m_qwSent, 0u);
}

TEST_F(UDPTransportTest, Open_SmallestAndLargestSent_Received)
{
    MakeOpen(m_SinkA, m_A, m_AddressA);
    EXPECT_EQ(m_A->SendTo(nullptr, 0, m_AddressA), mantle::MN_OK);
    ASSERT_TRUE(m_SinkA.WaitFor(1));
    EXPECT_EQ(m_SinkA.Get()[0].m_strData, "");
    const std::string largest(65507, 'L');
    EXPECT_EQ(Send(m_A, largest, m_AddressA), mantle::MN_OK);
    ASSERT_TRUE(m_SinkA.WaitFor(2));
    EXPECT_EQ(m_SinkA.Get()[1].m_strData, largest);
}

TEST_F(UDPTransportTest, NobodyThere_Sent_OthersStillArrive)
{
    MakeOpen(m_SinkA, m_A, m_AddressA);
    MakeOpen(m_SinkB, m_B, m_AddressB);
    m_B.ParaOut();
    for (int round = 0; round < 10; ++round)
        EXPECT_EQ(Send(m_A, "x", m_AddressB), mantle::MN_OK);
    EXPECT_EQ(Send(m_A, "y", m_AddressA), mantle::MN_OK);
    ASSERT_TRUE(m_SinkA.WaitFor(1));
    EXPECT_EQ(m_SinkA.Get()[0].m_strData, "y");
}

TEST_F(UDPTransportTest, Callback_ReleasesTheTransport_NoOtherFollows)
{
    int calls = 0;
    m_SinkA.m_fOnReceive = [&](const std::string&) {
        ++calls;
        for (int round = 0; round < 10; ++round)
            Send(m_A, "more", m_AddressA);
        m_A.ParaOut();
    };
    MakeOpen(m_SinkA, m_A, m_AddressA);
    EXPECT_EQ(Send(m_A, "first", m_AddressA), mantle::MN_OK);
    ASSERT_TRUE(m_SinkA.WaitFor(1));
    // The address is free, and what is received there now is not the old sink's.
    MakeOpen(m_SinkB, m_B, m_AddressB);
    Send(m_B, "x", m_AddressA);
    Send(m_B, "x", m_AddressB);
    ASSERT_TRUE(m_SinkB.WaitFor(1));
    EXPECT_EQ(calls, 1);
}

TEST_F(UDPTransportTest, Callback_ReleasesAnotherTransport_NoCallbackOfThatOne)
{
    m_SinkA.m_fOnReceive = [&](const std::string&) {
        Send(m_B, "x", m_AddressB);
        m_B.ParaOut();
    };
    MakeOpen(m_SinkB, m_B, m_AddressB);
    MakeOpen(m_SinkA, m_A, m_AddressA);
    Send(m_A, "first", m_AddressA);
    ASSERT_TRUE(m_SinkA.WaitFor(1));
    m_A.ParaOut();
    EXPECT_TRUE(m_SinkB.Get().empty());
}

TEST_F(UDPTransportTest, CallbackRunning_Released_WaitsForItsEnd)
{
    std::promise<void> begun;
    std::promise<void> goOn;
    std::atomic<bool> ended{false};
    m_SinkA.m_fOnReceive = [&](const std::string&) {
        begun.set_value();
        goOn.get_future().wait();
        ended.store(true);
    };
    MakeOpen(m_SinkA, m_A, m_AddressA);
    Send(m_A, "first", m_AddressA);
    begun.get_future().wait();
    std::atomic<bool> releasing{false};
    std::thread other([&] {
        // Long enough for a release that does not wait to come back first.
        while (!releasing.load())
            std::this_thread::yield();
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_FALSE(ended.load());
        goOn.set_value();
    });
    releasing.store(true);
    m_A.ParaOut();
    EXPECT_TRUE(ended.load());
    other.join();
}

TEST_F(UDPTransportTest, CallbackOfOneRunning_AnotherReleased_DoesNotWait)
{
    std::promise<void> begun;
    std::promise<void> goOn;
    m_SinkA.m_fOnReceive = [&](const std::string&) {
        begun.set_value();
        goOn.get_future().wait();
    };
    MakeOpen(m_SinkA, m_A, m_AddressA);
    MakeOpen(m_SinkB, m_B, m_AddressB);
    Send(m_A, "first", m_AddressA);
    begun.get_future().wait();
    m_B.ParaOut();
    Make(m_SinkB, m_B);
    EXPECT_EQ(m_B->Open(m_AddressB), mantle::MN_OK);
    EXPECT_EQ(Send(m_B, "later", m_AddressB), mantle::MN_OK);
    goOn.set_value();
    EXPECT_TRUE(m_SinkB.WaitFor(1));
}

// Inside a callback everything is queued until it returns, so the bound is met exactly.
TEST_F(UDPTransportTest, QueueAtItsBound_Sent_DroppedAndCounted)
{
    int refused = 0;
    m_SinkA.m_fOnReceive = [&](const std::string&) {
        m_A->SetQueueLimit(10 * 1000);
        for (int round = 0; round < 100; ++round)
            refused += Send(m_A, std::string(1000, 'q'), m_AddressB) == mantle::MN_ERROR_FAILURE ? 1 : 0;
        EXPECT_EQ(m_A->GetCounters().m_qwQueued, 10u);
    };
    MakeOpen(m_SinkB, m_B, m_AddressB);
    MakeOpen(m_SinkA, m_A, m_AddressA);
    Send(m_B, "go", m_AddressA);
    ASSERT_TRUE(m_SinkB.WaitFor(10));
    ASSERT_TRUE(m_SinkA.WaitFor(1));
    EXPECT_EQ(refused, 90);
    EXPECT_EQ(m_A->GetCounters().m_qwDropped, 90u);
    EXPECT_EQ(m_A->GetCounters().m_qwSent, 10u);
    EXPECT_EQ(m_A->GetCounters().m_qwQueued, 0u);
    m_B->SendTo("end", 3, m_AddressB);
    ASSERT_TRUE(m_SinkB.WaitFor(11));
    EXPECT_EQ(m_SinkB.Get().back().m_strData, "end");
}

TEST_F(UDPTransportTest, Queued_LastReleased_StillSent)
{
    m_SinkA.m_fOnReceive = [&](const std::string&) {
        for (int round = 0; round < 10; ++round)
            Send(m_A, "farewell " + std::to_string(round), m_AddressB);
        m_A.ParaOut();
    };
    MakeOpen(m_SinkB, m_B, m_AddressB);
    MakeOpen(m_SinkA, m_A, m_AddressA);
    Send(m_B, "go", m_AddressA);
    ASSERT_TRUE(m_SinkB.WaitFor(10));
    EXPECT_EQ(m_SinkB.Get()[9].m_strData, "farewell 9");
}

TEST_F(UDPTransportTest, SystemFull_Sent_QueuedAndSentWhenThereIsRoom)
{
    MakeOpen(m_SinkA, m_A, m_AddressA);
    MakeOpen(m_SinkB, m_B, m_AddressB);
    CSystemCalls::RefuseNext(3, EAGAIN);
    for (int round = 0; round < 20; ++round)
        EXPECT_EQ(Send(m_A, std::to_string(round), m_AddressB), mantle::MN_OK);
    ASSERT_TRUE(m_SinkB.WaitFor(20));
    for (std::size_t round = 0; round < 20; ++round)
        EXPECT_EQ(m_SinkB.Get()[round].m_strData, std::to_string(round));
    EXPECT_EQ(CSystemCalls::GetRefused(), 3);
    EXPECT_EQ(m_A->GetCounters().m_qwFailed, 0u);
    EXPECT_EQ(m_A->GetCounters().m_qwDropped, 0u);
}

TEST_F(UDPTransportTest, SystemFullAndNoRoomInTheQueue_Sent_DroppedAndCounted)
{
    MakeOpen(m_SinkA, m_A, m_AddressA);
    m_A->SetQueueLimit(0);
    CSystemCalls::RefuseNext(1, EAGAIN);
    EXPECT_EQ(Send(m_A, "x", m_AddressA), mantle::MN_ERROR_FAILURE);
    EXPECT_EQ(m_A->GetCounters().m_qwDropped, 1u);
    EXPECT_EQ(m_A->GetCounters().m_qwQueued, 0u);
}

TEST_F(UDPTransportTest, SystemRefusesOne_Sent_CountedAndTheNextGoesOut)
{
    MakeOpen(m_SinkA, m_A, m_AddressA);
    CSystemCalls::RefuseNext(1, ENETUNREACH);
    EXPECT_EQ(Send(m_A, "lost", m_AddressA), mantle::MN_OK);
    EXPECT_EQ(Send(m_A, "found", m_AddressA), mantle::MN_OK);
    ASSERT_TRUE(m_SinkA.WaitFor(1));
    EXPECT_EQ(m_SinkA.Get()[0].m_strData, "found");
    EXPECT_EQ(m_A->GetCounters().m_qwFailed, 1u);
}

}  // namespace
}  // namespace connhub
