#include "platform/ipstack/CIPDemux.h"

#include <algorithm>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "CCaptureLink.h"
#include "PacketMaker.h"
#include "lwip/priv/tcp_priv.h"
#include "lwip/udp.h"
#include "platform/ipstack/CIPCounters.h"

namespace
{

using namespace packetmaker;
using ipstack::CIPCounters;
using ipstack::CIPDemux;

constexpr const char* Own = "10.9.0.1";
constexpr const char* Own6 = "fd09::1";
constexpr const char* Peer = "10.9.0.7";
constexpr const char* Peer6 = "fd09::7";
constexpr u16_t Port = 4000;

ip_addr_t Ip4(const char* text)
{
    return ip_addr_t IPADDR4_INIT(Address4(text));
}

template <class Pcb>
std::size_t Count(const Pcb* list)
{
    std::size_t count = 0;
    for (; list != nullptr; list = list->next) {
        ++count;
    }
    return count;
}

// One end of a connection.
struct CEnd
{
    tcp_pcb* m_pPcb = nullptr;
    std::string m_strReceived;
    bool m_bConnected = false;
    bool m_bEnded = false;
    err_t m_Error = ERR_OK;
};

// What a callback saw of lwIP's lists, the longest of all.
std::size_t s_nLongestTcp = 0;
std::size_t s_nLongestUdp = 0;

err_t OnReceive(void* arg, tcp_pcb* pcb, pbuf* packet, err_t)
{
    CEnd* end = static_cast<CEnd*>(arg);
    s_nLongestTcp = std::max(s_nLongestTcp, Count(tcp_active_pcbs));
    if (packet == nullptr) {
        end->m_bEnded = true;
        return ERR_OK;
    }
    for (const pbuf* part = packet; part != nullptr; part = part->next) {
        end->m_strReceived.append(static_cast<const char*>(part->payload), part->len);
    }
    tcp_recved(pcb, packet->tot_len);
    pbuf_free(packet);
    return ERR_OK;
}

void OnError(void* arg, err_t error)
{
    static_cast<CEnd*>(arg)->m_pPcb = nullptr;
    static_cast<CEnd*>(arg)->m_Error = error;
}

err_t OnConnected(void* arg, tcp_pcb*, err_t)
{
    static_cast<CEnd*>(arg)->m_bConnected = true;
    return ERR_OK;
}

void Attach(CEnd& end, tcp_pcb* pcb)
{
    end.m_pPcb = pcb;
    tcp_arg(pcb, &end);
    tcp_recv(pcb, &OnReceive);
    tcp_err(pcb, &OnError);
}

class CIPDemuxTest : public testing::Test
{
protected:
    CIPDemuxTest() : m_Link(Own, Own6)
    {
        s_nLongestTcp = s_nLongestUdp = 0;
        m_qwAssertions = CIPCounters::Get(CIPCounters::AssertionFailed);
        m_nUdpBefore = Count(udp_pcbs);
    }
    ~CIPDemuxTest() override
    {
        while (tcp_active_pcbs != nullptr) {
            tcp_abort(tcp_active_pcbs);
        }
        while (tcp_tw_pcbs != nullptr) {
            tcp_abort(tcp_tw_pcbs);
        }
        CCaptureLink::Pump();
        if (m_pListener != nullptr) {
            tcp_close(m_pListener);
        }
        EXPECT_EQ(0U, CIPDemux::GetTcpCount());
        EXPECT_EQ(m_nUdpBefore, Count(udp_pcbs));
        EXPECT_EQ(m_qwAssertions, CIPCounters::Get(CIPCounters::AssertionFailed));
        for (CEnd* end : m_Accepted) {
            delete end;
        }
    }

    void Listen(const ip_addr_t* address = IP_ANY_TYPE)
    {
        tcp_pcb* pcb = tcp_new_ip_type(IPADDR_TYPE_ANY);
        ASSERT_EQ(ERR_OK, tcp_bind(pcb, address, Port));
        m_pListener = tcp_listen_with_backlog(pcb, 255);
        tcp_arg(m_pListener, this);
        tcp_accept(m_pListener, [](void* arg, tcp_pcb* child, err_t) -> err_t {
            CEnd* end = new CEnd;
            static_cast<CIPDemuxTest*>(arg)->m_Accepted.push_back(end);
            Attach(*end, child);
            return ERR_OK;
        });
    }

