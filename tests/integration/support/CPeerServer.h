// A datagram server of very many peers, which a forged link plays.
#ifndef TESTS_INTEGRATION_SUPPORT_CPEERSERVER_H
#define TESTS_INTEGRATION_SUPPORT_CPEERSERVER_H

#include <memory>
#include <string>
#include <vector>

#include "tests/integration/support/CForgedLink.h"
#include "tests/integration/support/CNetwork.h"

// Thread: the network thread unless said otherwise; made and destroyed on any.
class CPeerServer : public uxport::IPSAcceptorConnectorSink
{
public:
    // One peer: what its transport has received must bear its name.
    class CEnd : public uxport::IPSTransportSink
    {
    public:
        explicit CEnd(CPeerServer& server) : m_Server(server) {}
        uxport::MNResult OnReceive(uxport::CMNMessageBlock& data, uxport::IPSTransport* transport,
                                   uxport::CPSTransportParameter* param) override;
        uxport::MNResult OnSend(uxport::IPSTransport*, uxport::CPSTransportParameter*) override { return 0; }
        uxport::MNResult OnDisconnect(long, uxport::IPSTransport*) override { return 0; }

        mantle::CMNAutoPtr<uxport::IPSTransport> m_pTransport;
        std::string m_strName;
        int m_nReceived = 0;

    private:
        CPeerServer& m_Server;
    };

    // `type`: CONNECTION_TYPE_UDP or CONNECTION_TYPE_RAW.
    CPeerServer(CNetwork& network, unsigned long type);
    ~CPeerServer() override;
    CPeerServer(const CPeerServer&) = delete;
    CPeerServer& operator=(const CPeerServer&) = delete;

    void Listen(const uxport::CMNInetAddr& address, unsigned short family = 2);

    // Gives the acceptor up, with or without stopping it; the ends stay.
    void Close(bool stop = true);

    bool IsUdp() const { return m_dwType == uxport::CONNECTION_TYPE_UDP; }
    uxport::IPSAcceptor* GetAcceptor() const { return m_pAcceptor.Get(); }

    // The packet of this server's protocol from a peer, whose text begins with the peer's name.
    packetmaker::CPacket Packet(unsigned int peer, const std::string& text = std::string()) const;

    // Feeds one packet of each of the first `peers` peers in, in portions that the socket's queue holds, and waits until
    // all have arrived. Thread: main. Returns: whether they did.
    bool FeedOfEach(CForgedLink& link, unsigned int peers);

    uxport::MNResult OnConnectIndication(long result, uxport::IPSTransport* transport,
                                         uxport::IPSAcceptorConnectorId* id) override;

    bool m_bEcho = false;       // sends what comes back
    bool m_bStrangers = false;  // disconnects every transport in its indication
    unsigned int m_dwIndications = 0;
    unsigned int m_dwReceived = 0;
    std::vector<std::unique_ptr<CEnd>> m_Ends;

private:
    CNetwork& m_Network;
    const unsigned long m_dwType;
    mantle::CMNAutoPtr<uxport::IPSAcceptor> m_pAcceptor;
};

#endif
