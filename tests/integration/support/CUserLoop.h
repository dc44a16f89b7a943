// The main thread as a user thread, run by a test.
#ifndef TESTS_INTEGRATION_SUPPORT_CUSERLOOP_H
#define TESTS_INTEGRATION_SUPPORT_CUSERLOOP_H

#include <functional>

#include "tests/integration/support/CNetwork.h"

// Adopts the main thread. Thread: main.
class CUserLoop
{
public:
    explicit CUserLoop(CNetwork& network);

    mantle::CMNThreadUser& GetThread() const { return m_Thread; }

    // Runs the loop until `predicate`, which is asked now and at each Poke, is true. Returns: whether it became true
    // within the limit.
    bool RunUntil(const std::function<bool()>& predicate, long limitSeconds = CNetwork::s_lLimitSeconds);

    // Runs the loop for a time and shows that `predicate` does not become true.
    bool StaysFalse(const std::function<bool()>& predicate, long seconds) { return !RunUntil(predicate, seconds); }

    // Something may have changed: called by the sinks of the tests, on main.
    void Poke();

    // Runs what is pending on either side, again and again, until everything deferred is done.
    void Settle();

    // Settles until so many counted objects are left. Returns: how many there are.
    long SettleTo(long liveObjects);

private:
    CNetwork& m_Network;
    mantle::CMNThreadUser& m_Thread;
    std::function<bool()> m_fPredicate;
};

#endif
