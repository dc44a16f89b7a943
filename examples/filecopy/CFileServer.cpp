#include "CFileServer.h"

#include <algorithm>
#include <utility>

using namespace uxport;

CFileServer::CFileServer(std::string path, std::uint64_t corruptAt)
    : m_strPath(std::move(path)), m_qwCorruptAt(corruptAt)
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

MNResult CFileServer::OnConnectIndication(long, IPSTransport* transport, IPSAcceptorConnectorId*)
{
    m_Sessions.push_back(std::make_unique<CFileSession>(m_strPath, m_qwCorruptAt, [this](CFileSession* ended) {
        const auto found = std::find_if(m_Sessions.begin(), m_Sessions.end(),
                                        [ended](const auto& session) { return session.get() == ended; });
        m_Sessions.erase(found);
    }));
    return m_Sessions.back()->Start(transport);
}
