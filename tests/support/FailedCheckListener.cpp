// Turns every failed single-thread check into a failure of the running case. A case that expects one installs
// its own handler with CMNEnsureSingleThread::SetHandler and puts back what that returned.
#include <gtest/gtest.h>

#include "mantle/CMNEnsureSingleThread.h"

namespace
{

void FailCase(const mantle::CMNSingleThreadReport& report)
{
    ADD_FAILURE() << "single-thread check failed in " << (report.m_szPlace ? report.m_szPlace : "?")
                  << ": bound to thread " << report.m_dwBoundThread << ", called on " << report.m_dwThisThread;
}

class CFailedCheckEnvironment : public testing::Environment
{
public:
    void SetUp() override { mantle::CMNEnsureSingleThread::SetHandler(&FailCase); }
};

const testing::Environment* const s_pEnvironment = testing::AddGlobalTestEnvironment(new CFailedCheckEnvironment);

}  // namespace
