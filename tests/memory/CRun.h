// One run of the sweep, in a process of its own.
#ifndef TESTS_MEMORY_CRUN_H
#define TESTS_MEMORY_CRUN_H

#include <cstdint>

#include "tests/memory/CAllocationFault.h"

// Servers serve and clients fetch, on the network thread and on a user thread, by TCP, UDP and raw IP, between two
// addresses of the stack: once while an allocation fails, when each step has some tries, and once more, when every step
// succeeds at the first.
class CRun
{
public:
    enum EPath : int
    {
        MEMORY,  // a wire in memory, by a hand-moved clock
        LINK,    // two links over UDP
        PATHS
    };
    static const char* GetPathName(int path);

    // Returns: whether all went well. The process is good for nothing else afterwards.
    static bool Do(int path, CAllocationFault::CRecord& record, std::uint64_t hash, unsigned int occurrence);
};

#endif
