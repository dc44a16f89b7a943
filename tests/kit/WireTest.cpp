// The wire in memory between two addresses of the stack.
#include <algorithm>
#include <set>

#include "KitLink.h"
#include "KitPackets.h"
#include "mantle/CMNClock.h"

using namespace kit;

namespace
{

constexpr unsigned long s_dwAlready = 10003;

// Sends numbered datagrams over a wire of these settings; the numbers in the order in which they arrived.
std::vector<unsigned int> Numbered(const ipstack::CIPStackWireSettings& settings, unsigned int count, CWire& wire)
{
    const CSocket a = BoundUdp(CWire::EndA(6000));
    const CSocket b = BoundUdp(CWire::EndB(6001));
    EXPECT_EQ(0, SetOption(b.Get(), PS_SOL_SOCKET, PS_SO_RCVBUF, 524288));
    wire.m_Wire.SetSettings(settings);
    for (unsigned int i = 0; i < count; ++i) {
        CBytes datagram(20);
        Put16(datagram, 0, i);
        EXPECT_EQ(20, SendTo(a.Get(), datagram, CWire::EndB(6001)));
    }
    std::vector<unsigned int> arrived;
    while (WaitFor(b.Get(), PS_POLLIN, 2000) == PS_POLLIN) {
        const CBytes datagram = ReceiveDatagram(b.Get());
        EXPECT_EQ(20U, datagram.size());
        arrived.push_back(Get16(datagram, 0));
    }
    return arrived;
}

std::vector<unsigned int> Numbered(const ipstack::CIPStackWireSettings& settings, unsigned int count)
{
    CWire wire(settings);
    return Numbered(settings, count, wire);
}

}  // namespace

TEST(Wire, Stream_BothFamilies_RoundTrip)
{
    CWire wire;
    for (const bool v6 : {false, true}) {
        CPair pair = wire.Connect(v6);
        EXPECT_TRUE(Transfer(pair.m_Client.Get(), pair.m_Server.Get(), 1000000));
        EXPECT_TRUE(Transfer(pair.m_Server.Get(), pair.m_Client.Get(), 1000000));
    }
    EXPECT_EQ(0U, wire.m_Wire.GetLost());
}

TEST(Wire, UnboundClient_Connect_FromTheOtherEnd)
{
    CWire wire;
    const CSocket listener = Listener(CWire::EndB());
    CPair pair = ConnectedThrough(listener);
    EXPECT_EQ(CWire::EndA().Host(), LocalAddress(pair.m_Client.Get()).Host());
    const CSocket back = Listener(CWire::EndA());
    CPair other = ConnectedThrough(back);
    EXPECT_EQ(CWire::EndB().Host(), LocalAddress(other.m_Client.Get()).Host());
}

TEST(Wire, Datagrams_BothFamilies_RoundTrip)
{
    CWire wire;
    for (const bool v6 : {false, true}) {
        const CSocket a = BoundUdp(v6 ? CWire::EndA6() : CWire::EndA());
        const CSocket b = BoundUdp(v6 ? CWire::EndB6() : CWire::EndB());
        CAddress from;
        EXPECT_EQ(5000, SendTo(a.Get(), Pattern(0, 5000), LocalAddress(b.Get())));
        EXPECT_EQ(Pattern(0, 5000), ReceiveDatagram(b.Get(), &from));
        EXPECT_EQ(LocalAddress(a.Get()), from);
        EXPECT_EQ(7, SendTo(b.Get(), Pattern(0, 7), from));
        EXPECT_EQ(Pattern(0, 7), ReceiveDatagram(a.Get(), &from));
        EXPECT_EQ(LocalAddress(b.Get()), from);
    }
}

TEST(Wire, Ping_Across_Answered)
{
    CWire wire;
    const CSocket raw = Raw(PS_IPPROTO_ICMP);
    const CBytes message = EchoMessage(CWire::EndA(), CWire::EndB(), 80, 1, Pattern(0, 24));
    EXPECT_EQ(static_cast<long>(message.size()), SendTo(raw.Get(), message, CWire::EndB()));
    bool reply = false;
    while (!reply && WaitFor(raw.Get(), PS_POLLIN) == PS_POLLIN) {
        reply = IsEchoReply(ReceiveDatagram(raw.Get()), 80, 1);
    }
    EXPECT_TRUE(reply);
}

