// What a protocol connector tells its wrapper.
#ifndef TESTS_UNIT_DOUBLES_CRECORDINGWRAPPER_H
#define TESTS_UNIT_DOUBLES_CRECORDINGWRAPPER_H

#include <string>

#include "connector/IPSConnectorInternal.h"
#include "mantle/CMNReferenceControl.h"
#include "tests/unit/scripted/CScriptedStack.h"
#include "uxport/IPSTransport.h"

// "Wrapper(0,transport)", "Wrapper(10001,null)". Holds the transport during the call, as the wrapper does.
class CRecordingWrapper
{
public:
    uxport::MNResult OnConnectIndication(long reason, uxport::IPSTransport* transport,
                                         uxport::IPSConnectorInternal* from)
    {
        CScriptedStack::Instance().Note("Wrapper(" + std::to_string(reason) + "," + (transport ? "transport" : "null") +
                                        ")");
        const mantle::CMNAutoPtr<uxport::IPSTransport> hold(transport);
        m_pFrom = from;
        if (m_bKeep)
            m_pKept = transport;
        if (m_bDelete)
            delete from;
        return m_dwAnswer;
    }

    uxport::IPSConnectorInternal* m_pFrom = nullptr;
    mantle::CMNAutoPtr<uxport::IPSTransport> m_pKept;
    bool m_bKeep = false;
    bool m_bDelete = false;
    uxport::MNResult m_dwAnswer = 77;
};

#endif
