// Connections that the main thread owns: echo, order, back-pressure, questions.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <thread>

#include "ipstack/ipstack.h"
#include "tests/integration/support/CBytes.h"
#include "tests/integration/support/CUserClient.h"
#include "tests/integration/support/CUserServer.h"

using namespace uxport;

namespace
{

constexpr unsigned short PORT = 7030;

// A client and a server of main, connected with each other.
class ProxyEchoTest : public testing::Test
{
protected:
    void Connect(bool echo)
    {
        m_pServer = std::make_unique<CUserServer>(m_User, echo);
        m_pClient = std::make_unique<CUserClient>(m_User);
        ASSERT_EQ(MN_OK, m_pServer->Listen(Loopback(PORT)));
        ASSERT_EQ(MN_OK, m_pClient->Connect(Loopback(PORT), 5));
        ASSERT_TRUE(m_User.RunUntil([this] { return m_pClient->IsConnected() && m_pServer->GetCount() == 1; }));
    }

    void TearDown() override
    {
        m_pClient.reset();
        m_pServer.reset();
        EXPECT_EQ(m_lBefore, m_User.SettleTo(m_lBefore));
    }

    CNetwork m_Network;
    CUserLoop m_User{m_Network};
    const long m_lBefore = mantle::CMNLiveObjects::Count();
    std::unique_ptr<CUserServer> m_pServer;
    std::unique_ptr<CUserClient> m_pClient;
};

TEST_F(ProxyEchoTest, BothEndsOnMain_SendsOnce_HearsTheSame)
{
    Connect(true);
    m_pClient->Send("anybody there?");
    ASSERT_TRUE(m_User.RunUntil([this] { return m_pClient->m_qwReceived == 14; }));
    EXPECT_EQ("anybody there?", m_pClient->m_strReceived);
    m_User.Settle();
    EXPECT_EQ(std::vector<long>{0}, m_pClient->m_Results);
    EXPECT_EQ(1, m_pServer->m_nIndications);
    EXPECT_EQ(0, m_pClient->m_nOnSend) << "the network was never unready";
    EXPECT_EQ(0, m_pClient->m_nOnDisconnect);
    EXPECT_EQ(0, m_pServer->GetPeer().m_nOnDisconnect);
}

TEST_F(ProxyEchoTest, BothEndsOnMain_SendsThreeMegabytesAtOnce_HearsAllInOrder)
{
    const std::string sent = CBytes(7).Make(3000001);
    Connect(true);
    m_pClient->Send(sent);
    ASSERT_TRUE(m_User.RunUntil([&] { return m_pClient->m_qwReceived >= sent.size(); }));
    EXPECT_TRUE(sent == m_pClient->m_strReceived);
    m_User.Settle();
    EXPECT_EQ(1, m_pClient->m_nOnSend) << "one backlog";
}

// Each block is larger than the buffers on its way, so that a part of it is refused and drains later.
TEST_F(ProxyEchoTest, EachBlockRefused_NextSentOnOnSend_OneOnSendForEach)
{
    constexpr int BLOCKS = 20;
    constexpr std::size_t LENGTH = 1024 * 1024;
    Connect(false);
    CUserPeer& receiver = m_pServer->GetPeer();
    receiver.m_bKeep = false;
    const std::string block(LENGTH, 'x');
    int sent = 1;
    m_pClient->m_fOnSend = [&] {
        if (sent < BLOCKS) {
            ++sent;
            m_pClient->Send(block);
        }
    };
    m_pClient->Send(block);
    ASSERT_TRUE(m_User.RunUntil([&] { return receiver.m_qwReceived == BLOCKS * LENGTH; }));
    m_User.Settle();
    EXPECT_EQ(BLOCKS, m_pClient->m_nOnSend);
    EXPECT_EQ(0, receiver.m_nOnSend);
}

// Main, the network thread itself and the backlog in between, in one order.
TEST_F(ProxyEchoTest, SentFromMainAndInPlace_WithBacklog_ArrivesInTheOrderSent)
{
    constexpr int SENDS = 200;
    constexpr std::size_t MAX_LENGTH = 100000;
    const auto seed = std::random_device()();
    RecordProperty("seed", std::to_string(seed));
    std::mt19937 random(seed);
    Connect(false);
    mantle::CMNAutoPtr<IPSTransport> transport(m_pClient->GetTransport());
    CBytes bytes(seed);
    std::string expected;
    for (int i = 0; i < SENDS; ++i) {
        const std::string text = bytes.Make(1 + random() % MAX_LENGTH);
        expected += text;
        if (random() % 2 == 0) {
            m_pClient->Send(text);
            continue;
        }
        m_Network.Post([transport, text] {
            CMNMessageBlock block(text.size(), text.data(), CMNMessageBlock::DONT_DELETE, text.size());
            EXPECT_EQ(MN_OK, transport->SendData(block, nullptr));
            EXPECT_EQ(0U, block.GetChainedLength());
        });
    }
    transport = nullptr;
    CUserPeer& receiver = m_pServer->GetPeer();
    ASSERT_TRUE(m_User.RunUntil([&] { return receiver.m_qwReceived >= expected.size(); })) << "seed " << seed;
    EXPECT_TRUE(expected == receiver.m_strReceived) << "seed " << seed;
    EXPECT_GE(m_pClient->m_nOnSend, 1) << "there was a backlog";
}

TEST_F(ProxyEchoTest, FourOtherThreadsSend_EachOfTheirSequencesInOrder)
{
    constexpr int THREADS = 4;
    constexpr std::uint32_t SENDS = 5000;
    struct CRecord
    {
        std::uint32_t m_dwThread;
        std::uint32_t m_dwNumber;
    };
    Connect(false);
    IPSTransport* transport = m_pClient->GetTransport();
    std::vector<std::thread> threads;
    for (std::uint32_t i = 0; i < THREADS; ++i) {
        threads.emplace_back([transport, i] {
            for (std::uint32_t number = 0; number < SENDS; ++number) {
                const CRecord record{i, number};
                CMNMessageBlock block(sizeof record);
                block.Write(&record, sizeof record);
                EXPECT_EQ(MN_OK, transport->SendData(block, nullptr));
            }
        });
    }
    CUserPeer& receiver = m_pServer->GetPeer();
    EXPECT_TRUE(m_User.RunUntil([&] { return receiver.m_qwReceived == THREADS * SENDS * sizeof(CRecord); }));
    for (std::thread& thread : threads)
        thread.join();
    std::uint32_t next[THREADS] = {};
    for (std::size_t at = 0; at + sizeof(CRecord) <= receiver.m_strReceived.size(); at += sizeof(CRecord)) {
        CRecord record;
        std::memcpy(&record, receiver.m_strReceived.data() + at, sizeof record);
        ASSERT_LT(record.m_dwThread, static_cast<std::uint32_t>(THREADS));
        ASSERT_EQ(next[record.m_dwThread]++, record.m_dwNumber);
    }
}

TEST_F(ProxyEchoTest, BufferWrittenAgainBehindTheSend_FirstContentArrives)
{
    Connect(false);
    char buffer[] = "before";
    CMNMessageBlock block(6, buffer, CMNMessageBlock::DONT_DELETE, 6);
    mantle::CMNEventThread written(1, 0);
    m_Network.Post([&] { written.Wait(); });
    EXPECT_EQ(MN_OK, m_pClient->GetTransport()->SendData(block, nullptr));
    std::copy_n("behind", sizeof buffer, buffer);
    written.Signal();
    ASSERT_TRUE(m_User.RunUntil([&] { return m_pServer->GetPeer().m_qwReceived == 6; }));
    EXPECT_EQ("before", m_pServer->GetPeer().m_strReceived);
}

TEST_F(ProxyEchoTest, Connected_AsksForAddressesTypeAndNetworkSide_AllAnswered)
{
    Connect(false);
    IPSTransport* transport = m_pClient->GetTransport();
    CMNInetAddr local;
    CMNInetAddr peer;
    CMNInetAddr other;
    EXPECT_EQ(MN_OK, transport->GetLocalAddr(local));
    EXPECT_EQ(MN_OK, transport->GetPeerAddr(peer));
    EXPECT_EQ(MN_OK, m_pServer->GetPeer().GetTransport()->GetPeerAddr(other));
    EXPECT_EQ(Loopback(PORT), peer) << peer.ToString();
    EXPECT_EQ(local, other) << other.ToString();

    std::uint64_t type = 0;
    EXPECT_EQ(MN_OK, transport->GetOption(OPT_TYPE, &type));
    EXPECT_EQ(CONNECTION_TYPE_TCP, type);
    IPSTransport* inner = nullptr;
    EXPECT_EQ(MN_OK, transport->GetOption(OPT_NETWORK_TRANSPORT, &inner));
    ASSERT_NE(nullptr, inner);
    EXPECT_NE(transport, inner);
    EXPECT_EQ(MN_ERROR_INVALID_ARG, inner->GetOption(OPT_NETWORK_TRANSPORT, &inner))
        << "the real one has no such option";
}

// Four threads ask while connections are made and closed.
TEST_F(ProxyEchoTest, OthersAskWhileConnectionsComeAndGo_NobodyIsHurt)
{
    constexpr int ROUNDS = 50;
    Connect(false);
    std::vector<mantle::CMNAutoPtr<IPSTransport>> transports{m_pClient->GetTransport()};
    std::atomic<IPSTransport*> newest{m_pClient->GetTransport()};
    std::atomic<bool> end{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            while (!end.load()) {
                IPSTransport* asked = newest.load();
                CMNInetAddr address;
                asked->GetLocalAddr(address);
                asked->GetPeerAddr(address);
                std::int32_t alive = 0;
                asked->GetOption(OPT_ALIVE, &alive);
                std::uint64_t size = 32768;
                asked->SetOption(OPT_SEND_BUFFER, &size);
                asked->GetOption(OPT_SEND_BUFFER, &size);
            }
        });
    }
    for (int round = 0; round < ROUNDS; ++round) {
        m_pClient->Drop();
        EXPECT_TRUE(
            m_User.RunUntil([&] { return m_pServer->GetPeer(m_pServer->GetCount() - 1).m_nOnDisconnect == 1; }));
        EXPECT_EQ(MN_OK, m_pClient->Connect(Loopback(PORT), 5));
        const std::size_t count = m_pServer->GetCount() + 1;
        EXPECT_TRUE(m_User.RunUntil([&] { return m_pClient->IsConnected() && m_pServer->GetCount() == count; }));
        transports.emplace_back(m_pClient->GetTransport());
        newest.store(m_pClient->GetTransport());
    }
    end.store(true);
    for (std::thread& thread : threads)
        thread.join();
}

}  // namespace
