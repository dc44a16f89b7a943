// The serving half: sends its files to whoever connects.
#ifndef FILECOPY_CFILESERVER_H
#define FILECOPY_CFILESERVER_H

#include <cstdint>
#include <list>

#include "CExample.h"
#include "CFileList.h"
#include "CFileSession.h"

// Says on standard output who comes and how it ends. Thread: the user thread that made it.
class CFileServer : public uxport::IPSAcceptorConnectorSink
{
public:
    // `list` outlives the server. `corruptAt` and `seconds`: as in CFileSession.
    CFileServer(const CFileList& list, std::uint64_t corruptAt, unsigned int seconds);
    ~CFileServer() override;

    uxport::MNResult Start(const uxport::CMNInetAddr& address);

    uxport::MNResult OnConnectIndication(long result, uxport::IPSTransport* transport,
                                         uxport::IPSAcceptorConnectorId* id) override;

private:
    void OnEnded(CFileSession* session, const std::string& how);

    const CFileList& m_List;
    const std::uint64_t m_qwCorruptAt;
    const unsigned int m_dwSeconds;
    mantle::CMNAutoPtr<uxport::IPSAcceptor> m_pAcceptor;
    std::list<CFileSession> m_Sessions;
};

#endif
