// Two processes, each with its own stack, over a UDP path.
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "connhub/connhub.h"
#include "tests/integration/support/CBytes.h"
#include "tests/integration/support/CClient.h"
#include "tests/integration/support/CLinkPeer.h"

using namespace uxport;

namespace
{

const char* const PEER_ADDRESS = "10.77.0.1";
const char* const OWN_ADDRESS = "10.77.0.2";
constexpr unsigned short ECHO_PORT = 7;
constexpr std::size_t LINK_MTU = 1400;

// The IP packets of a capture file.
std::vector<std::string> ReadCapture(const std::string& path)
{
    constexpr std::size_t FILE_HEADER = 24;
    constexpr std::size_t PACKET_HEADER = 16;
    std::ifstream file(path, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    std::vector<std::string> packets;
    for (std::size_t at = FILE_HEADER; at + PACKET_HEADER <= bytes.size();) {
        std::uint32_t length = 0;
        std::memcpy(&length, bytes.data() + at + 8, sizeof length);
        packets.push_back(bytes.substr(at + PACKET_HEADER, length));
        at += PACKET_HEADER + length;
    }
    return packets;
}

std::uint64_t Counter(const std::string& name)
{
    std::vector<ipstack::CIPStackCounter> counters(512);
    counters.resize(ipstack::IIPStackManager::Instance()->GetCounters(counters.data(), counters.size()));
    for (const ipstack::CIPStackCounter& counter : counters) {
        if (name == counter.m_szName)
            return counter.m_qwValue;
    }
    ADD_FAILURE() << "no counter " << name;
    return 0;
}

// A UDP socket that is nobody's peer and takes whatever comes.
class CStranger : public connhub::IMNUDPTransportSink
{
public:
    explicit CStranger(unsigned short port = 0)
    {
        EXPECT_EQ(MN_OK, connhub::CMNConnectionManager::Instance()->CreateUDPTransport(this, m_pTransport.ParaOut()));
        EXPECT_EQ(MN_OK, m_pTransport->Open(CMNInetAddr("127.0.0.1", port)));
    }
    ~CStranger() override { m_pTransport.ParaOut(); }

    unsigned long OnReceive(CMNMessageBlock&, const CMNInetAddr&) override { return ++m_nReceived, 0; }

    void Send(const std::string& data, unsigned short port)
    {
        m_pTransport->SendTo(data.data(), data.size(), CMNInetAddr("127.0.0.1", port));
    }

    std::atomic<std::uint64_t> m_nReceived{0};

private:
    mantle::CMNAutoPtr<connhub::IMNUDPTransport> m_pTransport;
};

class LinkTest : public testing::Test
{
protected:
    void Connect(CClient& client)
    {
        m_Network.Run([&] { ASSERT_EQ(MN_OK, client.Connect(CMNInetAddr(PEER_ADDRESS, ECHO_PORT), 10)); });
        ASSERT_TRUE(m_Network.WaitFor([&] { return client.IsConnected(); }));
    }

    // Sends `length` bytes of a seed through the echo server and compares what comes back.
    void Echo(std::size_t length, std::uint64_t seed)
    {
        CClient client(m_Network);
        Connect(client);
        const std::string sent = CBytes(seed).Make(length);
        m_Network.Run([&] { client.Send(sent); });
        ASSERT_TRUE(m_Network.WaitFor([&] { return client.m_qwReceived >= length; })) << client.m_qwReceived;
        m_Network.Run([&] {
            EXPECT_TRUE(client.m_strReceived == sent);
            EXPECT_EQ(0, client.m_nOnDisconnect);
        });
    }

    CNetwork m_Network;
    const unsigned short m_wOwnPort = FindUdpPort();
    const unsigned short m_wPeerPort = FindUdpPort(m_wOwnPort);
};

TEST_F(LinkTest, TwoProcesses_Echo_HearsTheSame)
{
    CLinkPeer peer(PEER_ADDRESS, m_wPeerPort, m_wOwnPort);
    CLinkEnd end(OWN_ADDRESS, m_wOwnPort, m_wPeerPort);
    Echo(14, 1);
    Echo(100000, 2);
}

TEST_F(LinkTest, TwoProcesses_16Mebibytes_HearsTheSame)
{
    CLinkPeer peer(PEER_ADDRESS, m_wPeerPort, m_wOwnPort);
    CLinkEnd end(OWN_ADDRESS, m_wOwnPort, m_wPeerPort);
    Echo(16 << 20, 3);
}

TEST_F(LinkTest, TwentyConnections_Echo_EachHearsItsOwn)
{
    CLinkPeer peer(PEER_ADDRESS, m_wPeerPort, m_wOwnPort);
    CLinkEnd end(OWN_ADDRESS, m_wOwnPort, m_wPeerPort);
    std::vector<std::unique_ptr<CClient>> clients;
    std::vector<std::string> sent;
    for (std::uint64_t index = 0; index < 20; ++index) {
        clients.push_back(std::make_unique<CClient>(m_Network));
        sent.push_back(CBytes(100 + index).Make(300000));
        Connect(*clients.back());
    }
    m_Network.Run([&] {
        for (std::size_t index = 0; index < clients.size(); ++index)
            clients[index]->Send(sent[index]);
    });
    for (std::size_t index = 0; index < clients.size(); ++index) {
        ASSERT_TRUE(m_Network.WaitFor([&] { return clients[index]->m_qwReceived >= sent[index].size(); })) << index;
        m_Network.Run([&] { EXPECT_TRUE(clients[index]->m_strReceived == sent[index]) << index; });
    }
}

TEST_F(LinkTest, MtuOfTheLink_Bulk_NoPacketIsLongerAndNoneIsAFragment)
{
    const std::string path = testing::TempDir() + "link_" + std::to_string(getpid()) + ".pcap";
    CLinkPeer peer(PEER_ADDRESS, m_wPeerPort, m_wOwnPort);
    CLinkEnd end(OWN_ADDRESS, m_wOwnPort, m_wPeerPort);
    ASSERT_EQ(MN_OK, end.GetCapture().Start(path));
    Echo(200000, 4);
    end.GetCapture().Stop();
    std::size_t longest[2] = {0, 0};
    for (const std::string& packet : ReadCapture(path)) {
        ASSERT_GE(packet.size(), 40u);
        EXPECT_EQ('\x45', packet[0]);
        EXPECT_EQ(0, (packet[6] & 0x3F) | packet[7]) << "a fragment";
        std::size_t& direction = longest[packet[15] == 2 ? 0 : 1];  // last byte of the source
        direction = std::max(direction, packet.size());
    }
    EXPECT_EQ(LINK_MTU, longest[0]);
    EXPECT_EQ(LINK_MTU, longest[1]);
    std::remove(path.c_str());
}

TEST_F(LinkTest, PeerStartedAgain_Echo_Served)
{
    CLinkEnd end(OWN_ADDRESS, m_wOwnPort, m_wPeerPort);
    {
        CLinkPeer peer(PEER_ADDRESS, m_wPeerPort, m_wOwnPort);
        Echo(1000, 5);
        peer.Kill();
    }
    CLinkPeer peer(PEER_ADDRESS, m_wPeerPort, m_wOwnPort);
    Echo(1000, 6);
}

// Not one of these packets may get to the connection, or the stack out of step.
TEST_F(LinkTest, AnythingReachesThePort_ConnectionAtWork_HearsTheSame)
{
    CLinkPeer peer(PEER_ADDRESS, m_wPeerPort, m_wOwnPort);
    CLinkEnd end(OWN_ADDRESS, m_wOwnPort, m_wPeerPort);
    const std::string path = testing::TempDir() + "seed_" + std::to_string(getpid()) + ".pcap";
    ASSERT_EQ(MN_OK, end.GetCapture().Start(path));
    Echo(50000, 7);
    end.GetCapture().Stop();
    const std::vector<std::string> seen = ReadCapture(path);
    std::remove(path.c_str());
    ASSERT_GT(seen.size(), 20u);

    std::atomic<bool> stop{false};
    std::thread attacker([&] {
        CStranger stranger;
        std::mt19937 random(8);
        std::uint64_t count = 0;
        while (!stop.load() || count < 20000) {
            std::string packet;
            switch (random() % 4) {
            case 0:  // noise
                packet.resize(random() % 1500);
                for (char& byte : packet)
                    byte = static_cast<char>(random());
                break;
            case 1:  // cut
                packet = seen[random() % seen.size()];
                packet.resize(random() % (packet.size() + 1));
                break;
            default:  // a few bits turned
                packet = seen[random() % seen.size()];
                for (std::size_t flips = 1 + random() % 3; flips != 0; --flips)
                    packet[random() % packet.size()] ^= static_cast<char>(1u << random() % 8);
                break;
            }
            // Both ends: this one takes the peer's packets for its own, and the reverse.
            stranger.Send(packet, count % 2 == 0 ? m_wOwnPort : m_wPeerPort);
            if (++count % 64 == 0)
                std::this_thread::yield();
        }
    });
    const std::uint64_t before = Counter("lwip.tcp.chkerr") + Counter("lwip.ip.chkerr");
    for (std::uint64_t round = 0; round < 5; ++round)
        Echo(500000, 9 + round);
    stop.store(true);
    attacker.join();
    Echo(1000, 20);
    EXPECT_GT(Counter("lwip.tcp.chkerr") + Counter("lwip.ip.chkerr"), before);
    EXPECT_GT(Counter("filter.not_ours") + Counter("filter.own_source") + Counter("filter.version"), 0u);
    EXPECT_EQ(0u, Counter("stack.assertion"));
    EXPECT_EQ(0u, Counter("stack.core_lock_missing"));
}

// An echo request that a link's address answers.
std::string Ping()
{
    const auto add = [](const std::string& bytes) {
        std::uint32_t sum = 0;
        for (std::size_t at = 0; at < bytes.size(); at += 2)
            sum += static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[at]) << 8 |
                                              static_cast<unsigned char>(bytes[at + 1]));
        while (sum >> 16)
            sum = (sum & 0xFFFF) + (sum >> 16);
        return static_cast<std::uint16_t>(~sum);
    };
    std::string icmp = std::string("\x08\0\0\0\x12\x34\0\x01", 8) + std::string(56, 'p');
    std::string header("\x45\0\0\x54\0\x01\0\0\x40\x01\0\0\x0a\x4d\0\x01\x0a\x4d\0\x02", 20);
    const auto put = [](std::string& bytes, std::size_t at, std::uint16_t value) {
        bytes[at] = static_cast<char>(value >> 8);
        bytes[at + 1] = static_cast<char>(value);
    };
    put(icmp, 2, add(icmp));
    put(header, 10, add(header));
    return header + icmp;
}

