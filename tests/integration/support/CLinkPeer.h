// The other process of a link test, and this process's end of the link.
#ifndef TESTS_INTEGRATION_SUPPORT_CLINKPEER_H
#define TESTS_INTEGRATION_SUPPORT_CLINKPEER_H

#include <sys/types.h>

#include <string>

#include "ipstack/ipstack.h"
#include "uxport/CLowlevelP2PTransport.h"

// A UDP port of 127.0.0.1 that was free a moment ago, and is not `other`.
unsigned short FindUdpPort(unsigned short other = 0);

// The program uxport_link_peer: an echo server on port 7 of its stack's address.
class CLinkPeer
{
public:
    // Returns when it serves; a program that does not start fails the case.
    CLinkPeer(const std::string& address, unsigned short localPort, unsigned short remotePort);

    // Lets it end and fails the case unless it ends well.
    ~CLinkPeer();
    CLinkPeer(const CLinkPeer&) = delete;
    CLinkPeer& operator=(const CLinkPeer&) = delete;

    // Ends it at once, without a word.
    void Kill();

private:
    void Start(const std::string& address, unsigned short localPort, unsigned short remotePort);

    pid_t m_nProcess = -1;
    int m_nInput = -1;
};

// A link of this process's stack over UDP, with a capture on it. State: the stack has been started.
class CLinkEnd
{
public:
    CLinkEnd(const std::string& address, unsigned short localPort, unsigned short remotePort);
    ~CLinkEnd();
    CLinkEnd(const CLinkEnd&) = delete;
    CLinkEnd& operator=(const CLinkEnd&) = delete;

    ipstack::CIPCapture& GetCapture() { return m_Capture; }

private:
    uxport::CLowlevelP2PTransport m_Link;
    ipstack::CIPCapture m_Capture{m_Link};
    ipstack::IIPStack* m_pStack = nullptr;
};

#endif
