#include "platform/ipstack/CIPPortTable.h"

#include <set>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "ipstack/ps_defines.h"

namespace
{

using ipstack::CIPAddress;
using ipstack::CIPPortTable;
using CHold = CIPPortTable::CHold;

CIPAddress Address(u32_t ip, u16_t port)
{
    CIPAddress address;
    ip_addr_set_ip4_u32_val(address.m_Ip, lwip_htonl(ip));
    address.m_wPort = port;
    return address;
}

constexpr u32_t s_dwAny = 0;
constexpr u32_t s_dwLoopback = 0x7F000001;
constexpr u32_t s_dwLink = 0x0A000001;

int Bind(CHold& hold, u32_t ip, u16_t port, bool reuse = false, CIPPortTable::EProtocol protocol = CIPPortTable::Tcp)
{
    return hold.Bind(protocol, Address(ip, port), reuse);
}

}  // namespace

TEST(CIPPortTable, Bound_SameAddress_InUseWithReuseToo)
{
    CHold first;
    CHold second;
    EXPECT_EQ(0, Bind(first, s_dwLoopback, 80));
    EXPECT_EQ(PS_EADDRINUSE, Bind(second, s_dwLoopback, 80));
    EXPECT_EQ(PS_EADDRINUSE, Bind(second, s_dwLoopback, 80, true));
    EXPECT_FALSE(second.IsHeld());
    EXPECT_EQ(1U, CIPPortTable::CountUses(CIPPortTable::Tcp, 80));
}

TEST(CIPPortTable, AnyAndSpecific_SamePort_InUseEitherWay)
{
    CHold any;
    CHold specific;
    CHold other;
    EXPECT_EQ(0, Bind(any, s_dwAny, 80));
    EXPECT_EQ(PS_EADDRINUSE, Bind(specific, s_dwLink, 80, true));
    any.Release();
    EXPECT_EQ(0, Bind(specific, s_dwLink, 80));
    EXPECT_EQ(PS_EADDRINUSE, Bind(any, s_dwAny, 80, true));
    EXPECT_EQ(0, Bind(other, s_dwLoopback, 80));
}

TEST(CIPPortTable, OtherProtocolOrFamily_SamePort_Free)
{
    CHold tcp;
    CHold udp;
    CHold six;
    EXPECT_EQ(0, Bind(tcp, s_dwAny, 80));
    EXPECT_EQ(0, Bind(udp, s_dwAny, 80, false, CIPPortTable::Udp));
    CIPAddress any6 = CIPAddress::Any(PS_AF_INET6);
    any6.m_wPort = 80;
    EXPECT_EQ(0, six.Bind(CIPPortTable::Tcp, any6, false));
}

TEST(CIPPortTable, OpenConnection_Bind_InUseWithReuseToo)
{
    CHold connection;
    connection.Join(CIPPortTable::Tcp, Address(s_dwLoopback, 80));
    CHold listener;
    EXPECT_EQ(PS_EADDRINUSE, Bind(listener, s_dwLoopback, 80, true));
    EXPECT_EQ(PS_EADDRINUSE, Bind(listener, s_dwAny, 80, true));
    EXPECT_EQ(0, Bind(listener, s_dwLink, 80));
}

TEST(CIPPortTable, ClosingConnection_Bind_FreeWithReuseOnly)
{
    CHold connection;
    connection.Join(CIPPortTable::Tcp, Address(s_dwLoopback, 80));
    connection.Change(CIPPortTable::Closing);
    CHold listener;
    EXPECT_EQ(PS_EADDRINUSE, Bind(listener, s_dwLoopback, 80));
    EXPECT_EQ(0, Bind(listener, s_dwLoopback, 80, true));
    listener.Release();
    connection.Release();
    EXPECT_EQ(0, Bind(listener, s_dwLoopback, 80));
    EXPECT_EQ(1U, CIPPortTable::CountUses(CIPPortTable::Tcp, 80));
}

TEST(CIPPortTable, PipePort_ManyTimesOnLoopback_OnceElsewhere)
{
    std::vector<CHold> pipes(3);
    for (CHold& pipe : pipes) {
        EXPECT_EQ(0, Bind(pipe, s_dwLoopback, 5555));
    }
    CHold other;
    EXPECT_EQ(PS_EADDRINUSE, Bind(other, s_dwAny, 5555, true));
    EXPECT_EQ(0, Bind(other, s_dwLink, 5555));
    CHold again;
    EXPECT_EQ(PS_EADDRINUSE, Bind(again, s_dwLink, 5555, true));
    CHold udp;
    CHold udpAgain;
    EXPECT_EQ(0, Bind(udp, s_dwLoopback, 5555, false, CIPPortTable::Udp));
    EXPECT_EQ(PS_EADDRINUSE, Bind(udpAgain, s_dwLoopback, 5555, true, CIPPortTable::Udp));
}

TEST(CIPPortTable, AnyAddressHasThePipePort_BindPipe_InUse)
{
    CHold any;
    CHold pipe;
    EXPECT_EQ(0, Bind(any, s_dwAny, 5555));
    EXPECT_EQ(PS_EADDRINUSE, Bind(pipe, s_dwLoopback, 5555));
}

TEST(CIPPortTable, PortZero_ManyTimes_AllDifferentUntilNoneIsLeft)
{
    constexpr std::size_t all = 65536 - CIPPortTable::s_wFirst;
    std::vector<CHold> holds(all);
    std::set<u16_t> ports;
    for (CHold& hold : holds) {
        ASSERT_EQ(0, Bind(hold, s_dwLoopback, 0));
        ASSERT_GE(hold.GetAddress().m_wPort, CIPPortTable::s_wFirst);
        ports.insert(hold.GetAddress().m_wPort);
    }
    EXPECT_EQ(all, ports.size());
    CHold late;
    EXPECT_EQ(PS_EADDRINUSE, Bind(late, s_dwLoopback, 0));
    EXPECT_EQ(PS_EADDRINUSE, Bind(late, s_dwAny, 0));
    EXPECT_EQ(0, Bind(late, s_dwLink, 0));
    late.Release();
    holds[1234].Release();
    EXPECT_EQ(0, Bind(late, s_dwAny, 0));
}

TEST(CIPPortTable, PortZero_SomePorts_NotInOrder)
{
    CHold first;
    CHold second;
    CHold third;
    EXPECT_EQ(0, Bind(first, s_dwAny, 0));
    EXPECT_EQ(0, Bind(second, s_dwAny, 0));
    EXPECT_EQ(0, Bind(third, s_dwAny, 0));
    const int step = second.GetAddress().m_wPort - first.GetAddress().m_wPort;
    EXPECT_FALSE(step == 1 && third.GetAddress().m_wPort - second.GetAddress().m_wPort == 1);
}

TEST(CIPPortTable, MovedHold_Released_GivenBackOnce)
{
    CHold first;
    EXPECT_EQ(0, Bind(first, s_dwLoopback, 81));
    {
        CHold second(std::move(first));
        EXPECT_TRUE(second.IsHeld());
        EXPECT_FALSE(first.IsHeld());  // NOLINT: an empty hold is what a move leaves
        first.Release();
        EXPECT_EQ(1U, CIPPortTable::CountUses(CIPPortTable::Tcp, 81));
    }
    EXPECT_EQ(0U, CIPPortTable::CountUses(CIPPortTable::Tcp, 81));
}
