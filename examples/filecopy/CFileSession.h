// The serving half of one connection.
#ifndef FILECOPY_CFILESESSION_H
#define FILECOPY_CFILESESSION_H

#include <cstdint>
#include <functional>
#include <string>

#include "CExample.h"
#include "CFileReader.h"
#include "CSilence.h"

// Sends the files at the pace of the client's answers. Thread: the server's.
class CFileSession : public CExampleSink
{
public:
    using FEnded = std::function<void(CFileSession* session, const std::string& how)>;

    // `list` outlives the session. A client that is silent for `seconds` is given up. `ended` is called once, when the
    // connection has ended, and may delete the session.
    CFileSession(const CFileList& list, std::uint64_t corruptAt, unsigned int seconds, FEnded ended);
    ~CFileSession() override;

    // Begins.
    MNResult OnConnectIndication(long result, uxport::IPSTransport* transport,
                                 uxport::IPSAcceptorConnectorId* id) override;
    MNResult OnReceive(uxport::CMNMessageBlock& data, uxport::IPSTransport* transport,
                       uxport::CPSTransportParameter* param) override;
    MNResult OnDisconnect(long reason, uxport::IPSTransport* transport) override;

    const std::string& GetClient() const { return m_strClient; }
    std::uint64_t GetSent() const { return m_Reader.GetRead(); }

private:
    void SendList(const std::string& list);
    void SendOn();
    bool SendNext(std::uint64_t left);
    void End(const std::string& how);

    const CFileList& m_List;
    CFileReader m_Reader;
    const unsigned int m_dwSeconds;
    std::uint64_t m_qwHead = 0;    // bytes of the stream in front of the files
    std::uint64_t m_qwLength = 0;  // of the whole stream
    std::uint64_t m_qwAnsweredSteps = 0;
    FEnded m_fEnded;
    std::string m_strClient;
    mantle::CMNAutoPtr<uxport::IPSTransport> m_pTransport;
    CSilence m_Silence;
};

#endif
