#include "mantle/CMNBurst.h"

#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "mantle/CMNWaiter.h"

namespace mantle
{
namespace
{

std::string* s_pDone = nullptr;

void DoA() noexcept
{
    *s_pDone += 'a';
}

void DoB() noexcept
{
    *s_pDone += 'b';
}

class CMNBurstTest : public testing::Test
{
protected:
    CMNBurstTest() { s_pDone = &m_strDone; }
    ~CMNBurstTest() override { s_pDone = nullptr; }

    std::string m_strDone;
    CMNBurstWork m_A{&DoA};
    CMNBurstWork m_B{&DoB};
};

TEST_F(CMNBurstTest, NoBurst_PutOff_RefusedAndNeverDone)
{
    EXPECT_FALSE(CMNBurst::IsOpen());
    EXPECT_FALSE(CMNBurst::PutOff(m_A));
    {
        CMNBurst burst;
        EXPECT_TRUE(CMNBurst::IsOpen());
    }
    EXPECT_FALSE(CMNBurst::IsOpen());
    EXPECT_EQ(m_strDone, "");
}

TEST_F(CMNBurstTest, PutOff_BurstEnds_DoneOnceInOrder)
{
    {
        CMNBurst burst;
        EXPECT_TRUE(CMNBurst::PutOff(m_B));
        EXPECT_TRUE(CMNBurst::PutOff(m_A));
        EXPECT_TRUE(CMNBurst::PutOff(m_B));
        EXPECT_EQ(m_strDone, "");
    }
    EXPECT_EQ(m_strDone, "ba");
    {
        CMNBurst burst;
    }
    EXPECT_EQ(m_strDone, "ba");
}

TEST_F(CMNBurstTest, Nested_InnerEnds_DoneThenAndTheOuterOneGoesOn)
{
    {
        CMNBurst outer;
        EXPECT_TRUE(CMNBurst::PutOff(m_A));
        {
            CMNBurst inner;
            EXPECT_TRUE(CMNBurst::PutOff(m_B));
            EXPECT_EQ(m_strDone, "");
        }
        EXPECT_EQ(m_strDone, "ab");
        EXPECT_TRUE(CMNBurst::IsOpen());
        EXPECT_TRUE(CMNBurst::PutOff(m_B));
    }
    EXPECT_EQ(m_strDone, "abb");
}

TEST_F(CMNBurstTest, PutOff_Finish_DoneAndTheBurstGoesOn)
{
    CMNBurst burst;
    EXPECT_TRUE(CMNBurst::PutOff(m_A));
    CMNBurst::Finish();
    EXPECT_EQ(m_strDone, "a");
    CMNBurst::Finish();
    EXPECT_EQ(m_strDone, "a");
    EXPECT_TRUE(CMNBurst::IsOpen());
}

CMNWaiter* s_pWaiter = nullptr;

// What was put off may be what the sleeper waits for.
TEST_F(CMNBurstTest, PutOff_ThreadSleeps_DoneBefore)
{
    CMNBurstWork signal([]() noexcept { s_pWaiter->Signal(); });
    CMNWaiter waiter;
    s_pWaiter = &waiter;
    {
        CMNBurst burst;
        EXPECT_TRUE(CMNBurst::PutOff(signal));
        EXPECT_TRUE(waiter.Wait(waiter.GetSequence(), CMNWaiter::s_llForever));
    }
    s_pWaiter = nullptr;
}

TEST_F(CMNBurstTest, Done_PutOffAgain_DoneAgain)
{
    for (int round = 0; round < 2; ++round) {
        CMNBurst burst;
        EXPECT_TRUE(CMNBurst::PutOff(m_A));
    }
    EXPECT_EQ(m_strDone, "aa");
}

CMNBurstWork* s_pAgain = nullptr;

TEST_F(CMNBurstTest, WorkPutsOffItselfAndOthers_BurstEnds_AllDone)
{
    CMNBurstWork again([]() noexcept {
        *s_pDone += 'x';
        if (s_pDone->size() < 3) {
            CMNBurst nested;
            EXPECT_TRUE(CMNBurst::PutOff(*s_pAgain));
        }
    });
    s_pAgain = &again;
    {
        CMNBurst burst;
        EXPECT_TRUE(CMNBurst::PutOff(again));
        EXPECT_TRUE(CMNBurst::PutOff(m_A));
    }
    s_pAgain = nullptr;
    EXPECT_EQ(m_strDone, "xax");
}

TEST_F(CMNBurstTest, BurstOfOneThread_AnotherThread_IsInNone)
{
    CMNBurst burst;
    bool open = true;
    bool putOff = true;
    std::thread([&] {
        open = CMNBurst::IsOpen();
        putOff = CMNBurst::PutOff(m_A);
    }).join();
    EXPECT_FALSE(open);
    EXPECT_FALSE(putOff);
}

}  // namespace
}  // namespace mantle
