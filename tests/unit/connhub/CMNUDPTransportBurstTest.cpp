// Datagrams of a burst: those that are sent in one, and those that arrive together.
#include <atomic>
#include <cerrno>
#include <functional>
#include <thread>

#include "mantle/CMNBurst.h"
#include "mantle/CMNEventThread.h"
#include "unit/connhub/UDPTransportTest.h"

namespace connhub
{
namespace
{

constexpr std::size_t s_nEach = 20;

class UDPTransportBurstTest : public UDPTransportTest
{
protected:
    UDPTransportBurstTest()
    {
        MakeOpen(m_SinkA, m_A, m_AddressA);
        MakeOpen(m_SinkB, m_B, m_AddressB);
    }

    void SendNumbered(std::size_t count, std::size_t length)
    {
        for (std::size_t index = 0; index < count; ++index) {
            std::string text = std::to_string(index);
            text.resize(length, ' ');
            ASSERT_EQ(Send(m_A, text, m_AddressB), mantle::MN_OK);
        }
    }

    void ExpectNumbered(std::size_t count)
    {
        ASSERT_TRUE(m_SinkB.WaitFor(count));
        const std::vector<CRecordingSink::CDatagram> received = m_SinkB.Get();
        ASSERT_EQ(received.size(), count);
        for (std::size_t index = 0; index < count; ++index)
            ASSERT_EQ(std::stoul(received[index].m_strData), index);
    }
};

TEST_F(UDPTransportBurstTest, Burst_Ends_SentByThenInOneCallAndInOrder)
{
    {
        mantle::CMNBurst burst;
        SendNumbered(30, 100);
        EXPECT_EQ(m_A->GetCounters().m_qwSent, 0u);
        EXPECT_EQ(m_A->GetCounters().m_qwQueued, 30u);
    }
    EXPECT_EQ(m_A->GetCounters().m_qwSent, 30u);  // by this thread
    EXPECT_EQ(m_A->GetCounters().m_qwSendCalls, 1u);
    EXPECT_EQ(m_A->GetCounters().m_qwQueued, 0u);
    ExpectNumbered(30);
}

TEST_F(UDPTransportBurstTest, Burst_MoreThanOneSegmentedSend_LeavesWhileItGoesOn)
{
    {
        mantle::CMNBurst burst;
        SendNumbered(100, 1400);
        EXPECT_GT(m_A->GetCounters().m_qwSent, 40u);
    }
    EXPECT_EQ(m_A->GetCounters().m_qwSent, 100u);
    ExpectNumbered(100);
}

TEST_F(UDPTransportBurstTest, BurstAfterBurst_Ends_EachSent)
{
    for (std::size_t round = 0; round < 10; ++round) {
        mantle::CMNBurst burst;
        ASSERT_EQ(Send(m_A, std::to_string(2 * round), m_AddressB), mantle::MN_OK);
        ASSERT_EQ(Send(m_A, std::to_string(2 * round + 1), m_AddressB), mantle::MN_OK);
    }
    EXPECT_EQ(m_A->GetCounters().m_qwSent, 20u);
    ExpectNumbered(20);
}

TEST_F(UDPTransportBurstTest, SystemFullAtTheEnd_LoopTriesAgain_AllSentInOrder)
{
    {
        mantle::CMNBurst burst;
        SendNumbered(10, 100);
        CSystemCalls::RefuseNext(3, EAGAIN);
    }
    ExpectNumbered(10);
    EXPECT_EQ(CSystemCalls::GetRefused(), 3);
    EXPECT_EQ(m_A->GetCounters().m_qwDropped, 0u);
}

TEST_F(UDPTransportBurstTest, TransportReleasedInsideTheBurst_QueuedDatagramsLeaveThen)
{
    mantle::CMNBurst burst;
    SendNumbered(10, 100);
    m_A.ParaOut();
    ExpectNumbered(10);
    // The address is free although the burst goes on.
    Make(m_SinkA, m_A);
    EXPECT_EQ(m_A->Open(m_AddressA), mantle::MN_OK);
}

TEST_F(UDPTransportBurstTest, SystemFullWhileItGoesOn_LoopTriesAgain_AllSentInOrder)
{
    {
        mantle::CMNBurst burst;
        SendNumbered(42, 1400);
        CSystemCalls::RefuseNext(1, EAGAIN);
        std::string last = "42";
        last.resize(1400, ' ');
        ASSERT_EQ(Send(m_A, last, m_AddressB), mantle::MN_OK);  // fills a segmented send, which is refused
    }
    ExpectNumbered(43);
    EXPECT_EQ(CSystemCalls::GetRefused(), 1);
}

TEST_F(UDPTransportBurstTest, BurstOfAnotherThreadIsOpen_Send_DoesNotWaitForItsEnd)
{
    mantle::CMNBurst burst;
    ASSERT_EQ(Send(m_A, "0", m_AddressB), mantle::MN_OK);
    std::thread([this] { ASSERT_EQ(Send(m_A, "1", m_AddressB), mantle::MN_OK); }).join();
    ExpectNumbered(2);
}

TEST_F(UDPTransportBurstTest, MoreThanTheQueueHolds_Burst_SendsAndDropsNothing)
{
    m_A->SetQueueLimit(14000);
    {
        mantle::CMNBurst burst;
        SendNumbered(45, 1500);
    }
    EXPECT_EQ(m_A->GetCounters().m_qwDropped, 0u);
    ExpectNumbered(45);
}

TEST_F(UDPTransportBurstTest, LittleRoomAndUnequalSizes_Burst_SendsAndDropsNothing)
{
    m_A->SetQueueLimit(1500);
    {
        mantle::CMNBurst burst;
        for (std::size_t index = 0; index < 40; ++index) {
            std::string text = std::to_string(index);
            text.resize(index % 2 == 0 ? 100 : 1450, ' ');
            ASSERT_EQ(Send(m_A, text, m_AddressB), mantle::MN_OK);
        }
    }
    EXPECT_EQ(m_A->GetCounters().m_qwDropped, 0u);
    ExpectNumbered(40);
}

TEST_F(UDPTransportBurstTest, NoRoomAtAll_Burst_SentAtOnce)
{
    m_A->SetQueueLimit(0);
    mantle::CMNBurst burst;
    SendNumbered(20, 100);
    EXPECT_EQ(m_A->GetCounters().m_qwSent, 20u);
    EXPECT_EQ(m_A->GetCounters().m_qwDropped, 0u);
    ExpectNumbered(20);
}

TEST_F(UDPTransportBurstTest, BurstIsOpen_ThreadSleeps_SentBefore)
{
    mantle::CMNEventThread arrived(1, 0);
    CRecordingSink sink;
    sink.m_fOnReceive = [&](const std::string&) { arrived.Signal(); };
    CTransportPtr transport;
    mantle::CMNInetAddr address;
    MakeOpen(sink, transport, address);
    {
        mantle::CMNBurst burst;
        ASSERT_EQ(Send(m_A, "x", address), mantle::MN_OK);
        const mantle::CMNTimeValue limit(30, 0);
        EXPECT_EQ(arrived.Wait(&limit), mantle::MN_OK);
    }
    transport.ParaOut();
}

CTransportPtr* s_pMade = nullptr;
IMNUDPTransportSink* s_pSink = nullptr;

// The first transport waits for the background thread, and a sleep does what has been put off.
TEST(UDPTransportFirstTest, FirstTransportMadeInABurst_WorkMakesOneToo_BothAreMade)
{
    CRecordingSink sink;
    CTransportPtr first;
    CTransportPtr second;
    s_pMade = &second;
    s_pSink = &sink;
    static thread_local mantle::CMNBurstWork work(
        []() noexcept { CMNConnectionManager::Instance()->CreateUDPTransport(s_pSink, s_pMade->ParaOut()); });
    {
        mantle::CMNBurst burst;
        EXPECT_TRUE(mantle::CMNBurst::PutOff(work));
        EXPECT_EQ(CMNConnectionManager::Instance()->CreateUDPTransport(&sink, first.ParaOut()), mantle::MN_OK);
    }
    EXPECT_TRUE(first);
    EXPECT_TRUE(second);
}

struct CLate
{
    ~CLate()
    {
        if (m_fDo)
            m_fDo();
    }
    std::function<void()> m_fDo;
};

thread_local CLate t_Late;

// Destructors of a thread's own objects run in the order against that of their making.
TEST_F(UDPTransportBurstTest, BurstInADestructorOfTheThread_Sent)
{
    std::thread([this] {
        t_Late.m_fDo = [this] {
            mantle::CMNBurst burst;
            Send(m_A, "1", m_AddressB);
        };
        mantle::CMNBurst burst;
        Send(m_A, "0", m_AddressB);
    }).join();
    ExpectNumbered(2);
}

TEST_F(UDPTransportBurstTest, DatagramsOfOneReceive_Delivered_InsideABurst)
{
    std::atomic<int> inBurst{0};
    CRecordingSink sink;
    sink.m_fOnReceive = [&](const std::string&) { inBurst += mantle::CMNBurst::IsOpen() ? 1 : 0; };
    CTransportPtr transport;
    mantle::CMNInetAddr address;
    MakeOpen(sink, transport, address);
    for (int index = 0; index < 5; ++index)
        ASSERT_EQ(Send(m_A, "x", address), mantle::MN_OK);
    ASSERT_TRUE(sink.WaitFor(5));
    transport.ParaOut();
    EXPECT_EQ(inBurst.load(), 5);
}

// The last release waits for a send that a burst's end makes in another thread, which holds no reference any more.
TEST_F(UDPTransportBurstTest, ReleasedByOneThreadWhileAnotherEndsItsBurst_NothingBreaks)
{
    for (std::size_t round = 0; round < 300; ++round) {
        CTransportPtr transport;
        mantle::CMNInetAddr address;
        MakeOpen(m_SinkA, transport, address);
        std::atomic<bool> queued{false};
        std::thread sender([&] {
            mantle::CMNBurst burst;
            for (std::size_t index = 0; index < s_nEach; ++index)
                Send(transport, "x", m_AddressB);
            queued.store(true);
        });
        while (!queued.load())
            std::this_thread::yield();
        transport.ParaOut();
        CTransportPtr again;
        Make(m_SinkA, again);
        ASSERT_EQ(again->Open(address), mantle::MN_OK);
        sender.join();
        ASSERT_TRUE(m_SinkB.WaitFor(s_nEach * (round + 1)));
    }
}

TEST_F(UDPTransportBurstTest, ReleasedInsideACallbackWhileAnotherEndsItsBurst_NothingBreaks)
{
    for (std::size_t round = 0; round < 200; ++round) {
        CRecordingSink sink;
        CTransportPtr transport;
        mantle::CMNInetAddr address;
        std::atomic<bool> queued{false};
        std::atomic<bool> released{false};
        sink.m_fOnReceive = [&](const std::string&) {
            while (!queued.load())
                std::this_thread::yield();
            transport.ParaOut();
            released.store(true);
        };
        MakeOpen(sink, transport, address);
        std::thread sender([&] {
            mantle::CMNBurst burst;
            for (std::size_t index = 0; index < s_nEach; ++index)
                Send(transport, "x", m_AddressB);
            queued.store(true);
        });
        ASSERT_EQ(Send(m_A, "go", address), mantle::MN_OK);
        sender.join();
        while (!released.load())
            std::this_thread::yield();
        ASSERT_TRUE(sink.WaitFor(1));
        ASSERT_TRUE(m_SinkB.WaitFor(s_nEach * (round + 1)));
    }
}

}  // namespace
}  // namespace connhub
