#include "mantle/CMNEnsureSingleThread.h"

#include <map>

#include "CMNThreadLocal.h"
#include "mantle/CMNClock.h"
#include "mantle/CMNMutexThread.h"
#include "mantle/CMNThreadManager.h"
#include "mantle/IMNTraceManager.h"

namespace mantle
{

namespace
{

constexpr long long s_llTracePauseUs = 1000000;  // between two lines for one place
constexpr std::size_t s_nTraceLine = 256;

std::atomic<CMNEnsureSingleThread::FHandler> s_pHandler{nullptr};

// When each place was last traced.
class CPlaces
{
public:
    bool MayTrace(const char* place)
    {
        const long long now = CMNClock::NowUs();
        CMNMutexGuard guard(m_Mutex);
        auto inserted = m_Last.emplace(place, now);
        if (inserted.second)
            return true;
        if (now - inserted.first->second < s_llTracePauseUs)
            return false;
        inserted.first->second = now;
        return true;
    }

private:
    CMNMutexThread m_Mutex;
    std::map<const char*, long long> m_Last MN_GUARDED_BY(m_Mutex);
};

void TraceReport(const CMNSingleThreadReport& report)
{
    static CPlaces* const s_pPlaces = new CPlaces;
    if (!s_pPlaces->MayTrace(report.m_szPlace))
        return;
    char buffer[s_nTraceLine];
    Text_Formator line(buffer, sizeof(buffer));
    line << (report.m_szPlace ? report.m_szPlace : "") << ": used on thread " << report.m_dwThisThread
         << ", belongs to thread " << report.m_dwBoundThread;
    IMNTraceManager::Instance()->Trace(0, line.GetText());
}

}  // namespace

void CMNEnsureSingleThread::SetToCurrentThread() noexcept
{
    SetToThread(CMNThreadManager::GetThreadSelfId());
}

bool CMNEnsureSingleThread::IsSatisfied() const noexcept
{
    const unsigned long bound = GetThread();
    return bound == 0 || bound == CMNThreadManager::GetThreadSelfId() || CMNThreadLocal::Get().m_bCleanUp;
}

bool CMNEnsureSingleThread::EnsureSingleThread(const char* place) const
{
    if (IsSatisfied())
        return true;
    Report(CMNSingleThreadReport{place, GetThread(), CMNThreadManager::GetThreadSelfId()});
    return false;
}

CMNEnsureSingleThread::FHandler CMNEnsureSingleThread::SetHandler(FHandler handler) noexcept
{
    return s_pHandler.exchange(handler);
}

void CMNEnsureSingleThread::Report(const CMNSingleThreadReport& report)
{
    if (FHandler handler = s_pHandler.load())
        handler(report);
    else
        TraceReport(report);
}

}  // namespace mantle
