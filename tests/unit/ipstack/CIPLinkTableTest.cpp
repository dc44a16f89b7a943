#include "platform/ipstack/CIPLinkTable.h"

#include <algorithm>

#include <gtest/gtest.h>

#include "CCaptureLink.h"
#include "PacketMaker.h"

namespace
{

using ipstack::CIPLinkTable;
using packetmaker::Address4;
using packetmaker::Address6;

ip4_addr_t Ip4(const char* text)
{
    return ip4_addr_t{Address4(text)};
}

ip6_addr_t Ip6(const char* text)
{
    ip6_addr_t address{};
    const auto bytes = Address6(text);
    std::copy(bytes.begin(), bytes.end(), reinterpret_cast<std::uint8_t*>(address.addr));
    return address;
}

netif* Route(const char* source, const char* destination)
{
    return CIPLinkTable::Route4(Ip4(source), Ip4(destination));
}

netif* Route6(const char* source, const char* destination)
{
    return CIPLinkTable::Route6(Ip6(source), Ip6(destination));
}

// A second link beside the one of the fixture, whose lock covers it.
class CSecondLink
{
public:
    CSecondLink(const char* address, const char* address6, const char* gateway)
    {
        const ip4_addr_t own = Ip4(address);
        const ip4_addr_t mask = Ip4("255.255.255.0");
        const ip4_addr_t way = Ip4(gateway);
        netif_add(&m_Netif, &own, &mask, &way, nullptr, &OnInit, nullptr);
        const ip6_addr_t own6 = Ip6(address6);
        netif_ip6_addr_set(&m_Netif, 0, &own6);
        netif_ip6_addr_set_state(&m_Netif, 0, IP6_ADDR_PREFERRED);
        netif_set_up(&m_Netif);
        CIPLinkTable::AddLink(&m_Netif);
    }
    ~CSecondLink()
    {
        CIPLinkTable::RemoveLink(&m_Netif);
        netif_remove(&m_Netif);
    }
    CSecondLink(const CSecondLink&) = delete;
    CSecondLink& operator=(const CSecondLink&) = delete;

