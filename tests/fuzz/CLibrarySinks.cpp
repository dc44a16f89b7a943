#include "CLibrarySinks.h"

#include "CFuzzInput.h"
#include "CLibraryRound.h"

using namespace uxport;

MNResult CFuzzServerSink::OnConnectIndication(long result, IPSTransport* transport, IPSAcceptorConnectorId* id)
{
    Require(!m_bSilent, "no indication follows StopListen");
    Require(result == 0 && transport, "an acceptor indicates connections");
    if (m_bIgnores) {
        return MN_OK;
    }
    Require(id && !id->IsConnector(), "an acceptor says who it is");
    m_Round.TakeEnd(transport);
    return MN_OK;
}

MNResult CFuzzAttempt::OnConnectIndication(long result, IPSTransport* transport, IPSAcceptorConnectorId* id)
{
    Require(!m_bSilent, "no indication follows a cancel or a newer attempt");
    Require(++m_nOutcomes == 1, "an attempt has one outcome");
    Require((result == 0) == (transport != nullptr), "a success, and only that, brings a transport");
    Require(result == 0 || result == static_cast<long>(MN_ERROR_FAILURE), "a failure is 10001");
    if (m_bIgnores) {
        return MN_OK;
    }
    Require(id && id->IsConnector(), "a connector says who it is");
    CLibraryRound& round = m_Round;
    round.EndAttempt(this);  // which keeps this object
    if (transport) {
        round.TakeEnd(transport);
    } else {
        round.React();
    }
    return MN_OK;
}

CFuzzEnd::CFuzzEnd(CLibraryRound& round, IPSTransport* transport) : m_Round(round), m_pTransport(transport)
{
    std::uint64_t type = 0;
    Require(transport->GetOption(OPT_TYPE, &type) == MN_OK, "a transport says its type");
    m_bStream = type == CONNECTION_TYPE_TCP;
}

void CFuzzEnd::Open()
{
    m_bOpen = m_pTransport->OpenWithSink(this) == MN_OK;
}

void CFuzzEnd::Inherit(CFuzzEnd& other)
{
    m_qwSent = other.m_qwSent;
    m_qwReceived = other.m_qwReceived;
    Open();
    other.m_bOpen = false;
    other.m_bEnded = true;
    other.m_pTransport = nullptr;
}

void CFuzzEnd::Disconnect()
{
    Require(m_pTransport->Disconnect(0) == MN_OK, "a disconnect succeeds");
    m_bEnded = true;
}

void CFuzzEnd::Release()
{
    m_bReleased = !m_bEnded;
    m_pTransport = nullptr;
}

void CFuzzEnd::Check(IPSTransport* transport) const
{
    Require(!m_bEnded && m_bOpen, "nothing comes after the end");
    Require(transport == m_pTransport.Get(), "a callback names its transport");
}

MNResult CFuzzEnd::OnReceive(CMNMessageBlock& data, IPSTransport* transport, CPSTransportParameter*)
{
    if (m_bReleased) {
        return MN_OK;
    }
    Check(transport);
    if (m_bStream) {
        for (const CMNMessageBlock* block = &data; block; block = block->GetNext()) {
            for (unsigned long i = 0; i < block->GetLength(); ++i) {
                Require(block->GetReadPtr()[i] == ByteAt(m_qwReceived++), "a stream arrives as it was sent");
            }
        }
    }
    m_Round.React();
    return MN_OK;
}

MNResult CFuzzEnd::OnSend(IPSTransport* transport, CPSTransportParameter*)
{
    if (m_bReleased) {
        return MN_OK;
    }
    Check(transport);
    m_Round.React();
    return MN_OK;
}

MNResult CFuzzEnd::OnDisconnect(long reason, IPSTransport* transport)
{
    if (m_bReleased) {
        return MN_OK;
    }
    Check(transport);
    Require(reason == static_cast<long>(MN_ERROR_FAILURE), "an end is 10001");
    m_bEnded = true;
    m_Round.React();
    return MN_OK;
}
