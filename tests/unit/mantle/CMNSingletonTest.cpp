#include "mantle/CMNSingleton.h"

#include <atomic>
#include <thread>

#include "MantleTest.h"

namespace mantle
{
namespace
{

struct CInner
{
    CInner() { ++s_nMade; }
    static inline std::atomic<int> s_nMade{0};
};

struct COuter
{
    COuter() : m_pInner(CMNSingletonT<CInner>::Instance()) { ++s_nMade; }
    CInner* m_pInner;
    static inline std::atomic<int> s_nMade{0};
};

struct CRaced
{
    CRaced()
    {
        ++s_nMade;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    static inline std::atomic<int> s_nMade{0};
};

TEST(CMNSingletonTest, EightThreads_FirstUse_MadeOnce)
{
    std::atomic<CRaced*> seen{nullptr};
    std::atomic<bool> differs{false};
    std::vector<std::thread> threads;
    for (int index = 0; index < 8; ++index) {
        threads.emplace_back([&] {
            CRaced* object = CMNSingletonT<CRaced>::Instance();
            CRaced* none = nullptr;
            if (!seen.compare_exchange_strong(none, object) && none != object)
                differs = true;
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_NE(seen.load(), nullptr);
    EXPECT_FALSE(differs);
    EXPECT_EQ(CRaced::s_nMade, 1);
}

TEST(CMNSingletonTest, OneNeedsAnother_FirstUse_BothMade)
{
    COuter* outer = CMNSingletonT<COuter>::Instance();
    ASSERT_NE(outer, nullptr);
    EXPECT_EQ(outer->m_pInner, CMNSingletonT<CInner>::Instance());
    EXPECT_EQ(COuter::s_nMade, 1);
    EXPECT_EQ(CInner::s_nMade, 1);
}

}  // namespace
}  // namespace mantle
