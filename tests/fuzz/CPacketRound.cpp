#include "CPacketRound.h"

using namespace packetmaker;

namespace
{

constexpr std::size_t Room = 4096;
constexpr std::uint16_t LastPort = 5000;
constexpr std::uint16_t FirstCallPort = 8300;
constexpr int Backlog = 4;

// A record of either family for an address; the length is the record's first byte.
ps_sockaddr_in6 Record(bool six, const char* address, std::uint16_t port)
{
    ps_sockaddr_in6 record{};
    record.sin6_len = six ? sizeof(ps_sockaddr_in6) : sizeof(ps_sockaddr_in);
    record.sin6_family = six ? PS_AF_INET6 : PS_AF_INET;
    record.sin6_port = static_cast<std::uint16_t>(port << 8 | port >> 8);
    if (address && six) {
        const auto bytes = Address6(address);
        std::copy(bytes.begin(), bytes.end(), record.sin6_addr);
    } else if (address) {
        reinterpret_cast<ps_sockaddr_in&>(record).sin_addr = Address4(address);
    }
    return record;
}

const ps_sockaddr* Plain(const ps_sockaddr_in6& record)
{
    return reinterpret_cast<const ps_sockaddr*>(&record);
}

}  // namespace

CPacketRound::CPacketRound(const std::uint8_t* data, std::size_t size) : m_Input(data, size)
{
    m_Stack.GetPeer().ExpectPackets();
    m_Stack.GetPeer().Forget();
}

int CPacketRound::Open(int family, int type, int protocol, std::uint16_t port)
{
    const int socket = ps_socket(family, type, protocol);
    Require(socket > 0, "a socket can be made");
    ps_socket_nonblock(socket);
    if (port != 0) {
        const ps_sockaddr_in6 local = Record(family == PS_AF_INET6, nullptr, port);
        Require(ps_bind(socket, Plain(local), local.sin6_len) == 0, "what the input before held is free");
    }
    return socket;
}

void CPacketRound::Prepare()
{
    enum EWith : unsigned int
    {
        PASSIVE = 1,
        PASSIVE6 = 2,
        ACTIVE = 4,
        ACTIVE6 = 8,
        RAW = 16,
        CONNECTED = 32
    };
    for (const bool six : {false, true}) {
        const int family = six ? PS_AF_INET6 : PS_AF_INET;
        m_nListeners[six] = Open(family, PS_SOCK_STREAM, 0, CPacketForge::s_wPort);
        Require(ps_listen(m_nListeners[six], Backlog) == 0, "a socket can listen");
        m_nUdp[six] = Open(family, PS_SOCK_DGRAM, 0, CPacketForge::s_wPort);
    }
    const unsigned int with = m_Input.Byte();
    for (const bool six : {false, true}) {
        if ((with & (six ? PASSIVE6 : PASSIVE)) != 0) {
            m_Forge.Connect(six, 3000);
            Accept(six);
        }
        if ((with & (six ? ACTIVE6 : ACTIVE)) != 0) {
            Call(six);
            m_Forge.AcknowledgeAll();
        }
        const int family = six ? PS_AF_INET6 : PS_AF_INET;
        if ((with & RAW) != 0) {
            Keep(Open(family, PS_SOCK_RAW, six ? PS_IPPROTO_ICMPV6 : PS_IPPROTO_ICMP, 0));
            Keep(Open(family, PS_SOCK_RAW, CPacketForge::s_bProtocol, 0));
        }
        if ((with & CONNECTED) != 0) {
            const int socket = Open(family, PS_SOCK_DGRAM, 0, CPacketForge::s_wConnectedPort);
            const ps_sockaddr_in6 peer =
                Record(six, six ? CFuzzStack::s_szPeer6 : CFuzzStack::s_szPeer, CPacketForge::s_wPeerPort);
            ps_connect(socket, Plain(peer), peer.sin6_len);
            Keep(socket);
        }
    }
}

