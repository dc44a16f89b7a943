#include "CPacketForge.h"

using namespace packetmaker;

namespace
{

constexpr std::uint8_t ProtocolIcmp = 1;
constexpr std::uint8_t ProtocolTcp = 6;
constexpr std::uint8_t ProtocolUdp = 17;
constexpr std::uint8_t ProtocolFragment6 = 44;
constexpr std::uint8_t ProtocolIcmp6 = 58;
constexpr std::size_t MostData = 1340;
constexpr std::size_t ShortData = 16;

CHeader4 Header4(std::uint8_t protocol = ProtocolTcp, std::uint16_t fragment = 0, std::uint16_t id = 1)
{
    return {CFuzzStack::s_szPeer, CFuzzStack::s_szOwn, protocol, fragment, id};
}

CHeader6 Header6(std::uint8_t next = ProtocolTcp)
{
    return {CFuzzStack::s_szPeer6, CFuzzStack::s_szOwn6, next};
}

}  // namespace

void CPacketForge::Junk()
{
    m_Stack.Input(m_Input.Bytes(m_Input.Byte()));
}

CFuzzPeer::CFlow CPacketForge::PickFlow()
{
    constexpr unsigned int anew = 0x80;
    constexpr unsigned int six = 0x40;
    constexpr unsigned int ports = 8;
    const unsigned int pick = m_Input.Byte();
    const std::size_t count = m_Stack.GetPeer().GetCount();
    if ((pick & anew) == 0 && count != 0) {
        return m_Stack.GetPeer().Get(pick % count);
    }
    return m_Stack.GetPeer().Find((pick & six) != 0, static_cast<std::uint16_t>(3000 + pick % ports), s_wPort);
}

// A distance from the expected number: small, or about a window, or anything.
std::uint32_t CPacketForge::Offset()
{
    constexpr std::uint32_t window = 65535;
    constexpr std::uint32_t widest = 524288;
    switch (m_Input.Byte() % 6) {
    case 0:
        return m_Input.Byte();
    case 1:
        return 0U - m_Input.Byte();
    case 2:
        return m_Input.Word();
    case 3:
        return window - m_Input.Word() % 2000;
    case 4:
        return widest - m_Input.Word() % 2000;
    default:
        return m_Input.DWord();
    }
}

CBytes CPacketForge::Options()
{
    constexpr std::size_t most = 40;
    CBytes options = m_Input.Bytes(m_Input.Byte() % (most + 1));
    options.resize((options.size() + 3) / 4 * 4);
    return options;
}

// Few bytes as in the input, or many that mean nothing.
CBytes CPacketForge::Data()
{
    const std::size_t length = m_Input.Word() % (MostData + 1);
    CBytes data = m_Input.Bytes(std::min(length, ShortData));
    data.resize(length, 'd');
    return data;
}

CBytes CPacketForge::Make(const CTcp& tcp, bool six) const
{
    return six ? Tcp6(Header6(), tcp) : Tcp4(Header4(), tcp);
}

void CPacketForge::Tcp()
{
    enum EForm : unsigned int
    {
        SEQUENCE = 1,
        ACKNOWLEDGED = 2,
        WINDOW = 4,
        OPTIONS = 8,
        DATA = 16,
        LAST_LACKS = 32
    };
    const CFuzzPeer::CFlow flow = PickFlow();
    const unsigned int form = m_Input.Byte();
    CTcp tcp;
    tcp.m_wSource = flow.m_wPeerPort;
    tcp.m_wDestination = flow.m_wOwnPort;
    tcp.m_bFlags = m_Input.Byte();
    tcp.m_dwSequence = flow.m_dwNext + ((form & SEQUENCE) != 0 ? Offset() : 0);
    tcp.m_dwAck =
        ((form & LAST_LACKS) != 0 ? flow.m_dwLast : flow.m_dwAck) + ((form & ACKNOWLEDGED) != 0 ? Offset() : 0);
    if ((form & WINDOW) != 0) {
        tcp.m_wWindow = m_Input.Word();
    }
    if ((form & OPTIONS) != 0) {
        tcp.m_Options = Options();
    }
    if ((form & DATA) != 0) {
        tcp.m_Data = Data();
    }
    Send({flow.m_bSix, ProtocolTcp, Make(tcp, flow.m_bSix)});
}

