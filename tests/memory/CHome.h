// The thread that owns a server and its clients.
#ifndef TESTS_MEMORY_CHOME_H
#define TESTS_MEMORY_CHOME_H

#include <functional>

#include "mantle/mantle.h"
#include "uxport/uxport.h"

// What goes wrong in a run that must not.
void Complain(const char* format, ...) __attribute__((format(printf, 1, 2)));
int GetComplaints();

// The network thread, or main as a user thread. Thread: main, but for Poke.
class CHome
{
public:
    explicit CHome(bool network);
    CHome(const CHome&) = delete;
    CHome& operator=(const CHome&) = delete;

    const char* GetName() const { return m_bNetwork ? "network thread" : "user thread"; }

    // Runs `work` on the thread and waits for it.
    void Run(const std::function<void()>& work);

    // Waits until `predicate`, which is asked on the thread now and at each Poke, is true. Returns: whether it became
    // true within the limit.
    bool WaitFor(const std::function<bool()>& predicate, long seconds);

    // Something may have changed. Thread: this home's.
    void Poke();

    // Lets both threads do what they have put off.
    void Settle();

private:
    void RunOnNetwork(const std::function<void()>& work);

    const bool m_bNetwork;
    std::function<bool()> m_fPredicate;
    mantle::CMNEventThread m_Changed{0, 0};
};

#endif
