#include "tests/integration/support/CStressThread.h"

#include <gtest/gtest.h>

#include "tests/integration/support/CUserLoop.h"

using namespace uxport;

namespace
{

constexpr unsigned short FIRST_PORT = 10000;
constexpr unsigned short PORTS = 2000;  // for each thread: one that has open connections can't be bound again
constexpr long TICK_MICROSECONDS = 2000;
constexpr int ACTIONS = 20;                  // for each tick
constexpr unsigned long MAX_PENDING = 1000;  // on the network thread: an attempt should get somewhere
constexpr long CONNECT_SECONDS = 20;
constexpr std::uint32_t MAX_SEND = 3000;

}  // namespace

// A connector and the connection that it has made.
class CStressThread::CSlot : public IPSAcceptorConnectorSink
{
public:
    explicit CSlot(CStressThread& thread) : m_Thread(thread)
    {
        EXPECT_EQ(MN_OK, IPSConnectionManager::Instance()->CreateConnectionClient(CONNECTION_TYPE_TCP,
                                                                                  m_pConnector.ParaOut()));
    }
    ~CSlot() override { Cancel(); }

    void Connect()
    {
        if (m_bConnecting)
            ++m_Thread.m_Counts.m_qwDropped;
        CMNTimeValue timeout(CONNECT_SECONDS, 0);
        EXPECT_EQ(MN_OK, m_pConnector->AsycConnect(this, Loopback(m_Thread.RandomThread().GetPort()), &timeout, nullptr,
                                                   0, 0));
        m_bConnecting = true;
        ++m_Thread.m_Counts.m_qwAttempts;
    }

    void Cancel()
    {
        EXPECT_EQ(m_bConnecting ? MN_OK : 1UL, m_pConnector->CancelConnect());
        if (m_bConnecting)
            ++m_Thread.m_Counts.m_qwDropped;
        m_bConnecting = false;
    }

    void Act()
    {
        const std::uint32_t dice = m_Thread.Random(1000);
        if (m_bConnecting) {
            if (dice < 20)
                Cancel();
            else if (dice < 40)
                Connect();
        } else if (!m_pPeer) {
            Connect();
        } else if (dice < 60) {
            m_pPeer->Disconnect();
            m_Thread.EndPeer(m_pPeer);
        } else if (dice < 100) {
            m_pPeer->Release();
            m_Thread.EndPeer(m_pPeer);
        } else if (m_pPeer->IsOpen()) {
            const auto how = dice < 200   ? CStressPeer::ESend::NETWORK
                             : dice < 350 ? CStressPeer::ESend::OTHER
                                          : CStressPeer::ESend::OWNER;
            m_pPeer->Send(1 + m_Thread.Random(MAX_SEND), how, m_Thread.m_Thread, m_Thread.RandomThread().m_Thread);
        } else {
            m_Thread.EndPeer(m_pPeer);
        }
    }

    bool IsConnecting() const { return m_bConnecting; }

    MNResult OnConnectIndication(long result, IPSTransport* transport, IPSAcceptorConnectorId* id) override
    {
        EXPECT_TRUE(m_bConnecting) << "nobody asked";
        EXPECT_EQ(static_cast<IPSAcceptorConnectorId*>(m_pConnector.Get()), id);
        EXPECT_EQ(result == 0, transport != nullptr);
        m_bConnecting = false;
        ++m_Thread.m_Counts.m_qwIndications;
        if (!transport)
            return MN_OK;
        ++m_Thread.m_Counts.m_qwMade;
        m_pPeer = std::make_unique<CStressPeer>(m_Thread.m_Thread.GetThreadId(), true,
                                                static_cast<std::uint8_t>(m_Thread.Random(256)),
                                                [this] { ++m_Thread.m_Counts.m_qwEnds; });
        m_pPeer->Open(transport);
        return MN_OK;
    }

    std::unique_ptr<CStressPeer> m_pPeer;

private:
    CStressThread& m_Thread;
    mantle::CMNAutoPtr<IPSConnector> m_pConnector;
    bool m_bConnecting = false;
};

