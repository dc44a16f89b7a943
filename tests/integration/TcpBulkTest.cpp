// Large transfers with SHA-256 at both ends.
#include <gtest/gtest.h>

#include <memory>

#include <openssl/evp.h>

#include "ipstack/ipstack.h"
#include "tests/integration/support/CBytes.h"
#include "tests/integration/support/CClient.h"
#include "tests/integration/support/CListener.h"

using namespace uxport;

namespace
{

constexpr unsigned short PORT = 7002;
constexpr std::uint64_t MEBIBYTE = 1024 * 1024;

class CDigest
{
public:
    CDigest() : m_pContext(EVP_MD_CTX_new(), &EVP_MD_CTX_free)
    {
        EXPECT_EQ(1, EVP_DigestInit_ex(m_pContext.get(), EVP_sha256(), nullptr));
    }

    void Add(const void* data, std::size_t length) { EXPECT_EQ(1, EVP_DigestUpdate(m_pContext.get(), data, length)); }

    std::string Finish()
    {
        unsigned char digest[EVP_MAX_MD_SIZE];
        unsigned int length = 0;
        EXPECT_EQ(1, EVP_DigestFinal_ex(m_pContext.get(), digest, &length));
        EXPECT_EQ(32U, length);
        return std::string(reinterpret_cast<const char*>(digest), length);
    }

private:
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> m_pContext;
};

// Sends `total` bytes in sends of 64 KiB, then disconnects.
class CStream
{
public:
    CStream(CPeer& peer, std::uint64_t total) : m_Peer(peer), m_qwLeft(total)
    {
        m_Peer.m_fOnSend = [this] { SendOn(); };
    }

    void SendOn()
    {
        while (m_qwLeft != 0 && !m_Peer.IsSending()) {
            const std::uint64_t length = m_qwLeft < s_nSendSize ? m_qwLeft : s_nSendSize;
            CMNMessageBlock block(s_nSendSize);
            m_Bytes.Fill(block.GetWritePtr(), length);
            m_Digest.Add(block.GetWritePtr(), length);
            block.AdvanceWritePtr(length);
            m_qwLeft -= length;
            m_Peer.Send(block);
        }
        if (!m_Peer.IsSending())
            m_Peer.Drop();
    }

    std::string Finish() { return m_Digest.Finish(); }

private:
    static constexpr std::size_t s_nSendSize = 64 * 1024;

    CPeer& m_Peer;
    std::uint64_t m_qwLeft;
    CBytes m_Bytes{11};
    CDigest m_Digest;
};

// From a server to a client; `local` is where the client binds.
void Transfer(CNetwork& network, const CMNInetAddr& address, CMNInetAddr* local, std::uint64_t total, long limitSeconds)
{
    const long before = mantle::CMNLiveObjects::Count();
    {
        CListener listener(network);
        CClient client(network);
        CDigest arrived;
        std::unique_ptr<CStream> stream;
        listener.m_fOnPeer = [&](CPeer& peer) { stream = std::make_unique<CStream>(peer, total); };
        listener.m_fAfter = [&] { stream->SendOn(); };
        client.m_bKeep = false;
        client.m_fOnReceive = [&](CMNMessageBlock& data) { arrived.Add(data.GetReadPtr(), data.GetLength()); };
        network.Run([&] {
            ASSERT_EQ(MN_OK, listener.Listen(address));
            ASSERT_EQ(MN_OK, client.Connect(address, 0, local));
        });
        ASSERT_TRUE(network.WaitFor([&] { return client.m_nOnDisconnect == 1; }, limitSeconds))
            << client.m_qwReceived << " bytes arrived";
        network.Run([&] {
            EXPECT_EQ(total, client.m_qwReceived);
            EXPECT_EQ(10001, client.m_lReason);
            EXPECT_TRUE(stream->Finish() == arrived.Finish());
            EXPECT_EQ(listener.GetPeer().m_nRefused, listener.GetPeer().m_nOnSend);
            EXPECT_EQ(0, listener.GetPeer().m_nOnDisconnect) << "it disconnected itself";
        });
    }
    network.Turn();
    EXPECT_EQ(before, mantle::CMNLiveObjects::Count());
}

TEST(TcpBulkTest, Connected_64MebibytesSent_ArriveUnchanged)
{
    CNetwork network;
    Transfer(network, Loopback(PORT), nullptr, 64 * MEBIBYTE, 250);
}

TEST(TcpBulkSoakTest, Connected_1GibibyteSent_ArrivesUnchanged)
{
    CNetwork network;
    Transfer(network, Loopback(PORT), nullptr, 1024 * MEBIBYTE, 3000);
}

// Two links joined by a wire, by the hand-moved clock.
struct CWiredTransfer
{
    explicit CWiredTransfer(const ipstack::CIPStackWireSettings& settings)
    {
        ipstack::CIPStackConfig left;
        left.m_strAddress = "10.1.0.1";
        ipstack::CIPStackConfig right;
        right.m_strAddress = "10.2.0.1";
        EXPECT_EQ(MN_OK, m_Wire.Open(left, right, settings));
    }

    void Run(std::uint64_t total)
    {
        CMNInetAddr local("10.1.0.1", 0);
        Transfer(m_Network, CMNInetAddr("10.2.0.1", PORT), &local, total, 7200);
    }

    mantle::CMNManualClock m_Clock;
    CNetwork m_Network;
    ipstack::CIPStackWire m_Wire;
};

TEST(TcpBulkTest, PerfectWire_8MebibytesSent_ArriveUnchanged)
{
    CWiredTransfer wired{ipstack::CIPStackWireSettings()};
    wired.Run(8 * MEBIBYTE);
    EXPECT_EQ(0U, wired.m_Wire.GetLost());
}

TEST(TcpBulkTest, LossyReorderingDoublingWire_1MebibyteSent_ArrivesUnchanged)
{
    ipstack::CIPStackWireSettings settings;
    settings.m_qwSeed = 42;
    settings.m_dwLossPerMille = 30;
    settings.m_dwDuplicatePerMille = 20;
    settings.m_dwReorderPerMille = 50;
    settings.m_dwDelayUs = 20000;
    CWiredTransfer wired(settings);
    wired.Run(1 * MEBIBYTE);
    EXPECT_GT(wired.m_Wire.GetLost(), 0U);
    EXPECT_GT(wired.m_Wire.GetDuplicated(), 0U);
    EXPECT_GT(wired.m_Wire.GetReordered(), 0U);
}

}  // namespace
