// Throws random and mutated packets at the stack through a link while sockets live, write and die.
//
// UXPORT_FUZZ_SEED and UXPORT_FUZZ_ROUNDS in the environment repeat a run or make a longer one.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <iostream>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "PacketMaker.h"
#include "ipstack/ipstack.h"
#include "mantle/CMNClock.h"
#include "platform/ipstack/CIPAssertion.h"
#include "platform/ipstack/CIPCounters.h"
#include "tests/support/KeepForEver.h"

namespace
{

using namespace packetmaker;
using ipstack::CIPCounters;
using ipstack::IIPStackManager;

constexpr const char* Own = "10.66.0.1";
constexpr const char* Own6 = "fd66::1";
constexpr const char* Peer = "10.66.0.9";
constexpr const char* Peer6 = "fd66::9";
constexpr std::uint16_t Port4 = 8000;
constexpr std::uint16_t Port6 = 8001;
constexpr std::uint16_t Flows = 6;
constexpr unsigned int PacketsPerRound = 1500;
constexpr std::size_t MaxSockets = 48;
constexpr int RestMs = 200000;  // longer than any state outlives its socket

class CDice
{
public:
    explicit CDice(std::uint64_t seed) : m_qwState(seed * 0x9e3779b97f4a7c15U + 1) {}

    std::uint32_t Get()
    {
        m_qwState ^= m_qwState << 13;
        m_qwState ^= m_qwState >> 7;
        m_qwState ^= m_qwState << 17;
        return static_cast<std::uint32_t>(m_qwState >> 16);
    }
    std::uint32_t Below(std::uint32_t bound) { return Get() % bound; }
    bool OneIn(std::uint32_t count) { return Below(count) == 0; }
    CBytes Bytes(std::size_t length)
    {
        CBytes bytes(length);
        for (std::uint8_t& byte : bytes) {
            byte = static_cast<std::uint8_t>(Get());
        }
        return bytes;
    }

private:
    std::uint64_t m_qwState;
};

// What the peer knows of a connection: it follows what the stack sends, so that its segments are near enough to be
// looked at.
struct CFlow
{
    std::uint32_t m_dwNext = 0;  // the peer's next byte
    std::uint32_t m_dwAck = 0;   // the stack's next byte
};

// The layer below the link: reads the stack's segments.
class CPeer : public ipstack::IIPStackLowLevel
{
public:
    unsigned long IPStackLowLevelOutput(const char* data, unsigned long length, unsigned char) override
    {
        const std::lock_guard<std::mutex> guard(m_Mutex);
        const auto* bytes = reinterpret_cast<const std::uint8_t*>(data);
        const bool six = bytes[0] >> 4 == 6;
        const std::size_t header = six ? 40 : 20;
        if ((six ? bytes[6] : bytes[9]) != 6 || length < header + 20) {
            return 0;
        }
        const std::uint8_t* tcp = bytes + header;
        const std::uint16_t port = static_cast<std::uint16_t>(tcp[2] << 8 | tcp[3]);
        CFlow& flow = m_Flows[{six, port}];
        const std::size_t payload = length - header - static_cast<std::size_t>(tcp[12] >> 4) * 4;
        flow.m_dwAck = Word(tcp + 4) + static_cast<std::uint32_t>(payload) + ((tcp[13] & Syn) != 0 ? 1U : 0U) +
                       ((tcp[13] & Fin) != 0 ? 1U : 0U);
        if ((tcp[13] & Ack) != 0) {
            flow.m_dwNext = Word(tcp + 8);
        }
        if ((tcp[13] & (Syn | Ack)) == Syn) {
            m_Calls.push_back({{six, port}, static_cast<std::uint16_t>(tcp[0] << 8 | tcp[1])});
        }
        return 0;
    }

    CFlow Get(bool six, std::uint16_t port)
    {
        const std::lock_guard<std::mutex> guard(m_Mutex);
        return m_Flows[{six, port}];
    }

    // The local port of a connection that the stack opens to this peer's port.
    bool TakeCall(bool& six, std::uint16_t& peerPort, std::uint16_t& ownPort)
    {
        const std::lock_guard<std::mutex> guard(m_Mutex);
        if (m_Calls.empty()) {
            return false;
        }
        six = m_Calls.front().first.first;
        peerPort = m_Calls.front().first.second;
        ownPort = m_Calls.front().second;
        m_Calls.pop_front();
        return true;
    }

private:
    static std::uint32_t Word(const std::uint8_t* at)
    {
        return static_cast<std::uint32_t>(at[0]) << 24 | static_cast<std::uint32_t>(at[1]) << 16 |
               static_cast<std::uint32_t>(at[2]) << 8 | at[3];
    }