TEST_F(LinkTest, PacketsInFlightBothWays_TakenDownAndMadeAgain_NothingIsLeft)
{
    CStranger peer(m_wPeerPort);
    const std::string ping = Ping();
    const long before = mantle::CMNLiveObjects::Count();
    std::atomic<bool> stop{false};
    std::thread sender([&] {
        while (!stop.load()) {
            for (int burst = 0; burst < 20; ++burst)
                peer.Send(ping, m_wOwnPort);
            std::this_thread::yield();
        }
    });
    for (int round = 0; round < 100; ++round) {
        auto link = std::make_unique<CLowlevelP2PTransport>();
        ipstack::CIPStackConfig config;
        config.m_strAddress = OWN_ADDRESS;
        ipstack::IIPStack* stack = nullptr;
        ASSERT_EQ(MN_OK, ipstack::IIPStackManager::Instance()->CreateStack(config, link.get(), stack));
        const std::uint64_t answers = peer.m_nReceived.load();
        link->Open(stack, "127.0.0.1", m_wPeerPort, "127.0.0.1", m_wOwnPort);
        while (peer.m_nReceived.load() < answers + 5)
            std::this_thread::yield();
        ASSERT_EQ(MN_OK, ipstack::IIPStackManager::Instance()->DestroyStack(stack));
        link.reset();
    }
    stop.store(true);
    sender.join();
    EXPECT_EQ(before, mantle::CMNLiveObjects::Count());
}

TEST_F(LinkTest, PacketsInFlightBothWays_OpenedAgain_GoesOn)
{
    CStranger peer(m_wPeerPort);
    const std::string ping = Ping();
    std::atomic<bool> stop{false};
    std::thread sender([&] {
        while (!stop.load()) {
            for (int burst = 0; burst < 20; ++burst)
                peer.Send(ping, m_wOwnPort);
            std::this_thread::yield();
        }
    });
    CLowlevelP2PTransport link;
    ipstack::CIPStackConfig config;
    config.m_strAddress = OWN_ADDRESS;
    ipstack::IIPStack* stack = nullptr;
    ASSERT_EQ(MN_OK, ipstack::IIPStackManager::Instance()->CreateStack(config, &link, stack));
    for (int round = 0; round < 200; ++round) {
        const std::uint64_t answers = peer.m_nReceived.load();
        link.Open(stack, "127.0.0.1", m_wPeerPort, "127.0.0.1", m_wOwnPort);
        while (peer.m_nReceived.load() < answers + 5)
            std::this_thread::yield();
    }
    EXPECT_EQ(MN_OK, ipstack::IIPStackManager::Instance()->DestroyStack(stack));
    stop.store(true);
    sender.join();
}

}  // namespace
