#include "platform/ipstack/CIPAnswerLimit.h"

#include <set>

#include <gtest/gtest.h>

#include "SocketSupport.h"
#include "platform/ipstack/CIPCore.h"
#include "platform/ipstack/CIPCounters.h"

namespace
{

using ipstack::CIPAnswerLimit;
using ipstack::CIPCounters;

class CIPAnswerLimitTest : public testing::Test
{
protected:
    CIPAnswerLimitTest() { socketsupport::Start(); }

    // How many of so many answers are allowed; no two of one connection.
    static unsigned int CountAllowed(unsigned int asked)
    {
        const ipstack::CIPCoreGuard guard;
        unsigned int allowed = 0;
        for (unsigned int i = 0; i < asked; ++i) {
            CIPAnswerLimit::CShare share;
            allowed += CIPAnswerLimit::AllowConnection(CIPAnswerLimit::Acknowledgement, &share) ? 1 : 0;
        }
        return allowed;
    }

    socketsupport::CTime m_Time;
};

TEST_F(CIPAnswerLimitTest, OneConnection_TenASecond_RestWithheldAndCounted)
{
    const ipstack::CIPCoreGuard guard;
    CIPAnswerLimit::CShare one;
    CIPAnswerLimit::CShare other;
    const std::uint64_t sent = CIPCounters::Get(CIPCounters::AnswerAck);
    const std::uint64_t withheld = CIPCounters::Get(CIPCounters::AnswerAckWithheld);
    for (int i = 0; i < 10; ++i) {
        EXPECT_TRUE(CIPAnswerLimit::AllowConnection(CIPAnswerLimit::Acknowledgement, &one));
    }
    EXPECT_FALSE(CIPAnswerLimit::AllowConnection(CIPAnswerLimit::Acknowledgement, &one));
    EXPECT_FALSE(CIPAnswerLimit::AllowConnection(CIPAnswerLimit::Reset, &one)) << "one share for both kinds";
    EXPECT_TRUE(CIPAnswerLimit::AllowConnection(CIPAnswerLimit::Acknowledgement, &other));
    EXPECT_EQ(11U, CIPCounters::Get(CIPCounters::AnswerAck) - sent);
    EXPECT_EQ(1U, CIPCounters::Get(CIPCounters::AnswerAckWithheld) - withheld);
}

TEST_F(CIPAnswerLimitTest, NextSecond_AnswersAgain)
{
    CIPAnswerLimit::CShare share;
    for (int second = 0; second < 3; ++second) {
        {
            const ipstack::CIPCoreGuard guard;
            for (int i = 0; i < 12; ++i) {
                EXPECT_EQ(i < 10, CIPAnswerLimit::AllowConnection(CIPAnswerLimit::Acknowledgement, &share));
            }
        }
        m_Time.Pass(1000);
    }
}

// A fixed limit over all lets a stranger count what others draw.
TEST_F(CIPAnswerLimitTest, ManyConnections_LimitInAll_ChangesFromSecondToSecond)
{
    const unsigned int most = CIPAnswerLimit::s_Acknowledgements.m_dwInAll;
    std::set<unsigned int> seen;
    for (int second = 0; second < 20; ++second) {
        const unsigned int allowed = CountAllowed(3 * most);
        EXPECT_GE(allowed, most - most / 4);
        EXPECT_LT(allowed, most + most / 4);
        seen.insert(allowed);
        m_Time.Pass(1000);
    }
    EXPECT_GT(seen.size(), 10U);
}

}  // namespace
