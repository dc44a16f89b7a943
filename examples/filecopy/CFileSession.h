// The serving half of one connection.
#ifndef FILECOPY_CFILESESSION_H
#define FILECOPY_CFILESESSION_H

#include <cstdint>
#include <fstream>
#include <functional>
#include <string>

#include <mantle/mantle.h>
#include <uxport/uxport.h>

// Sends the file at the pace of the client's answers. Thread: the server's.
class CFileSession : public uxport::IPSTransportSink
{
public:
    static constexpr std::uint64_t s_qwNowhere = ~std::uint64_t{0};
    using FEnded = std::function<void(CFileSession* session)>;

    // `corruptAt`: the offset of a byte that is sent changed, s_qwNowhere for none. `ended` is called once, when the
    // connection has ended, and may delete the session.
    CFileSession(const std::string& path, std::uint64_t corruptAt, FEnded ended);
    ~CFileSession() override;

    // Begins; inside the indication of `transport`.
    uxport::MNResult Start(uxport::IPSTransport* transport);

    uxport::MNResult OnReceive(uxport::CMNMessageBlock& data, uxport::IPSTransport* transport,
                               uxport::CPSTransportParameter* param) override;
    uxport::MNResult OnSend(uxport::IPSTransport* transport, uxport::CPSTransportParameter* param) override;
    uxport::MNResult OnDisconnect(long reason, uxport::IPSTransport* transport) override;

private:
    void SendLength();
    void SendOn();
    bool SendNext();
    void End();

    std::ifstream m_File;
    std::uint64_t m_qwLength = 0;
    std::uint64_t m_qwSent = 0;
    std::uint64_t m_qwAnsweredSteps = 0;
    std::uint64_t m_qwCorruptAt;
    FEnded m_fEnded;
    mantle::CMNAutoPtr<uxport::IPSTransport> m_pTransport;
};

#endif