CStressThread::CStressThread(const CAll& all, std::uint32_t index, std::uint32_t seed)
    : m_All(all), m_dwIndex(index), m_Random(seed + index)
{
    EXPECT_EQ(MN_OK, m_Thread.Create(mantle::CMNThreadManager::Instance()->GetNewThreadType()));
    Run([this] {
        EXPECT_EQ(MN_OK,
                  IPSConnectionManager::Instance()->CreateConnectionServer(CONNECTION_TYPE_TCP, m_pAcceptor.ParaOut()));
        Listen();
        for (int i = 0; i < s_nConnections; ++i)
            m_Slots.push_back(std::make_unique<CSlot>(*this));
    });
}

CStressThread::~CStressThread() = default;

void CStressThread::Run(std::function<void()> work)
{
    EXPECT_EQ(MN_OK, m_Thread.SendEvent(new CWorkEvent(std::move(work))));
}

void CStressThread::Start()
{
    Run([this] {
        m_pTimer = std::make_unique<mantle::CMNTimerWrapperID>();
        EXPECT_EQ(MN_OK, m_pTimer->Schedule(this, CMNTimeValue(0, TICK_MICROSECONDS), 0));
    });
}

void CStressThread::Finish()
{
    Run([this] { m_pTimer.reset(); });
}

bool CStressThread::HasAttempts()
{
    bool has = false;
    Run([&] {
        for (const auto& slot : m_Slots)
            has = has || slot->IsConnecting();
    });
    return has;
}

void CStressThread::Release()
{
    Run([this] {
        EXPECT_EQ(MN_OK, m_pAcceptor->StopListen(0));
        m_pAcceptor = nullptr;
        for (auto& slot : m_Slots) {
            if (slot->m_pPeer)
                EndPeer(slot->m_pPeer);
        }
        m_Slots.clear();
        for (auto& peer : m_Accepted)
            EndPeer(peer);
        m_Accepted.clear();
        for (auto& peer : m_Ended)
            peer->Disconnect();
    });
}

CStressThread::CCounts CStressThread::GetCounts()
{
    CCounts counts;
    Run([&] { counts = m_Counts; });
    return counts;
}

void CStressThread::End()
{
    m_Thread.Stop();
    m_Thread.Join();
}

void CStressThread::Listen()
{
    const auto port = static_cast<unsigned short>(FIRST_PORT + m_dwIndex * PORTS + m_Counts.m_qwRestarts % PORTS);
    EXPECT_EQ(MN_OK, m_pAcceptor->StartListen(this, Loopback(port), 0, 0));
    m_wPort.store(port);
}

void CStressThread::OnTimer(mantle::CMNTimerWrapperID*)
{
    if (IPSConnectionManager::Instance()->GetReactor()->GetPendingEventsCount() > MAX_PENDING)
        return;
    for (int i = 0; i < ACTIONS; ++i)
        m_Slots[Random(s_nConnections)]->Act();
    ActOnServer();
}

void CStressThread::ActOnServer()
{
    const std::uint32_t dice = Random(1000);
    if (dice < 20) {
        EXPECT_EQ(MN_OK, m_pAcceptor->StopListen(0));
        ++m_Counts.m_qwRestarts;
        Listen();
    }
    if (m_Accepted.empty())
        return;
    std::unique_ptr<CStressPeer>& peer = m_Accepted[Random(static_cast<std::uint32_t>(m_Accepted.size()))];
    if (peer->IsOpen() && dice < 700)
        return;
    if (dice < 800)
        peer->Release();
    EndPeer(peer);
    peer = std::move(m_Accepted.back());
    m_Accepted.pop_back();
}

void CStressThread::EndPeer(std::unique_ptr<CStressPeer>& peer)
{
    if (peer->IsOpen())
        peer->Disconnect();
    m_Ended.push_back(std::move(peer));
}

MNResult CStressThread::OnConnectIndication(long result, IPSTransport* transport, IPSAcceptorConnectorId* id)
{
    EXPECT_EQ(0, result);
    EXPECT_EQ(static_cast<IPSAcceptorConnectorId*>(m_pAcceptor.Get()), id);
    ++m_Counts.m_qwAccepted;
    if (Random(20) == 0)
        return MN_OK;  // does not want it
    m_Accepted.push_back(
        std::make_unique<CStressPeer>(m_Thread.GetThreadId(), false, 0, [this] { ++m_Counts.m_qwEnds; }));
    m_Accepted.back()->Open(transport);
    return MN_OK;
}