void CPacketForge::Udp()
{
    enum EForm : unsigned int
    {
        SIX = 1,
        NO_CHECKSUM = 2,
        OTHER_LENGTH = 4
    };
    constexpr std::uint16_t sources[] = {s_wPeerPort, 4001, 0};
    constexpr std::uint16_t destinations[] = {s_wPort, s_wConnectedPort, 9, 0};
    constexpr std::size_t lengthAt = 4;
    constexpr std::size_t checksumAt = 6;
    const unsigned int form = m_Input.Byte();
    const unsigned int ports = m_Input.Byte();
    const std::uint16_t source = sources[ports % 3];
    const std::uint16_t destination = destinations[ports / 4 % 4];
    const bool six = (form & SIX) != 0;
    const CBytes data = Data();
    CBytes message = six ? Udp6(Header6(), source, destination, data) : Udp4(Header4(), source, destination, data);
    if ((form & OTHER_LENGTH) != 0) {
        message[lengthAt] = m_Input.Byte();
        message[lengthAt + 1] = m_Input.Byte();
    }
    if ((form & NO_CHECKSUM) != 0) {
        message[checksumAt] = message[checksumAt + 1] = 0;
    }
    Send({six, ProtocolUdp, message});
}

void CPacketForge::Icmp()
{
    enum EForm : unsigned int
    {
        SIX = 1,
        QUOTE = 2
    };
    constexpr std::size_t mostQuoted = 1000;
    const unsigned int form = m_Input.Byte();
    const std::uint8_t type = m_Input.Byte();
    const std::uint8_t code = m_Input.Byte();
    CBytes rest = Data();
    if ((form & QUOTE) != 0) {
        const CBytes last = m_Stack.GetPeer().GetLast();
        rest.resize(4);
        rest.insert(rest.end(), last.begin(),
                    last.begin() + static_cast<std::ptrdiff_t>(std::min(last.size(), mostQuoted)));
    }
    const bool six = (form & SIX) != 0;
    Send({six, six ? ProtocolIcmp6 : ProtocolIcmp, six ? Icmp6(Header6(), type, code, rest) : Icmp4(type, code, rest)});
}

void CPacketForge::Other()
{
    const bool six = (m_Input.Byte() & 1) != 0;
    const std::uint8_t protocol = m_Input.Byte();
    Send({six, protocol == 0 ? s_bProtocol : protocol, Data()});
}

// One fragment on its own.
void CPacketForge::Fragment()
{
    enum EForm : unsigned int
    {
        SIX = 1,
        MORE = 2,
        EXTENDED = 4
    };
    constexpr unsigned int offsetBits = 0x1FFF;
    constexpr unsigned int moreBit = 0x2000;
    const unsigned int form = m_Input.Byte();
    const std::uint8_t protocol = m_Input.Byte();
    const std::uint16_t id = m_Input.Byte() % 4;
    const unsigned int offset = m_Input.Word() & offsetBits;
    const bool more = (form & MORE) != 0;
    const CBytes data = Data();
    if ((form & SIX) == 0) {
        const auto field = static_cast<std::uint16_t>(offset | (more ? moreBit : 0U));
        m_Stack.Input(Make4(Header4(protocol, field, id), data));
        return;
    }
    CMessage message{true, ProtocolFragment6, Fragment6(protocol, offset * 8, more, id, data)};
    if ((form & EXTENDED) != 0) {
        Send(message);
    } else {
        m_Stack.Input(Whole(message));
    }
}

CPacket CPacketForge::Whole(const CMessage& message) const
{
    return message.m_bSix ? Make6(Header6(message.m_bProtocol), message.m_Bytes)
                          : Make4(Header4(message.m_bProtocol), message.m_Bytes);
}

// As it is for the most part; else with extension headers, in fragments, or damaged.
void CPacketForge::Send(CMessage message)
{
    enum EMode : unsigned int
    {
        EXTENDED = 0xC0,
        FRAGMENTS = 0xD0,
        DAMAGED = 0xF0
    };
    const unsigned int mode = m_Input.Byte();
    if (mode >= EXTENDED && mode < FRAGMENTS && message.m_bSix) {
        constexpr std::uint8_t kinds[] = {0, 43, 60, 60};
        for (unsigned int left = mode % 4 + 1; left != 0; --left) {
            message.m_Bytes = Extension6(message.m_bProtocol, message.m_Bytes);
            message.m_bProtocol = kinds[m_Input.Byte() % 4];
        }
    }
    if (mode >= FRAGMENTS && mode < DAMAGED) {
        SendFragments(message);
        return;
    }
    CPacket packet = Whole(message);
    if (mode >= DAMAGED) {
        Mutate(packet);
    }
    m_Stack.Input(packet);
}