TEST(Wire, LongPing_Across_AnsweredInFull)
{
    CWire wire;
    const CSocket raw = Raw(PS_IPPROTO_ICMP);
    const CBytes message = EchoMessage(CWire::EndA(), CWire::EndB(), 81, 1, Pattern(0, 6000));
    EXPECT_EQ(static_cast<long>(message.size()), SendTo(raw.Get(), message, CWire::EndB()));
    CBytes reply;
    do {
        reply = ReceiveDatagram(raw.Get());
    } while (!reply.empty() && !IsEchoReply(reply, 81, 1));
    ASSERT_EQ(s_dwIpHeader + message.size(), reply.size());
    EXPECT_EQ(Pattern(0, 6000), CBytes(reply.begin() + s_dwIpHeader + 8, reply.end()));
}

TEST(Wire, Refused_Across_Reported)
{
    CWire wire;
    const CSocket client = Tcp();
    EXPECT_EQ(0, Connect(client.Get(), CWire::EndB(9)));
    EXPECT_NE(0, WaitFor(client.Get(), PS_POLLOUT) & PS_POLLERR);
    EXPECT_EQ(PS_ECONNREFUSED, ps_is_socket_errno(client.Get()));
}

TEST(Wire, OwnAddress_Connect_StaysLocal)
{
    CWire wire;
    wire.Cut();
    // A source of its own: one that is not bound goes out by the other end.
    const CSocket listener = Listener(CWire::EndA());
    CPair pair;
    pair.m_Client = Tcp();
    EXPECT_EQ(0, Bind(pair.m_Client.Get(), CWire::EndA()));
    EXPECT_EQ(0, Connect(pair.m_Client.Get(), LocalAddress(listener.Get())));
    pair.m_Server = Accept(listener);
    EXPECT_TRUE(Transfer(pair.m_Client.Get(), pair.m_Server.Get(), 100000));
}

TEST(Wire, LossyStream_BothWays_AllArrives)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    ipstack::CIPStackWireSettings settings;
    settings.m_qwSeed = 3;
    settings.m_dwLossPerMille = 50;
    CWire wire(settings);
    CPair pair = wire.Connect();
    EXPECT_TRUE(Transfer(pair.m_Client.Get(), pair.m_Server.Get(), 500000));
    EXPECT_TRUE(Transfer(pair.m_Server.Get(), pair.m_Client.Get(), 500000));
    EXPECT_GT(wire.m_Wire.GetLost(), 0U);
}

TEST(Wire, EverythingAtOnce_Stream_AllArrives)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    ipstack::CIPStackWireSettings settings;
    settings.m_qwSeed = 4;
    settings.m_dwLossPerMille = 20;
    settings.m_dwDuplicatePerMille = 30;
    settings.m_dwReorderPerMille = 100;
    settings.m_dwDelayUs = 10000;
    CWire wire(settings);
    CPair pair = wire.Connect(true);
    EXPECT_TRUE(Transfer(pair.m_Client.Get(), pair.m_Server.Get(), 500000));
    EXPECT_TRUE(Transfer(pair.m_Server.Get(), pair.m_Client.Get(), 500000));
    EXPECT_GT(wire.m_Wire.GetLost(), 0U);
    EXPECT_GT(wire.m_Wire.GetDuplicated(), 0U);
    EXPECT_GT(wire.m_Wire.GetReordered(), 0U);
}

TEST(Wire, Lossy_Datagrams_MissingOnesAreCounted)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    ipstack::CIPStackWireSettings settings;
    settings.m_dwLossPerMille = 250;
    CWire wire;
    const std::vector<unsigned int> arrived = Numbered(settings, 400, wire);
    EXPECT_EQ(400U, arrived.size() + wire.m_Wire.GetLost());
    EXPECT_GT(wire.m_Wire.GetLost(), 50U);
    EXPECT_LT(wire.m_Wire.GetLost(), 160U);
    EXPECT_TRUE(std::is_sorted(arrived.begin(), arrived.end()));
}