    void Connect(CEnd& end, const ip_addr_t& address)
    {
        Attach(end, tcp_new_ip_type(IP_GET_TYPE(&address)));
        tcp_nagle_disable(end.m_pPcb);
        ASSERT_EQ(ERR_OK, tcp_connect(end.m_pPcb, &address, Port, &OnConnected));
        ASSERT_TRUE(CIPDemux::AddTcp(end.m_pPcb));
    }

    // A segment from the peer.
    void Segment(const CTcp& tcp)
    {
        const CHeader4 header{Peer, Own, 6};
        ASSERT_TRUE(m_Link.Input(Make4(header, Tcp4(header, tcp))));
    }

    // Flags of the only packet sent, -1 when there is not exactly one; fills m_Answer.
    int TakeFlags()
    {
        const std::vector<CPacket> sent = m_Link.Take();
        if (sent.size() != 1) {
            return -1;
        }
        m_Answer = sent[0];
        return m_Answer[20 + 13] & 0x3F;
    }
    std::uint32_t AnswerWord(std::size_t at) const
    {
        return static_cast<std::uint32_t>(m_Answer[at] << 24 | m_Answer[at + 1] << 16 | m_Answer[at + 2] << 8 |
                                          m_Answer[at + 3]);
    }
    std::uint32_t AnswerSequence() const { return AnswerWord(24); }
    std::uint32_t AnswerAck() const { return AnswerWord(28); }

    // Makes an established connection from the peer's port; `next` is what the peer sends next.
    void Establish(u16_t port, std::uint32_t sequence)
    {
        Segment({port, Port, sequence, 0, Syn});
        ASSERT_EQ(Syn | Ack, TakeFlags());
        m_dwOurs = AnswerSequence() + 1;
        Segment({port, Port, sequence + 1, m_dwOurs, Ack});
        ASSERT_FALSE(m_Accepted.empty());
    }

