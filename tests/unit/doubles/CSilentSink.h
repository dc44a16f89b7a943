// A transport's sink that keeps nothing.
#ifndef TESTS_UNIT_DOUBLES_CSILENTSINK_H
#define TESTS_UNIT_DOUBLES_CSILENTSINK_H

#include <functional>

#include "uxport/IPSTransportSink.h"

class CSilentSink : public uxport::IPSTransportSink
{
public:
    using MNResult = uxport::MNResult;

    MNResult OnReceive(uxport::CMNMessageBlock&, uxport::IPSTransport*, uxport::CPSTransportParameter*) override
    {
        if (m_AtReceive)
            m_AtReceive();
        return uxport::MN_OK;
    }
    MNResult OnSend(uxport::IPSTransport*, uxport::CPSTransportParameter*) override { return uxport::MN_OK; }
    MNResult OnDisconnect(long, uxport::IPSTransport*) override { return uxport::MN_OK; }

    std::function<void()> m_AtReceive;
};

#endif
