#include "mantle/IMNEvent.h"

#include <algorithm>

#include "MantleTest.h"

namespace mantle
{
namespace
{

class CCounted
{
public:
    explicit CCounted(int& deleted) : m_nDeleted(deleted) {}
    ~CCounted() { ++m_nDeleted; }

private:
    int& m_nDeleted;
};

TEST(IMNEventTest, DefaultDestroySelf_Called_Deletes)
{
    class CEvent : public IMNEvent
    {
    public:
        explicit CEvent(int& deleted) : m_Counted(deleted) {}
        MNResult OnEventFire() override { return MN_OK; }
        CCounted m_Counted;
    };
    int deleted = 0;
    IMNEvent* event = new CEvent(deleted);
    event->OnDestorySelf();
    EXPECT_EQ(deleted, 1);
}

TEST(CMNEventDeleteTTest, Run_ThenDestroyed_ObjectDeletedOnceByTheRun)
{
    int deleted = 0;
    IMNEvent* event = new CMNEventDeleteT<CCounted>(new CCounted(deleted));
    EXPECT_EQ(event->OnEventFire(), MN_OK);
    EXPECT_EQ(deleted, 1);
    EXPECT_EQ(event->OnEventFire(), MN_OK);
    event->OnDestorySelf();
    EXPECT_EQ(deleted, 1);
}

TEST(CMNEventDeleteTTest, DestroyedWithoutRun_Destroyed_ObjectDeletedOnce)
{
    int deleted = 0;
    IMNEvent* event = new CMNEventDeleteT<CCounted>(new CCounted(deleted));
    event->OnDestorySelf();
    EXPECT_EQ(deleted, 1);
}

// Counts how many refusals it is inside of, and posts on when destroyed.
struct CChain
{
    int m_nLeft;
    int m_nDeep = 0;
    int m_nDeepest = 0;
    int m_nDestroyed = 0;

    void Refuse()
    {
        if (m_nLeft == 0)
            return;
        --m_nLeft;
        EXPECT_EQ(MNRefuseEvent(new CAtDestroy([this] {
                      m_nDeepest = std::max(m_nDeepest, ++m_nDeep);
                      ++m_nDestroyed;
                      Refuse();
                      --m_nDeep;
                  })),
                  MN_ERROR_NOT_INITIALIZED);
    }
};

TEST(MNRefuseEventTest, OneEvent_Refused_DestroyedUnrunBeforeItReturns)
{
    CTestEvent::CCounts counts;
    EXPECT_EQ(MNRefuseEvent(new CTestEvent({}, &counts)), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(counts.m_nDestroyed, 1);
    EXPECT_EQ(counts.m_nFired, 0);
}

TEST(MNRefuseEventTest, EventsThatPostOnWhenDestroyed_Refused_AllDestroyedAndTheStackIsBounded)
{
    CChain chain{100000};
    chain.Refuse();
    EXPECT_EQ(chain.m_nDestroyed, 100000);
    EXPECT_EQ(chain.m_nDeepest, static_cast<int>(s_nMNNestedRefusals));
}

TEST(MNRefuseEventTest, ShortChain_Refused_EachDestroyedBeforeItsPostReturns)
{
    std::string order;
    MNRefuseEvent(new CAtDestroy([&order] {
        order += 'a';
        MNRefuseEvent(new CAtDestroy([&order] { order += 'b'; }));
        order += 'c';
    }));
    EXPECT_EQ(order, "abc");
}

TEST(IMNEventQueueTest, Priorities_Read_NormalIsOne)
{
    EXPECT_EQ(IMNEventQueue::EPRIORITY_NORMAL, 1);
}

}  // namespace
}  // namespace mantle