    CCaptureLink m_Link;
    tcp_pcb* m_pListener = nullptr;
    std::vector<CEnd*> m_Accepted;
    std::vector<CEnd> m_Clients;  // not resized while connected
    CPacket m_Answer;
    std::uint32_t m_dwOurs = 0;
    std::uint64_t m_qwAssertions = 0;
    std::size_t m_nUdpBefore = 0;
};

TEST_F(CIPDemuxTest, ManyConnections_DataOnEach_GoesToItsOwnAndListIsOne)
{
    constexpr std::size_t Connections = 300;
    Listen();
    std::vector<CEnd>& clients = m_Clients;
    clients.resize(Connections);
    for (CEnd& client : clients) {
        Connect(client, ip_addr_t IPADDR4_INIT_BYTES(127, 0, 0, 1));
        CCaptureLink::Pump();
        ASSERT_TRUE(client.m_bConnected);
    }
    ASSERT_EQ(Connections, m_Accepted.size());
    EXPECT_EQ(2 * Connections, CIPDemux::GetTcpCount());
    EXPECT_EQ(2 * Connections, Count(tcp_active_pcbs));

    const std::uint64_t missesBefore = CIPCounters::Get(CIPCounters::DemuxTcpMiss);
    for (int round = 0; round < 3; ++round) {
        for (std::size_t i = 0; i < Connections; ++i) {
            const std::string text = std::to_string(i) + ";";
            ASSERT_EQ(ERR_OK,
                      tcp_write(clients[i].m_pPcb, text.data(), static_cast<u16_t>(text.size()), TCP_WRITE_FLAG_COPY));
            tcp_output(clients[i].m_pPcb);
        }
        CCaptureLink::Pump();
    }
    for (std::size_t i = 0; i < Connections; ++i) {
        const std::string text = std::to_string(i) + ";";
        EXPECT_EQ(text + text + text, m_Accepted[i]->m_strReceived);
        EXPECT_EQ("", clients[i].m_strReceived);
    }
    EXPECT_EQ(1U, s_nLongestTcp);
    EXPECT_EQ(missesBefore, CIPCounters::Get(CIPCounters::DemuxTcpMiss));
    EXPECT_EQ(2 * Connections, Count(tcp_active_pcbs)) << "timers see them all";
    std::set<tcp_pcb*> distinct;
    for (tcp_pcb* pcb = tcp_active_pcbs; pcb != nullptr; pcb = pcb->next) {
        distinct.insert(pcb);
    }
    EXPECT_EQ(2 * Connections, distinct.size());
}

TEST_F(CIPDemuxTest, Ipv6Connection_Data_Arrives)
{
    Listen();
    m_Clients.resize(1);
    CEnd& client = m_Clients[0];
    Connect(client, ip_addr_t IPADDR6_INIT(0, 0, 0, PP_HTONL(1)));
    CCaptureLink::Pump();
    ASSERT_TRUE(client.m_bConnected);
    ASSERT_EQ(ERR_OK, tcp_write(client.m_pPcb, "six", 3, TCP_WRITE_FLAG_COPY));
    tcp_output(client.m_pPcb);
    CCaptureLink::Pump();
    EXPECT_EQ("six", m_Accepted.at(0)->m_strReceived);
    EXPECT_EQ(2U, CIPDemux::GetTcpCount());
}

TEST_F(CIPDemuxTest, PacketsQueued_ConnectionsEndBetweenThem_ListsStayWhole)
{
    constexpr std::size_t Connections = 40;
    Listen();
    std::vector<CEnd>& clients = m_Clients;
    clients.resize(Connections);
    for (CEnd& client : clients) {
        Connect(client, ip_addr_t IPADDR4_INIT_BYTES(127, 0, 0, 1));
    }
    CCaptureLink::Pump();
    for (CEnd& client : clients) {
        tcp_write(client.m_pPcb, "abc", 3, TCP_WRITE_FLAG_COPY);
        tcp_output(client.m_pPcb);
    }
    // The packets are in the queue; now every third end goes by a call, on one side or the other.
    for (std::size_t i = 0; i < Connections; i += 3) {
        tcp_abort(i % 2 == 0 ? clients[i].m_pPcb : m_Accepted[i]->m_pPcb);
    }
    CCaptureLink::Pump();
    for (std::size_t i = 0; i < Connections; ++i) {
        EXPECT_EQ(i % 3 == 0, clients[i].m_pPcb == nullptr) << i;
        EXPECT_EQ(i % 3 == 0, m_Accepted[i]->m_pPcb == nullptr) << i;
    }
    const std::size_t left = 2 * (Connections - (Connections + 2) / 3);
    EXPECT_EQ(left, Count(tcp_active_pcbs));
    EXPECT_EQ(left, CIPDemux::GetTcpCount());
}

TEST_F(CIPDemuxTest, ManyConnections_OrderlyClose_TimeWaitKnownThenForgotten)
{
    constexpr std::size_t Connections = 30;
    Listen();
    std::vector<CEnd>& clients = m_Clients;
    clients.resize(Connections);
    for (CEnd& client : clients) {
        Connect(client, ip_addr_t IPADDR4_INIT_BYTES(127, 0, 0, 1));
    }
    CCaptureLink::Pump();
    for (std::size_t i = 0; i < Connections; i += 2) {
        tcp_shutdown(clients[i].m_pPcb, 0, 1);
        CCaptureLink::Pump();
        EXPECT_TRUE(m_Accepted[i]->m_bEnded);
        tcp_shutdown(m_Accepted[i]->m_pPcb, 0, 1);
        m_Accepted[i]->m_pPcb = nullptr;
        CCaptureLink::Pump();
    }
    EXPECT_EQ(Connections / 2, Count(tcp_tw_pcbs));
    EXPECT_EQ(Connections, Count(tcp_active_pcbs));
    EXPECT_EQ(Connections + Connections / 2, CIPDemux::GetTcpCount());
    while (tcp_tw_pcbs != nullptr) {
        tcp_abort(tcp_tw_pcbs);
    }
    EXPECT_EQ(Connections, CIPDemux::GetTcpCount());
}

TEST_F(CIPDemuxTest, TimeWait_TimersRun_TableFollows)
{
    Listen();
    Establish(700, 1000);
    tcp_shutdown(m_Accepted[0]->m_pPcb, 0, 1);
    ASSERT_EQ(Fin | Ack, TakeFlags());
    Segment({700, Port, 1001, m_dwOurs + 1, Fin | Ack});
    ASSERT_EQ(1U, Count(tcp_tw_pcbs));
    ASSERT_EQ(1U, CIPDemux::GetTcpCount());
    for (unsigned int ms = 0; ms < 2 * TCP_MSL + 1000; ms += TCP_TMR_INTERVAL) {
        tcp_tmr();
    }
    EXPECT_EQ(0U, Count(tcp_tw_pcbs));
    EXPECT_EQ(0U, CIPDemux::GetTcpCount());
}

TEST_F(CIPDemuxTest, TimeWait_FinAgain_Acknowledged)
{
    Listen();
    Establish(700, 1000);
    tcp_shutdown(m_Accepted[0]->m_pPcb, 0, 1);
    ASSERT_EQ(Fin | Ack, TakeFlags());
    Segment({700, Port, 1001, m_dwOurs + 1, Fin | Ack});
    EXPECT_EQ(Ack, TakeFlags());
    Segment({700, Port, 1001, m_dwOurs + 1, Fin | Ack});
    EXPECT_EQ(Ack, TakeFlags());
    EXPECT_EQ(1002U, AnswerAck());
    EXPECT_EQ(1U, Count(tcp_tw_pcbs));
}

TEST_F(CIPDemuxTest, TimeWait_SynBeyondOldNumbers_OpensAnewAndOldIsGone)
{
    Listen();
    Establish(700, 1000);
    tcp_shutdown(m_Accepted[0]->m_pPcb, 0, 1);
    Segment({700, Port, 1001, m_dwOurs + 1, Fin | Ack});
    m_Link.Take();
    ASSERT_EQ(1U, Count(tcp_tw_pcbs));
    Segment({700, Port, 900, 0, Syn});
    EXPECT_EQ(0U, Count(tcp_active_pcbs)) << "an old SYN opens nothing";
    m_Link.Take();
    Segment({700, Port, 5000, 0, Syn});
    EXPECT_EQ(Syn | Ack, TakeFlags());
    EXPECT_EQ(5001U, AnswerAck());
    EXPECT_EQ(0U, Count(tcp_tw_pcbs));
    EXPECT_EQ(1U, CIPDemux::GetTcpCount());
    Segment({700, Port, 5001, AnswerSequence() + 1, Ack});
    EXPECT_EQ(2U, m_Accepted.size());
}

TEST_F(CIPDemuxTest, TimeWait_SynWithoutListener_OldStays)
{
    Listen();
    Establish(700, 1000);
    tcp_shutdown(m_Accepted[0]->m_pPcb, 0, 1);
    Segment({700, Port, 1001, m_dwOurs + 1, Fin | Ack});
    m_Link.Take();
    tcp_close(m_pListener);
    m_pListener = nullptr;
    Segment({700, Port, 5000, 0, Syn});
    EXPECT_EQ(Rst | Ack, TakeFlags());
    EXPECT_EQ(1U, Count(tcp_tw_pcbs));
    EXPECT_EQ(1U, CIPDemux::GetTcpCount());
}

TEST_F(CIPDemuxTest, HalfOpenChildren_ResetByPeer_TableEmpty)
{
    constexpr u16_t Children = 50;
    Listen();
    for (u16_t i = 0; i < Children; ++i) {
        Segment({static_cast<u16_t>(1000 + i), Port, 100, 0, Syn});
    }
    EXPECT_EQ(Children, CIPDemux::GetTcpCount());
    EXPECT_EQ(Children, Count(tcp_active_pcbs));
    EXPECT_EQ(Children, m_Link.Take().size());
    for (u16_t i = 0; i < Children; ++i) {
        Segment({static_cast<u16_t>(1000 + (i * 7) % Children), Port, 101, 0, Rst});
    }
    EXPECT_EQ(0U, CIPDemux::GetTcpCount());
    EXPECT_EQ(0U, Count(tcp_active_pcbs));
}

TEST_F(CIPDemuxTest, HalfOpenChildren_TimersGiveUp_TableEmpty)
{
    Listen();
    for (u16_t i = 0; i < 20; ++i) {
        Segment({static_cast<u16_t>(1000 + i), Port, 100, 0, Syn});
    }
    ASSERT_EQ(20U, CIPDemux::GetTcpCount());
    for (int ms = 0; ms < 200000; ms += TCP_TMR_INTERVAL) {
        tcp_tmr();
    }
    EXPECT_EQ(0U, CIPDemux::GetTcpCount());
    EXPECT_EQ(0U, Count(tcp_active_pcbs));
}

TEST_F(CIPDemuxTest, NoListener_Syn_Reset)
{
    Segment({900, Port, 100, 0, Syn});
    EXPECT_EQ(Rst | Ack, TakeFlags());
    EXPECT_EQ(0U, CIPDemux::GetTcpCount());
}

TEST_F(CIPDemuxTest, Established_StrangerOfOtherPort_ResetAndConnectionUntouched)
{
    Listen();
    Establish(700, 1000);
    Segment({701, Port, 1001, m_dwOurs, Ack, 0xFFFF, {}, {'x'}});
    EXPECT_EQ(Rst, TakeFlags() & Rst);
    Segment({700, Port, 1001, m_dwOurs, Ack, 0xFFFF, {}, {'y'}});
    EXPECT_EQ("y", m_Accepted[0]->m_strReceived);
    EXPECT_EQ(1U, Count(tcp_active_pcbs));
}

TEST_F(CIPDemuxTest, Established_SegmentInFragments_Arrives)
{
    Listen();
    Establish(700, 1000);
    Establish(701, 1000);
    const CHeader4 whole{Peer, Own, 6};
    const CBytes segment = Tcp4(whole, {701, Port, 1001, m_dwOurs, Ack, 0xFFFF, {}, CBytes(100, 'f')});
    const CBytes first(segment.begin(), segment.begin() + 64);
    const CBytes second(segment.begin() + 64, segment.end());
    EXPECT_TRUE(m_Link.Input(Make4({Peer, Own, 6, 0x2000, 77}, first)));
    EXPECT_EQ("", m_Accepted[1]->m_strReceived);
    EXPECT_TRUE(m_Link.Input(Make4({Peer, Own, 6, 64 / 8, 77}, second)));
    EXPECT_EQ(std::string(100, 'f'), m_Accepted[1]->m_strReceived);
    EXPECT_EQ("", m_Accepted[0]->m_strReceived);
    EXPECT_EQ(2U, s_nLongestTcp) << "the whole list";
}

TEST_F(CIPDemuxTest, Established_ResetWithOthersAround_OnlyItGoes)
{
    Listen();
    for (u16_t port = 700; port < 710; ++port) {
        Establish(port, 1000);
    }
    Segment({704, Port, 1001, 0, Rst});
    EXPECT_EQ(nullptr, m_Accepted[4]->m_pPcb);
    EXPECT_EQ(ERR_RST, m_Accepted[4]->m_Error);
    EXPECT_EQ(9U, Count(tcp_active_pcbs));
    EXPECT_EQ(9U, CIPDemux::GetTcpCount());
    for (std::size_t i = 0; i < m_Accepted.size(); ++i) {
        EXPECT_EQ(i == 4, m_Accepted[i]->m_pPcb == nullptr) << i;
    }
}

// ---- UDP ----

struct CReceiver
{
    explicit CReceiver(u8_t type = IPADDR_TYPE_ANY) : m_pPcb(udp_new_ip_type(type))
    {
        udp_recv(m_pPcb, &OnDatagram, this);
    }
    ~CReceiver()
    {
        CIPDemux::RemoveUdp(m_pPcb);
        udp_remove(m_pPcb);
    }
    CReceiver(const CReceiver&) = delete;
    CReceiver& operator=(const CReceiver&) = delete;

