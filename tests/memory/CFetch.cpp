#include "tests/memory/CFetch.h"

#include <cstdio>
#include <string>

#include "tests/memory/InLibrary.h"

using namespace uxport;

namespace
{

constexpr long TIME_OUT_SECONDS = 20;

}  // namespace

CFetch::~CFetch()
{
    Finish();
}

void CFetch::Start()
{
    const MNResult made = InLibrary([&] {
        return IPSConnectionManager::Instance()->CreateConnectionClient(m_Way.m_dwType, m_pConnector.ParaOut());
    });
    if (made != MN_OK) {
        m_bFailed = true;
        return;
    }
    CMNTimeValue timeout(TIME_OUT_SECONDS, 0);
    CMNInetAddr local = m_Way.m_Local;
    const MNResult result = InLibrary([&] {
        return m_pConnector->AsycConnect(this, m_Way.m_Remote, &timeout, &local, m_Way.m_wNumber1, m_Way.m_wNumber2);
    });
    m_bAsked = result == MN_OK;
    m_bFailed = !m_bAsked;
}

void CFetch::Finish()
{
    if (m_bAsked && m_nIndications == 0)
        Complain("%s: an attempt has no outcome", m_Way.m_szName);
    m_bAsked = false;
    if (m_pConnector) {
        InLibraryTwice([&] { return m_pConnector->CancelConnect(); });
        InLibrary([&] {
            m_pConnector = nullptr;
            return MN_OK;
        });
    }
    if (m_pTransport) {
        if (const MNResult result = InLibraryTwice([&] { return m_pTransport->Disconnect(0); }))
            Complain("Disconnect answers %lu", result);
        InLibrary([&] {
            m_pTransport = nullptr;
            return MN_OK;
        });
    }
}

void CFetch::Fail()
{
    m_bFailed = true;
    m_Home.Poke();
}

void CFetch::Ask()
{
    std::string text(m_Way.m_nLength, '\0');
    if (m_Way.m_dwType == CONNECTION_TYPE_TCP) {
        char request[REQUEST_LENGTH + 1];
        std::snprintf(request, sizeof request, "%08zu", m_Way.m_nLength);
        text = request;
    } else {
        for (std::size_t i = 0; i < text.size(); ++i)
            text[i] = AnswerByte(i);
    }
    CMNMessageBlock block(text.size(), text.data(), CMNMessageBlock::DONT_DELETE, text.size());
    const MNResult result = InLibrary([&] { return m_pTransport->SendData(block, nullptr); });
    if (m_Way.m_dwType == CONNECTION_TYPE_TCP && result != MN_OK)
        Fail();
}

void CFetch::AskAgain()
{
    if (m_pTransport && m_Way.m_dwType != CONNECTION_TYPE_TCP)
        Ask();
}

MNResult CFetch::OnConnectIndication(long result, IPSTransport* transport, IPSAcceptorConnectorId*)
{
    const CTestScope test;
    if (++m_nIndications != 1 || !m_bAsked)
        Complain("%s: an outcome of no attempt, or a second one", m_Way.m_szName);
    if ((result == 0) != (transport != nullptr))
        Complain("%s: the outcome %ld with%s transport", m_Way.m_szName, result, transport ? " a" : "out");
    if (!transport) {
        Fail();
        return MN_OK;
    }
    m_pTransport = transport;
    if (InLibrary([&] { return transport->OpenWithSink(this); }) != MN_OK)
        Fail();
    else
        Ask();
    return MN_OK;
}

MNResult CFetch::OnReceive(CMNMessageBlock& data, IPSTransport*, CPSTransportParameter*)
{
    const CTestScope test;
    std::string text(data.GetChainedLength(), '\0');
    data.PeekChained(text.data(), text.size());
    std::size_t skip = 0;
    if (m_Way.m_dwType != CONNECTION_TYPE_TCP) {
        m_nReceived = 0;  // each datagram is a whole answer
        constexpr std::size_t header = 20;
        skip = m_Way.m_dwType == CONNECTION_TYPE_RAW ? header : 0;
    }
    for (std::size_t i = skip; i < text.size(); ++i) {
        if (text[i] != AnswerByte(m_nReceived++)) {
            Complain("%s: byte %zu is another", m_Way.m_szName, m_nReceived - 1);
            break;
        }
    }
    if (m_nReceived >= m_Way.m_nLength) {
        if (m_nReceived > m_Way.m_nLength)
            Complain("%s: %zu bytes instead of %zu", m_Way.m_szName, m_nReceived, m_Way.m_nLength);
        m_bDone = true;
        m_Home.Poke();
    }
    return MN_OK;
}

MNResult CFetch::OnSend(IPSTransport*, CPSTransportParameter*)
{
    return MN_OK;
}

MNResult CFetch::OnDisconnect(long, IPSTransport*)
{
    const CTestScope test;
    if (++m_nDisconnects != 1)
        Complain("%s: OnDisconnect comes again", m_Way.m_szName);
    Fail();
    return MN_OK;
}
