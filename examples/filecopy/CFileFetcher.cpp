#include "CFileFetcher.h"

#include <algorithm>
#include <exception>
#include <stdexcept>
#include <utility>

#include "CFileProtocol.h"

using namespace uxport;

CFileFetcher::CFileFetcher(std::filesystem::path folder, unsigned int seconds, FProgress progress, FDone done)
    : m_Folder(std::move(folder)), m_dwSeconds(seconds), m_fProgress(std::move(progress)), m_fDone(std::move(done))
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
    const MNResult result =
        IPSConnectionManager::Instance()->CreateConnectionClient(CONNECTION_TYPE_TCP, m_pConnector.ParaOut());
    m_llStart = mantle::CMNClock::NowUs();
    CMNTimeValue timeout(static_cast<long>(m_dwSeconds), 0);
    return result == MN_OK ? m_pConnector->AsycConnect(this, address, &timeout, nullptr, 0, 0) : result;
}

MNResult CFileFetcher::OnConnectIndication(long result, IPSTransport* transport, IPSAcceptorConnectorId*)
{
    if (result != MN_OK) {
        Finish("cannot connect to the server");
        return MN_OK;
    }
    m_pTransport = transport;
    if (transport->OpenWithSink(this) != MN_OK) {
        Finish("cannot open the connection");
        return MN_OK;
    }
    unsigned long buffer = CFileProtocol::s_dwBuffer;
    transport->SetOption(OPT_RECEIVE_BUFFER, &buffer);
    // A server that has sent everything may close in vain: what counts is here.
    return m_Silence.Watch(
        m_dwSeconds, [this] { Finish(HasAll() ? "" : "the server is silent, given up"); },
        [this] {
            if (!HasAll())
                Update();
            m_fProgress(m_State);
        });
}

MNResult CFileFetcher::OnReceive(CMNMessageBlock& data, IPSTransport*, CPSTransportParameter*)
{
    m_Silence.Heard();
    try {
        for (const CMNMessageBlock* block = &data; block; block = block->GetNext())
            Take(block->GetReadPtr(), block->GetLength());
    } catch (const std::exception& error) {
        Finish(error.what());
        return MN_OK;
    }
    Update();
    Answer();
    return MN_OK;
}

void CFileFetcher::Take(const char* data, std::size_t length)
{
    m_qwTaken += length;
    if (m_pWriter || TakeList(data, length))
        m_pWriter->Take(data, length);
}

// Consumes what belongs to the list. Returns whether it is whole.
bool CFileFetcher::TakeList(const char*& data, std::size_t& length)
{
    const auto take = [&](std::size_t wanted) {
        const std::size_t piece = std::min(wanted - std::min(wanted, m_strHead.size()), length);
        m_strHead.append(data, piece);
        data += piece;
        length -= piece;
        return m_strHead.size() >= wanted;
    };
    if (!take(CFileProtocol::s_nLengthSize))
        return false;
    std::uint64_t list = 0;
    for (std::size_t i = 0; i < CFileProtocol::s_nLengthSize; ++i)
        list = list << 8 | static_cast<unsigned char>(m_strHead[i]);
    if (list > CFileProtocol::s_nMaxList)
        throw std::runtime_error("the server's list of files is too long");
    if (!take(CFileProtocol::s_nLengthSize + static_cast<std::size_t>(list)))
        return false;
    m_pWriter.emplace(CFileList::Decode(m_strHead.substr(CFileProtocol::s_nLengthSize)), m_Folder);
    m_State.m_qwTotal = m_pWriter->GetList().GetBytes();
    return true;
}

void CFileFetcher::Update()
{
    m_State.m_qwBytes = m_pWriter ? m_pWriter->GetTaken() : 0;
    m_State.m_llMicroseconds = mantle::CMNClock::NowUs() - m_llStart;
}

void CFileFetcher::Answer()
{
    const std::uint64_t due = HasAll() ? CFileProtocol::CountSteps(m_qwTaken) : m_qwTaken / CFileProtocol::s_qwStep;
    CMNMessageBlock answers(due - m_qwAnswers);
    for (; m_qwAnswers < due; ++m_qwAnswers)
        answers.Write("", 1);
    if (answers.GetLength() != 0)
        m_pTransport->SendData(answers, nullptr);
}

MNResult CFileFetcher::OnDisconnect(long, IPSTransport*)
{
    m_pTransport = nullptr;
    Finish(HasAll() ? "" : "the server has gone before everything was here");
    return MN_OK;
}

void CFileFetcher::Finish(const std::string& error)
{
    m_Silence.End();
    if (m_pTransport)
        m_pTransport->Disconnect(MN_OK);
    m_pTransport = nullptr;
    m_State.m_strError = error;
    m_fDone();
}
