#include "tests/integration/support/CPeerServer.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace uxport;

namespace
{

constexpr unsigned int PORTION = 256;
constexpr std::size_t HEADER4 = 20;  // what a raw IPv4 socket shows in front

}  // namespace

MNResult CPeerServer::CEnd::OnReceive(CMNMessageBlock& data, IPSTransport* transport, CPSTransportParameter*)
{
    EXPECT_EQ(m_pTransport.Get(), transport);
    if (!m_Server.IsUdp() && (*data.GetReadPtr() >> 4) == 4)
        data.AdvanceReadPtr(HEADER4);
    const std::string text(data.GetReadPtr(), data.GetLength());
    EXPECT_EQ(m_strName, text.substr(0, m_strName.size()));
    ++m_nReceived;
    ++m_Server.m_dwReceived;
    if (m_Server.m_bEcho) {
        EXPECT_EQ(MN_OK, transport->SendData(data, nullptr));
    }
    m_Server.m_Network.Poke();
    return MN_OK;
}

CPeerServer::CPeerServer(CNetwork& network, unsigned long type) : m_Network(network), m_dwType(type) {}

CPeerServer::~CPeerServer()
{
    m_Network.Run([this] {
        Close();
        m_Ends.clear();
    });
}

void CPeerServer::Listen(const CMNInetAddr& address, unsigned short family)
{
    if (!m_pAcceptor)
        m_pAcceptor.ParaOut() = m_Network.CreateServer(m_dwType);
    EXPECT_EQ(MN_OK, m_pAcceptor->StartListen(this, address, family, CForgedLink::s_bRawProtocol));
}

void CPeerServer::Close(bool stop)
{
    if (m_pAcceptor && stop) {
        EXPECT_EQ(MN_OK, m_pAcceptor->StopListen(0));
    }
    m_pAcceptor = nullptr;
}

packetmaker::CPacket CPeerServer::Packet(unsigned int peer, const std::string& text) const
{
    const std::string named = CForgedLink::PeerName(peer) + text;
    return IsUdp() ? CForgedLink::Udp(peer, named) : CForgedLink::Raw(peer, named);
}

bool CPeerServer::FeedOfEach(CForgedLink& link, unsigned int peers)
{
    unsigned int expected = m_dwReceived;
    for (unsigned int first = 0; first < peers; first += PORTION) {
        const unsigned int end = std::min(first + PORTION, peers);
        m_Network.Run([&] {
            for (unsigned int peer = first; peer < end; ++peer)
                EXPECT_EQ(0UL, link.Input(Packet(peer)));
        });
        expected += end - first;
        if (!m_Network.WaitFor([&] { return m_dwReceived >= expected; }))
            return false;
    }
    return true;
}

MNResult CPeerServer::OnConnectIndication(long result, IPSTransport* transport, IPSAcceptorConnectorId* id)
{
    EXPECT_EQ(0, result);
    EXPECT_EQ(static_cast<IPSAcceptorConnectorId*>(m_pAcceptor.Get()), id);
    ++m_dwIndications;
    if (m_bStrangers) {
        EXPECT_EQ(MN_OK, transport->Disconnect(0));
    } else {
        m_Ends.push_back(std::make_unique<CEnd>(*this));
        CMNInetAddr peer;
        EXPECT_EQ(MN_OK, transport->GetPeerAddr(peer));
        m_Ends.back()->m_strName = peer.GetHostString();
        m_Ends.back()->m_pTransport = transport;
        EXPECT_EQ(MN_OK, transport->OpenWithSink(m_Ends.back().get()));
    }
    m_Network.Poke();
    return MN_OK;
}
