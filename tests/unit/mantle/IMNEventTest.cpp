#include "mantle/IMNEvent.h"

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

TEST(IMNEventQueueTest, Priorities_Read_NormalIsOne)
{
    EXPECT_EQ(IMNEventQueue::EPRIORITY_NORMAL, 1);
}

}  // namespace
}  // namespace mantle
