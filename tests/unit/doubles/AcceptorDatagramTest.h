// The fixture of the UDP and raw acceptors' tests.
#ifndef TESTS_UNIT_DOUBLES_ACCEPTORDATAGRAMTEST_H
#define TESTS_UNIT_DOUBLES_ACCEPTORDATAGRAMTEST_H

#include <list>

#include "acceptor/CPSAcceptorRaw.h"
#include "acceptor/CPSAcceptorUdp.h"
#include "acceptor/CPSUdpTransportHashMap.h"
#include "ipstack/ps_defines.h"
#include "tests/unit/doubles/EDatagram.h"
#include "tests/unit/doubles/EndpointTest.h"
#include "transport/CPSTransportRaw.h"
#include "transport/CPSTransportUdp.h"

// An acceptor held by one reference; its sink opens and keeps every transport until the test says otherwise.
class AcceptorDatagramTest : public EndpointTest, public testing::WithParamInterface<EDatagram>
{
protected:
    static constexpr unsigned short s_wNumber1 = 2;
    static constexpr unsigned short s_wNumber2 = 89;

    const std::string m_strIndication = "OnConnectIndication(0,transport)";
    const std::string m_strNoMore = "ps_recvfrom(7,65535,0,28)=0";
    const std::string m_strDeletion = "ScheduleTimer(0,0s0us,1)=0";

    bool IsUdp() const { return GetParam() == EDatagram::UDP; }

    void SetUp() override
    {
        EndpointTest::SetUp();
        m_pAcceptor = Make();
        m_Sink.m_AtIndication = [this](uxport::IPSTransport* transport) { Keep(transport); };
    }
    void TearDown() override
    {
        m_Kept.clear();
        m_pAcceptor = nullptr;
        EndpointTest::TearDown();
        if (uxport::CPSUdpTransportHashMap* map = uxport::CPSUdpTransportHashMap::s_pUdpTransports) {
            EXPECT_EQ(map->GetCount(), 0u);
        }
    }

    uxport::CPSAcceptorBase* Make()
    {
        if (IsUdp())
            return new uxport::CPSAcceptorUdp(&m_Reactor);
        return new uxport::CPSAcceptorRaw(&m_Reactor);
    }

    uxport::IPSEventHandler& Handler() { return dynamic_cast<uxport::IPSEventHandler&>(*m_pAcceptor); }
    int OnInput() { return Handler().OnInput(Handler().GetHandle()); }
    uxport::MNResult Remove(const uxport::CMNInetAddr& peer)
    {
        if (auto* udp = dynamic_cast<uxport::CPSAcceptorUdp*>(m_pAcceptor.Get()))
            return udp->RemoveTransport(peer, nullptr);
        auto* raw = dynamic_cast<uxport::CPSAcceptorRaw*>(m_pAcceptor.Get());
        return raw ? raw->RemoveTransport(peer, nullptr) : uxport::MN_ERROR_UNEXPECTED;
    }

    uxport::MNResult Start() { return m_pAcceptor->StartListen(&m_Sink, m_Local, s_wNumber1, s_wNumber2); }
    void Listen()
    {
        ASSERT_EQ(Start(), uxport::MN_OK);
        m_Stack.TakeCalls();
    }

    // The next receive.
    void Arrives(const uxport::CMNInetAddr& peer, const std::string& text)
    {
        m_Stack.On("ps_recvfrom").WithAddress(peer.GetHostString().c_str(), peer.GetPort()).WithData(text);
    }
    void Arrive(const uxport::CMNInetAddr& peer, const std::string& text)
    {
        Arrives(peer, text);
        EXPECT_EQ(OnInput(), 0);
    }

    // The text of that receive on `handle`.
    static std::string Received(const std::string& peer, unsigned int length, int handle = s_nSocket)
    {
        return "ps_recvfrom(" + std::to_string(handle) + ",65535,0,28)=" + std::to_string(length) + ":" + peer +
               "{16,2}";
    }

    // The calls of a start, of a stop.
    CCalls Starting(int handle = s_nSocket) const
    {
        const std::string text = std::to_string(handle);
        CCalls calls = IsUdp() ? CCalls{"ps_socket(2,2,0)=" + text, "ps_bind(" + text + ",10.0.0.1:53{16,2},16)=0"}
                               : CCalls{"ps_socket(2,3,89)=" + text, "ps_setsockopt(" + text + ",1,2,1,4)=0"};
        calls.insert(calls.end(), {"ps_setsockopt(" + text + ",4095,4097,65535,8)=0",
                                   "ps_setsockopt(" + text + ",4095,4098,65535,8)=0",
                                   "ps_socket_nonblock(" + text + ")=0", "RegisterHandler(" + text + ",4)=0"});
        return calls;
    }
    const CCalls m_Stopping = {"RemoveHandler(7,4)=0", "ps_close(7)=0"};

    // Opens a transport with a sink of its own, "1: ", "2: " before its notes, and keeps it.
    void Keep(uxport::IPSTransport* transport)
    {
        m_DataSinks.emplace_back();
        m_DataSinks.back().m_strName = std::to_string(m_DataSinks.size()) + ": ";
        m_Kept.emplace_back(transport);
        EXPECT_EQ(transport->OpenWithSink(&m_DataSinks.back()), uxport::MN_OK);
    }
    uxport::IPSTransport& Kept(std::size_t index = 0) { return *m_Kept.at(index); }
    CRecordingTransportSink& DataSink() { return m_DataSinks.front(); }
    static int HandleOf(uxport::IPSTransport& transport)
    {
        std::int32_t handle = 0;
        EXPECT_EQ(transport.GetOption(uxport::OPT_FD, &handle), uxport::MN_OK);
        return handle;
    }
    static uxport::MNResult Send(uxport::IPSTransport& transport, const std::string& text)
    {
        return transport.SendData(*Block(text), nullptr);
    }

    const uxport::CMNInetAddr m_Local{"10.0.0.1", 53};
    const uxport::CMNInetAddr m_PeerA{"10.0.0.2", 4000};
    const uxport::CMNInetAddr m_PeerB{"10.0.0.3", 4000};
    CRecordingConnectSink m_Sink;
    std::list<CRecordingTransportSink> m_DataSinks;
    std::vector<mantle::CMNAutoPtr<uxport::IPSTransport>> m_Kept;
    mantle::CMNAutoPtr<uxport::CPSAcceptorBase> m_pAcceptor;
};

#endif
