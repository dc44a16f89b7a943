#include "CProgressLine.h"

#include <cstdio>
#include <string>

#include <unistd.h>

namespace
{

constexpr double MEGABYTE = 1e6;
constexpr int WIDTH = 30;

}  // namespace

CProgressLine::CProgressLine() : m_bTerminal(isatty(STDERR_FILENO) != 0) {}

void CProgressLine::Show(const CFileFetcher::CState& state)
{
    if (state.m_qwTotal == 0)
        return;
    const double part = static_cast<double>(state.m_qwBytes) / static_cast<double>(state.m_qwTotal);
    const int quarter = static_cast<int>(part * 4);
    if (!m_bTerminal && quarter == m_nQuarter)
        return;
    m_nQuarter = quarter;
    if (m_bTerminal) {
        const auto full = static_cast<std::size_t>(part * WIDTH);
        const std::string bar = std::string(full, '#') + std::string(WIDTH - full, '.');
        std::fprintf(stderr, "\r[%s] ", bar.c_str());
    }
    std::fprintf(stderr, "%3.0f %%  %.1f of %.1f MB  %.1f MB/s%s", part * 100,
                 static_cast<double>(state.m_qwBytes) / MEGABYTE, static_cast<double>(state.m_qwTotal) / MEGABYTE,
                 GetRate(state), m_bTerminal ? "  " : "\n");
}

void CProgressLine::End(const CFileFetcher::CState& state)
{
    Show(state);
    if (m_bTerminal && state.m_qwTotal != 0)
        std::fputc('\n', stderr);
}

double CProgressLine::GetRate(const CFileFetcher::CState& state)
{
    const double seconds = static_cast<double>(state.m_llMicroseconds) / 1e6;
    return seconds > 0 ? static_cast<double>(state.m_qwBytes) / MEGABYTE / seconds : 0;
}
