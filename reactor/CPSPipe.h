// A connected pair of stack sockets that serves as a pipe.
#ifndef UXPORT_REACTOR_CPSPIPE_H
#define UXPORT_REACTOR_CPSPIPE_H

#include <atomic>

#include "uxport/PSDefines.h"

namespace uxport
{

class CPSPipe
{
public:
    // Bytes that either end may hold: whole wake-up records.
    static constexpr int s_nBufferSize = 4095 * 16;

    CPSPipe() = default;
    CPSPipe(const CPSPipe&) = delete;
    CPSPipe& operator=(const CPSPipe&) = delete;
    ~CPSPipe() { Close(); }

    // Connects the two ends through a listener on 127.0.0.1:5555, which stays open for the life of the process.
    // Thread: any; one pipe at a time is opened in the process. Returns: 0; MN_ERROR_FAILURE when a step failed,
    // nothing of the pipe is then open.
    MNResult Open();

    // Returns: 0, also when it is closed; MN_ERROR_FAILURE when a close failed; both ends are then -1 all the same.
    MNResult Close();

    // -1 when closed. Thread: any.
    int GetReadHandle() const { return m_nRead.load(std::memory_order_acquire); }
    int GetWriteHandle() const { return m_nWrite.load(std::memory_order_acquire); }

private:
    MNResult Connect_i(int listener);
    static int Accept_i(int listener, const CMNInetAddr& own);

    std::atomic<int> m_nRead{PS_INVALID_HANDLE};
    std::atomic<int> m_nWrite{PS_INVALID_HANDLE};
};

}  // namespace uxport

#endif
