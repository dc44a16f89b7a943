#include "ipstack/CIPStackWire.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "PacketMaker.h"
#include "ipstack/ipstack.h"
#include "mantle/CMNClock.h"
#include "platform/ipstack/CIPCounters.h"
#include "tests/support/KeepForEver.h"

namespace
{

using ipstack::CIPCounters;
using ipstack::CIPStackConfig;
using ipstack::CIPStackWire;
using ipstack::CIPStackWireSettings;
using ipstack::IIPStackManager;

constexpr const char* EndA = "10.7.0.1";
constexpr const char* EndB = "10.7.0.2";
constexpr const char* EndA6 = "fd07::1";
constexpr const char* EndB6 = "fd07::2";
constexpr int LimitMs = 600000;  // of stack time
constexpr std::uint16_t Port = 9000;

// An address record of either family.
struct CAddress
{
    CAddress(const char* text, std::uint16_t port)
    {
        const std::uint16_t wirePort = static_cast<std::uint16_t>(port << 8 | port >> 8);
        if (std::strchr(text, ':') != nullptr) {
            m_Six.sin6_len = sizeof(m_Six);
            m_Six.sin6_family = PS_AF_INET6;
            m_Six.sin6_port = wirePort;
            const auto bytes = packetmaker::Address6(text);
            std::copy(bytes.begin(), bytes.end(), m_Six.sin6_addr);
        } else {
            ps_sockaddr_in four{};
            four.sin_len = sizeof(four);
            four.sin_family = PS_AF_INET;
            four.sin_port = wirePort;
            four.sin_addr = packetmaker::Address4(text);
            std::memcpy(&m_Six, &four, sizeof(four));
        }
    }
    const ps_sockaddr* Get() const { return reinterpret_cast<const ps_sockaddr*>(&m_Six); }
    int Length() const { return m_Six.sin6_len; }
    int Family() const { return m_Six.sin6_family; }

    ps_sockaddr_in6 m_Six{};
};

// A non-blocking socket that closes itself.
class CSocket
{
public:
    CSocket() = default;
    explicit CSocket(int handle) : m_nHandle(handle) { ps_socket_nonblock(handle); }
    CSocket(CSocket&& other) noexcept : m_nHandle(other.m_nHandle) { other.m_nHandle = -1; }
    CSocket& operator=(CSocket&& other) noexcept
    {
        std::swap(m_nHandle, other.m_nHandle);
        return *this;
    }
    ~CSocket()
    {
        if (m_nHandle >= 0) {
            ps_close(m_nHandle);
        }
    }
    int Get() const { return m_nHandle; }

private:
    int m_nHandle = -1;
};

int Poll(int handle, short events, int ms = LimitMs)
{
    ps_pollfd entry{handle, events, 0};
    return ps_poll(&entry, 1, ms) > 0 ? entry.revents : 0;
}

// A stream whose every byte tells its place.
char StreamByte(std::size_t at, unsigned int salt)
{
    return static_cast<char>(static_cast<unsigned char>((at * 7 + at / 251 + salt * 13) & 0xFF));
}

class CIPStackWireTest : public testing::Test
{
protected:
    CIPStackWireTest()
    {
        EXPECT_EQ(0U, IIPStackManager::Instance()->Startup({}));
        m_A.m_strAddress = EndA;
        m_A.m_strAddress6 = EndA6;
        m_B.m_strAddress = EndB;
        m_B.m_strAddress6 = EndB6;
    }
    ~CIPStackWireTest() override
    {
        m_Wire.Close();
        std::uint64_t reasons = 0;
        for (unsigned int id = CIPCounters::FilterTooShort; id <= CIPCounters::FilterLinkClosing; ++id) {
            reasons += CIPCounters::Get(static_cast<CIPCounters::EId>(id));
        }
        EXPECT_EQ(CIPCounters::Get(CIPCounters::LinkIn), CIPCounters::Get(CIPCounters::LinkDelivered) + reasons);
        EXPECT_EQ(0U, CIPCounters::Get(CIPCounters::AssertionFailed));
        EXPECT_EQ(0U, CIPCounters::Get(CIPCounters::CoreLockMissing));
    }

    void Open(const CIPStackWireSettings& settings = {}) { ASSERT_EQ(0U, m_Wire.Open(m_A, m_B, settings)); }

