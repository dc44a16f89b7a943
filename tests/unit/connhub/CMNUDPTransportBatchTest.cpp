// Many datagrams at once.
#include <cerrno>

#include "unit/connhub/UDPTransportTest.h"

namespace connhub
{
namespace
{

constexpr std::size_t s_nMany = 500;

// All of them queue inside one callback and leave when it returns.
class UDPTransportBatchTest : public UDPTransportTest
{
protected:
    void SendMany(const std::function<std::string(std::size_t)>& make)
    {
        m_SinkA.m_fOnReceive = [this, make](const std::string& text) {
            if (text == "go") {
                for (std::size_t index = 0; index < s_nMany; ++index)
                    Send(m_A, make(index), m_AddressB);
            }
        };
        MakeOpen(m_SinkB, m_B, m_AddressB);
        MakeOpen(m_SinkA, m_A, m_AddressA);
        Send(m_B, "go", m_AddressA);
        ASSERT_TRUE(m_SinkB.WaitFor(s_nMany));
        const std::vector<CRecordingSink::CDatagram> received = m_SinkB.Get();
        ASSERT_EQ(received.size(), s_nMany);
        for (std::size_t index = 0; index < s_nMany; ++index)
            ASSERT_EQ(received[index].m_strData, make(index)) << index;
        ASSERT_TRUE(m_SinkA.WaitFor(1));
        EXPECT_EQ(m_A->GetCounters().m_qwSent, s_nMany);
        EXPECT_EQ(m_A->GetCounters().m_qwDropped, 0u);
        EXPECT_EQ(m_B->GetCounters().m_qwReceived, s_nMany);
    }

    static std::string Numbered(std::size_t index, std::size_t length)
    {
        std::string text = std::to_string(index) + ' ';
        text.resize(length, static_cast<char>('a' + index % 26));
        return text;
    }
};

TEST_F(UDPTransportBatchTest, ManyEqual_Sent_InFewCallsAndInOrder)
{
    SendMany([](std::size_t index) { return Numbered(index, 1400); });
    EXPECT_LT(m_A->GetCounters().m_qwSendCalls, s_nMany / 10);
    if (m_A->GetCounters().m_qwSegmentedSends == 0)
        GTEST_SKIP() << "this system has no segmented sends";
    EXPECT_GE(m_A->GetCounters().m_qwSegmentedSends, s_nMany / 64);
    EXPECT_EQ(m_A->GetCounters().m_qwSegmentedRefused, 0u);
    EXPECT_GT(m_B->GetCounters().m_qwMergedReceives, 0u);
    EXPECT_LT(m_B->GetCounters().m_qwReceiveCalls, s_nMany / 10);
}

TEST_F(UDPTransportBatchTest, ManyTiny_Sent_InFewCallsAndInOrder)
{
    SendMany([](std::size_t index) { return Numbered(index, 5); });
    EXPECT_LT(m_A->GetCounters().m_qwSendCalls, s_nMany / 10);
}

TEST_F(UDPTransportBatchTest, ManyOfGrowingSize_Sent_InOrder)
{
    SendMany([](std::size_t index) { return Numbered(index, 10 + index); });
    EXPECT_EQ(m_A->GetCounters().m_qwSegmentedSends, 0u);
    EXPECT_LT(m_A->GetCounters().m_qwSendCalls, s_nMany / 10);
}

TEST_F(UDPTransportBatchTest, ManyOfMixedSize_Sent_InOrder)
{
    SendMany([](std::size_t index) { return Numbered(index, index % 7 == 0 ? 40 : 1200 + index % 3 / 2); });
}

TEST_F(UDPTransportBatchTest, EmptyOnesAmongThem_Sent_InOrder)
{
    SendMany([](std::size_t index) { return index % 3 == 0 ? std::string() : Numbered(index, 100); });
}

TEST_F(UDPTransportBatchTest, SegmentedSendsRefused_Sent_OneByOneAndInOrder)
{
    CSystemCalls::RefuseSegmented(EIO);
    SendMany([](std::size_t index) { return Numbered(index, 1400); });
    EXPECT_EQ(m_A->GetCounters().m_qwSegmentedSends, 0u);
    EXPECT_EQ(m_A->GetCounters().m_qwSegmentedRefused, 1u);
    EXPECT_EQ(m_A->GetCounters().m_qwFailed, 0u);
    EXPECT_LT(m_A->GetCounters().m_qwSendCalls, s_nMany / 10);
}

TEST_F(UDPTransportBatchTest, SystemFullInTheMiddle_Sent_InOrder)
{
    CSystemCalls::RefuseNext(0, EAGAIN);
    m_SinkB.m_fOnReceive = [](const std::string& text) {
        if (text.compare(0, 2, "0 ") == 0)
            CSystemCalls::RefuseNext(5, EAGAIN);
    };
    SendMany([](std::size_t index) { return Numbered(index, 1400); });
}

TEST_F(UDPTransportBatchTest, AnotherThreadSendsMany_Received_InOrder)
{
    MakeOpen(m_SinkA, m_A, m_AddressA);
    MakeOpen(m_SinkB, m_B, m_AddressB);
    constexpr std::size_t many = 2000;  // fits into the smallest receive buffer
    for (std::size_t index = 0; index < many; ++index) {
        ASSERT_EQ(Send(m_A, Numbered(index, 50), m_AddressB), mantle::MN_OK);
        if (index % 100 == 99) {
            ASSERT_TRUE(m_SinkB.WaitFor(index + 1));
        }
    }
    const std::vector<CRecordingSink::CDatagram> received = m_SinkB.Get();
    for (std::size_t index = 0; index < many; ++index)
        ASSERT_EQ(received[index].m_strData, Numbered(index, 50));
}

}  // namespace
}  // namespace connhub
