#include "CFileFetcher.h"

#include <algorithm>
#include <utility>

#include "CFileProtocol.h"

using namespace uxport;

namespace
{

constexpr long CONNECT_SECONDS = 10;
constexpr long PROGRESS_MICROSECONDS = 200 * 1000;
constexpr int MAX_IDLE_TIMERS = 150;  // half a minute

}  // namespace

CFileFetcher::CFileFetcher(FProgress progress, FDone done) : m_fProgress(std::move(progress)), m_fDone(std::move(done))
{
}

CFileFetcher::~CFileFetcher()
{
    if (m_pConnector)
        m_pConnector->CancelConnect();
    if (m_pTransport)
        m_pTransport->Disconnect(MN_OK);
}

MNResult CFileFetcher::Start(const CMNInetAddr& address)
{
    MNResult result =
        IPSConnectionManager::Instance()->CreateConnectionClient(CONNECTION_TYPE_TCP, m_pConnector.ParaOut());
    if (result != MN_OK)
        return result;
    m_llStart = mantle::CMNClock::NowUs();
    CMNTimeValue timeout(CONNECT_SECONDS, 0);
    result = m_pConnector->AsycConnect(this, address, &timeout, nullptr, 0, 0);
    if (result != MN_OK)
        return result;
    return m_Timer.Schedule(this, CMNTimeValue(0, PROGRESS_MICROSECONDS), 0);
}

MNResult CFileFetcher::OnConnectIndication(long result, IPSTransport* transport, IPSAcceptorConnectorId*)
{
    if (result != 0) {
        Finish("cannot connect to the server");
        return MN_OK;
    }
    m_pTransport = transport;
    if (transport->OpenWithSink(this) != MN_OK)
        Finish("cannot open the connection");
    return MN_OK;
}

MNResult CFileFetcher::OnReceive(CMNMessageBlock& data, IPSTransport*, CPSTransportParameter*)
{
    for (const CMNMessageBlock* block = &data; block; block = block->GetNext())
        Take(block->GetReadPtr(), block->GetLength());
    if (HasAll())
        m_Outcome.m_llMicroseconds = mantle::CMNClock::NowUs() - m_llStart;
    Answer();
    return MN_OK;
}

void CFileFetcher::Take(const char* data, std::size_t length)
{
    for (; m_nLengthBytes < CFileProtocol::s_nLengthSize && length != 0; ++m_nLengthBytes, ++data, --length)
        m_qwLength = m_qwLength << 8 | static_cast<unsigned char>(*data);
    m_Sha256.Add(data, length);
    m_Outcome.m_qwBytes += length;
}

bool CFileFetcher::HasAll() const
{
    return m_nLengthBytes == CFileProtocol::s_nLengthSize && m_Outcome.m_qwBytes >= m_qwLength;
}

void CFileFetcher::Answer()
{
    std::uint64_t due = m_Outcome.m_qwBytes / CFileProtocol::s_qwStep;
    if (HasAll())
        due = std::max<std::uint64_t>(CFileProtocol::CountSteps(m_qwLength), 1);
    CMNMessageBlock answers(due - m_qwAnswers);
    for (; m_qwAnswers < due; ++m_qwAnswers)
        answers.Write("", 1);
    if (answers.GetLength() != 0)
        m_pTransport->SendData(answers, nullptr);
}

MNResult CFileFetcher::OnSend(IPSTransport*, CPSTransportParameter*)
{
    return MN_OK;
}

MNResult CFileFetcher::OnDisconnect(long, IPSTransport*)
{
    m_pTransport = nullptr;
    Finish(HasAll() ? "" : "the server ended the connection early");
    return MN_OK;
}

void CFileFetcher::OnTimer(CPSTimerWrapperID*)
{
    m_fProgress(m_Outcome.m_qwBytes);
    m_nIdleTimers = m_Outcome.m_qwBytes == m_qwAtLastTimer ? m_nIdleTimers + 1 : 0;
    m_qwAtLastTimer = m_Outcome.m_qwBytes;
    if (m_nIdleTimers == MAX_IDLE_TIMERS)
        Finish("nothing arrives any more");
}

void CFileFetcher::Finish(const char* error)
{
    m_Timer.Cancel();
    if (m_pTransport)
        m_pTransport->Disconnect(MN_OK);
    m_Outcome.m_strSha256 = m_Sha256.Finish();
    m_Outcome.m_strError = error;
    m_fDone();
}
