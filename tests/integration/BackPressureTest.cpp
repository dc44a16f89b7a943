// A sender that meets a full window.
#include <gtest/gtest.h>

#include "ipstack/ipstack.h"
#include "tests/integration/support/CBytes.h"
#include "tests/integration/support/CClient.h"
#include "tests/integration/support/CListener.h"

using namespace uxport;

namespace
{

constexpr unsigned short PORT = 7005;

// A client whose server does not read until it is told to.
class BackPressureTest : public testing::Test
{
protected:
    void SetUp() override
    {
        m_Listener.m_bOpen = false;
        m_Network.Run([this] {
            ASSERT_EQ(MN_OK, m_Listener.Listen(Loopback(PORT)));
            ASSERT_EQ(MN_OK, m_Client.Connect(Loopback(PORT), 5));
        });
        ASSERT_TRUE(m_Network.WaitFor([this] { return m_Client.IsConnected() && m_Listener.GetCount() == 1; }));
    }

    CPeer& Server() { return m_Listener.GetPeer(); }
    void LetServerRead()
    {
        m_Network.Run([this] { EXPECT_EQ(MN_OK, Server().GetTransport()->OpenWithSink(&Server())); });
    }

    mantle::CMNManualClock m_Clock;
    CNetwork m_Network;
    CListener m_Listener{m_Network};
    CClient m_Client{m_Network};
};

TEST_F(BackPressureTest, WindowFull_PeerDoesNotRead_NoOnSendUntilItDoes)
{
    const std::string much = CBytes(4).Make(400000);
    m_Network.Run([&] { m_Client.Send(much); });
    EXPECT_FALSE(m_Network.WaitFor([this] { return m_Client.m_nOnSend > m_Client.m_nRefused - 1; }, 300))
        << "the window opens for whoever reads only";
    EXPECT_TRUE(m_Client.IsSending());
    EXPECT_EQ(0, m_Client.m_nOnDisconnect) << "a closed window is no failure";

    LetServerRead();
    ASSERT_TRUE(m_Network.WaitFor([&] { return Server().m_qwReceived == much.size(); }, 3600));
    m_Network.Turn();
    EXPECT_TRUE(much == Server().m_strReceived);
    EXPECT_EQ(m_Client.m_nRefused, m_Client.m_nOnSend) << "once for each";
    EXPECT_FALSE(m_Client.IsSending());
}

TEST_F(BackPressureTest, TwoSendsRefused_WindowOpens_OneOnSend)
{
    const std::string much = CBytes(5).Make(200000);
    std::uint64_t taken = 0;
    m_Network.Run([&] {
        for (int i = 0; i < 2; ++i) {
            CMNMessageBlock block(much.size() - taken, much.data() + taken, CMNMessageBlock::DONT_DELETE,
                                  much.size() - taken);
            CPSTransportParameter parameter;
            EXPECT_EQ(10013UL, m_Client.GetTransport()->SendData(block, &parameter));
            EXPECT_EQ(much.size() - taken - block.GetLength(), parameter.SentLength);
            taken += parameter.SentLength;
        }
        EXPECT_GT(taken, 0U);
    });
    LetServerRead();
    ASSERT_TRUE(m_Network.WaitFor([&] { return Server().m_qwReceived == taken; }, 600));
    EXPECT_FALSE(m_Network.WaitFor([this] { return m_Client.m_nOnSend > 1; }, 60));
    EXPECT_EQ(1, m_Client.m_nOnSend);
    EXPECT_TRUE(much.compare(0, taken, Server().m_strReceived) == 0);
}

TEST_F(BackPressureTest, RefusedHundredsOfTimes_EachTimeOneOnSend)
{
    LetServerRead();
    constexpr std::uint64_t TOTAL = 20000000;
    constexpr std::uint64_t PIECE = 65536;
    CBytes bytes(6);
    std::string piece = bytes.Make(PIECE);
    std::uint64_t taken = 0;
    int refused = 0;
    const auto sendOn = [&] {
        EXPECT_EQ(refused, m_Client.m_nOnSend);
        while (taken < TOTAL) {
            CMNMessageBlock block(PIECE, piece.data(), CMNMessageBlock::DONT_DELETE, PIECE);
            CPSTransportParameter parameter;
            const MNResult result = m_Client.GetTransport()->SendData(block, &parameter);
            taken += parameter.SentLength;
            if (result == MN_ERROR_PARTIAL_DATA) {
                ++refused;
                return;
            }
            ASSERT_EQ(MN_OK, result);
        }
    };
    Server().m_bKeep = false;
    m_Client.m_fOnSend = sendOn;
    m_Network.Run(sendOn);
    ASSERT_TRUE(m_Network.WaitFor([&] { return taken >= TOTAL && Server().m_qwReceived == taken; }, 600));
    m_Network.Turn();
    EXPECT_GT(refused, 100);
    EXPECT_EQ(refused, m_Client.m_nOnSend);
}

// A fresh transport owes an OnSend, but watches for reading only until a send has been refused.
TEST_F(BackPressureTest, NothingRefused_LoopGoesRound_NoOnSend)
{
    LetServerRead();
    m_Network.Run([this] { m_Client.Send("short"); });
    ASSERT_TRUE(m_Network.WaitFor([this] { return Server().m_qwReceived == 5; }));
    EXPECT_FALSE(m_Network.WaitFor([this] { return m_Client.m_nOnSend + Server().m_nOnSend != 0; }, 60));
}

TEST_F(BackPressureTest, ManySmallPieces_OneSend_ArriveAsOneStream)
{
    LetServerRead();
    CBytes bytes(8);
    std::string all;
    m_Network.Run([&] {
        CMNMessageBlock head(1);
        for (int i = 0; i < 1500; ++i) {
            const std::string text = bytes.Make(static_cast<std::size_t>(i % 7));
            all += text;
            auto* block = new CMNMessageBlock(text.size() + 1);
            block->Write(text.data(), text.size());
            head.Append(block);
        }
        m_Client.Send(head);
    });
    ASSERT_TRUE(m_Network.WaitFor([&] { return Server().m_qwReceived == all.size(); }, 60)) << Server().m_qwReceived;
    EXPECT_TRUE(all == Server().m_strReceived);
}

}  // namespace
