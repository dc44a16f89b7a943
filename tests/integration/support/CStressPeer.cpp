#include "tests/integration/support/CStressPeer.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/integration/support/CNetwork.h"

using namespace uxport;

namespace
{

using CTransportPtr = mantle::CMNAutoPtr<IPSTransport>;

char ByteAt(std::uint8_t key, std::uint64_t position)
{
    return static_cast<char>(key + position % 251);
}

void SendText(IPSTransport& transport, const std::string& text)
{
    CMNMessageBlock block(text.size(), text.data(), CMNMessageBlock::DONT_DELETE, text.size());
    CPSTransportParameter param;
    EXPECT_EQ(MN_OK, transport.SendData(block, &param));
    EXPECT_EQ(0U, block.GetChainedLength());
}

// Sends on another thread and brings the transport back to its owner, whether or not it has run.
class CLentSend : public IMNEvent
{
public:
    CLentSend(mantle::CMNThread& owner, CTransportPtr transport, std::string text, std::shared_ptr<bool> lent)
        : m_Owner(owner), m_pTransport(std::move(transport)), m_strText(std::move(text)), m_pLent(std::move(lent))
    {
    }
    ~CLentSend() override
    {
        m_Owner.PostEvent(new CWorkEvent([transport = std::move(m_pTransport), lent = std::move(m_pLent)]() mutable {
            *lent = false;
            transport = nullptr;
        }));
    }

    MNResult OnEventFire() override
    {
        SendText(*m_pTransport, m_strText);
        return MN_OK;
    }

private:
    mantle::CMNThread& m_Owner;
    CTransportPtr m_pTransport;
    std::string m_strText;
    std::shared_ptr<bool> m_pLent;
};

}  // namespace

CStressPeer::CStressPeer(unsigned long ownerThread, bool client, std::uint8_t key, std::function<void()> ended)
    : m_dwOwner(ownerThread), m_bClient(client), m_byKey(key), m_fEnded(std::move(ended))
{
}

void CStressPeer::Open(IPSTransport* transport)
{
    m_pTransport = transport;
    EXPECT_EQ(MN_OK, transport->OpenWithSink(this));
}

void CStressPeer::Send(std::uint64_t length, ESend how, mantle::CMNThread& owner, mantle::CMNThread& other)
{
    if (!m_pTransport || *m_pLent || m_qwSent - m_qwReceived + length > s_qwMaxUnanswered)
        return;
    std::string text(length, '\0');
    for (char& byte : text)
        byte = ByteAt(m_byKey, m_qwSent++);
    if (how == ESend::OWNER)
        return SendText(*m_pTransport, text);
    *m_pLent = true;
    auto* event = new CLentSend(owner, m_pTransport, std::move(text), m_pLent);
    if (how == ESend::OTHER) {
        EXPECT_EQ(MN_OK, other.PostEvent(event));
    } else {
        EXPECT_EQ(MN_OK, IPSConnectionManager::Instance()->GetReactor()->PostEvent(event));
    }
}

void CStressPeer::Disconnect()
{
    if (!m_pTransport)
        return;
    EXPECT_EQ(MN_OK, m_pTransport->Disconnect(0));
    m_bSilent = true;
    m_pTransport = nullptr;
}

void CStressPeer::Check() const
{
    EXPECT_FALSE(m_bSilent) << "after the end";
    EXPECT_TRUE(mantle::CMNThreadManager::IsEqualCurrentThread(m_dwOwner));
}

MNResult CStressPeer::OnReceive(CMNMessageBlock& data, IPSTransport* transport, CPSTransportParameter*)
{
    Check();
    std::string text(data.GetChainedLength(), '\0');
    data.PeekChained(text.data(), text.size());
    bool right = true;
    for (const char byte : text) {
        if (!m_bClient && m_qwReceived == 0)
            m_byKey = static_cast<std::uint8_t>(byte);
        right = right && byte == ByteAt(m_byKey, m_qwReceived++);
    }
    EXPECT_TRUE(right);
    if (!m_bClient) {
        EXPECT_EQ(MN_OK, transport->SendData(data, nullptr));
    }
    return MN_OK;
}

MNResult CStressPeer::OnSend(IPSTransport*, CPSTransportParameter*)
{
    Check();
    return MN_OK;
}

MNResult CStressPeer::OnDisconnect(long, IPSTransport*)
{
    Check();
    m_bSilent = true;
    m_pTransport = nullptr;
    m_fEnded();
    return MN_OK;
}