    static void OnDatagram(void* arg, udp_pcb*, pbuf* packet, const ip_addr_t*, u16_t)
    {
        s_nLongestUdp = std::max(s_nLongestUdp, Count(udp_pcbs));
        ++static_cast<CReceiver*>(arg)->m_nReceived;
        pbuf_free(packet);
    }
    void Bind(const ip_addr_t* address, u16_t port)
    {
        ip_set_option(m_pPcb, SOF_REUSEADDR);
        ip_set_option(m_pPcb, SOF_BROADCAST);
        ASSERT_EQ(ERR_OK, udp_bind(m_pPcb, address, port));
        CIPDemux::AddUdp(m_pPcb);
    }
    void Connect(const ip_addr_t& address, u16_t port)
    {
        ASSERT_EQ(ERR_OK, udp_connect(m_pPcb, &address, port));
        CIPDemux::AddUdp(m_pPcb);
    }
    int Take()
    {
        const int received = m_nReceived;
        m_nReceived = 0;
        return received;
    }

    udp_pcb* m_pPcb;
    int m_nReceived = 0;
};

class CIPDemuxUdpTest : public CIPDemuxTest
{
protected:
    void Datagram(u16_t source, u16_t destination, const char* to = Own)
    {
        const CHeader4 header{Peer, to, 17};
        ASSERT_TRUE(m_Link.Input(Make4(header, Udp4(header, source, destination, {1, 2, 3}))));
    }
};

TEST_F(CIPDemuxUdpTest, ManySockets_Datagram_GoesToItsPortAndListIsOne)
{
    std::vector<std::unique_ptr<CReceiver>> sockets;
    for (u16_t port = 2000; port < 2200; ++port) {
        sockets.emplace_back(new CReceiver);
        sockets.back()->Bind(IP_ANY_TYPE, port);
    }
    for (u16_t port = 2000; port < 2200; ++port) {
        Datagram(9, port);
    }
    for (const auto& socket : sockets) {
        EXPECT_EQ(1, socket->Take());
    }
    EXPECT_EQ(1U, s_nLongestUdp);
    EXPECT_EQ(m_nUdpBefore + 200, Count(udp_pcbs));
}

TEST_F(CIPDemuxUdpTest, SamePort_ConnectedThenOldestSpecificThenWildcard_AsInTheWholeList)
{
    const ip_addr_t own = Ip4(Own);
    CReceiver wildcard;
    CReceiver older;
    CReceiver newer;
    CReceiver connected;
    wildcard.Bind(IP_ANY_TYPE, 2000);
    older.Bind(&own, 2000);
    newer.Bind(&own, 2000);
    connected.Bind(&own, 2000);
    connected.Connect(Ip4(Peer), 55);
    Datagram(55, 2000);
    EXPECT_EQ(1, connected.Take());
    Datagram(56, 2000);
    EXPECT_EQ(1, older.Take());
    CIPDemux::RemoveUdp(older.m_pPcb);
    udp_disconnect(older.m_pPcb);
    udp_bind(older.m_pPcb, IP_ANY_TYPE, 2999);
    CIPDemux::AddUdp(older.m_pPcb);
    Datagram(56, 2000);
    EXPECT_EQ(1, newer.Take());
    Datagram(56, 2000, "255.255.255.255");
    EXPECT_EQ(1, wildcard.Take() + newer.Take()) << "one of them, by lwIP's own choice";
    EXPECT_EQ(0, connected.Take() + older.Take());
}

TEST_F(CIPDemuxUdpTest, ConnectedSocketsOnOnePort_EachPeer_GetsItsOwn)
{
    std::vector<std::unique_ptr<CReceiver>> sockets;
    for (u16_t peer = 100; peer < 150; ++peer) {
        sockets.emplace_back(new CReceiver);
        sockets.back()->Bind(IP_ANY_TYPE, 2000);
        sockets.back()->Connect(Ip4(Peer), peer);
    }
    for (u16_t peer = 100; peer < 150; ++peer) {
        Datagram(peer, 2000);
        EXPECT_EQ(1, sockets[peer - 100U]->Take()) << peer;
    }
    EXPECT_EQ(1U, s_nLongestUdp);
    m_Link.Take();
    Datagram(99, 2000);
    EXPECT_EQ(1U, m_Link.Take().size()) << "port unreachable";
}

TEST_F(CIPDemuxUdpTest, Disconnected_RegisteredAgain_TakesFromAnybody)
{
    CReceiver socket;
    socket.Bind(IP_ANY_TYPE, 2000);
    socket.Connect(Ip4(Peer), 100);
    Datagram(101, 2000);
    EXPECT_EQ(0, socket.Take());
    udp_disconnect(socket.m_pPcb);
    CIPDemux::AddUdp(socket.m_pPcb);
    Datagram(101, 2000);
    EXPECT_EQ(1, socket.Take());
}

TEST_F(CIPDemuxUdpTest, NotRegistered_Datagram_FoundInTheWholeList)
{
    CReceiver socket;
    udp_bind(socket.m_pPcb, IP_ANY_TYPE, 2000);
    Datagram(9, 2000);
    EXPECT_EQ(1, socket.Take());
}

TEST_F(CIPDemuxUdpTest, Ipv6Datagram_Arrives)
{
    CReceiver socket;
    socket.Bind(IP_ANY_TYPE, 2000);
    const CHeader6 header{Peer6, Own6, 17};
    ASSERT_TRUE(m_Link.Input(Make6(header, Udp6(header, 9, 2000, {1}))));
    EXPECT_EQ(1, socket.Take());
    ASSERT_TRUE(m_Link.Input(Make6({Peer6, Own6, 60}, Extension6(17, Udp6(header, 9, 2000, {1})))));
    EXPECT_EQ(1, socket.Take()) << "behind an extension header, by the whole list";
}

TEST_F(CIPDemuxUdpTest, RemoveUnknown_Nothing)
{
    CReceiver socket;
    CIPDemux::RemoveUdp(socket.m_pPcb);
    socket.Bind(IP_ANY_TYPE, 2000);
    CIPDemux::RemoveUdp(socket.m_pPcb);
    CIPDemux::RemoveUdp(socket.m_pPcb);
    Datagram(9, 2000);
    EXPECT_EQ(1, socket.Take());
}

}  // namespace
