// Fails one chosen allocation of this process.
#ifndef TESTS_MEMORY_CALLOCATIONFAULT_H
#define TESTS_MEMORY_CALLOCATIONFAULT_H

#include <atomic>
#include <cstddef>
#include <cstdint>

// Every malloc, calloc, realloc, aligned allocation and operator new of the process comes by here, the libraries' ones
// included. While switched on, those made outside of a CTestScope are counted by the place they are made at, which is
// the callers' chain of program counters, each relative to its module, so that it is the same in each run of one build.
class CAllocationFault
{
public:
    static constexpr unsigned int s_dwFrames = 24;  // kept of a place
    static constexpr unsigned int s_dwCallers = 8;  // of them tell places apart
    static constexpr std::size_t s_nMostPlaces = 8192;

    struct CPlace
    {
        std::atomic<std::uint64_t> m_qwHash;  // 0: free
        std::atomic<unsigned int> m_dwCount;
        unsigned int m_dwFrames;
        void* m_Frames[s_dwFrames];
    };

    // What two processes share.
    struct CRecord
    {
        std::atomic<unsigned int> m_dwPlaces;
        std::atomic<unsigned int> m_dwAllocations;
        std::atomic<int> m_bFailed;
        CPlace m_Failed;  // where
        CPlace m_Places[s_nMostPlaces];
    };

    // Looks at the modules. Once, before anything else.
    static void Start();

    // Memory for a record that a child process shares.
    static CRecord* MakeRecord();

    // Counts from now on, and fails the allocation number `occurrence` (from 1) of the place `hash`, 0 for none.
    static void SwitchOn(CRecord& record, std::uint64_t hash, unsigned int occurrence);
    static void SwitchOff();

    static void Print(const CPlace& place);
};

// The test's own code: its allocations neither count nor fail. The main thread begins as one. CLibraryScope is a call
// into the library from there.
class CTestScope
{
public:
    CTestScope();
    ~CTestScope();
    CTestScope(const CTestScope&) = delete;
    CTestScope& operator=(const CTestScope&) = delete;

private:
    const bool m_bBefore;
};

class CLibraryScope
{
public:
    CLibraryScope();
    ~CLibraryScope();
    CLibraryScope(const CLibraryScope&) = delete;
    CLibraryScope& operator=(const CLibraryScope&) = delete;

private:
    const bool m_bBefore;
};

#endif
