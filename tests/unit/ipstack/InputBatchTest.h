// What the cases of packets handed in during a burst share.
#ifndef TESTS_UNIT_IPSTACK_INPUTBATCHTEST_H
#define TESTS_UNIT_IPSTACK_INPUTBATCHTEST_H

#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "PacketMaker.h"
#include "SocketSupport.h"
#include "ipstack/ipstack.h"
#include "mantle/CMNBurst.h"
#include "mantle/MNDefines.h"
#include "platform/ipstack/CIPAnswerLimit.h"

namespace inputbatch
{

using ipstack::IIPStack;
using ipstack::IIPStackManager;
using packetmaker::CBytes;
using packetmaker::CPacket;

constexpr const char* s_szPeer = "10.8.9.9";
constexpr std::uint16_t s_wPort = 4242;

// Keeps what the link sends, and may do something with it.
class CBelow : public ipstack::IIPStackLowLevel
{
public:
    unsigned long IPStackLowLevelOutput(const char* data, unsigned long length, unsigned char) override
    {
        m_bInBurst = mantle::CMNBurst::IsOpen();
        m_Sent.emplace_back(data, data + length);
        if (m_fOnOutput) {
            m_fOnOutput(m_Sent.back());
        }
        return 0;
    }

    std::vector<CPacket> m_Sent;
    bool m_bInBurst = false;
    std::function<void(const CPacket&)> m_fOnOutput;
};

inline IIPStack* MakeLink(CBelow& below, const char* address)
{
    ipstack::CIPStackConfig config;
    config.m_strAddress = address;
    IIPStack* stack = nullptr;
    EXPECT_EQ(IIPStackManager::Instance()->CreateStack(config, &below, stack), 0u);
    return stack;
}

inline CPacket Ping(const char* to, std::uint16_t id)
{
    return packetmaker::Make4({s_szPeer, to, 1}, packetmaker::Echo4(id, CBytes(8)));
}

inline CPacket Datagram(const char* to, const std::string& text)
{
    const packetmaker::CHeader4 header{s_szPeer, to};
    return packetmaker::Make4(header, packetmaker::Udp4(header, 1000, s_wPort, CBytes(text.begin(), text.end())));
}

inline unsigned long Input(IIPStack* stack, const CPacket& packet)
{
    return stack->Input(reinterpret_cast<const char*>(packet.data()), packet.size());
}

// The identifier of an answered ping.
inline unsigned int IdOf(const CPacket& packet)
{
    return static_cast<unsigned int>(packet[24]) << 8 | packet[25];
}

class InputBatchTest : public testing::Test
{
protected:
    InputBatchTest()
    {
        socketsupport::Start();
        // Pings are what these cases count with.
        ipstack::CIPAnswerLimit::SetMost(ipstack::CIPAnswerLimit::EchoReply, {1000000, 1000000});
        m_pLinkA = MakeLink(m_BelowA, "10.8.0.1");
        m_pLinkB = MakeLink(m_BelowB, "10.8.1.1");
    }

    ~InputBatchTest() override
    {
        for (IIPStack* link : {m_pLinkA, m_pLinkB}) {
            if (link) {
                EXPECT_EQ(IIPStackManager::Instance()->DestroyStack(link), 0u);
            }
        }
        if (m_nSocket > 0) {
            ps_close(m_nSocket);
        }
    }

    // A socket that gets the datagrams of both links.
    void MakeSocket()
    {
        m_nSocket = ps_socket(PS_AF_INET, PS_SOCK_DGRAM, 0);
        ASSERT_GT(m_nSocket, 0);
        ASSERT_EQ(ps_socket_nonblock(m_nSocket), 0);
        ps_sockaddr_in any{};
        any.sin_len = sizeof(any);
        any.sin_family = PS_AF_INET;
        any.sin_port = static_cast<std::uint16_t>(s_wPort << 8 | s_wPort >> 8);
        ASSERT_EQ(ps_bind(m_nSocket, reinterpret_cast<const ps_sockaddr*>(&any), sizeof(any)), 0);
    }

    std::string Receive() const
    {
        char text[100];
        const long length = ps_recv(m_nSocket, text, sizeof(text), 0);
        return length < 0 ? "failed" : std::string(text, static_cast<std::size_t>(length));
    }

    CBelow m_BelowA;
    CBelow m_BelowB;
    IIPStack* m_pLinkA = nullptr;
    IIPStack* m_pLinkB = nullptr;
    int m_nSocket = 0;
};

}  // namespace inputbatch

#endif
