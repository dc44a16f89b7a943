#include "CIPAssertion.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "CIPCounters.h"
#include "arch/cc.h"
#include "mantle/CMNClock.h"
#include "mantle/CMNMutexThread.h"
#include "mantle/IMNTraceManager.h"

namespace ipstack
{

namespace
{

constexpr long long TraceIntervalUs = 1000000;
constexpr std::size_t TextRoom = 256;

mantle::CMNMutexThread s_Mutex;
char s_szLast[TextRoom] MN_GUARDED_BY(s_Mutex) = "";
long long s_llLastTraceUs MN_GUARDED_BY(s_Mutex) = 0;
bool s_bTraced MN_GUARDED_BY(s_Mutex) = false;
std::atomic<bool> s_bPending{false};
std::atomic<bool> s_bAbort{false};

}  // namespace

void CIPAssertion::Record(const char* message, const char* file, int line)
{
    const char* slash = std::strrchr(file, '/');
    CIPCounters::Add(CIPCounters::AssertionFailed);
    {
        mantle::CMNMutexGuard guard(s_Mutex);
        mantle::Text_Formator text(s_szLast, sizeof(s_szLast));
        text << (slash == nullptr ? file : slash + 1) << ':' << line << ": " << message;
        if (s_bAbort.load(std::memory_order_relaxed)) {
            std::fprintf(stderr, "%s\n", s_szLast);
            std::abort();
        }
    }
    s_bPending.store(true, std::memory_order_release);
}

void CIPAssertion::TracePending()
{
    if (!s_bPending.load(std::memory_order_relaxed)) {
        return;
    }
    char text[TextRoom + 32];
    {
        mantle::CMNMutexGuard guard(s_Mutex);
        const long long now = mantle::CMNClock::NowUs();
        if (s_bTraced && now - s_llLastTraceUs < TraceIntervalUs) {
            return;
        }
        s_bPending.store(false, std::memory_order_relaxed);
        s_bTraced = true;
        s_llLastTraceUs = now;
        mantle::Text_Formator(text, sizeof(text)) << "ipstack: assertion failed: " << s_szLast;
    }
    mantle::IMNTraceManager::Instance()->Trace(0, text);
}

std::string CIPAssertion::GetLastText()
{
    mantle::CMNMutexGuard guard(s_Mutex);
    return s_szLast;
}

void CIPAssertion::SetAbort(bool on) noexcept
{
    s_bAbort.store(on, std::memory_order_relaxed);
}

}  // namespace ipstack

extern "C" void uxport_ipstack_assertion(const char* message, const char* file, int line)
{
    ipstack::CIPAssertion::Record(message, file, line);
}
