// The entry point: makes UDP transports.
#ifndef CONNHUB_CMNCONNECTIONMANAGER_H
#define CONNHUB_CMNCONNECTIONMANAGER_H

#include <memory>

#include "connhub/CHDefines.h"
#include "mantle/CMNSingleton.h"

namespace connhub
{

class IMNUDPTransport;
class IMNUDPTransportSink;

// One in a process, with one background thread for all transports, started with the first of them. The clean-up at the
// end of the process ends the thread and closes what is still open; transports that are released later do no harm, and
// this object stays valid to the end of the process.
class CONNHUB_API CMNConnectionManager : public mantle::CMNLasting
{
public:
    // Thread: any. Returns: null once the clean-up has ended it.
    static CMNConnectionManager* Instance();

    // A new transport that reports to `sink`, which must outlive it; it is not open yet. Thread: any.
    // Owns: `transport` carries one reference, which the caller gives back. Returns: 0; MN_ERROR_INVALID_ARG for a null
    // sink; MN_ERROR_FAILURE when there is no background thread to be had, as after the clean-up. `transport` is null
    // then.
    mantle::MNResult CreateUDPTransport(IMNUDPTransportSink* sink, IMNUDPTransport*& transport);

    // The clean-up's: ends the thread and closes what is open.
    void End() override;

    CMNConnectionManager(const CMNConnectionManager&) = delete;
    CMNConnectionManager& operator=(const CMNConnectionManager&) = delete;

private:
    friend class mantle::CMNSingletonT<CMNConnectionManager>;
    CMNConnectionManager();
    ~CMNConnectionManager() override;

    class CImpl;
    std::unique_ptr<CImpl> m_pImpl;
};

}  // namespace connhub

#endif
