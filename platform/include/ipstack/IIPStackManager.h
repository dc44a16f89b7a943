// Start of the stack, its links and its counters.
#ifndef IPSTACK_IIPSTACKMANAGER_H
#define IPSTACK_IIPSTACKMANAGER_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "ipstack/IIPStack.h"

namespace ipstack
{

// Settings that hold for the life of the process.
struct CIPStackSettings
{
    // Sockets open at once, accepted ones included. A poll reactor watches no more than the default.
    unsigned int m_dwMaxSockets = 8192;
};

// One link.
struct CIPStackConfig
{
    std::string m_strAddress;  // own IPv4 address, dotted
    std::string m_strMask = "255.255.255.0";
    std::string m_strGateway;     // empty: none
    std::string m_strAddress6;    // own IPv6 address, empty: none
    unsigned int m_dwMtu = 1400;  // 576 to 65535, from 1280 with IPv6
};

// One named counter of a snapshot.
struct CIPStackCounter
{
    const char* m_szName;  // "layer.what", static storage
    std::uint64_t m_qwValue;
};

// The stack of this process.
class IPSTACK_API IIPStackManager
{
public:
    static IIPStackManager* Instance();

    // Starts the stack; once in a process. Thread: any. Returns: 0; MN_ERROR_ALREADY_INITIALIZED when it is started
    // already.
    virtual unsigned long Startup(const CIPStackSettings& settings) = 0;

    // Prepares the calling thread for using the stack; a network thread calls it before its reactor opens.
    virtual unsigned long AttachThread() = 0;

    // Whether Startup has succeeded. Thread: any.
    virtual bool IsInitialized() = 0;

    // Makes a link and gives its output to `lowLevel`, which must outlive it.
    // Returns: 0; MN_ERROR_NOT_INITIALIZED before Startup; MN_ERROR_INVALID_ARG for an address, mask, gateway or MTU
    // that is none, a null `lowLevel`, or an address that another link has.
    virtual unsigned long CreateStack(const CIPStackConfig& config, IIPStackLowLevel* lowLevel, IIPStack*& stack) = 0;

    // Takes a link down: waits for running output and input of other threads, aborts its TCP connections and
    // frees it. Not from inside its own output. Packets that its low level still hands in are answered
    // MN_ERROR_NOT_INITIALIZED from then on, so that the low level is ended after it and not before; the object of the
    // link stays for that until many others have been taken down. Returns: 0; MN_ERROR_INVALID_ARG for a link that is
    // none.
    virtual unsigned long DestroyStack(IIPStack* stack) = 0;

    // Writes up to `room` counters and returns how many there are. Thread: any.
    virtual std::size_t GetCounters(CIPStackCounter* counters, std::size_t room) = 0;

protected:
    virtual ~IIPStackManager() = default;
};

}  // namespace ipstack

#endif
