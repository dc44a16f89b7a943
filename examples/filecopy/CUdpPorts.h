// Two ends of a UDP path on this machine.
#ifndef FILECOPY_CUDPPORTS_H
#define FILECOPY_CUDPPORTS_H

#include <string>

// Free a moment ago. Below those that systems give out themselves, and other ones in every process, so that nobody
// takes them before they are used. Throws std::runtime_error.
struct CUdpPorts
{
    CUdpPorts();

    std::string m_strOne;  // as 127.0.0.1:20000
    std::string m_strTwo;
};

#endif
