#include "uxport/CLowlevelP2PTransport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "connhub/connhub.h"
#include "mantle/CMNMessageBlock.h"

namespace uxport
{
namespace
{

using mantle::CMNLiveObjects;

static_assert(std::is_base_of_v<ipstack::IIPStackLowLevel, CLowlevelP2PTransport>);
static_assert(std::is_base_of_v<connhub::IMNUDPTransportSink, CLowlevelP2PTransport>);

const std::string s_strHost = "127.0.0.1";

// A link that keeps what is put into it.
class CRecordingStack : public ipstack::IIPStack
{
public:
    unsigned long Input(const char* data, unsigned long length) override
    {
        const std::lock_guard<std::mutex> guard(m_Mutex);
        m_Packets.emplace_back(data, length);
        m_Condition.notify_all();
        return m_dwResult;
    }

    bool WaitFor(std::size_t count)
    {
        std::unique_lock<std::mutex> lock(m_Mutex);
        return m_Condition.wait_for(lock, std::chrono::seconds(30), [=] { return m_Packets.size() >= count; });
    }

    std::vector<std::string> Get()
    {
        const std::lock_guard<std::mutex> guard(m_Mutex);
        return m_Packets;
    }

    unsigned long m_dwResult = 0;

private:
    std::mutex m_Mutex;
    std::condition_variable m_Condition;
    std::vector<std::string> m_Packets;
};

// The other end: a plain UDP socket.
class CPlainEnd : public connhub::IMNUDPTransportSink
{
public:
    CPlainEnd()
    {
        EXPECT_EQ(connhub::CMNConnectionManager::Instance()->CreateUDPTransport(this, m_pTransport.ParaOut()), MN_OK);
        EXPECT_EQ(m_pTransport->Open(CMNInetAddr(s_strHost, 0)), MN_OK);
        EXPECT_EQ(m_pTransport->GetLocalAddress(m_Address), MN_OK);
    }
    ~CPlainEnd() override { m_pTransport.ParaOut(); }

    unsigned long OnReceive(CMNMessageBlock& data, const CMNInetAddr&) override
    {
        return m_Received.Input(data.GetReadPtr(), data.GetLength());
    }

    unsigned short GetPort() const { return m_Address.GetPort(); }
    void Send(const std::string& data, unsigned short port)
    {
        EXPECT_EQ(m_pTransport->SendTo(data.data(), data.size(), CMNInetAddr(s_strHost, port)), MN_OK);
    }

    CRecordingStack m_Received;

private:
    mantle::CMNAutoPtr<connhub::IMNUDPTransport> m_pTransport;
    CMNInetAddr m_Address;
};

// A port that was free a moment ago.
unsigned short FreePort()
{
    return CPlainEnd().GetPort();
}

class CLowlevelP2PTransportTest : public testing::Test
{
protected:
    unsigned long Output(const std::string& data, unsigned char flag = 0)
    {
        return m_Link.IPStackLowLevelOutput(data.data(), data.size(), flag);
    }