    static CSocket Listen(const CAddress& address)
    {
        CSocket socket(ps_socket(address.Family(), PS_SOCK_STREAM, 0));
        EXPECT_EQ(0, ps_bind(socket.Get(), address.Get(), address.Length())) << get_pserrno();
        EXPECT_EQ(0, ps_listen(socket.Get(), 100)) << get_pserrno();
        return socket;
    }
    static CSocket Connect(const CAddress& address, const CAddress* from = nullptr)
    {
        CSocket socket(ps_socket(address.Family(), PS_SOCK_STREAM, 0));
        if (from != nullptr) {
            EXPECT_EQ(0, ps_bind(socket.Get(), from->Get(), from->Length())) << get_pserrno();
        }
        EXPECT_EQ(0, ps_connect(socket.Get(), address.Get(), address.Length())) << get_pserrno();
        return socket;
    }
    static CSocket Datagram(const CAddress& address)
    {
        CSocket socket(ps_socket(address.Family(), PS_SOCK_DGRAM, 0));
        EXPECT_EQ(0, ps_bind(socket.Get(), address.Get(), address.Length())) << get_pserrno();
        return socket;
    }
    // Sends one datagram of this number.
    static void SendNumber(const CSocket& socket, const CAddress& to, unsigned int number)
    {
        EXPECT_EQ(long{sizeof(number)}, ps_sendto(socket.Get(), &number, sizeof(number), 0, to.Get(), to.Length()))
            << get_pserrno();
    }
    // The numbers that have arrived by the time `ms` have passed without any.
    static std::vector<unsigned int> ReceiveNumbers(const CSocket& socket, int ms)
    {
        std::vector<unsigned int> numbers;
        unsigned int number = 0;
        while ((Poll(socket.Get(), PS_POLLIN, ms) & PS_POLLIN) != 0) {
            while (ps_recv(socket.Get(), &number, sizeof(number), 0) == long{sizeof(number)}) {
                numbers.push_back(number);
            }
        }
        return numbers;
    }

    void Echo(const CAddress& address, std::size_t connections, std::size_t bytes, const CAddress* from = nullptr);