// Pieces of one size, which overlap, come in either order, twice or not at all.
void CPacketForge::SendFragments(const CMessage& message)
{
    enum EForm : unsigned int
    {
        BACKWARDS = 1,
        OVERLAP = 2
    };
    constexpr std::size_t unit = 8;
    const unsigned int form = m_Input.Byte();
    const std::uint16_t id = static_cast<std::uint16_t>(form >> 6);
    const std::size_t step = unit * (1 + m_Input.Byte() % 64);
    const std::size_t size = message.m_Bytes.size();
    std::vector<CPacket> pieces;
    for (std::size_t at = 0; at < size; at += step) {
        const std::size_t end = std::min(size, at + step + ((form & OVERLAP) != 0 ? unit : 0));
        const CBytes part(message.m_Bytes.begin() + static_cast<std::ptrdiff_t>(at),
                          message.m_Bytes.begin() + static_cast<std::ptrdiff_t>(end));
        const bool more = end < size;
        const unsigned int field = static_cast<unsigned int>(at / unit) | (more ? 0x2000U : 0U);
        pieces.push_back(message.m_bSix
                             ? Make6(Header6(ProtocolFragment6),
                                     Fragment6(message.m_bProtocol, static_cast<unsigned int>(at), more, id, part))
                             : Make4(Header4(message.m_bProtocol, static_cast<std::uint16_t>(field), id), part));
    }
    if ((form & BACKWARDS) != 0) {
        std::reverse(pieces.begin(), pieces.end());
    }
    unsigned int lost = m_Input.Word();
    unsigned int doubled = m_Input.Word();
    for (const CPacket& piece : pieces) {
        if ((lost & 1) == 0) {
            m_Stack.Input(piece);
        }
        if ((doubled & 1) != 0) {
            m_Stack.Input(piece);
        }
        lost >>= 1;
        doubled >>= 1;
    }
}

// Some bytes changed, cut or padded; IPv4's checksum made right so that it is looked at.
void CPacketForge::Mutate(CPacket& packet)
{
    constexpr std::size_t longestHeader = 60;
    for (unsigned int left = m_Input.Byte() % 4 + 1; left != 0 && !packet.empty(); --left) {
        const std::size_t at = m_Input.Byte() % std::min<std::size_t>(packet.size(), 256);
        packet[at] = m_Input.Byte();
    }
    const unsigned int cut = m_Input.Byte();
    if (cut % 4 == 1) {
        packet.resize(packet.size() - std::min<std::size_t>(packet.size(), cut / 4));
    } else if (cut % 4 == 2) {
        packet.resize(packet.size() + cut / 4);
    }
    if (packet.size() >= longestHeader && packet[0] >> 4 == 4) {
        FixChecksum4(packet);
    }
}

void CPacketForge::Segment(const CFuzzPeer::CFlow& flow, std::uint8_t flags, const CBytes& data)
{
    CTcp tcp;
    tcp.m_wSource = flow.m_wPeerPort;
    tcp.m_wDestination = flow.m_wOwnPort;
    tcp.m_dwSequence = flow.m_dwNext;
    tcp.m_dwAck = (flags & Ack) != 0 ? flow.m_dwAck : 0;
    tcp.m_bFlags = flags;
    if ((flags & Syn) != 0) {
        tcp.m_Options = {2, 4, 0x05, 0x50, 1, 3, 3, 7, 1, 1, 4, 2};  // 1360 bytes a segment, scaled windows, SACK
    }
    tcp.m_Data = data;
    m_Stack.Input(Whole({flow.m_bSix, ProtocolTcp, Make(tcp, flow.m_bSix)}));
}

void CPacketForge::Connect(bool six, std::uint16_t peerPort)
{
    Segment(m_Stack.GetPeer().Find(six, peerPort, s_wPort), Syn);
    const CFuzzPeer::CFlow flow = m_Stack.GetPeer().Find(six, peerPort, s_wPort);
    if ((flow.m_bLastFlags & (Syn | Ack)) == (Syn | Ack)) {
        Segment(flow, Ack);
    }
}

void CPacketForge::AcknowledgeAll()
{
    for (std::size_t i = 0; i < m_Stack.GetPeer().GetCount(); ++i) {
        const CFuzzPeer::CFlow flow = m_Stack.GetPeer().Get(i);
        Segment(flow, (flow.m_bLastFlags & (Syn | Ack)) == Syn ? Syn | Ack : Ack);
    }
}

void CPacketForge::SendBytes()
{
    const CFuzzPeer::CFlow flow = PickFlow();
    Segment(flow, Ack | Psh, Data());
}