void CPacketRound::Run()
{
    Prepare();
    for (unsigned int i = 0; i < s_dwMostOperations && !m_Input.IsOver(); ++i) {
        Operate();
    }
    CheckServing();
    for (const bool six : {false, true}) {
        ps_close(m_nListeners[six]);
        ps_close(m_nUdp[six]);
    }
    m_Stack.CheckRest();
}

void CPacketRound::Operate()
{
    constexpr int steps[] = {1, 50, 250, 1000, 3000, 16000, 61000, 7200000};
    const unsigned int operation = m_Input.Byte() % 32;
    switch (operation) {
    case 0:
        m_Forge.Junk();
        break;
    case 1:
        m_Forge.Udp();
        break;
    case 2:
        m_Forge.Icmp();
        break;
    case 3:
        m_Forge.Other();
        break;
    case 4:
    case 5:
        m_Forge.Fragment();
        break;
    case 6: {
        const unsigned int kind = m_Input.Byte();
        m_Forge.Connect((kind & 1) != 0, static_cast<std::uint16_t>(3000 + kind / 2 % 16));
        break;
    }
    case 7:
    case 8:
        m_Forge.AcknowledgeAll();
        break;
    case 9:
    case 10:
        m_Forge.SendBytes();
        break;
    case 11:
    case 12:
        CFuzzStack::Pass(steps[m_Input.Byte() % 8]);
        break;
    case 13:
        Call((m_Input.Byte() & 1) != 0);
        break;
    case 14:
    case 15:
        Accept((m_Input.Byte() & 1) != 0);
        break;
    case 16:
    case 17:
    case 18:
    case 19:
    case 20:
    case 21:
    case 22:
        OperateSocket(operation);
        break;
    default:
        m_Forge.Tcp();
        break;
    }
}

// What the program does with one of its sockets.
void CPacketRound::OperateSocket(unsigned int operation)
{
    char buffer[Room] = {};
    const int socket = Pick();
    switch (operation) {
    case 16:
    case 17:
        ps_recv(socket, buffer, 1 + m_Input.Word() % Room, 0);
        break;
    case 18:
    case 19:
        ps_send(socket, buffer, 1 + m_Input.Word() % Room, 0);
        break;
    case 20:
        ps_shutdown(socket, m_Input.Byte() & 1);
        break;
    case 21:
        Option(socket);
        break;
    default:
        if (!m_Sockets.empty()) {
            const std::size_t at = m_Input.Byte() % m_Sockets.size();
            ps_close(m_Sockets[at]);
            m_Sockets.erase(m_Sockets.begin() + static_cast<std::ptrdiff_t>(at));
        }
        break;
    }
}

void CPacketRound::Option(int socket)
{
    struct COption
    {
        int m_nLevel;
        int m_nName;
    };
    constexpr COption options[] = {
        {PS_SOL_SOCKET, PS_SO_KEEPALIVE}, {PS_IPPROTO_TCP, PS_TCP_KEEPIDLE},   {PS_IPPROTO_TCP, PS_TCP_KEEPINTVL},
        {PS_IPPROTO_TCP, PS_TCP_KEEPCNT}, {PS_IPPROTO_TCP, PS_TCP_NODELAY},    {PS_SOL_SOCKET, PS_SO_SNDBUF},
        {PS_SOL_SOCKET, PS_SO_RCVBUF},    {PS_IPPROTO_IPV6, PS_IPV6_CHECKSUM}, {PS_SOL_SOCKET, PS_SO_LINGER}};
    const COption option = options[m_Input.Byte() % std::size(options)];
    const std::int32_t values[2] = {m_Input.Word(), 0};
    ps_setsockopt(socket, option.m_nLevel, option.m_nName, values,
                  option.m_nName == PS_SO_LINGER ? sizeof(values) : sizeof(values[0]));
}

