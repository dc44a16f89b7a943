#include "reactor/PSNoMemory.h"

#include <atomic>

#include "mantle/IMNTraceManager.h"

namespace uxport
{

namespace
{

constexpr std::size_t TRACE_LENGTH = 128;

std::atomic<unsigned long> g_dwCount{0};

}  // namespace

void PSReportNoMemory(const char* place) noexcept
{
    const unsigned long count = ++g_dwCount;
    if ((count & (count - 1)) != 0)
        return;
    char buffer[TRACE_LENGTH];
    mantle::Text_Formator text(buffer, sizeof buffer);
    text << "no memory for " << place << ", number " << count;
    mantle::IMNTraceManager::Instance()->Trace(0, text.GetText());
}

unsigned long PSGetNoMemoryCount() noexcept
{
    return g_dwCount.load();
}

}  // namespace uxport
