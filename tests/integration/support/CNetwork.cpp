#include "tests/integration/support/CNetwork.h"

#include <gtest/gtest.h>

#include "acceptor/CPSAcceptorRaw.h"
#include "acceptor/CPSAcceptorTcp.h"
#include "acceptor/CPSAcceptorUdp.h"
#include "connector/CPSConnectorWrapper.h"
#include "ipstack/ipstack.h"
#include "reactor/CPSReactorBase.h"
#include "reactor/CPSReactorSelect.h"

using namespace uxport;
using mantle::CMNThreadManager;

namespace
{

// Asks for one timer expiry after the other: each is a turn of the loop.
class CTurns : public IMNTimerHandler
{
public:
    CTurns(IPSReactor& reactor, int turns, mantle::CMNEventThread& done)
        : m_Reactor(reactor), m_nLeft(turns), m_Done(done)
    {
    }

    void Next() { EXPECT_EQ(MN_OK, m_Reactor.ScheduleTimer(this, nullptr, CMNTimeValue::s_tvZero, 1)); }

    void OnTimeout(const CMNTimeValue&, void*) override
    {
        if (--m_nLeft > 0)
            Next();
        else
            m_Done.Signal();
    }

private:
    IPSReactor& m_Reactor;
    int m_nLeft;
    mantle::CMNEventThread& m_Done;
};

}  // namespace

CNetwork::CNetwork(EKind kind) : m_eKind(kind)
{
    mantle::CMNThreadUser::AdoptCurrentThread();
    const unsigned long started = ipstack::IIPStackManager::Instance()->Startup(ipstack::CIPStackSettings());
    EXPECT_TRUE(started == MN_OK || started == MN_ERROR_ALREADY_INITIALIZED) << started;
    if (kind == EKind::MANAGER) {
        EXPECT_EQ(MN_OK, IPSConnectionManager::Instance()->Init(1));
        m_pReactor = IPSConnectionManager::Instance()->GetReactor();
        return;
    }
    m_pReactor = new CPSReactorSelect;
    m_pSelectThread = std::make_unique<CPSThreadReactor>();
    EXPECT_EQ(MN_OK, m_pSelectThread->Init(m_pReactor));
    EXPECT_EQ(MN_OK, m_pSelectThread->Create(CMNThreadManager::Instance()->GetNewThreadType()));
}

CNetwork::~CNetwork()
{
    Turn();
    if (m_pSelectThread) {
        EXPECT_EQ(MN_OK, m_pSelectThread->Stop());
        EXPECT_EQ(MN_OK, m_pSelectThread->Join());
    }
}

void CNetwork::Run(const std::function<void()>& work)
{
    if (static_cast<CPSReactorBase*>(m_pReactor)->IsReactorThread()) {
        work();
        return;
    }
    mantle::CMNEventThread done(1, 0);
    Post([&] {
        work();
        Poke();
        done.Signal();
    });
    done.Wait();
}

void CNetwork::Post(std::function<void()> work)
{
    EXPECT_EQ(MN_OK, m_pReactor->PostEvent(new CWorkEvent(std::move(work))));
}

bool CNetwork::WaitFor(const std::function<bool()>& predicate, long limitSeconds)
{
    Run([&] { m_fPredicate = predicate; });
    const CMNTimeValue limit(limitSeconds, 0);
    bool reached = m_Changed.Wait(&limit) == MN_OK;
    Run([&] {
        if (m_fPredicate) {
            m_fPredicate = nullptr;
        } else if (!reached) {  // between the limit and now
            m_Changed.Reset();
            reached = true;
        }
    });
    return reached;
}

void CNetwork::Poke()
{
    if (m_fPredicate && m_fPredicate()) {
        m_fPredicate = nullptr;
        m_Changed.Signal();
    }
}

void CNetwork::Turn(int turns)
{
    mantle::CMNEventThread done(1, 0);
    CTurns handler(*m_pReactor, turns, done);
    Run([&handler] { handler.Next(); });
    done.Wait();
    Run([] {});  // the handler's last call has returned
}

IPSAcceptor* CNetwork::CreateServer(unsigned long type)
{
    IPSAcceptor* server = nullptr;
    if (m_eKind == EKind::MANAGER) {
        EXPECT_EQ(MN_OK, IPSConnectionManager::Instance()->CreateConnectionServer(type, server));
        return server;
    }
    if (type == CONNECTION_TYPE_UDP)
        server = new CPSAcceptorUdp(m_pReactor);
    else if (type == CONNECTION_TYPE_RAW)
        server = new CPSAcceptorRaw(m_pReactor);
    else
        server = new CPSAcceptorTcp(m_pReactor);
    server->AddReference();
    return server;
}

IPSConnector* CNetwork::CreateClient(unsigned long type)
{
    IPSConnector* client = nullptr;
    if (m_eKind == EKind::MANAGER) {
        EXPECT_EQ(MN_OK, IPSConnectionManager::Instance()->CreateConnectionClient(type, client));
        return client;
    }
    auto* wrapper = new CPSConnectorWrapper(m_pReactor);
    wrapper->AddReference();
    EXPECT_EQ(MN_OK, wrapper->Init(type));
    return wrapper;
}

std::ostream& operator<<(std::ostream& stream, CNetwork::EKind kind)
{
    return stream << (kind == CNetwork::EKind::MANAGER ? "Poll" : "Select");
}

CMNInetAddr Loopback(unsigned short port)
{
    return CMNInetAddr("127.0.0.1", port);
}
