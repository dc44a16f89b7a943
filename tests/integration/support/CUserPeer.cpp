#include "tests/integration/support/CUserPeer.h"

#include <gtest/gtest.h>

using namespace uxport;

void CUserPeer::Take(IPSTransport* transport, bool open)
{
    m_pTransport = transport;
    if (open) {
        EXPECT_EQ(MN_OK, transport->OpenWithSink(this));
    }
}

void CUserPeer::Send(const std::string& text)
{
    ASSERT_TRUE(m_pTransport);
    CMNMessageBlock block(text.size(), text.data(), CMNMessageBlock::DONT_DELETE, text.size());
    EXPECT_EQ(MN_OK, m_pTransport->SendData(block, nullptr));
    EXPECT_EQ(0U, block.GetChainedLength()) << "all is taken";
}

void CUserPeer::Drop()
{
    if (m_pTransport) {
        EXPECT_EQ(MN_OK, m_pTransport->Disconnect(0));
    }
    m_pTransport = nullptr;
}

void CUserPeer::Check(IPSTransport* transport) const
{
    if (m_pTransport) {
        EXPECT_EQ(m_pTransport.Get(), transport);
    }
    EXPECT_EQ(0, m_nOnDisconnect) << "after the end";
    EXPECT_TRUE(mantle::CMNThreadManager::IsEqualCurrentThread(m_Loop.GetThread().GetThreadId()));
}

MNResult CUserPeer::OnReceive(CMNMessageBlock& data, IPSTransport* transport, CPSTransportParameter*)
{
    Check(transport);
    ++m_nOnReceive;
    const std::size_t length = data.GetChainedLength();
    m_qwReceived += length;
    if (m_bKeep) {
        std::string text(length, '\0');
        data.PeekChained(text.data(), length);
        m_strReceived += text;
    }
    if (m_bEcho) {
        EXPECT_EQ(MN_OK, transport->SendData(data, nullptr));
    }
    if (m_fOnReceive)
        m_fOnReceive(data);
    m_Loop.Poke();
    return MN_OK;
}

MNResult CUserPeer::OnSend(IPSTransport* transport, CPSTransportParameter*)
{
    Check(transport);
    ++m_nOnSend;
    if (m_fOnSend)
        m_fOnSend();
    m_Loop.Poke();
    return MN_OK;
}

MNResult CUserPeer::OnDisconnect(long reason, IPSTransport* transport)
{
    Check(transport);
    ++m_nOnDisconnect;
    m_lReason = reason;
    if (m_fOnDisconnect)
        m_fOnDisconnect();
    m_Loop.Poke();
    return MN_OK;
}
