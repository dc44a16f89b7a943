#include "unit/connhub/SystemCalls.h"

#include <dlfcn.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>

namespace
{

std::atomic<int> s_nToRefuse{0};
std::atomic<int> s_nError{0};
std::atomic<int> s_nSegmentedError{0};
std::atomic<int> s_nRefused{0};

bool Refuse(bool segmented)
{
    if (segmented && s_nSegmentedError.load() != 0) {
        ++s_nRefused;
        errno = s_nSegmentedError.load();
        return true;
    }
    int left = s_nToRefuse.load();
    while (left > 0 && !s_nToRefuse.compare_exchange_weak(left, left - 1)) {
    }
    if (left <= 0)
        return false;
    ++s_nRefused;
    errno = s_nError.load();
    return true;
}

template <class Function>
Function* Next(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

void CSystemCalls::RefuseNext(int calls, int error)
{
    s_nError.store(error);
    s_nToRefuse.store(calls);
}

void CSystemCalls::RefuseSegmented(int error)
{
    s_nSegmentedError.store(error);
}

void CSystemCalls::Reset()
{
    s_nToRefuse.store(0);
    s_nSegmentedError.store(0);
    s_nRefused.store(0);
}

int CSystemCalls::GetRefused()
{
    return s_nRefused.load();
}

extern "C" {

__attribute__((visibility("default"))) ssize_t sendto(int handle, const void* data, size_t length, int flags,
                                                      const sockaddr* to, socklen_t toLength)
{
    static auto* const s_Next = Next<decltype(sendto)>("sendto");
    return Refuse(false) ? -1 : s_Next(handle, data, length, flags, to, toLength);
}

__attribute__((visibility("default"))) int sendmmsg(int handle, mmsghdr* messages, unsigned int count, int flags)
{
    static auto* const s_Next = Next<decltype(sendmmsg)>("sendmmsg");
    return Refuse(count != 0 && messages[0].msg_hdr.msg_controllen != 0) ? -1 : s_Next(handle, messages, count, flags);
}

}  // extern "C"
