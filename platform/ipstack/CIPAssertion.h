// What becomes of a failed assertion of lwIP's.
#ifndef IPSTACK_CIPASSERTION_H
#define IPSTACK_CIPASSERTION_H

#include <string>

namespace ipstack
{

// Counts (CIPCounters::AssertionFailed), keeps the text and goes on: packets from outside must not end the
// process. The sites where going on would be unsafe are kept out of reach by the filter and the segment hook.
class CIPAssertion
{
public:
    // Thread: the one that holds the core lock.
    static void Record(const char* message, const char* file, int line);

    // Writes a trace line for what was recorded, at most one a second. Thread: any, the core lock not held: the
    // trace sink is the user's. One relaxed load when there is nothing.
    static void TracePending();

    // The last text, empty when none. Thread: any.
    static std::string GetLastText();

    // Whether Record ends the process; for tests.
    static void SetAbort(bool on) noexcept;
};

}  // namespace ipstack

#endif