    CRecordingStack m_Stack;
    CPlainEnd m_Peer;
    CLowlevelP2PTransport m_Link;
};

TEST_F(CLowlevelP2PTransportTest, NotOpen_Output_DroppedAndZero)
{
    const long live = CMNLiveObjects::Count();
    EXPECT_EQ(Output("lost"), 0u);
    EXPECT_EQ(CMNLiveObjects::Count(), live);
}

TEST_F(CLowlevelP2PTransportTest, NotOpen_Received_ToldThatThereIsNoStack)
{
    CMNMessageBlock block(4);
    EXPECT_EQ(m_Link.OnReceive(block, CMNInetAddr()), MN_ERROR_NULL_POINTER);
}

TEST_F(CLowlevelP2PTransportTest, Open_Output_OneDatagramWithNothingInFront)
{
    EXPECT_EQ(m_Link.Open(&m_Stack, s_strHost, m_Peer.GetPort(), s_strHost, FreePort()), 0u);
    EXPECT_EQ(Output("first"), 0u);
    EXPECT_EQ(Output("second", 7), 0u);
    ASSERT_TRUE(m_Peer.m_Received.WaitFor(2));
    EXPECT_EQ(m_Peer.m_Received.Get(), (std::vector<std::string>{"first", "second"}));
    EXPECT_TRUE(m_Stack.Get().empty());
}

TEST_F(CLowlevelP2PTransportTest, Open_DatagramsArrive_HandedToTheStackEmptyOnesToo)
{
    const unsigned short port = FreePort();
    m_Link.Open(&m_Stack, s_strHost, m_Peer.GetPort(), s_strHost, port);
    m_Peer.Send("", port);
    m_Peer.Send("packet", port);
    ASSERT_TRUE(m_Stack.WaitFor(2));
    EXPECT_EQ(m_Stack.Get(), (std::vector<std::string>{"", "packet"}));
}

TEST_F(CLowlevelP2PTransportTest, Open_DatagramFromAnybody_TakenAsThePeers)
{
    const unsigned short port = FreePort();
    m_Link.Open(&m_Stack, s_strHost, m_Peer.GetPort(), s_strHost, port);
    CPlainEnd stranger;
    stranger.Send("from elsewhere", port);
    ASSERT_TRUE(m_Stack.WaitFor(1));
    EXPECT_EQ(m_Stack.Get()[0], "from elsewhere");
}

TEST_F(CLowlevelP2PTransportTest, Received_StackAnswers_ItsResultIsReturned)
{
    m_Link.Open(&m_Stack, s_strHost, m_Peer.GetPort(), s_strHost, FreePort());
    m_Stack.m_dwResult = 4711;
    CMNMessageBlock block(8);
    block.Write("12345678", 8);
    block.AdvanceReadPtr(3);
    EXPECT_EQ(m_Link.OnReceive(block, CMNInetAddr("192.0.2.1", 1)), 4711u);
    EXPECT_EQ(m_Stack.Get(), std::vector<std::string>{"45678"});
}

TEST_F(CLowlevelP2PTransportTest, Open_OpenedAgain_OnlyTheNewDestinationFromThenOn)
{
    const long live = CMNLiveObjects::Count();
    CPlainEnd other;
    CRecordingStack otherStack;
    const unsigned short port = FreePort();
    m_Link.Open(&m_Stack, s_strHost, m_Peer.GetPort(), s_strHost, port);
    Output("to the first");
    ASSERT_TRUE(m_Peer.m_Received.WaitFor(1));
    // On the same port, which the first one has given back.
    EXPECT_EQ(m_Link.Open(&otherStack, s_strHost, other.GetPort(), s_strHost, port), 0u);
    Output("to the second");
    other.Send("from the second", port);
    ASSERT_TRUE(other.m_Received.WaitFor(1));
    ASSERT_TRUE(otherStack.WaitFor(1));
    EXPECT_EQ(other.m_Received.Get(), std::vector<std::string>{"to the second"});
    EXPECT_EQ(otherStack.Get(), std::vector<std::string>{"from the second"});
    EXPECT_EQ(m_Peer.m_Received.Get().size(), 1u);
    EXPECT_TRUE(m_Stack.Get().empty());
    EXPECT_EQ(CMNLiveObjects::Count(), live + 2);  // `other`'s and the link's own
}

TEST_F(CLowlevelP2PTransportTest, PortInUse_Opened_ZeroAndPacketsAreDroppedUntilTheNextOpen)
{
    EXPECT_EQ(m_Link.Open(&m_Stack, s_strHost, m_Peer.GetPort(), s_strHost, m_Peer.GetPort()), 0u);
    EXPECT_EQ(Output("lost"), 0u);
    EXPECT_EQ(m_Link.Open(&m_Stack, s_strHost, m_Peer.GetPort(), s_strHost, FreePort()), 0u);
    EXPECT_EQ(Output("found"), 0u);
    ASSERT_TRUE(m_Peer.m_Received.WaitFor(1));
    EXPECT_EQ(m_Peer.m_Received.Get(), std::vector<std::string>{"found"});
}

TEST_F(CLowlevelP2PTransportTest, AddressesThatAreNone_Opened_ZeroAndTheNextOpenWorks)
{
    EXPECT_EQ(m_Link.Open(&m_Stack, "no address", 1, s_strHost, FreePort()), 0u);
    EXPECT_EQ(Output("lost"), 0u);
    EXPECT_EQ(m_Link.Open(&m_Stack, s_strHost, m_Peer.GetPort(), "203.0.113.1", 1), 0u);
    EXPECT_EQ(Output("lost"), 0u);
    EXPECT_EQ(m_Link.Open(&m_Stack, "", 0, "nor this", 99), 0u);
    EXPECT_EQ(Output("lost"), 0u);
    EXPECT_EQ(m_Link.Open(&m_Stack, s_strHost, m_Peer.GetPort(), s_strHost, FreePort()), 0u);
    EXPECT_EQ(Output("found"), 0u);
    ASSERT_TRUE(m_Peer.m_Received.WaitFor(1));
    EXPECT_EQ(m_Peer.m_Received.Get(), std::vector<std::string>{"found"});
}

TEST_F(CLowlevelP2PTransportTest, Open_Destroyed_PortIsFreeAndNothingIsLeft)
{
    const long live = CMNLiveObjects::Count();
    const unsigned short port = FreePort();
    for (int round = 0; round < 50; ++round) {
        CLowlevelP2PTransport link;
        CRecordingStack stack;
        link.Open(&stack, s_strHost, m_Peer.GetPort(), s_strHost, port);
        m_Peer.Send("x", port);
        ASSERT_TRUE(stack.WaitFor(1)) << round;
    }
    EXPECT_EQ(CMNLiveObjects::Count(), live);
}

// Says on which socket and for which destination a packet left: the two ends know only their own.
TEST_F(CLowlevelP2PTransportTest, PacketsLeaving_OpenedAgain_SocketAndDestinationChangeTogether)
{
    struct CEnd : connhub::IMNUDPTransportSink
    {
        unsigned long OnReceive(CMNMessageBlock&, const CMNInetAddr& from) override
        {
            (from.GetPort() == m_wExpected.load() ? m_nRight : m_nWrong)++;
            return 0;
        }
        std::atomic<unsigned short> m_wExpected{0};
        std::atomic<int> m_nRight{0};
        std::atomic<int> m_nWrong{0};
    };
    CEnd ends[2];
    mantle::CMNAutoPtr<connhub::IMNUDPTransport> transports[2];
    unsigned short ports[2];
    for (int index = 0; index < 2; ++index) {
        connhub::CMNConnectionManager::Instance()->CreateUDPTransport(&ends[index], transports[index].ParaOut());
        CMNInetAddr address;
        ASSERT_EQ(transports[index]->Open(CMNInetAddr(s_strHost, 0)), MN_OK);
        transports[index]->GetLocalAddress(address);
        ports[index] = address.GetPort();
        ends[index].m_wExpected.store(FreePort());
    }
    std::atomic<bool> stop{false};
    std::thread emitting([&] {
        while (!stop.load())
            Output("packet");
    });
    for (int round = 0; round < 200; ++round) {
        const int index = round % 2;
        const int before = ends[index].m_nRight.load();
        m_Link.Open(&m_Stack, s_strHost, ports[index], s_strHost, ends[index].m_wExpected.load());
        while (ends[index].m_nRight.load() == before && ends[index].m_nWrong.load() == 0)
            std::this_thread::yield();
    }
    stop.store(true);
    emitting.join();
    EXPECT_EQ(ends[0].m_nWrong.load(), 0);
    EXPECT_EQ(ends[1].m_nWrong.load(), 0);
}

TEST_F(CLowlevelP2PTransportTest, Received_StackOpensTheLinkAgain_Works)
{
    class CReopening : public CRecordingStack
    {
    public:
        unsigned long Input(const char* data, unsigned long length) override
        {
            if (m_fOnInput)
                std::exchange(m_fOnInput, nullptr)();
            return CRecordingStack::Input(data, length);
        }
        std::function<void()> m_fOnInput;
    };
    CReopening stack;
    const unsigned short port = FreePort();
    stack.m_fOnInput = [&] { m_Link.Open(&stack, s_strHost, m_Peer.GetPort(), s_strHost, port); };
    m_Link.Open(&stack, s_strHost, m_Peer.GetPort(), s_strHost, port);
    m_Peer.Send("once", port);
    ASSERT_TRUE(stack.WaitFor(1));
    m_Peer.Send("again", port);
    EXPECT_TRUE(stack.WaitFor(2));
    m_Link.Open(nullptr, "", 0, s_strHost, 0);
}

}  // namespace
}  // namespace uxport