    std::mutex m_Mutex;
    std::map<std::pair<bool, std::uint16_t>, CFlow> m_Flows;
    std::deque<std::pair<std::pair<bool, std::uint16_t>, std::uint16_t>> m_Calls;
};

std::uint64_t GetEnvironment(const char* name, std::uint64_t otherwise)
{
    const char* text = std::getenv(name);
    return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

class CIPFuzzTest : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        // Until the process ends: the stack's own thread follows it.
        KeepForEver(new mantle::CMNManualClock);
        KeepForEver(new mantle::CMNClockParticipant);
    }

    CIPFuzzTest() { IIPStackManager::Instance()->Startup({}); }

    static std::map<std::string, std::uint64_t> Counters()
    {
        IIPStackManager* manager = IIPStackManager::Instance();
        std::vector<ipstack::CIPStackCounter> counters(manager->GetCounters(nullptr, 0));
        manager->GetCounters(counters.data(), counters.size());
        std::map<std::string, std::uint64_t> values;
        for (const ipstack::CIPStackCounter& counter : counters) {
            values[counter.m_szName] = counter.m_qwValue;
        }
        return values;
    }

    static void Pass(int milliseconds) { EXPECT_EQ(0, ps_poll(nullptr, 0, milliseconds)); }
};

// One round: a link, a listener, sockets, packets.
class CRound
{
public:
    explicit CRound(std::uint64_t seed) : m_Dice(seed)
    {
        ipstack::CIPStackConfig config;
        config.m_strAddress = Own;
        config.m_strAddress6 = Own6;
        EXPECT_EQ(0U, IIPStackManager::Instance()->CreateStack(config, &m_Peer, m_pLink));
        m_nListener = Open(PS_SOCK_STREAM, PS_AF_INET, Port4);
        m_nListener6 = Open(PS_SOCK_STREAM, PS_AF_INET6, Port6);
        EXPECT_EQ(0, ps_listen(m_nListener, 64));
        EXPECT_EQ(0, ps_listen(m_nListener6, 64));
        m_Sockets.push_back(Open(PS_SOCK_DGRAM, PS_AF_INET, Port4));
        m_Sockets.push_back(Open(PS_SOCK_DGRAM, PS_AF_INET6, Port6));
        const int raw = ps_socket(PS_AF_INET, PS_SOCK_RAW, PS_IPPROTO_ICMP);
        ps_socket_nonblock(raw);
        m_Sockets.push_back(raw);
    }
    ~CRound()
    {
        for (const int socket : m_Sockets) {
            ps_close(socket);
        }
        ps_close(m_nListener);
        ps_close(m_nListener6);
        EXPECT_EQ(0U, IIPStackManager::Instance()->DestroyStack(m_pLink));
    }
    CRound(const CRound&) = delete;
    CRound& operator=(const CRound&) = delete;

    void Run()
    {
        for (unsigned int i = 0; i < PacketsPerRound; ++i) {
            Send(m_Dice.OneIn(12) ? Junk() : Message());
            if (m_Dice.OneIn(4)) {
                Act();
            }
            if (m_Dice.OneIn(16)) {
                ps_poll(nullptr, 0, static_cast<int>(m_Dice.Below(m_Dice.OneIn(20) ? 5000 : 150)));
            }
        }
    }

private:
    static int Open(int type, int family, std::uint16_t port)
    {
        const int handle = ps_socket(family, type, 0);
        const int reuse = 1;  // connections of the round before may be closing still
        EXPECT_EQ(0, ps_setsockopt(handle, PS_SOL_SOCKET_LINUX, PS_SO_LINUX_REUSEADDR, &reuse, sizeof(reuse)));
        ps_sockaddr_in6 six{};
        six.sin6_len = sizeof(six);
        six.sin6_family = static_cast<std::uint8_t>(family);
        six.sin6_port = static_cast<std::uint16_t>(port << 8 | port >> 8);
        if (family == PS_AF_INET) {
            six.sin6_len = sizeof(ps_sockaddr_in);
        }
        EXPECT_EQ(0, ps_bind(handle, reinterpret_cast<const ps_sockaddr*>(&six), six.sin6_len)) << get_pserrno();
        ps_socket_nonblock(handle);
        return handle;
    }

    void Input(const CPacket& packet)
    {
        m_pLink->Input(reinterpret_cast<const char*>(packet.data()), static_cast<unsigned long>(packet.size()));
    }

    // Whole packets that mean something, more or less.
    struct CMessage
    {
        bool m_bSix;
        std::uint8_t m_bProtocol;
        CBytes m_Bytes;
    };

