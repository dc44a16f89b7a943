// What the examples share: main as a user thread, the stack, one network thread.
#ifndef EXAMPLES_SUPPORT_CEXAMPLE_H
#define EXAMPLES_SUPPORT_CEXAMPLE_H

#include <functional>
#include <string>

#include <ipstack/ipstack.h>
#include <mantle/mantle.h>
#include <uxport/uxport.h>

class CExample
{
public:
    // Adopts main, starts the stack and the manager. Call it first. Returns: false with a line on standard error.
    static bool Start();

    // Runs main's loop until Stop, or until the user or the system asks the program to end (SIGINT, SIGTERM).
    static void Run();
    static void Stop();

    // Runs `function` on the network thread and waits for it. Returns: what it returned.
    static uxport::MNResult OnNetworkThread(std::function<uxport::MNResult()> function);

    // Say what is missing on standard error and return the exit status for it.
    static int Fail(const std::string& what, uxport::MNResult result);
};

// A sink for both, whose answers nobody reads; what an example does not need stays as it is here.
class CExampleSink : public uxport::IPSAcceptorConnectorSink, public uxport::IPSTransportSink
{
public:
    using MNResult = uxport::MNResult;

    MNResult OnReceive(uxport::CMNMessageBlock&, uxport::IPSTransport*, uxport::CPSTransportParameter*) override
    {
        return uxport::MN_OK;
    }
    MNResult OnSend(uxport::IPSTransport*, uxport::CPSTransportParameter*) override { return uxport::MN_OK; }
    MNResult OnDisconnect(long, uxport::IPSTransport*) override { return uxport::MN_OK; }
};

#endif
