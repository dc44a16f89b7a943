#include "CMNTraceManager.h"

#include <cstdio>

#include "CMNThreadLocal.h"

namespace mantle
{

IMNTraceManager* IMNTraceManager::Instance()
{
    static CMNTraceManager* const s_pInstance = new CMNTraceManager;
    return s_pInstance;
}

IMNTraceSink* CMNTraceManager::SetSink(IMNTraceSink* sink)
{
    CMNMutexGuardT<CMNMutexRecursive> guard(m_Mutex);
    IMNTraceSink* before = m_pSink;
    m_pSink = sink;
    return before;
}

// A line that the sink itself writes goes to standard error.
void CMNTraceManager::Trace(int level, const char* text)
{
    if (!text)
        return;
    CMNThreadLocal& local = CMNThreadLocal::Get();
    CMNMutexGuardT<CMNMutexRecursive> guard(m_Mutex);
    ++local.m_dwInTrace;
    if (m_pSink && local.m_dwInTrace == 1)
        m_pSink->OnTrace(level, text);
    else
        std::fprintf(stderr, "[%d] %s\n", level, text);
    --local.m_dwInTrace;
}

}  // namespace mantle
