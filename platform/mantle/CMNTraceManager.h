// The trace manager.
#ifndef MANTLE_CMNTRACEMANAGER_H
#define MANTLE_CMNTRACEMANAGER_H

#include "CMNMutexRecursive.h"
#include "mantle/IMNTraceManager.h"

namespace mantle
{

class CMNTraceManager : public IMNTraceManager
{
public:
    IMNTraceSink* SetSink(IMNTraceSink* sink) override;
    void Trace(int level, const char* text) override;

private:
    CMNMutexRecursive m_Mutex;  // held while the sink runs: one line at a time, and no line after SetSink
    IMNTraceSink* m_pSink MN_GUARDED_BY(m_Mutex) = nullptr;
};

}  // namespace mantle

#endif
