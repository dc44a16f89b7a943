#include "transport/CPSTransportBase.h"

#include <cstdint>
#include <optional>

#include "mantle/CMNMessageBlock.h"
#include "socket/CPSSocketBase.h"
#include "transport/PSReceiveBlock.h"
#include "uxport/IPSTransportSink.h"

namespace uxport
{

namespace
{

// Only an answer that is negative as a 64-bit number counts as a failure, which no result code is.
MNResult AddressResult(MNResult result)
{
    return static_cast<std::int64_t>(result) < 0 ? MN_ERROR_FAILURE : MN_OK;
}

}  // namespace

MNResult CPSTransportBase::OpenWithSink(IPSTransportSink* sink)
{
    if (!sink)
        return MN_ERROR_INVALID_ARG;
    const bool opened = m_pSink != nullptr;
    m_pSink = sink;
    if (opened)
        return MN_OK;
    const MNResult result = Open_t();
    if (result != MN_OK) {
        Close_t(0);
        m_pSink = nullptr;
    }
    return result;
}

MNResult CPSTransportBase::Disconnect(long reason)
{
    const MNResult result = Close_t(reason);
    m_pSink = nullptr;
    return result;
}

int CPSTransportBase::OnClose(int, long)
{
    Close_t(0);
    IPSTransportSink* sink = m_pSink;
    m_pSink = nullptr;
    if (sink)
        sink->OnDisconnect(static_cast<long>(MN_ERROR_FAILURE), this);
    return 0;
}

int CPSTransportBase::Receive_i(CPSSocketBase& socket)
{
    for (int receives = 0; receives < s_nMaxReceives; ++receives) {
        std::optional<CMNMessageBlock> block;
        if (!PSMakeBlock(block, s_dwReceiveSize))
            return 0;  // the data stays where it is until the next turn
        const long received = socket.Recv(block->GetWritePtr(), block->GetSpace(), 0);
        if (received <= 0)
            return received == 0 ? 0 : -1;
        block->AdvanceWritePtr(static_cast<unsigned long>(received));
        if (m_pSink)
            m_pSink->OnReceive(*block, this, nullptr);
    }
    return 0;
}

MNResult CPSTransportBase::GetPeerAddr(CMNInetAddr& addr)
{
    return AddressResult(GetOption(OPT_PEER_ADDR, &addr));
}

MNResult CPSTransportBase::GetLocalAddr(CMNInetAddr& addr)
{
    return AddressResult(GetOption(OPT_LOCAL_ADDR, &addr));
}

}  // namespace uxport