    CMessage Message()
    {
        bool six = m_Dice.OneIn(3);
        const CHeader4 header4{Peer, Own, 6};
        const CHeader6 header6{Peer6, Own6, 6};
        switch (m_Dice.Below(16)) {
        case 0:
            return {six, 17,
                    six ? Udp6(header6, 1, Port6, m_Dice.Bytes(m_Dice.Below(900)))
                        : Udp4(header4, 1, Port4, m_Dice.Bytes(m_Dice.Below(900)))};
        case 1:
            return {
                six, static_cast<std::uint8_t>(six ? 58 : 1),
                six ? Echo6(header6, 9, m_Dice.Bytes(m_Dice.Below(900))) : Echo4(9, m_Dice.Bytes(m_Dice.Below(900)))};
        case 2:
            return {six, static_cast<std::uint8_t>(m_Dice.Get()), m_Dice.Bytes(m_Dice.Below(200))};
        default: {
            const CTcp tcp = Segment(six);
            return {six, 6, six ? Tcp6(header6, tcp) : Tcp4(header4, tcp)};
        }
        }
    }

    CTcp Segment(bool& six)
    {
        CTcp tcp;
        tcp.m_wSource = static_cast<std::uint16_t>(3000 + m_Dice.Below(Flows));
        tcp.m_wDestination = six ? Port6 : Port4;
        if (m_Dice.OneIn(8) && m_Peer.TakeCall(six, tcp.m_wSource, tcp.m_wDestination)) {
            const CFlow flow = m_Peer.Get(six, tcp.m_wSource);
            tcp.m_dwSequence = m_Dice.Get();
            tcp.m_dwAck = flow.m_dwAck;
            tcp.m_bFlags = Syn | Ack;
            tcp.m_Options = Options();
            return tcp;
        }
        const CFlow flow = m_Peer.Get(six, tcp.m_wSource);
        tcp.m_dwSequence = flow.m_dwNext + Offset();
        tcp.m_dwAck = flow.m_dwAck + (m_Dice.OneIn(5) ? Offset() : 0U);
        tcp.m_wWindow = m_Dice.OneIn(6)   ? std::uint16_t{0}
                        : m_Dice.OneIn(4) ? static_cast<std::uint16_t>(m_Dice.Below(200))
                                          : static_cast<std::uint16_t>(m_Dice.Get());
        switch (m_Dice.Below(12)) {
        case 0:
        case 1:
            tcp.m_bFlags = Syn;
            tcp.m_Options = Options();
            break;
        case 2:
            tcp.m_bFlags = Fin | Ack;
            break;
        case 3:
            tcp.m_bFlags = m_Dice.OneIn(10) ? Rst : Ack;
            break;
        case 4:
            tcp.m_bFlags = static_cast<std::uint8_t>(m_Dice.Get() & 0x3F);
            break;
        default:
            tcp.m_bFlags = Ack;
            break;
        }
        if (m_Dice.OneIn(5)) {
            tcp.m_Options = Options();
        }
        if (!m_Dice.OneIn(3)) {
            tcp.m_Data = m_Dice.Bytes(m_Dice.OneIn(4) ? m_Dice.Below(1340) : m_Dice.Below(40));
        }
        return tcp;
    }

    // A distance from the expected number: mostly none, or small, or about a window, or anything.
    std::uint32_t Offset()
    {
        switch (m_Dice.Below(10)) {
        case 0:
            return m_Dice.Below(3000);
        case 1:
            return 0U - m_Dice.Below(3000);
        case 2:
            return 65535 - m_Dice.Below(1500);
        case 3:
            return 524288 - m_Dice.Below(1500);
        case 4:
            return m_Dice.Get();
        default:
            return 0;
        }
    }

    CBytes Options()
    {
        CBytes options;
        while (options.size() < 32 && !m_Dice.OneIn(4)) {
            CBytes option;
            switch (m_Dice.Below(6)) {
            case 0:
                option = {2, 4, static_cast<std::uint8_t>(m_Dice.Below(16)), static_cast<std::uint8_t>(m_Dice.Get())};
                break;
            case 1:
                option = {3, 3, static_cast<std::uint8_t>(m_Dice.Below(20))};
                break;
            case 2:
                option = {4, 2};
                break;
            case 3:
                option = {8, 10, 1, 2, 3, 4, 5, 6, 7, 8};
                break;
            case 4:
                option = m_Dice.Bytes(1 + m_Dice.Below(4));
                break;
            default:
                option = {1};
                break;
            }
            options.insert(options.end(), option.begin(), option.end());
        }
        options.resize((options.size() + 3) / 4 * 4);
        return options;
    }

