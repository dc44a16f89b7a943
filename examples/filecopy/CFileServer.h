// The serving half: sends a file to whoever connects.
#ifndef FILECOPY_CFILESERVER_H
#define FILECOPY_CFILESERVER_H

#include <cstdint>
#include <fstream>
#include <memory>
#include <string>

#include <mantle/mantle.h>
#include <uxport/uxport.h>

// Thread: the network thread, construction and destruction included.
class CFileServer : public uxport::IPSAcceptorConnectorSink, public uxport::IPSTransportSink
{
public:
    static constexpr std::size_t s_nSendSize = 64 * 1024;
    static constexpr std::uint64_t s_qwNowhere = ~std::uint64_t{0};

    // `corruptAt`: the offset of a byte that is sent changed, s_qwNowhere for none.
    CFileServer(const std::string& path, std::uint64_t corruptAt);
    ~CFileServer() override;

    // Serves the file to the first who connects to `address`.
    uxport::MNResult Start(const uxport::CMNInetAddr& address);

    // How often the transport took a part only and asked for patience.
    std::uint64_t GetRefusals() const { return m_qwRefusals; }

    uxport::MNResult OnConnectIndication(long result, uxport::IPSTransport* transport,
                                         uxport::IPSAcceptorConnectorId* id) override;
    uxport::MNResult OnReceive(uxport::CMNMessageBlock& data, uxport::IPSTransport* transport,
                               uxport::CPSTransportParameter* param) override;
    uxport::MNResult OnSend(uxport::IPSTransport* transport, uxport::CPSTransportParameter* param) override;
    uxport::MNResult OnDisconnect(long reason, uxport::IPSTransport* transport) override;

private:
    bool ReadBlock();
    void SendOn();

    std::ifstream m_File;
    std::uint64_t m_qwCorruptAt;
    std::uint64_t m_qwRead = 0;
    std::uint64_t m_qwRefusals = 0;
    mantle::CMNAutoPtr<uxport::IPSAcceptor> m_pAcceptor;
    mantle::CMNAutoPtr<uxport::IPSTransport> m_pTransport;
    std::unique_ptr<uxport::CMNMessageBlock> m_pBlock;  // what is being sent; null between blocks
};

#endif
