// A server of the run: answers what it is asked for.
#ifndef TESTS_MEMORY_CSERVER_H
#define TESTS_MEMORY_CSERVER_H

#include <memory>
#include <string>
#include <vector>

#include "tests/memory/CHome.h"

// What goes through the run's connections. A request of TCP's is eight digits: the length of the answer. Datagrams come
// back as they are.
constexpr std::size_t REQUEST_LENGTH = 8;
char AnswerByte(std::size_t position);

// The arguments of AsycConnect and StartListen.
struct CWay
{
    const char* m_szName;
    unsigned long m_dwType;
    unsigned short m_wNumber1;
    unsigned short m_wNumber2;
    uxport::CMNInetAddr m_Local;   // the client's, for any port
    uxport::CMNInetAddr m_Remote;  // the server's
    std::size_t m_nLength;         // of the answer
};

// One accepted connection.
class CServed : public uxport::IPSTransportSink
{
public:
    CServed(CHome& home, unsigned long type) : m_Home(home), m_dwType(type) {}
    ~CServed() override;

    void Take(uxport::IPSTransport* transport);
    void Drop();

    // Whether it is over, told once.
    bool IsOver() const { return !m_pTransport; }

    uxport::MNResult OnReceive(uxport::CMNMessageBlock& data, uxport::IPSTransport* transport,
                               uxport::CPSTransportParameter* param) override;
    uxport::MNResult OnSend(uxport::IPSTransport* transport, uxport::CPSTransportParameter* param) override;
    uxport::MNResult OnDisconnect(long reason, uxport::IPSTransport* transport) override;

private:
    void SendRest();

    CHome& m_Home;
    const unsigned long m_dwType;
    mantle::CMNAutoPtr<uxport::IPSTransport> m_pTransport;
    std::string m_strRequest;
    std::size_t m_nLength = 0;
    std::size_t m_nSent = 0;
    int m_nDisconnects = 0;
};

// Thread: its home's.
class CServer : public uxport::IPSAcceptorConnectorSink
{
public:
    explicit CServer(CHome& home) : m_Home(home) {}
    ~CServer() override;

    uxport::MNResult Listen(const CWay& way);
    uxport::MNResult Stop();

    // Whether every connection that was accepted is over.
    bool IsIdle() const;
    void Forget() { m_Served.clear(); }

    uxport::MNResult OnConnectIndication(long result, uxport::IPSTransport* transport,
                                         uxport::IPSAcceptorConnectorId* id) override;

private:
    CHome& m_Home;
    unsigned long m_dwType = 0;
    mantle::CMNAutoPtr<uxport::IPSAcceptor> m_pAcceptor;
    std::vector<std::unique_ptr<CServed>> m_Served;
};

#endif
