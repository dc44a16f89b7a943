#include "connhub/CMNIPSessionManagerT.h"

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <thread>
#include <vector>

namespace connhub
{
namespace
{

using mantle::CMNInetAddr;
using mantle::CMNLiveObjects;
using mantle::CMNMutexThread;
using mantle::CMNReferenceControlT;

class CTransport : public CMNReferenceControlT<CMNMutexThread>
{
public:
    unsigned long AddReference() { return AddReference_i(); }
    unsigned long ReleaseReference() { return ReleaseReference_i(); }
    unsigned long GetReference() { return GetReference_i(); }
};

using CManager = CMNIPSessionManagerT<CTransport>;

class CMNIPSessionManagerTTest : public testing::Test
{
protected:
    const CMNInetAddr m_Source{"10.0.0.1", 0};
    const CMNInetAddr m_Local{"10.0.0.2", 0};
    const CMNInetAddr m_Other{"10.0.0.3", 0};
    const long m_lLive = CMNLiveObjects::Count();
};

TEST_F(CMNIPSessionManagerTTest, Empty_Asked_NothingThere)
{
    CManager manager;
    EXPECT_EQ(manager.FindTransport(m_Source, m_Local), nullptr);
    EXPECT_EQ(manager.RemoveTransport(m_Source, m_Local), mantle::MN_ERROR_NOT_FOUND);
    EXPECT_EQ(manager.GetTransportsCount(), 0u);
    EXPECT_EQ(manager.AddTransport(m_Source, m_Local, nullptr), mantle::MN_ERROR_INVALID_ARG);
}

TEST_F(CMNIPSessionManagerTTest, Added_Found_OneReferenceHeldAndNoneTaken)
{
    CManager manager;
    auto* transport = new CTransport;
    EXPECT_EQ(manager.AddTransport(m_Source, m_Local, transport), mantle::MN_OK);
    EXPECT_EQ(transport->GetReference(), 1u);
    EXPECT_EQ(manager.FindTransport(m_Source, m_Local), transport);
    EXPECT_EQ(transport->GetReference(), 1u);
    EXPECT_EQ(manager.FindTransport(m_Local, m_Source), nullptr);
    EXPECT_EQ(manager.FindTransport(m_Source, m_Other), nullptr);
}

TEST_F(CMNIPSessionManagerTTest, KeyPresent_AddedAgain_FirstStaysAndTheReferenceIsGivenBack)
{
    CManager manager;
    auto* first = new CTransport;
    auto* second = new CTransport;
    second->AddReference();
    manager.AddTransport(m_Source, m_Local, first);
    EXPECT_EQ(manager.AddTransport(m_Source, m_Local, second), mantle::MN_ERROR_FOUND);
    EXPECT_EQ(manager.FindTransport(m_Source, m_Local), first);
    EXPECT_EQ(second->GetReference(), 1u);
    second->ReleaseReference();
    EXPECT_EQ(CMNLiveObjects::Count(), m_lLive + 1);
}

TEST_F(CMNIPSessionManagerTTest, Added_Removed_ReferenceGivenBack)
{
    CManager manager;
    manager.AddTransport(m_Source, m_Local, new CTransport);
    EXPECT_EQ(manager.RemoveTransport(m_Source, m_Local), mantle::MN_OK);
    EXPECT_EQ(CMNLiveObjects::Count(), m_lLive);
    EXPECT_EQ(manager.GetTransportsCount(), 0u);
}

TEST_F(CMNIPSessionManagerTTest, ManyEntries_TableGone_EveryReferenceGivenBack)
{
    {
        CManager manager;
        for (unsigned short port = 0; port < 500; ++port)
            EXPECT_EQ(manager.AddTransport(CMNInetAddr("1.1.1.1", port), m_Local, new CTransport), mantle::MN_OK);
        EXPECT_EQ(manager.GetTransportsCount(), 500u);
        EXPECT_EQ(CMNLiveObjects::Count(), m_lLive + 500);
    }
    EXPECT_EQ(CMNLiveObjects::Count(), m_lLive);
}

TEST_F(CMNIPSessionManagerTTest, ManyEntries_ShownThenCleared_EachOnceAndEveryReferenceGivenBack)
{
    CManager manager;
    for (unsigned short port = 0; port < 500; ++port)
        EXPECT_EQ(manager.AddTransport(CMNInetAddr("1.1.1.1", port), m_Local, new CTransport), mantle::MN_OK);
    std::set<CTransport*> shown;
    manager.ForEach([&shown](CTransport& transport) { shown.insert(&transport); });
    EXPECT_EQ(shown.size(), 500u);
    manager.Clear();
    EXPECT_EQ(manager.GetTransportsCount(), 0u);
    EXPECT_EQ(CMNLiveObjects::Count(), m_lLive);
}

// Looks into the table while its entry's last reference is given back.
class CCurious : public CMNReferenceControlT<CMNMutexThread>
{
public:
    explicit CCurious(CMNIPSessionManagerT<CCurious>& manager) : m_Manager(manager) {}
    ~CCurious() override { m_Manager.FindTransport(CMNInetAddr(), CMNInetAddr()); }
    unsigned long AddReference() { return AddReference_i(); }
    unsigned long ReleaseReference() { return ReleaseReference_i(); }

private:
    CMNIPSessionManagerT<CCurious>& m_Manager;
};

TEST_F(CMNIPSessionManagerTTest, LastReferenceGivenBack_LooksIntoTheTable_NotLocked)
{
    CMNIPSessionManagerT<CCurious> manager;
    manager.AddTransport(m_Source, m_Local, new CCurious(manager));
    EXPECT_EQ(manager.AddTransport(m_Source, m_Local, new CCurious(manager)), mantle::MN_ERROR_FOUND);
    EXPECT_EQ(manager.RemoveTransport(m_Source, m_Local), mantle::MN_OK);
    EXPECT_EQ(manager.AddTransport(m_Source, m_Local, new CCurious(manager)), mantle::MN_OK);
    manager.Clear();
    EXPECT_EQ(CMNLiveObjects::Count(), m_lLive);
}

TEST_F(CMNIPSessionManagerTTest, FourThreads_AddFindRemove_CountComesOut)
{
    CManager manager;
    std::vector<std::thread> threads;
    for (int index = 0; index < 4; ++index) {
        threads.emplace_back([&manager, index, this] {
            for (unsigned short step = 0; step < 500; ++step) {
                const CMNInetAddr source("1.1.1." + std::to_string(index), step);
                manager.AddTransport(source, m_Local, new CTransport);
                manager.AddTransport(m_Source, m_Local, new CTransport);
                EXPECT_NE(manager.FindTransport(source, m_Local), nullptr);
                if (step % 2 == 0)
                    manager.RemoveTransport(source, m_Local);
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(manager.GetTransportsCount(), 4u * 250 + 1);
}

}  // namespace
}  // namespace connhub
