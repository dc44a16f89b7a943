#include "uxport/CLowlevelP2PTransport.h"

#include <utility>

#include "connhub/CMNConnectionManager.h"
#include "mantle/CMNMessageBlock.h"

namespace uxport
{

namespace
{

using CTransportPtr = mantle::CMNAutoPtr<connhub::IMNUDPTransport>;

}  // namespace

CLowlevelP2PTransport::CLowlevelP2PTransport() = default;

CLowlevelP2PTransport::~CLowlevelP2PTransport()
{
    CTransportPtr old;
    mantle::CMNMutexGuard guard(m_Mutex);
    std::swap(old, m_pTransport);
    // Released when the mutex has been given up: `old` was made before the guard.
}

unsigned long CLowlevelP2PTransport::Open(ipstack::IIPStack* stack, const mantle::CMNString& remoteHost,
                                          unsigned short remotePort, const mantle::CMNString& localHost,
                                          unsigned short localPort)
{
    const CMNInetAddr destination(remoteHost, remotePort);
    const CMNInetAddr local(localHost, localPort);
    CTransportPtr old;
    {
        mantle::CMNMutexGuard guard(m_Mutex);
        m_pStack = stack;
        m_Destination = destination;
        std::swap(old, m_pTransport);
    }
    // The address must be free before the new socket asks for it.
    old.ParaOut();

    connhub::CMNConnectionManager* manager = connhub::CMNConnectionManager::Instance();
    CTransportPtr transport;
    if (!manager || manager->CreateUDPTransport(this, transport.ParaOut()) != MN_OK)
        return MN_OK;
    transport->Open(local);
    mantle::CMNMutexGuard guard(m_Mutex);
    std::swap(transport, m_pTransport);
    return MN_OK;
}

unsigned long CLowlevelP2PTransport::IPStackLowLevelOutput(const char* data, unsigned long length, unsigned char)
{
    mantle::CMNMutexGuard guard(m_Mutex);
    if (m_pTransport)
        m_pTransport->SendTo(data, length, m_Destination);
    return MN_OK;
}

unsigned long CLowlevelP2PTransport::OnReceive(CMNMessageBlock& data, const CMNInetAddr&)
{
    ipstack::IIPStack* stack = nullptr;
    {
        mantle::CMNMutexGuard guard(m_Mutex);
        stack = m_pStack;
    }
    return stack ? stack->Input(data.GetReadPtr(), data.GetLength()) : MN_ERROR_NULL_POINTER;
}

}  // namespace uxport