    CIPStackConfig m_A;
    CIPStackConfig m_B;
    CIPStackWire m_Wire;
};

// A client that sends a stream and compares what comes back, and the server's end of its connection.
struct CEchoPair
{
    CSocket m_Client;
    std::size_t m_nSent = 0;
    std::size_t m_nReceived = 0;
    unsigned int m_dwSalt = 0;
};
struct CEchoServer
{
    CSocket m_Socket;
    std::string m_strPending;
    bool m_bEnded = false;
};

bool Move(CEchoPair& pair, short events, std::size_t bytes)
{
    char buffer[4096];
    if ((events & PS_POLLOUT) != 0 && pair.m_nSent < bytes) {
        const std::size_t count = std::min(sizeof(buffer), bytes - pair.m_nSent);
        for (std::size_t i = 0; i < count; ++i) {
            buffer[i] = StreamByte(pair.m_nSent + i, pair.m_dwSalt);
        }
        const long sent = ps_send(pair.m_Client.Get(), buffer, count, 0);
        if (sent < 0) {
            return false;
        }
        pair.m_nSent += static_cast<std::size_t>(sent);
    }
    if ((events & PS_POLLIN) != 0) {
        const long received = ps_recv(pair.m_Client.Get(), buffer, sizeof(buffer), 0);
        for (long i = 0; i < received; ++i) {
            if (buffer[i] != StreamByte(pair.m_nReceived++, pair.m_dwSalt)) {
                return false;
            }
        }
        return received >= 0;
    }
    return (events & (PS_POLLERR | PS_POLLHUP)) == 0;
}

void Move(CEchoServer& server, short events)
{
    char buffer[4096];
    if ((events & PS_POLLIN) != 0) {
        const long received = ps_recv(server.m_Socket.Get(), buffer, sizeof(buffer), 0);
        if (received < 0) {
            server.m_bEnded = true;
            return;
        }
        server.m_strPending.append(buffer, static_cast<std::size_t>(received));
    }
    const long sent = ps_send(server.m_Socket.Get(), server.m_strPending.data(), server.m_strPending.size(), 0);
    if (sent > 0) {
        server.m_strPending.erase(0, static_cast<std::size_t>(sent));
    }
}

// Echoes `bytes` on each of so many connections at once and expects every byte back.
void CIPStackWireTest::Echo(const CAddress& address, std::size_t connections, std::size_t bytes, const CAddress* from)
{
    const CSocket listener = Listen(address);
    std::vector<CEchoPair> clients(connections);
    std::vector<CEchoServer> servers;
    for (std::size_t i = 0; i < connections; ++i) {
        clients[i].m_Client = Connect(address, from);
        clients[i].m_dwSalt = static_cast<unsigned int>(i);
    }
    std::size_t done = 0;
    while (done < connections) {
        std::vector<ps_pollfd> entries{{listener.Get(), PS_POLLIN, 0}};
        for (const CEchoServer& server : servers) {
            const short out = server.m_strPending.empty() ? short{0} : short{PS_POLLOUT};
            entries.push_back({server.m_bEnded ? -1 : server.m_Socket.Get(),
                               static_cast<short>((server.m_strPending.size() < 65536 ? PS_POLLIN : 0) | out), 0});
        }
        for (const CEchoPair& pair : clients) {
            const short out = pair.m_nSent < bytes ? short{PS_POLLOUT} : short{0};
            entries.push_back(
                {pair.m_nReceived < bytes ? pair.m_Client.Get() : -1, static_cast<short>(PS_POLLIN | out), 0});
        }
        ASSERT_GT(ps_poll(entries.data(), static_cast<unsigned int>(entries.size()), LimitMs), 0)
            << "nothing moves, " << done << " of " << connections << " are done";
        const std::size_t accepted = servers.size();
        for (std::size_t i = 0; i < accepted; ++i) {
            if (entries[1 + i].revents != 0) {
                Move(servers[i], entries[1 + i].revents);
            }
        }
        for (std::size_t i = 0; i < connections; ++i) {
            const short events = entries[1 + accepted + i].revents;
            if (events == 0) {
                continue;
            }
            ASSERT_TRUE(Move(clients[i], events, bytes))
                << "connection " << i << " at byte " << clients[i].m_nReceived << ", events " << events << ", cause "
                << ps_is_socket_errno(clients[i].m_Client.Get());
            done += clients[i].m_nReceived == bytes ? 1U : 0U;
        }
        if ((entries[0].revents & PS_POLLIN) != 0) {
            const int handle = ps_accept(listener.Get(), nullptr, nullptr);
            ASSERT_GT(handle, 0);
            servers.emplace_back();
            servers.back().m_Socket = CSocket(handle);
        }
    }
}

// The same on the hand-moved clock, which waits for the test's thread too.
class CIPStackWireClockTest : public CIPStackWireTest
{
public:
    static void SetUpTestSuite()
    {
        // Until the process ends: the stack's own thread follows it.
        KeepForEver(new mantle::CMNManualClock);
        KeepForEver(new mantle::CMNClockParticipant);
    }
};

TEST_F(CIPStackWireTest, Open_SecondOpen_AlreadyOpen)
{
    Open();
    EXPECT_EQ(10003U, m_Wire.Open(m_A, m_B, {}));
}

TEST_F(CIPStackWireTest, Closed_BadSecondEnd_FirstIsTakenDownAgain)
{
    m_B.m_strAddress = "nonsense";
    EXPECT_EQ(10008U, m_Wire.Open(m_A, m_B, {}));
    m_B.m_strAddress = EndA;
    EXPECT_EQ(10008U, m_Wire.Open(m_A, m_B, {})) << "both ends the same";
    m_B.m_strAddress = EndB;
    EXPECT_EQ(0U, m_Wire.Open(m_A, m_B, {}));
    m_Wire.Close();
    m_Wire.Close();
    EXPECT_EQ(0U, m_Wire.Open(m_A, m_B, {}));
}

TEST_F(CIPStackWireTest, Open_TcpUnbound_CrossesTheWire)
{
    Open();
    const std::uint64_t before = CIPCounters::Get(CIPCounters::LinkDelivered);
    Echo({EndB, Port}, 1, 200000);
    EXPECT_GT(CIPCounters::Get(CIPCounters::LinkDelivered), before + 2 * 200000 / 1400);
}

TEST_F(CIPStackWireTest, Open_TcpBothWaysBothFamilies_Intact)
{
    Open();
    const CAddress fromA(EndA, 0);
    const CAddress fromB(EndB, 0);
    const CAddress fromA6(EndA6, 0);
    Echo({EndB, Port}, 3, 50000, &fromA);
    Echo({EndA, Port}, 3, 50000, &fromB);
    Echo({EndB6, Port}, 3, 50000, &fromA6);
    Echo({EndA6, Port}, 3, 50000);
}

TEST_F(CIPStackWireTest, Open_OwnAddressToItself_StaysInside)
{
    Open();
    const CAddress fromB(EndB, 0);
    const std::uint64_t before = CIPCounters::Get(CIPCounters::LinkIn);
    Echo({EndB, Port}, 1, 50000, &fromB);
    EXPECT_EQ(before, CIPCounters::Get(CIPCounters::LinkIn));
}

TEST_F(CIPStackWireTest, Open_NobodyListens_Refused)
{
    Open();
    const CSocket socket = Connect({EndB, Port});
    EXPECT_NE(0, Poll(socket.Get(), PS_POLLIN | PS_POLLOUT) & PS_POLLERR);
    EXPECT_EQ(PS_ECONNREFUSED, ps_is_socket_errno(socket.Get()));
}

TEST_F(CIPStackWireTest, Open_Datagrams_BothWaysBothFamilies)
{
    Open();
    for (const bool six : {false, true}) {
        const CAddress a(six ? EndA6 : EndA, Port);
        const CAddress b(six ? EndB6 : EndB, Port);
        const CSocket socketA = Datagram(a);
        const CSocket socketB = Datagram(b);
        SendNumber(socketA, b, 1);
        SendNumber(socketB, a, 2);
        EXPECT_EQ(std::vector<unsigned int>{1}, ReceiveNumbers(socketB, 0));
        EXPECT_EQ(std::vector<unsigned int>{2}, ReceiveNumbers(socketA, 0));
    }
}

TEST_F(CIPStackWireTest, Open_LargeDatagram_CrossesInFragments)
{
    Open();
    const CAddress b(EndB, Port);
    const CSocket socketA = Datagram({EndA, Port});
    const CSocket socketB = Datagram(b);
    std::string text(60000, '\0');
    for (std::size_t i = 0; i < text.size(); ++i) {
        text[i] = StreamByte(i, 0);
    }
    ASSERT_EQ(60000, ps_sendto(socketA.Get(), text.data(), text.size(), 0, b.Get(), b.Length())) << get_pserrno();
    std::string received(65536, '\0');
    ASSERT_EQ(60000, ps_recv(socketB.Get(), &received[0], received.size(), 0));
    received.resize(text.size());
    EXPECT_EQ(text, received);
}

TEST_F(CIPStackWireTest, Open_Ping_Answered)
{
    Open();
    const CAddress b(EndB, 0);
    const CSocket raw(ps_socket(PS_AF_INET, PS_SOCK_RAW, PS_IPPROTO_ICMP));
    const packetmaker::CBytes request = packetmaker::Echo4(77, {1, 2, 3, 4});
    const std::uint64_t before = CIPCounters::Get(CIPCounters::LinkDelivered);
    ASSERT_EQ(static_cast<long>(request.size()),
              ps_sendto(raw.Get(), request.data(), request.size(), 0, b.Get(), b.Length()));
    EXPECT_EQ(before + 2, CIPCounters::Get(CIPCounters::LinkDelivered)) << "one each way";
    bool answered = false;
    unsigned char packet[200];
    while (ps_recv(raw.Get(), packet, sizeof(packet), 0) > 0) {
        answered = answered || (packet[20] == 0 && packet[24] == 0 && packet[25] == 77);
    }
    EXPECT_TRUE(answered);
}

TEST_F(CIPStackWireTest, Open_Close_AddressesAreGone)
{
    Open();
    m_Wire.Close();
    const CSocket socket(ps_socket(PS_AF_INET, PS_SOCK_DGRAM, 0));
    const CAddress a(EndA, Port);
    EXPECT_EQ(-1, ps_bind(socket.Get(), a.Get(), a.Length()));
    EXPECT_EQ(PS_EADDRNOTAVAIL, get_pserrno());
}

TEST_F(CIPStackWireTest, Open_CloseWhileOthersSend_NoPacketAfterIt)
{
    Open();
    const CAddress b(EndB, Port);
    const CSocket sender = Datagram({EndA, Port});
    std::atomic<bool> stop{false};
    std::thread thread([&] {
        unsigned int number = 0;
        while (!stop.load()) {
            ps_sendto(sender.Get(), &number, sizeof(number), 0, b.Get(), b.Length());
        }
    });
    for (int round = 0; round < 20; ++round) {
        m_Wire.Close();
        ASSERT_EQ(0U, m_Wire.Open(m_A, m_B, {}));
    }
    m_Wire.Close();
    const std::uint64_t after = CIPCounters::Get(CIPCounters::LinkIn);
    std::this_thread::yield();
    EXPECT_EQ(after, CIPCounters::Get(CIPCounters::LinkIn));
    stop.store(true);
    thread.join();
}

TEST_F(CIPStackWireClockTest, FivePercentLoss_TwentyFourEchoes_Intact)
{
    CIPStackWireSettings settings;
    settings.m_qwSeed = 20;
    settings.m_dwLossPerMille = 50;
    Open(settings);
    Echo({EndB, Port}, 24, 200000);
    EXPECT_GT(m_Wire.GetLost(), 100U);
}

TEST_F(CIPStackWireClockTest, LossDuplicatesReorderingDelay_Echoes_Intact)
{
    CIPStackWireSettings settings;
    settings.m_qwSeed = 21;
    settings.m_dwLossPerMille = 10;
    settings.m_dwDuplicatePerMille = 50;
    settings.m_dwReorderPerMille = 100;
    settings.m_dwDelayUs = 5000;
    Open(settings);
    Echo({EndB, Port}, 4, 200000);
    Echo({EndA6, Port}, 4, 100000);
    EXPECT_GT(m_Wire.GetLost(), 0U);
    EXPECT_GT(m_Wire.GetDuplicated(), 0U);
    EXPECT_GT(m_Wire.GetReordered(), 0U);
}

TEST_F(CIPStackWireClockTest, BothWriteNobodyReads_TwoHours_QuietAndThenAllDelivered)
{
    // Both windows shut: lwIP answered each bare acknowledgement with another one, without end.
    for (const char* to : {"127.0.0.1", EndB}) {
        m_Wire.Close();
        CIPStackWireSettings settings;
        settings.m_dwDelayUs = 1000;
        Open(settings);
        const CAddress address(to, Port);
        const CSocket listener = Listen(address);
        CSocket ends[2];
        ends[0] = Connect(address);
        ASSERT_EQ(PS_POLLIN, Poll(listener.Get(), PS_POLLIN));
        ends[1] = CSocket(ps_accept(listener.Get(), nullptr, nullptr));
        std::size_t sent[2] = {};
        char buffer[8192];
        for (int round = 0; round < 100; ++round) {
            for (unsigned int i = 0; i < 2; ++i) {
                for (std::size_t at = 0; at < sizeof(buffer); ++at) {
                    buffer[at] = StreamByte(sent[i] + at, i);
                }
                const long count = ps_send(ends[i].Get(), buffer, sizeof(buffer), 0);
                ASSERT_GE(count, 0);
                sent[i] += static_cast<std::size_t>(count);
            }
            ps_poll(nullptr, 0, 20);
        }
        const std::uint64_t drains = CIPCounters::Get(CIPCounters::DrainLimit);
        const std::uint64_t packets = CIPCounters::Get(CIPCounters::LinkOut);
        ps_poll(nullptr, 0, 2 * 3600 * 1000);
        EXPECT_EQ(drains, CIPCounters::Get(CIPCounters::DrainLimit));
        EXPECT_LT(CIPCounters::Get(CIPCounters::LinkOut) - packets, 10000U) << "a probe a minute and its answer";
        EXPECT_GT(sent[0], 65535U);
        std::size_t received[2] = {};
        while (received[0] < sent[1] || received[1] < sent[0]) {
            for (unsigned int i = 0; i < 2; ++i) {
                const long count = ps_recv(ends[i].Get(), buffer, sizeof(buffer), 0);
                ASSERT_GE(count, 0) << to << ", cause " << ps_is_socket_errno(ends[i].Get());
                for (long at = 0; at < count; ++at) {
                    ASSERT_EQ(StreamByte(received[i]++, 1 - i), buffer[at]);
                }
            }
            ps_poll(nullptr, 0, 5);
            ASSERT_LT(mantle::CMNClock::NowUs(), 40000LL * 1000000) << received[0] << " and " << received[1] << " came";
        }
    }
}

TEST_F(CIPStackWireClockTest, Delay_OneDatagram_ArrivesExactlyThen)
{
    CIPStackWireSettings settings;
    settings.m_dwDelayUs = 30000;
    Open(settings);
    const CAddress b(EndB, Port);
    const CSocket socketA = Datagram({EndA, Port});
    const CSocket socketB = Datagram(b);
    const long long start = mantle::CMNClock::NowUs();
    SendNumber(socketA, b, 1);
    EXPECT_EQ(0, Poll(socketB.Get(), PS_POLLIN, 29));
    EXPECT_EQ(PS_POLLIN, Poll(socketB.Get(), PS_POLLIN));
    EXPECT_EQ(30000, mantle::CMNClock::NowUs() - start);
}

TEST_F(CIPStackWireClockTest, Reordering_Datagrams_LaterOnesOvertake)
{
    CIPStackWireSettings settings;
    settings.m_dwReorderPerMille = 200;
    Open(settings);
    const CAddress b(EndB, Port);
    const CSocket socketA = Datagram({EndA, Port});
    const CSocket socketB = Datagram(b);
    for (unsigned int i = 0; i < 100; ++i) {
        SendNumber(socketA, b, i);
    }
    std::vector<unsigned int> numbers = ReceiveNumbers(socketB, 100);
    EXPECT_EQ(100U, numbers.size());
    EXPECT_FALSE(std::is_sorted(numbers.begin(), numbers.end()));
    EXPECT_GT(m_Wire.GetReordered(), 5U);
    EXPECT_LT(m_Wire.GetReordered(), 50U);
    std::sort(numbers.begin(), numbers.end());
    for (unsigned int i = 0; i < 100; ++i) {
        EXPECT_EQ(i, numbers[i]);
    }
}

TEST_F(CIPStackWireClockTest, QueueBound_MorePackets_LostAndCounted)
{
    CIPStackWireSettings settings;
    settings.m_dwDelayUs = 1000;
    settings.m_dwQueuePackets = 10;
    Open(settings);
    const CAddress b(EndB, Port);
    const CSocket socketA = Datagram({EndA, Port});
    const CSocket socketB = Datagram(b);
    const std::uint64_t before = CIPCounters::Get(CIPCounters::WireQueueFull);
    for (unsigned int i = 0; i < 50; ++i) {
        SendNumber(socketA, b, i);
    }
    const unsigned int arrived = static_cast<unsigned int>(ReceiveNumbers(socketB, 100).size());
    EXPECT_GE(arrived, 10U);
    EXPECT_EQ(50U - arrived, m_Wire.GetLost());
    EXPECT_EQ(m_Wire.GetLost(), CIPCounters::Get(CIPCounters::WireQueueFull) - before);
    EXPECT_EQ(10U, arrived) << "time stands still while the sender runs";
}

TEST_F(CIPStackWireClockTest, OneSeed_TwoRuns_SamePacketsLost)
{
    const auto run = [this](std::uint64_t seed) {
        CIPStackWireSettings settings;
        settings.m_qwSeed = seed;
        settings.m_dwLossPerMille = 200;
        EXPECT_EQ(0U, m_Wire.Open(m_A, m_B, settings));
        const CAddress b(EndB, Port);
        const CSocket socketA = Datagram({EndA, Port});
        const CSocket socketB = Datagram(b);
        for (unsigned int i = 0; i < 300; ++i) {
            SendNumber(socketA, b, i);
        }
        std::vector<unsigned int> numbers = ReceiveNumbers(socketB, 100);
        m_Wire.Close();
        return numbers;
    };
    const std::vector<unsigned int> first = run(5);
    EXPECT_GT(first.size(), 200U);
    EXPECT_LT(first.size(), 280U);
    EXPECT_EQ(first, run(5));
    EXPECT_NE(first, run(6));
}

TEST_F(CIPStackWireClockTest, PacketsOnTheWay_Close_NothingArrivesAndNothingLeaks)
{
    CIPStackWireSettings settings;
    settings.m_dwDelayUs = 10000;
    Open(settings);
    const CAddress b(EndB, Port);
    const CSocket socketA = Datagram({EndA, Port});
    const CSocket socketB = Datagram(b);
    SendNumber(socketA, b, 1);
    m_Wire.Close();
    EXPECT_TRUE(ReceiveNumbers(socketB, 100).empty());
}

TEST_F(CIPStackWireClockTest, Settings_LossToAll_NothingPassesUntilSetBack)
{
    Open();
    const CAddress b(EndB, Port);
    const CSocket socketA = Datagram({EndA, Port});
    const CSocket socketB = Datagram(b);
    CIPStackWireSettings settings;
    settings.m_dwLossPerMille = 1000;
    m_Wire.SetSettings(settings);
    SendNumber(socketA, b, 1);
    m_Wire.SetSettings({});
    SendNumber(socketA, b, 2);
    EXPECT_EQ(std::vector<unsigned int>{2}, ReceiveNumbers(socketB, 100));
    EXPECT_EQ(1U, m_Wire.GetLost());
}

}  // namespace
