#include "uxport/IPSRawTransport.h"

#include <gtest/gtest.h>

#include <type_traits>

namespace uxport
{
namespace
{

static_assert(std::is_base_of_v<mantle::IMNReferenceControl, IPSRawTransport>);
static_assert(std::is_abstract_v<IPSRawTransport>);

class CRawTransport : public IPSRawTransport
{
public:
    explicit CRawTransport(int& alive) : m_nAlive(alive) { ++m_nAlive; }
    ~CRawTransport() override { --m_nAlive; }
    unsigned long AddReference() override { return ++m_dwCount; }
    unsigned long ReleaseReference() override
    {
        const unsigned long left = --m_dwCount;
        if (left == 0)
            delete this;
        return left;
    }

private:
    int& m_nAlive;
    unsigned long m_dwCount = 0;
};

TEST(IPSRawTransport, AutoPtr_HoldsIt_ReleasesItAtTheEnd)
{
    int alive = 0;
    {
        mantle::CMNAutoPtr<IPSRawTransport> first(new CRawTransport(alive));
        mantle::CMNAutoPtr<IPSRawTransport> second = first;
        first = nullptr;
        EXPECT_EQ(alive, 1);
    }
    EXPECT_EQ(alive, 0);
}

}  // namespace
}  // namespace uxport
