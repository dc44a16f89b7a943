#include "CFuzzPeer.h"

#include "CFuzzInput.h"
#include "CFuzzStack.h"
#include "tests/unit/ipstack/PacketMaker.h"

namespace
{

constexpr std::size_t Header4 = 20;
constexpr std::size_t Header6 = 40;
constexpr std::size_t TcpHeader = 20;
constexpr std::uint8_t Tcp = 6;

std::uint16_t Word(const std::uint8_t* at)
{
    return static_cast<std::uint16_t>(at[0] << 8 | at[1]);
}

std::uint32_t DWord(const std::uint8_t* at)
{
    return static_cast<std::uint32_t>(Word(at)) << 16 | Word(at + 2);
}

}  // namespace

unsigned long CFuzzPeer::IPStackLowLevelOutput(const char* data, unsigned long length, unsigned char)
{
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(data);
    const unsigned int version = length < Header4 ? 0 : bytes[0] >> 4;
    const bool six = version == 6 && length >= Header6;
    const bool packet = length <= CFuzzStack::s_dwMtu && (version == 4 || six);
    Require(packet || !m_bExpectsPackets, "what is sent is a packet that fits the link");
    if (!packet) {
        return 0;
    }
    const std::lock_guard<std::mutex> guard(m_Mutex);
    m_Last.assign(bytes, bytes + length);
    const std::size_t header = six ? Header6 : Header4;
    constexpr unsigned int fragment = 0x3FFF;
    const bool whole = six || (Word(bytes + 6) & fragment) == 0;
    if (length >= header + TcpHeader && (six ? bytes[6] : bytes[9]) == Tcp && whole) {
        Follow(six, bytes + header, length - header);
    }
    return 0;
}

void CFuzzPeer::Follow(bool six, const std::uint8_t* tcp, std::size_t length)
{
    const std::uint16_t own = Word(tcp);
    const std::uint16_t peer = Word(tcp + 2);
    const std::size_t header = static_cast<std::size_t>(tcp[12] >> 4) * 4;
    const std::uint8_t flags = tcp[13];
    if (header < TcpHeader || header > length || (flags & packetmaker::Rst) != 0) {
        return;
    }
    CFlow* flow = Find_i(six, peer, own);
    if (!flow) {
        m_Flows.push_back({six, peer, own});
        flow = &m_Flows.back();
    }
    const unsigned int marks =
        ((flags & packetmaker::Syn) != 0 ? 1U : 0U) + ((flags & packetmaker::Fin) != 0 ? 1U : 0U);
    const std::uint32_t end = DWord(tcp + 4) + static_cast<std::uint32_t>(length - header) + marks;
    const bool begins = (flags & packetmaker::Syn) != 0;
    if (begins || static_cast<std::int32_t>(end - flow->m_dwAck) > 0 || flow->m_dwAck == 0) {
        flow->m_dwAck = end;
    }
    if ((flags & packetmaker::Ack) != 0) {
        flow->m_dwNext = DWord(tcp + 8);
    }
    flow->m_dwLast = DWord(tcp + 4);
    flow->m_bLastFlags = flags;
    flow->m_dwSynAcks += begins && (flags & packetmaker::Ack) != 0;
}

CFuzzPeer::CFlow* CFuzzPeer::Find_i(bool six, std::uint16_t peerPort, std::uint16_t ownPort)
{
    for (CFlow& flow : m_Flows) {
        if (flow.m_bSix == six && flow.m_wPeerPort == peerPort && flow.m_wOwnPort == ownPort) {
            return &flow;
        }
    }
    return nullptr;
}

void CFuzzPeer::Forget()
{
    const std::lock_guard<std::mutex> guard(m_Mutex);
    m_Flows.clear();
    m_Last.clear();
}

std::size_t CFuzzPeer::GetCount()
{
    const std::lock_guard<std::mutex> guard(m_Mutex);
    return m_Flows.size();
}

CFuzzPeer::CFlow CFuzzPeer::Get(std::size_t index)
{
    const std::lock_guard<std::mutex> guard(m_Mutex);
    return m_Flows.at(index);
}

CFuzzPeer::CFlow CFuzzPeer::Find(bool six, std::uint16_t peerPort, std::uint16_t ownPort)
{
    const std::lock_guard<std::mutex> guard(m_Mutex);
    const CFlow* flow = Find_i(six, peerPort, ownPort);
    CFlow none;
    none.m_bSix = six;
    none.m_wPeerPort = peerPort;
    none.m_wOwnPort = ownPort;
    return flow ? *flow : none;
}

std::vector<std::uint8_t> CFuzzPeer::GetLast()
{
    const std::lock_guard<std::mutex> guard(m_Mutex);
    return m_Last;
}
