// Proxies whose two threads really run at the same time, and others with them.
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "ipstack/ps_defines.h"
#include "mantle/CMNEventThread.h"
#include "mantle/CMNInetAddr.h"
#include "mantle/CMNThreadUser.h"
#include "proxy/CPSAcceptorThreadProxy.h"
#include "proxy/CPSConnectorThreadProxy.h"
#include "proxy/CPSTransportThreadProxy.h"
#include "reactor/CPSReactorBase.h"
#include "tests/unit/proxy/ProxyTest.h"

namespace uxport
{
namespace
{

constexpr int ROUNDS = 500;
constexpr int WORKERS = 4;

// Lets the network thread run its events, its timers and a task of its own until the object goes.
class CRunningNetwork
{
public:
    explicit CRunningNetwork(CStepReactor& reactor, std::function<void()> task = nullptr)
        : m_Thread([this, &reactor, task] {
              CNetworkThread::Instance().Run([&] {
                  while (!m_bEnd.load()) {
                      if (reactor.Events().RunOne() == MN_ERROR_NOT_FOUND)
                          std::this_thread::yield();
                      CNetworkThread::Instance().GetReactor().ProcessTimerTick();
                      if (task)
                          task();
                  }
              });
          })
    {
    }
    ~CRunningNetwork()
    {
        m_bEnd.store(true);
        m_Thread.join();
    }
    CRunningNetwork(const CRunningNetwork&) = delete;
    CRunningNetwork& operator=(const CRunningNetwork&) = delete;

private:
    std::atomic<bool> m_bEnd{false};
    std::thread m_Thread;
};

class ProxyThreadsTest : public TransportProxyTest
{
protected:
    // A proxy made on this thread while the network thread runs. The case holds one reference.
    CPSTransportThreadProxy* MakeHere(mantle::CMNThread* user)
    {
        m_pFake = new CFakeTransport;
        auto* proxy = new CPSTransportThreadProxy(m_pFake, &m_Network, user, CONNECTION_TYPE_TCP);
        proxy->AddReference();
        return proxy;
    }
    // Everything died where it should.
    void ExpectGoneOnTheNetworkThread(int count)
    {
        RunOut();
        EXPECT_EQ(NewLiveObjects(), 0);
        int gone = 0;
        for (const std::string& call : m_Stack.TakeCalls()) {
            gone += call == "net:gone" ? 1 : 0;
            EXPECT_EQ(call.find("gone on another thread"), std::string::npos);
        }
        EXPECT_EQ(gone, count);
    }
};

TEST_F(ProxyThreadsTest, LastRelease_UserTimerFiresWhileTheNetworkThreadFrees_NothingIsTouchedAfter)
{
    {
        const CRunningNetwork network(m_Network);
        for (int i = 0; i < ROUNDS; ++i) {
            MakeHere(&m_Thread)->ReleaseReference();
            EXPECT_EQ(TickUser(), 1u);
        }
    }
    ExpectGoneOnTheNetworkThread(ROUNDS);
}

TEST_F(ProxyThreadsTest, LastRelease_BothSidesAtOnce_GoesOnTheNetworkThread)
{
    std::atomic<CPSTransportThreadProxy*> shared{nullptr};
    {
        const CRunningNetwork network(m_Network, [&shared] {
            if (CPSTransportThreadProxy* proxy = shared.exchange(nullptr))
                proxy->ReleaseReference();
        });
        for (int i = 0; i < ROUNDS; ++i) {
            CPSTransportThreadProxy* proxy = MakeHere(&m_Thread);
            proxy->AddReference();
            shared.store(proxy);
            proxy->ReleaseReference();
            TickUser();
            while (shared.load())
                std::this_thread::yield();
        }
    }
    ExpectGoneOnTheNetworkThread(ROUNDS);
}

// The peer sends on and on while the application lets go.
TEST_F(ProxyThreadsTest, LastRelease_DataFlowing_RevivesNothing)
{
    std::atomic<CFakeTransport*> shared{nullptr};
    const auto flow = [&shared, this] {
        constexpr unsigned long ENOUGH = 20;
        CFakeTransport* fake = shared.load();
        if (fake && m_UserQueue.GetPendingEventsCount() < ENOUGH) {
            // The reference that the loop of a real transport has on it while it calls out.
            const mantle::CMNAutoPtr<CFakeTransport> hold(fake);
            for (int i = 0; i < 3 && fake->m_pSink; ++i)
                fake->m_pSink->OnReceive(*Block("x"), fake, nullptr);
            if (fake->m_pSink)
                fake->m_pSink->OnSend(fake, nullptr);
            if (!fake->m_pSink)
                shared.store(nullptr);
        }
    };
    m_Stack.SetRecording(false);
    {
        const CRunningNetwork network(m_Network, flow);
        for (int i = 0; i < ROUNDS; ++i) {
            CPSTransportThreadProxy* proxy = MakeHere(&m_Thread);
            EXPECT_EQ(proxy->OpenWithSink(&m_Sink), MN_OK);
            m_pFake->m_pSink = proxy;
            m_pFake->AddReference();
            shared.store(m_pFake);
            for (int j = 0; j < i % 7; ++j)
                StepUser();
            EXPECT_EQ(i % 2 == 0 ? proxy->Disconnect(0) : MN_OK, MN_OK);
            proxy->ReleaseReference();
            while (shared.load()) {
                TickUser();
                StepUser();
            }
            m_pFake->ReleaseReference();
        }
    }
    RunOut();
    EXPECT_EQ(NewLiveObjects(), 0);
}

TEST_F(ProxyThreadsTest, SendData_FromWorkersWhileTheOwnerDisconnectsAndReleases_KeepsEachWorkersOrder)
{
    constexpr int SENDS = 20;
    for (int round = 0; round < 50; ++round) {
        CPSTransportThreadProxy* proxy = MakeHere(&m_Thread);
        EXPECT_EQ(proxy->OpenWithSink(&m_Sink), MN_OK);
        m_pFake->AddReference();
        for (int i = 0; i < round % 4; ++i)
            m_pFake->Answer(MN_ERROR_PARTIAL_DATA, static_cast<unsigned long>(i % 2));
        {
            const CRunningNetwork network(m_Network);
            std::vector<std::thread> workers;
            for (int worker = 0; worker < WORKERS; ++worker) {
                proxy->AddReference();
                workers.emplace_back([proxy, worker] {
                    for (int i = 0; i < SENDS; ++i) {
                        const char text[] = {static_cast<char>('a' + worker), static_cast<char>('A' + i)};
                        CMNMessageBlock block(2, text, CMNMessageBlock::DONT_DELETE, 2);
                        CPSTransportParameter param;
                        EXPECT_EQ(proxy->SendData(block, &param), MN_OK);
                        EXPECT_EQ(param.SentLength, 2u);
                        EXPECT_EQ(block.GetChainedLength(), 0u);
                    }
                });
            }
            EXPECT_EQ(round % 2 == 0 ? proxy->Disconnect(0) : MN_OK, MN_OK);
            proxy->ReleaseReference();
            for (std::thread& worker : workers)
                worker.join();
            for (int worker = 0; worker < WORKERS; ++worker)
                proxy->ReleaseReference();
        }
        RunOut();
        std::vector<int> next(WORKERS, 0);
        for (std::size_t i = 0; i + 1 < m_pFake->m_strSent.size(); i += 2) {
            const int worker = m_pFake->m_strSent[i] - 'a';
            ASSERT_TRUE(worker >= 0 && worker < WORKERS) << m_pFake->m_strSent;
            EXPECT_EQ(m_pFake->m_strSent[i + 1] - 'A', next[static_cast<std::size_t>(worker)]++);
        }
        OnNetwork([this] { m_pFake->ReleaseReference(); });
        EXPECT_EQ(NewLiveObjects(), 0);
        m_Stack.TakeCalls();
    }
}

// The owner's thread ends at any moment of the connection's life.
TEST_F(ProxyThreadsTest, UserThreadEnds_DataFlowing_ClosesAndLeavesNothing)
{
    m_Stack.SetRecording(false);
    for (int round = 0; round < 30; ++round) {
        mantle::CMNThreadUser user;
        ASSERT_EQ(user.Create(mantle::CMNThreadManager::Instance()->GetNewThreadType()), MN_OK);
        CPSTransportThreadProxy* proxy = MakeHere(&user);
        m_pFake->m_pSink = proxy;
        CFakeTransport* fake = m_pFake;
        fake->AddReference();
        std::atomic<bool> closed{false};
        ASSERT_EQ(user.PostEvent(new CTestCall([&, proxy] {
            EXPECT_EQ(proxy->OpenWithSink(&m_Sink), MN_OK);
            for (int i = 0; i < 10; ++i)
                EXPECT_EQ(proxy->SendData(*Block("y"), nullptr), MN_OK);
            if (round % 3 == 0)
                proxy->ReleaseReference();
        })),
                  MN_OK);
        {
            const CRunningNetwork network(m_Network, [&, fake] {
                if (fake->m_pSink)
                    fake->m_pSink->OnReceive(*Block("x"), fake, nullptr);
                else
                    closed.store(true);
            });
            mantle::CMNEventThread some(1, 0);
            ASSERT_EQ(user.PostEvent(new CTestCall([&some] { some.Signal(); })), MN_OK);
            some.Wait();
            EXPECT_EQ(user.Stop(), MN_OK);
            EXPECT_EQ(user.Join(), MN_OK);
            while (!closed.load())
                std::this_thread::yield();
        }
        OnNetwork([&] {
            if (round % 3 != 0)
                proxy->ReleaseReference();
            fake->ReleaseReference();
        });
        RunOut();
        EXPECT_EQ(NewLiveObjects(), 0);
    }
}

// Options and addresses are asked for on any thread while the socket is opened and closed on the network thread.
TEST_F(ProxyThreadsTest, FourThreadsAsk_OneConnectsAndCloses_AnswersAreWhole)
{
    constexpr int FIRST = 7;
    const CMNInetAddr peer("10.0.0.2", 80);
    CPSReactorBase& reactor = CNetworkThread::Instance().GetReactor();
    m_Stack.SetRecording(false);
    m_Stack.Default("ps_getpeername").WithAddress("10.0.0.2", 80);
    m_Stack.Default("ps_getsockname").WithAddress("10.0.0.1", 4000);
    m_Stack.SetNextHandle(FIRST);
    int handle = FIRST;
    mantle::CMNAutoPtr<IPSTransport> transport;
    CRecordingConnectSink sink;
    sink.m_AtIndication = [&](IPSTransport* given) {
        transport = given;
        EXPECT_EQ(given->OpenWithSink(&m_Sink), MN_OK);
    };
    mantle::CMNAutoPtr<CPSConnectorThreadProxy> connector(
        new CPSConnectorThreadProxy(CONNECTION_TYPE_TCP, &m_Network, &m_Thread));
    std::atomic<int> decided{0};
    {
        const CRunningNetwork network(m_Network, [&] {
            const int next = FIRST + decided.load();
            if (CNetworkThread::Instance().IsRegistered(next) &&
                reactor.ProcessHandleEvent(next, CONNECT_MASK, 0, 0, 0) == MN_OK)
                decided.fetch_add(1);
        });
        for (int round = 0; round < 25; ++round, ++handle) {
            EXPECT_EQ(connector->AsycConnect(&sink, peer, nullptr, nullptr, 0, 0), MN_OK);
            while (!transport)
                StepUser();
            std::atomic<bool> end{false};
            std::atomic<int> asking{0};
            std::vector<std::thread> threads;
            for (int i = 0; i < WORKERS; ++i) {
                threads.emplace_back([&, handle] {
                    while (!end.load()) {
                        CMNInetAddr addr;
                        EXPECT_EQ(transport->GetPeerAddr(addr), MN_OK);
                        EXPECT_EQ(transport->GetLocalAddr(addr), MN_OK);
                        std::uint64_t type = 0;
                        EXPECT_EQ(transport->GetOption(OPT_TYPE, &type), MN_OK);
                        EXPECT_EQ(type, CONNECTION_TYPE_TCP);
                        std::int32_t fd = 0;
                        EXPECT_EQ(transport->GetOption(OPT_FD, &fd), MN_OK);
                        EXPECT_TRUE(fd == handle || fd == PS_INVALID_HANDLE) << fd;
                        std::uint64_t size = 0;
                        transport->GetOption(OPT_SEND_BUFFER, &size);
                        transport->SetOption(OPT_RECEIVE_BUFFER, &size);
                        std::int32_t alive = 0;
                        transport->GetOption(OPT_ALIVE, &alive);
                        asking.fetch_add(1);
                    }
                });
            }
            while (asking.load() < WORKERS)
                std::this_thread::yield();
            EXPECT_EQ(transport->Disconnect(0), MN_OK);
            std::int32_t fd = 0;
            while (fd != PS_INVALID_HANDLE)
                EXPECT_EQ(transport->GetOption(OPT_FD, &fd), MN_OK);
            end.store(true);
            for (std::thread& thread : threads)
                thread.join();
            transport = nullptr;
            TickUser();
        }
        connector = nullptr;
    }
    RunOut();
    EXPECT_EQ(sink.m_nIndications, 25);
    EXPECT_EQ(NewLiveObjects(), 0);
}

// Several owners, each with its own queue, on one network thread.
TEST_F(ProxyThreadsTest, OwnersStartStopConnectCancel_AtOnce_LeaveNothing)
{
    const CMNInetAddr address("10.0.0.1", 80);
    m_Stack.SetRecording(false);
    m_Stack.SetNextHandle(7);
    {
        const CRunningNetwork network(m_Network);
        std::vector<std::unique_ptr<mantle::CMNThreadUser>> users;
        for (int i = 0; i < WORKERS; ++i) {
            users.push_back(std::make_unique<mantle::CMNThreadUser>());
            mantle::CMNThreadUser* user = users.back().get();
            ASSERT_EQ(user->Create(mantle::CMNThreadManager::Instance()->GetNewThreadType()), MN_OK);
            EXPECT_EQ(user->PostEvent(new CTestCall([&, user] {
                for (int round = 0; round < 50; ++round) {
                    CRecordingConnectSink sink;
                    mantle::CMNAutoPtr<CPSAcceptorThreadProxy> acceptor(
                        new CPSAcceptorThreadProxy(CONNECTION_TYPE_TCP, &m_Network, user));
                    mantle::CMNAutoPtr<CPSConnectorThreadProxy> connector(
                        new CPSConnectorThreadProxy(CONNECTION_TYPE_TCP, &m_Network, user));
                    EXPECT_EQ(acceptor->StartListen(&sink, address, 0, 0), MN_OK);
                    EXPECT_EQ(connector->AsycConnect(&sink, address, nullptr, nullptr, 0, 0), MN_OK);
                    EXPECT_EQ(round % 2 == 0 ? acceptor->StopListen(0) : MN_OK, MN_OK);
                    EXPECT_EQ(round % 3 == 0 ? connector->CancelConnect() : MN_OK, MN_OK);
                    EXPECT_EQ(round % 4 == 0 ? acceptor->StartListen(&sink, address, 0, 0) : MN_OK, MN_OK);
                    user->RunPending();
                }
                user->Stop();
            })),
                      MN_OK);
        }
        for (const auto& user : users)
            EXPECT_EQ(user->Join(), MN_OK);
    }
    RunOut();
    EXPECT_EQ(NewLiveObjects(), 0);
    EXPECT_EQ(m_Stack.CountOf("ps_socket"), m_Stack.CountOf("ps_close"));
}

}  // namespace
}  // namespace uxport