void CPacketRound::Call(bool six)
{
    const std::uint16_t port = static_cast<std::uint16_t>(FirstCallPort + m_Input.Byte() % 4);
    const ps_sockaddr_in6 local = Record(six, nullptr, port);
    const ps_sockaddr_in6 peer =
        Record(six, six ? CFuzzStack::s_szPeer6 : CFuzzStack::s_szPeer, CPacketForge::s_wPeerPort);
    const int socket = Open(six ? PS_AF_INET6 : PS_AF_INET, PS_SOCK_STREAM, 0, 0);
    ps_bind(socket, Plain(local), local.sin6_len);
    ps_connect(socket, Plain(peer), peer.sin6_len);
    Keep(socket);
}

void CPacketRound::Accept(bool six)
{
    const int socket = ps_accept(m_nListeners[six], nullptr, nullptr);
    if (socket > 0) {
        ps_socket_nonblock(socket);
        Keep(socket);
    }
}

void CPacketRound::Keep(int socket)
{
    m_Sockets.push_back(socket);
    if (m_Sockets.size() > s_nMostSockets) {
        ps_close(m_Sockets.front());
        m_Sockets.erase(m_Sockets.begin());
    }
}

// Any socket but the listeners.
int CPacketRound::Pick()
{
    const std::size_t at = m_Input.Byte() % (m_Sockets.size() + 2);
    return at < 2 ? m_nUdp[at] : m_Sockets[at - 2];
}

void CPacketRound::CheckServing()
{
    for (const int socket : m_Sockets) {
        ps_close(socket);
    }
    m_Sockets.clear();
    for (const bool six : {false, true}) {
        while (const int socket = ps_accept(m_nListeners[six], nullptr, nullptr)) {
            if (socket < 0) {
                break;
            }
            ps_close(socket);
        }
    }
    m_Stack.RestConnections();  // what was left half open is gone then
    for (const bool six : {false, true}) {
        CheckTcp(six);
        CheckUdp(six);
    }
}

// An honest peer gets its connection.
void CPacketRound::CheckTcp(bool six)
{
    const CFuzzPeer::CFlow before = m_Stack.GetPeer().Find(six, LastPort, CPacketForge::s_wPort);
    m_Forge.Connect(six, LastPort);
    const CFuzzPeer::CFlow after = m_Stack.GetPeer().Find(six, LastPort, CPacketForge::s_wPort);
    Require(after.m_dwSynAcks == before.m_dwSynAcks + 1 && after.m_dwNext == before.m_dwNext + 1, "a call is answered");
    const int socket = ps_accept(m_nListeners[six], nullptr, nullptr);
    Require(socket > 0, "a connection is made");
    ps_socket_nonblock(socket);
    m_Forge.Segment(after, Ack | Psh, {'h', 'i'});
    char buffer[Room];
    Require(ps_recv(socket, buffer, sizeof(buffer), 0) == 2, "a connection carries data");
    ps_close(socket);
    CFuzzPeer::CFlow last = m_Stack.GetPeer().Find(six, LastPort, CPacketForge::s_wPort);
    m_Forge.Segment(last, Rst | Ack);
}

// So does a datagram.
void CPacketRound::CheckUdp(bool six)
{
    char buffer[Room];
    ps_pollfd entry{m_nUdp[six], PS_POLLIN, 0};
    while (ps_poll(&entry, 1, 0) != 0) {
        ps_recv(m_nUdp[six], buffer, sizeof(buffer), 0);
    }
    const CBytes data(3, 'u');
    const CHeader4 header4{CFuzzStack::s_szPeer, CFuzzStack::s_szOwn};
    const CHeader6 header6{CFuzzStack::s_szPeer6, CFuzzStack::s_szOwn6};
    m_Stack.Input(six ? Make6(header6, Udp6(header6, LastPort, CPacketForge::s_wPort, data))
                      : Make4(header4, Udp4(header4, LastPort, CPacketForge::s_wPort, data)));
    Require(ps_recv(m_nUdp[six], buffer, sizeof(buffer), 0) == 3, "a datagram is received");
}
