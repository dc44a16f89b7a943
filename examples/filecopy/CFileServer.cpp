#include "CFileServer.h"

#include <cinttypes>
#include <cstdio>

using namespace uxport;

CFileServer::CFileServer(const CFileList& list, std::uint64_t corruptAt, unsigned int seconds)
    : m_List(list), m_qwCorruptAt(corruptAt), m_dwSeconds(seconds)
{
}

CFileServer::~CFileServer()
{
    if (m_pAcceptor)
        m_pAcceptor->StopListen(MN_OK);
}

MNResult CFileServer::Start(const CMNInetAddr& address)
{
    const MNResult result =
        IPSConnectionManager::Instance()->CreateConnectionServer(CONNECTION_TYPE_TCP, m_pAcceptor.ParaOut());
    return result == MN_OK ? m_pAcceptor->StartListen(this, address, 0, 0) : result;
}

MNResult CFileServer::OnConnectIndication(long result, IPSTransport* transport, IPSAcceptorConnectorId* id)
{
    if (result != MN_OK)
        return MN_OK;
    return m_Sessions
        .emplace_back(m_List, m_qwCorruptAt, m_dwSeconds,
                      [this](CFileSession* session, const std::string& how) { OnEnded(session, how); })
        .OnConnectIndication(result, transport, id);
}

void CFileServer::OnEnded(CFileSession* session, const std::string& how)
{
    std::printf("filecopy: %s %s; %" PRIu64 " bytes sent, %zu others served\n", session->GetClient().c_str(),
                how.c_str(), session->GetSent(), m_Sessions.size() - 1);
    std::fflush(stdout);
    m_Sessions.remove_if([session](const CFileSession& other) { return &other == session; });
}