    static CPacket Whole(const CMessage& message, std::uint16_t fragment = 0, std::uint16_t id = 1)
    {
        return message.m_bSix ? Make6({Peer6, Own6, message.m_bProtocol}, message.m_Bytes)
                              : Make4({Peer, Own, message.m_bProtocol, fragment, id}, message.m_Bytes);
    }

    CMessage Junk()
    {
        return {m_Dice.OneIn(2), static_cast<std::uint8_t>(m_Dice.Get()), m_Dice.Bytes(m_Dice.Below(120))};
    }

    void Send(CMessage message)
    {
        if (message.m_bSix) {
            while (m_Dice.OneIn(6)) {
                constexpr std::uint8_t kinds[] = {0, 43, 60};
                message.m_Bytes = Extension6(message.m_bProtocol, message.m_Bytes);
                message.m_bProtocol = kinds[m_Dice.Below(3)];
            }
        }
        if (m_Dice.OneIn(8)) {
            Fragments(message);
            return;
        }
        CPacket packet = Whole(message);
        if (m_Dice.OneIn(10)) {
            Mutate(packet);
        }
        Input(packet);
    }

    // Some bytes changed, perhaps cut or padded; IPv4's checksum made right so that it is looked at.
    void Mutate(CPacket& packet)
    {
        if (packet.empty()) {
            return;
        }
        for (unsigned int changes = 1 + m_Dice.Below(3); changes > 0; --changes) {
            const std::size_t reach = m_Dice.OneIn(2) ? packet.size() : std::min<std::size_t>(packet.size(), 20);
            packet[m_Dice.Below(static_cast<std::uint32_t>(reach))] = static_cast<std::uint8_t>(m_Dice.Get());
        }
        if (m_Dice.OneIn(4)) {
            packet.resize(m_Dice.Below(static_cast<std::uint32_t>(packet.size() + 10)));
        }
        if (packet.size() >= 60 && packet[0] >> 4 == 4) {
            FixChecksum4(packet);
        }
    }

    // Cuts a message at random places; pieces overlap, come twice, late or never.
    void Fragments(const CMessage& message)
    {
        const std::uint16_t id = static_cast<std::uint16_t>(m_Dice.Below(4));
        std::vector<CPacket> pieces;
        const std::size_t size = message.m_Bytes.size();
        for (std::size_t at = 0; at < size;) {
            const std::size_t length = std::min<std::size_t>(8 * (1 + m_Dice.Below(40)), size - at);
            const CBytes part(message.m_Bytes.begin() + static_cast<std::ptrdiff_t>(at),
                              message.m_Bytes.begin() + static_cast<std::ptrdiff_t>(at + length));
            const bool more = at + length < size;
            const std::size_t shown = m_Dice.OneIn(12) ? 8 * m_Dice.Below(8192) : at;
            const std::uint8_t next =
                m_Dice.OneIn(12) ? static_cast<std::uint8_t>(m_Dice.Below(64)) : message.m_bProtocol;
            if (message.m_bSix) {
                CBytes piece = Fragment6(next, static_cast<unsigned int>(shown & 0xFFF8), more, id, part);
                if (m_Dice.OneIn(8)) {
                    piece = Fragment6(44, 8 * m_Dice.Below(4), m_Dice.OneIn(2), id, piece);
                }
                pieces.push_back(Make6({Peer6, Own6, 44}, piece));
            } else {
                const unsigned int field = static_cast<unsigned int>(shown / 8 & 0x1FFF) | (more ? 0x2000U : 0U);
                pieces.push_back(Whole({false, next, part}, static_cast<std::uint16_t>(field), id));
            }
            at += m_Dice.OneIn(10) ? 8 : length;
        }
        while (!pieces.empty()) {
            const std::size_t pick = m_Dice.OneIn(3) ? m_Dice.Below(static_cast<std::uint32_t>(pieces.size())) : 0;
            if (!m_Dice.OneIn(12)) {
                if (m_Dice.OneIn(12)) {
                    Mutate(pieces[pick]);
                }
                Input(pieces[pick]);
            }
            if (!m_Dice.OneIn(12)) {
                pieces.erase(pieces.begin() + static_cast<std::ptrdiff_t>(pick));
            }
        }
    }

