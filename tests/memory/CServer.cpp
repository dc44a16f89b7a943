#include "tests/memory/CServer.h"

#include <algorithm>
#include <cstdlib>

#include "tests/memory/CAllocationFault.h"
#include "tests/memory/InLibrary.h"

using namespace uxport;

namespace
{

constexpr int BYTE_CYCLE = 251;
constexpr std::size_t MOST_AT_ONCE = 100000;

}  // namespace

char AnswerByte(std::size_t position)
{
    return static_cast<char>(position % BYTE_CYCLE);
}

CServed::~CServed()
{
    Drop();
}

void CServed::Take(IPSTransport* transport)
{
    m_pTransport = transport;
    if (InLibrary([&] { return transport->OpenWithSink(this); }) != MN_OK)
        Drop();
}

void CServed::Drop()
{
    if (!m_pTransport)
        return;
    IPSTransport* const transport = m_pTransport.Get();
    if (const MNResult result = InLibraryTwice([&] { return transport->Disconnect(0); }))
        Complain("Disconnect answers %lu", result);
    InLibrary([&] {
        m_pTransport = nullptr;
        return MN_OK;
    });
}

MNResult CServed::OnReceive(CMNMessageBlock& data, IPSTransport*, CPSTransportParameter*)
{
    const CTestScope test;
    if (m_nDisconnects != 0)
        Complain("data after OnDisconnect");
    if (m_dwType != CONNECTION_TYPE_TCP) {
        std::string copy(data.GetChainedLength(), '\0');
        data.PeekChained(copy.data(), copy.size());
        constexpr std::size_t header = 20;  // raw IPv4 comes with it
        const std::size_t skip = m_dwType == CONNECTION_TYPE_RAW ? std::min(header, copy.size()) : 0;
        CMNMessageBlock echo(copy.size() - skip, copy.data() + skip, CMNMessageBlock::DONT_DELETE, copy.size() - skip);
        InLibrary([&] { return m_pTransport->SendData(echo, nullptr); });
        return MN_OK;
    }
    const std::size_t before = m_strRequest.size();
    m_strRequest.resize(before + data.GetChainedLength());
    data.PeekChained(&m_strRequest[before], data.GetChainedLength());
    if (m_strRequest.size() >= REQUEST_LENGTH && m_nLength == 0) {
        m_nLength = std::strtoul(m_strRequest.substr(0, REQUEST_LENGTH).c_str(), nullptr, 10);
        SendRest();
    }
    return MN_OK;
}

void CServed::SendRest()
{
    while (m_nSent < m_nLength && m_pTransport) {
        std::string text(std::min(m_nLength - m_nSent, MOST_AT_ONCE), '\0');
        for (std::size_t i = 0; i < text.size(); ++i)
            text[i] = AnswerByte(m_nSent + i);
        CMNMessageBlock block(text.size(), text.data(), CMNMessageBlock::DONT_DELETE, text.size());
        const MNResult result = InLibrary([&] { return m_pTransport->SendData(block, nullptr); });
        m_nSent += text.size() - block.GetChainedLength();
        if (result == MN_ERROR_PARTIAL_DATA)
            return;
        if (result != MN_OK)
            Drop();
    }
}

MNResult CServed::OnSend(IPSTransport*, CPSTransportParameter*)
{
    const CTestScope test;
    SendRest();
    return MN_OK;
}

MNResult CServed::OnDisconnect(long, IPSTransport*)
{
    const CTestScope test;
    if (++m_nDisconnects != 1)
        Complain("OnDisconnect comes again");
    Drop();
    m_Home.Poke();
    return MN_OK;
}

CServer::~CServer()
{
    if (const MNResult result = Stop())
        Complain("StopListen answers %lu", result);
}

MNResult CServer::Listen(const CWay& way)
{
    m_dwType = way.m_dwType;
    if (!m_pAcceptor) {
        const MNResult made = InLibrary([&] {
            return IPSConnectionManager::Instance()->CreateConnectionServer(way.m_dwType, m_pAcceptor.ParaOut());
        });
        if (made != MN_OK)
            return made;
    }
    return InLibrary([&] { return m_pAcceptor->StartListen(this, way.m_Remote, way.m_wNumber1, way.m_wNumber2); });
}

MNResult CServer::Stop()
{
    MNResult result = MN_OK;
    if (m_pAcceptor) {
        result = InLibraryTwice([&] { return m_pAcceptor->StopListen(0); });
        InLibrary([&] {
            m_pAcceptor = nullptr;
            return MN_OK;
        });
    }
    return result;
}

bool CServer::IsIdle() const
{
    return std::all_of(m_Served.begin(), m_Served.end(), [](const auto& served) { return served->IsOver(); });
}

MNResult CServer::OnConnectIndication(long result, IPSTransport* transport, IPSAcceptorConnectorId*)
{
    const CTestScope test;
    if (result != 0 || !transport) {
        Complain("an acceptor indicates %ld", result);
        return MN_OK;
    }
    m_Served.push_back(std::make_unique<CServed>(m_Home, m_dwType));
    m_Served.back()->Take(transport);
    return MN_OK;
}