TEST(Wire, Duplicating_Datagrams_SecondsAreCounted)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    ipstack::CIPStackWireSettings settings;
    settings.m_dwDuplicatePerMille = 200;
    CWire wire;
    const std::vector<unsigned int> arrived = Numbered(settings, 400, wire);
    EXPECT_EQ(400U + wire.m_Wire.GetDuplicated(), arrived.size());
    EXPECT_GT(wire.m_Wire.GetDuplicated(), 30U);
    EXPECT_EQ(400U, std::set<unsigned int>(arrived.begin(), arrived.end()).size());
}

TEST(Wire, Reordering_Datagrams_LaterButAll)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    ipstack::CIPStackWireSettings settings;
    settings.m_dwReorderPerMille = 200;
    CWire wire;
    const std::vector<unsigned int> arrived = Numbered(settings, 400, wire);
    EXPECT_EQ(400U, arrived.size());
    EXPECT_EQ(400U, std::set<unsigned int>(arrived.begin(), arrived.end()).size());
    EXPECT_FALSE(std::is_sorted(arrived.begin(), arrived.end()));
    EXPECT_GT(wire.m_Wire.GetReordered(), 30U);
}

TEST(Wire, SameSeed_SamePackets_SameRun)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    ipstack::CIPStackWireSettings settings;
    settings.m_qwSeed = 77;
    settings.m_dwLossPerMille = 100;
    settings.m_dwDuplicatePerMille = 100;
    settings.m_dwReorderPerMille = 100;
    const std::vector<unsigned int> first = Numbered(settings, 300);
    EXPECT_EQ(first, Numbered(settings, 300));
    settings.m_qwSeed = 78;
    EXPECT_NE(first, Numbered(settings, 300));
}

TEST(Wire, Delayed_Datagram_ArrivesWhenDue)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    ipstack::CIPStackWireSettings settings;
    settings.m_dwDelayUs = 250000;
    CWire wire(settings);
    const CSocket a = BoundUdp(CWire::EndA());
    const CSocket b = BoundUdp(CWire::EndB());
    const long long start = StackTimeMs();
    EXPECT_EQ(5, SendTo(a.Get(), CBytes(5), LocalAddress(b.Get())));
    EXPECT_EQ(0, Look(b.Get(), PS_POLLIN));
    EXPECT_EQ(PS_POLLIN, WaitFor(b.Get(), PS_POLLIN));
    EXPECT_GE(StackTimeMs() - start, 250);
    EXPECT_LE(StackTimeMs() - start, 260);
}

TEST(Wire, QueueFull_Datagrams_LostAndCounted)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    ipstack::CIPStackWireSettings settings;
    settings.m_dwDelayUs = 1000000;
    settings.m_dwQueuePackets = 10;
    CWire wire(settings);
    const std::vector<unsigned int> arrived = Numbered(settings, 30, wire);
    EXPECT_EQ(10U, arrived.size());
    EXPECT_EQ(20U, wire.m_Wire.GetLost());
}

TEST(Wire, Opened_OpenAgain_Already)
{
    CWire wire;
    EXPECT_EQ(s_dwAlready,
              wire.m_Wire.Open(CWire::ConfigA(1400), CWire::ConfigB(1400), ipstack::CIPStackWireSettings()));
    CPair pair = wire.Connect();
    EXPECT_TRUE(Transfer(pair.m_Client.Get(), pair.m_Server.Get(), 1000));
    wire.m_Wire.Close();
    wire.m_Wire.Close();
    EXPECT_EQ(0U, wire.m_Wire.Open(CWire::ConfigA(1400), CWire::ConfigB(1400), ipstack::CIPStackWireSettings()));
    CPair again = wire.Connect();
    EXPECT_TRUE(Transfer(again.m_Client.Get(), again.m_Server.Get(), 1000));
}

TEST(Wire, AddressTaken_Open_RefusedAndNothingLeft)
{
    CLink link("10.20.0.2");
    ipstack::CIPStackWire wire;
    EXPECT_NE(0U, wire.Open(CWire::ConfigA(1400), CWire::ConfigB(1400), ipstack::CIPStackWireSettings()));
    const CLink first("10.20.0.1");  // the first end is free again
}