    // Something that a program does.
    void Act()
    {
        char buffer[4096] = {};
        const int socket = m_Sockets[m_Dice.Below(static_cast<std::uint32_t>(m_Sockets.size()))];
        switch (m_Dice.Below(10)) {
        case 0:
        case 1: {
            const int handle = ps_accept(m_Dice.OneIn(2) ? m_nListener : m_nListener6, nullptr, nullptr);
            if (handle > 0) {
                ps_socket_nonblock(handle);
                if (m_Dice.OneIn(3)) {
                    ps_set_snd_rcv_buffer(handle, static_cast<int>(1 + m_Dice.Below(300000)),
                                          static_cast<int>(1 + m_Dice.Below(300000)));
                }
                Keep(handle);
            }
            break;
        }
        case 2:
        case 3:
            ps_send(socket, buffer, 1 + m_Dice.Below(sizeof(buffer) - 1), 0);
            break;
        case 4:
        case 5:
        case 6:
            ps_recv(socket, buffer, 1 + m_Dice.Below(sizeof(buffer) - 1), 0);
            break;
        case 7:
            if (m_Dice.OneIn(4)) {
                ps_shutdown(socket, m_Dice.OneIn(3) ? PS_SHUT_RD : PS_SHUT_WR);
            }
            break;
        case 8:
            if (m_Dice.OneIn(2)) {
                Drop();
            }
            break;
        default:
            if (m_Dice.OneIn(3)) {
                Connect();
            }
            break;
        }
    }

    void Connect()
    {
        ps_sockaddr_in four{};
        four.sin_len = sizeof(four);
        four.sin_family = PS_AF_INET;
        four.sin_port = static_cast<std::uint16_t>(m_Dice.Get());
        four.sin_addr = Address4(Peer);
        const int handle = ps_socket(PS_AF_INET, PS_SOCK_STREAM, 0);
        ps_socket_nonblock(handle);
        ps_connect(handle, reinterpret_cast<const ps_sockaddr*>(&four), sizeof(four));
        Keep(handle);
    }

    void Keep(int handle)
    {
        m_Sockets.push_back(handle);
        while (m_Sockets.size() > MaxSockets) {
            Drop();
        }
    }

    // Closes a connection; the first three sockets stay.
    void Drop()
    {
        constexpr std::uint32_t Kept = 3;
        if (m_Sockets.size() > Kept) {
            const std::size_t pick = Kept + m_Dice.Below(static_cast<std::uint32_t>(m_Sockets.size()) - Kept);
            ps_close(m_Sockets[pick]);
            m_Sockets.erase(m_Sockets.begin() + static_cast<std::ptrdiff_t>(pick));
        }
    }

    CDice m_Dice;
    CPeer m_Peer;
    ipstack::IIPStack* m_pLink = nullptr;
    int m_nListener = -1;
    int m_nListener6 = -1;
    std::vector<int> m_Sockets;
};

TEST_F(CIPFuzzTest, RandomPackets_SocketsComeAndGo_NoAssertionAndMemoryBack)
{
    const std::uint64_t first = GetEnvironment("UXPORT_FUZZ_SEED", 1);
    const std::uint64_t rounds = GetEnvironment("UXPORT_FUZZ_ROUNDS", 100);
    std::cout << "seeds " << first << " to " << first + rounds - 1 << std::endl;
    const std::map<std::string, std::uint64_t> before = Counters();
    for (std::uint64_t seed = first; seed < first + rounds; ++seed) {
        CRound(seed).Run();
        ASSERT_EQ(0U, CIPCounters::Get(CIPCounters::AssertionFailed))
            << "seed " << seed << ": " << ipstack::CIPAssertion::GetLastText();
    }
    Pass(RestMs);
    std::map<std::string, std::uint64_t> after = Counters();
    for (const auto& counter : before) {
        if (counter.first.compare(0, 10, "lwip.used.") == 0) {
            EXPECT_EQ(counter.second, after[counter.first]) << counter.first;
        }
    }
    std::uint64_t reasons = 0;
    for (const auto& counter : after) {
        reasons += counter.first.compare(0, 7, "filter.") == 0 ? counter.second : 0U;
    }
    EXPECT_EQ(after["link.in"], after["link.delivered"] + reasons);
    EXPECT_EQ(0U, after["stack.core_lock_missing"]);
    // The run is worth something only when it went deep: connections were made and every cure was needed.
    for (const char* name :
         {"lwip.mib2.tcppassiveopens", "lwip.mib2.tcpactiveopens", "tcp.unread_discarded_bytes", "lwip.mib2.ipreasmoks",
          "segment.bad_option", "segment.bad_flags", "segment.beyond_window", "segment.option_cleared",
          "filter.fragment_nested", "filter.fragment_too_long", "filter.total_length"}) {
        EXPECT_GT(after[name], 0U) << name;
    }
}

}  // namespace
