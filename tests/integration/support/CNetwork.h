// One network thread on the embedded stack, as a test drives it from the main thread.
#ifndef TESTS_INTEGRATION_SUPPORT_CNETWORK_H
#define TESTS_INTEGRATION_SUPPORT_CNETWORK_H

#include <functional>
#include <memory>
#include <ostream>

#include "mantle/mantle.h"
#include "reactor/CPSThreadReactor.h"
#include "uxport/uxport.h"

// Work for a queue, as a function.
class CWorkEvent : public mantle::IMNEvent
{
public:
    explicit CWorkEvent(std::function<void()> work) : m_fWork(std::move(work)) {}

    mantle::MNResult OnEventFire() override
    {
        m_fWork();
        return mantle::MN_OK;
    }

private:
    std::function<void()> m_fWork;
};

// The network thread of the connection manager, or one of the test's own around a select reactor. Adopts the main
// thread, so that a hand-moved clock waits for it too. A case that wants such a clock makes it first.
class CNetwork
{
public:
    enum class EKind
    {
        MANAGER,
        SELECT
    };

    // A wait that takes longer has failed; by the clock in force.
    static constexpr long s_lLimitSeconds = 50;

    explicit CNetwork(EKind kind = EKind::MANAGER);
    ~CNetwork();
    CNetwork(const CNetwork&) = delete;
    CNetwork& operator=(const CNetwork&) = delete;

    uxport::IPSReactor* GetReactor() const { return m_pReactor; }

    // Runs `work` on the network thread and waits until it has run; at once when called there. Thread: any.
    void Run(const std::function<void()>& work);

    void Post(std::function<void()> work);

    // Waits until `predicate`, which is asked on the network thread now and at each Poke, is true.
    // Thread: main. Returns: whether it became true within the limit.
    bool WaitFor(const std::function<bool()>& predicate, long limitSeconds = s_lLimitSeconds);

    // Something may have changed: called by the sinks of the tests at the end of each callback.
    void Poke();

    // Waits until the loop has gone round `turns` times, so that deferred deletions are done. Thread: main.
    void Turn(int turns = 3);

    // One reference comes along. Thread: the network thread.
    uxport::IPSAcceptor* CreateServer(unsigned long type = uxport::CONNECTION_TYPE_TCP);
    uxport::IPSConnector* CreateClient(unsigned long type = uxport::CONNECTION_TYPE_TCP);

private:
    EKind m_eKind;
    uxport::IPSReactor* m_pReactor = nullptr;
    std::unique_ptr<uxport::CPSThreadReactor> m_pSelectThread;
    std::function<bool()> m_fPredicate;  // the network thread's
    mantle::CMNEventThread m_Changed{0, 0};
};

std::ostream& operator<<(std::ostream& stream, CNetwork::EKind kind);

// 127.0.0.1 and a port.
uxport::CMNInetAddr Loopback(unsigned short port);

#endif
