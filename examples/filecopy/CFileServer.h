// The serving half: sends a file to whoever connects.
#ifndef FILECOPY_CFILESERVER_H
#define FILECOPY_CFILESERVER_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <mantle/mantle.h>
#include <uxport/uxport.h>

#include "CFileSession.h"

// Thread: the user thread that made it; all its callbacks come there.
class CFileServer : public uxport::IPSAcceptorConnectorSink
{
public:
    // `corruptAt`: as in CFileSession.
    CFileServer(std::string path, std::uint64_t corruptAt);
    ~CFileServer() override;

    // That the address can't be had is not told here; the clients find nobody.
    uxport::MNResult Start(const uxport::CMNInetAddr& address);

    uxport::MNResult OnConnectIndication(long result, uxport::IPSTransport* transport,
                                         uxport::IPSAcceptorConnectorId* id) override;

private:
    std::string m_strPath;
    std::uint64_t m_qwCorruptAt;
    mantle::CMNAutoPtr<uxport::IPSAcceptor> m_pAcceptor;
    std::vector<std::unique_ptr<CFileSession>> m_Sessions;
};

#endif
