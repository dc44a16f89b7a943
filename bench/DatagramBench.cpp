// Datagrams through acceptors on the embedded stack.
#include <benchmark/benchmark.h>

#include <algorithm>

#include <cstdint>
#include <vector>

#include "bench/CBenchNetwork.h"
#include "ipstack/ipstack.h"

using namespace uxport;

namespace
{

constexpr std::uint32_t OWN = 0x0A090001;    // 10.9.0.1
constexpr std::uint32_t FIRST = 0x0A0A0000;  // 10.10.0.0 and up: the peers
constexpr unsigned short PORT = 7060;
constexpr unsigned char UDP = 17;
constexpr unsigned char RAW = 89;
constexpr std::size_t PAYLOAD = 64;
constexpr std::size_t HEADER = 20;     // RFC 791
constexpr std::size_t HEADER_UDP = 8;  // RFC 768
constexpr unsigned int PORTION = 256;  // datagrams that are fed in before the loop reads

using CPacket = std::vector<unsigned char>;

void Put16(CPacket& packet, std::size_t at, std::uint32_t value)
{
    packet[at] = static_cast<unsigned char>(value >> 8);
    packet[at + 1] = static_cast<unsigned char>(value);
}

void Put32(CPacket& packet, std::size_t at, std::uint32_t value)
{
    Put16(packet, at, value >> 16);
    Put16(packet, at + 2, value & 0xFFFF);
}

// A packet of one peer to the own address, without a UDP checksum.
CPacket Packet(unsigned char protocol, unsigned int peer)
{
    const std::size_t header = HEADER + (protocol == UDP ? HEADER_UDP : 0);
    CPacket packet(header + PAYLOAD, 'x');
    std::fill(packet.begin(), packet.begin() + static_cast<std::ptrdiff_t>(header), static_cast<unsigned char>(0));
    packet[0] = 0x45;
    Put16(packet, 2, static_cast<std::uint32_t>(packet.size()));
    packet[8] = 64;
    packet[9] = protocol;
    Put32(packet, 12, FIRST + peer);
    Put32(packet, 16, OWN);
    std::uint32_t sum = 0;
    for (std::size_t at = 0; at < HEADER; at += 2)
        sum += static_cast<std::uint32_t>(packet[at]) << 8 | packet[at + 1];
    sum = (sum & 0xFFFF) + (sum >> 16);
    Put16(packet, 10, ~((sum & 0xFFFF) + (sum >> 16)) & 0xFFFF);
    if (protocol == UDP) {
        Put16(packet, HEADER, PORT);
        Put16(packet, HEADER + 2, PORT);
        Put16(packet, HEADER + 4, HEADER_UDP + PAYLOAD);
    }
    return packet;
}

// A link that carries nothing away.
class CSilentLink : public ipstack::IIPStackLowLevel
{
public:
    static CSilentLink& Instance()
    {
        static CSilentLink link;
        return link;
    }

    void Input(const CPacket& packet) { m_pStack->Input(reinterpret_cast<const char*>(packet.data()), packet.size()); }

    unsigned long IPStackLowLevelOutput(const char*, unsigned long, unsigned char) override { return 0; }

private:
    CSilentLink()
    {
        ipstack::CIPStackConfig config;
        config.m_strAddress = "10.9.0.1";
        config.m_strMask = "255.0.0.0";
        ipstack::IIPStackManager::Instance()->CreateStack(config, this, m_pStack);
    }

    ipstack::IIPStack* m_pStack = nullptr;
};

// A server that counts what its peers receive. Thread: the network thread.
class CServer : public IPSAcceptorConnectorSink, public IPSTransportSink
{
public:
    void Listen(unsigned char protocol)
    {
        const unsigned long type = protocol == UDP ? CONNECTION_TYPE_UDP : CONNECTION_TYPE_RAW;
        m_bListening = IPSConnectionManager::Instance()->CreateConnectionServer(type, m_pAcceptor.ParaOut()) == MN_OK &&
                       m_pAcceptor->StartListen(this, CMNInetAddr("10.9.0.1", PORT), 2, protocol) == MN_OK;
    }
    void Close()
    {
        m_pAcceptor->StopListen(0);
        m_pAcceptor = nullptr;
    }

    MNResult OnConnectIndication(long, IPSTransport* transport, IPSAcceptorConnectorId*) override
    {
        ++m_dwPeers;
        return transport->OpenWithSink(this);
    }
    MNResult OnReceive(CMNMessageBlock& data, IPSTransport*, CPSTransportParameter*) override
    {
        benchmark::DoNotOptimize(data.GetReadPtr());
        ++m_dwReceived;
        return MN_OK;
    }
    MNResult OnSend(IPSTransport*, CPSTransportParameter*) override { return MN_OK; }
    MNResult OnDisconnect(long, IPSTransport*) override { return MN_OK; }

    bool m_bListening = false;
    unsigned int m_dwPeers = 0;
    unsigned long m_dwReceived = 0;

    // What the loop would do with the readable socket.
    void Read() { dynamic_cast<IPSEventHandler&>(*m_pAcceptor).OnInput(PS_INVALID_HANDLE); }

private:
    mantle::CMNAutoPtr<IPSAcceptor> m_pAcceptor;
};

// One iteration is one datagram from the packet of a peer that is known already to the sink of its transport; the peers
// take turns.
void Receive(benchmark::State& state, unsigned char protocol)
{
    CBenchNetwork& network = CBenchNetwork::Instance();
    CSilentLink& link = CSilentLink::Instance();
    const auto peers = static_cast<unsigned int>(state.range(0));
    std::vector<CPacket> packets;
    for (unsigned int peer = 0; peer < peers; ++peer)
        packets.push_back(Packet(protocol, peer));
    network.RunNow([&] {
        CServer server;
        server.Listen(protocol);
        if (!server.m_bListening) {
            state.SkipWithError("does not listen");
            return;
        }
        const auto feed = [&](unsigned int first, unsigned int count) {
            for (unsigned int i = 0; i < count; ++i)
                link.Input(packets[(first + i) % peers]);
            server.Read();
        };
        for (unsigned int first = 0; first < peers; first += PORTION)
            feed(first, PORTION);
        const unsigned long before = server.m_dwReceived;
        unsigned int next = 0;
        while (state.KeepRunningBatch(PORTION)) {
            feed(next, PORTION);
            next = (next + PORTION) % peers;
        }
        if (server.m_dwPeers != peers || server.m_dwReceived - before != static_cast<unsigned long>(state.iterations()))
            state.SkipWithError("datagrams were lost");
        server.Close();
    });
    state.SetItemsProcessed(state.iterations());
}

void UdpReceive(benchmark::State& state)
{
    Receive(state, UDP);
}

void RawReceive(benchmark::State& state)
{
    Receive(state, RAW);
}

BENCHMARK(UdpReceive)->Arg(1)->Arg(100)->Arg(10000)->UseRealTime();
BENCHMARK(RawReceive)->Arg(1)->Arg(100)->Arg(10000)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
