#include "tests/integration/support/CPeer.h"

#include <gtest/gtest.h>

#include "ipstack/ps_socket.h"

using namespace uxport;

CPeer::~CPeer()
{
    m_Network.Run([this] { Drop(); });
}

void CPeer::Take(IPSTransport* transport, bool open)
{
    m_pTransport = transport;
    if (open) {
        EXPECT_EQ(MN_OK, transport->OpenWithSink(this));
    }
}

void CPeer::Send(const std::string& text)
{
    CMNMessageBlock block(text.size(), text.data(), CMNMessageBlock::DONT_DELETE, text.size());
    Send(block);
}

void CPeer::Send(CMNMessageBlock& data)
{
    if (m_pPending) {
        m_pPending->Append(data.DuplicateChained());
        return;
    }
    ASSERT_TRUE(m_pTransport);
    const MNResult result = m_pTransport->SendData(data, nullptr);
    if (result == MN_ERROR_PARTIAL_DATA) {
        ++m_nRefused;
        m_pPending = data.DuplicateChained();
    } else {
        EXPECT_EQ(MN_OK, result);
    }
}

void CPeer::SendPending()
{
    if (!m_pPending)
        return;
    const MNResult result = m_pTransport->SendData(*m_pPending, nullptr);
    if (result == MN_ERROR_PARTIAL_DATA) {
        ++m_nRefused;
        return;
    }
    EXPECT_EQ(MN_OK, result);
    ForgetPending();
}

void CPeer::ForgetPending()
{
    if (m_pPending)
        m_pPending->DestroyChained();
    m_pPending = nullptr;
}

void CPeer::Drop()
{
    ForgetPending();
    if (m_pTransport) {
        EXPECT_EQ(MN_OK, m_pTransport->Disconnect(0));
    }
    m_pTransport = nullptr;
}

void CPeer::Reset()
{
    std::int32_t handle = PS_INVALID_HANDLE;
    EXPECT_EQ(MN_OK, m_pTransport->GetOption(OPT_FD, &handle));
    const std::int32_t linger[] = {1, 0};  // on, no time: the close aborts
    EXPECT_EQ(0, ps_setsockopt(handle, PS_SOL_SOCKET, PS_SO_LINGER, linger, sizeof linger));
    Drop();
}

MNResult CPeer::OnReceive(CMNMessageBlock& data, IPSTransport* transport, CPSTransportParameter* param)
{
    EXPECT_EQ(m_pTransport.Get(), transport);
    EXPECT_EQ(nullptr, param);
    EXPECT_EQ(0, m_nOnDisconnect) << "data after the end";
    m_qwReceived += data.GetLength();
    if (m_bKeep)
        m_strReceived.append(data.GetReadPtr(), data.GetLength());
    CNetwork& network = m_Network;
    if (m_bEcho)
        Send(data);
    if (m_fOnReceive) {
        const auto function = m_fOnReceive;
        function(data);
    }
    network.Poke();
    return MN_OK;
}

MNResult CPeer::OnSend(IPSTransport* transport, CPSTransportParameter* param)
{
    EXPECT_EQ(m_pTransport.Get(), transport);
    EXPECT_EQ(nullptr, param);
    ++m_nOnSend;
    SendPending();
    CNetwork& network = m_Network;
    if (m_fOnSend) {
        const auto function = m_fOnSend;
        function();
    }
    network.Poke();
    return MN_OK;
}

MNResult CPeer::OnDisconnect(long reason, IPSTransport* transport)
{
    EXPECT_EQ(m_pTransport.Get(), transport);
    ++m_nOnDisconnect;
    m_lReason = reason;
    ForgetPending();
    CNetwork& network = m_Network;
    if (m_fOnDisconnect) {
        const auto function = m_fOnDisconnect;
        function();
    }
    network.Poke();
    return MN_OK;
}
