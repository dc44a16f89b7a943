// How far it is, on standard error.
#ifndef FILECOPY_CPROGRESSLINE_H
#define FILECOPY_CPROGRESSLINE_H

#include "CFileFetcher.h"

// A bar that is rewritten in place on a terminal; elsewhere a plain line for each quarter.
class CProgressLine
{
public:
    CProgressLine();
    void Show(const CFileFetcher::CState& state);
    void End(const CFileFetcher::CState& state);

    // In megabytes (10^6 bytes) a second.
    static double GetRate(const CFileFetcher::CState& state);

private:
    const bool m_bTerminal;
    int m_nQuarter = 0;
};

#endif