    netif m_Netif{};

private:
    static err_t OnInit(netif* link)
    {
        link->name[0] = 's';
        link->name[1] = 'e';
        link->mtu = 1300;
        link->flags = NETIF_FLAG_LINK_UP;
        return ERR_OK;
    }
};

class CIPLinkTableTest : public testing::Test
{
protected:
    CCaptureLink m_First{"10.1.0.1", "fd01::1"};
    CSecondLink m_Second{"10.1.0.2", "fd01::2", "10.1.0.254"};
    netif* m_pA = m_First.Get();
    netif* m_pB = &m_Second.m_Netif;
};

TEST_F(CIPLinkTableTest, TwoLinks_Facts_OwnMtuAndAllAddresses)
{
    EXPECT_EQ(CCaptureLink::Mtu, CIPLinkTable::GetFacts(m_pA).m_dwMtu);
    EXPECT_EQ(1300U, CIPLinkTable::GetFacts(m_pB).m_dwMtu);
    for (const netif* link : {m_pA, m_pB}) {
        EXPECT_TRUE(CIPLinkTable::GetFacts(link).m_pOwn->Has4(Address4("10.1.0.1")));
        EXPECT_TRUE(CIPLinkTable::GetFacts(link).m_pOwn->Has4(Address4("10.1.0.2")));
        EXPECT_TRUE(CIPLinkTable::GetFacts(link).m_pOwn->Has6(Address6("fd01::2")));
        EXPECT_FALSE(CIPLinkTable::GetFacts(link).m_pOwn->Has4(Address4("127.0.0.1")));
    }
}

TEST_F(CIPLinkTableTest, UnknownLink_Facts_AcceptNothing)
{
    netif stranger{};
    EXPECT_EQ(0U, CIPLinkTable::GetFacts(&stranger).m_dwMtu);
    EXPECT_FALSE(CIPLinkTable::GetFacts(&stranger).m_pOwn->Has4(Address4("10.1.0.1")));
}

TEST_F(CIPLinkTableTest, OwnAddress_NoPartners_StaysOnItsOwnLink)
{
    // Both links have the same network: by its mask alone the packet might leave by the other one.
    for (const char* source : {"0.0.0.0", "10.1.0.1", "10.1.0.2", "127.0.0.1"}) {
        EXPECT_EQ(m_pA, Route(source, "10.1.0.1")) << source;
        EXPECT_EQ(m_pB, Route(source, "10.1.0.2")) << source;
    }
    EXPECT_EQ(m_pA, Route6("::", "fd01::1"));
    EXPECT_EQ(m_pB, Route6("fd01::1", "fd01::2"));
}

TEST_F(CIPLinkTableTest, Partners_OtherEndsAddress_LeavesByTheWire)
{
    CIPLinkTable::SetPartners(m_pA, m_pB);
    EXPECT_EQ(m_pA, Route("0.0.0.0", "10.1.0.2"));
    EXPECT_EQ(m_pA, Route("10.1.0.1", "10.1.0.2"));
    EXPECT_EQ(m_pB, Route("10.1.0.2", "10.1.0.1"));
    EXPECT_EQ(m_pB, Route("10.1.0.2", "10.1.0.2")) << "to itself it stays inside";
    EXPECT_EQ(m_pB, Route("127.0.0.1", "10.1.0.2")) << "a loopback source never leaves";
    EXPECT_EQ(m_pA, Route6("::", "fd01::2"));
    EXPECT_EQ(m_pA, Route6("fd01::1", "fd01::2"));
    EXPECT_EQ(m_pB, Route6("fd01::2", "fd01::2"));
    EXPECT_EQ(Address4("10.1.0.2"), CIPLinkTable::GetFacts(m_pA).m_dwPartner4);
    EXPECT_EQ(Address6("fd01::1"), CIPLinkTable::GetFacts(m_pB).m_Partner6);
}

TEST_F(CIPLinkTableTest, Partners_OneRemoved_OtherHasNone)
{
    CIPLinkTable::SetPartners(m_pA, m_pB);
    CIPLinkTable::RemoveLink(m_pB);
    EXPECT_EQ(0U, CIPLinkTable::GetFacts(m_pA).m_dwPartner4);
    EXPECT_FALSE(CIPLinkTable::GetFacts(m_pA).m_bPartner6);
    EXPECT_EQ(m_pA, Route("0.0.0.0", "10.1.0.1"));
    EXPECT_EQ(nullptr, CIPLinkTable::FindOwner(ip_addr_t IPADDR4_INIT(Address4("10.1.0.2"))));
    CIPLinkTable::AddLink(m_pB);
    EXPECT_EQ(m_pB, CIPLinkTable::FindOwner(ip_addr_t IPADDR4_INIT(Address4("10.1.0.2"))));
}

TEST_F(CIPLinkTableTest, ForeignAddress_BoundSource_LeavesByTheSourcesLink)
{
    EXPECT_EQ(m_pA, Route("10.1.0.1", "10.1.0.77"));
    EXPECT_EQ(m_pB, Route("10.1.0.2", "10.1.0.77"));
    EXPECT_EQ(m_pB, Route("10.1.0.2", "8.8.8.8")) << "it has a gateway";
    EXPECT_EQ(nullptr, Route("10.1.0.1", "8.8.8.8")) << "it has none: lwIP chooses";
    EXPECT_EQ(nullptr, Route("0.0.0.0", "10.1.0.77"));
    EXPECT_EQ(m_pB, Route("10.1.0.2", "255.255.255.255"));
    EXPECT_EQ(m_pB, Route6("fd01::2", "fd01::77"));
    EXPECT_EQ(nullptr, Route6("fd01::2", "fd99::77"));
}

TEST_F(CIPLinkTableTest, LoopbackSource_ForeignAddress_NeverLeaves)
{
    netif* link = Route("127.0.0.1", "10.1.0.77");
    ASSERT_NE(nullptr, link);
    EXPECT_TRUE(ip4_addr_isloopback(netif_ip4_addr(link)));
}

TEST_F(CIPLinkTableTest, LoopbackDestination_LeftToLwip)
{
    EXPECT_EQ(nullptr, Route("0.0.0.0", "127.0.0.1"));
    EXPECT_EQ(nullptr, Route("10.1.0.1", "127.0.0.1"));
    EXPECT_EQ(nullptr, Route6("::", "::1"));
}

}  // namespace
