#include "ipstack/IIPStackManager.h"

#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "PacketMaker.h"
#include "SocketSupport.h"
#include "mantle/MNDefines.h"
#include "platform/ipstack/CIPAnswerLimit.h"

namespace
{

using ipstack::IIPStack;
using ipstack::IIPStackManager;

class CNowhere : public ipstack::IIPStackLowLevel
{
public:
    unsigned long IPStackLowLevelOutput(const char*, unsigned long, unsigned char) override
    {
        ++m_nPackets;
        return 0;
    }
    std::atomic<int> m_nPackets{0};
};

IIPStack* Make(CNowhere& below)
{
    ipstack::CIPStackConfig config;
    config.m_strAddress = "10.6.0.1";
    IIPStack* stack = nullptr;
    EXPECT_EQ(IIPStackManager::Instance()->CreateStack(config, &below, stack), 0u);
    return stack;
}

packetmaker::CPacket Ping()
{
    return packetmaker::Make4({"10.6.0.2", "10.6.0.1", 1}, packetmaker::Echo4(1, packetmaker::CBytes(8)));
}

unsigned long Input(IIPStack* stack, const packetmaker::CPacket& packet)
{
    return stack->Input(reinterpret_cast<const char*>(packet.data()), packet.size());
}

// The layer below goes after the link, and hands packets in until then.
TEST(CIPStackManagerTest, LinkTakenDown_PacketFromBelow_NotInitializedAndCounted)
{
    socketsupport::Start();
    CNowhere below;
    IIPStack* stack = Make(below);
    EXPECT_EQ(Input(stack, Ping()), 0u);
    EXPECT_EQ(below.m_nPackets.load(), 1);
    EXPECT_EQ(IIPStackManager::Instance()->DestroyStack(stack), 0u);
    const std::uint64_t before = socketsupport::GetCounter("filter.link_closing");
    EXPECT_EQ(Input(stack, Ping()), mantle::MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(socketsupport::GetCounter("filter.link_closing"), before + 1);
    EXPECT_EQ(below.m_nPackets.load(), 1);
    EXPECT_EQ(IIPStackManager::Instance()->DestroyStack(stack), mantle::MN_ERROR_INVALID_ARG);
}

TEST(CIPStackManagerTest, PacketsComing_LinksMadeAndTakenDown_EachWorks)
{
    socketsupport::Start();
    // The replies tell that a link works, however many there are.
    ipstack::CIPAnswerLimit::SetMost(ipstack::CIPAnswerLimit::EchoReply, {10000000, 10000000});
    CNowhere below;
    std::atomic<IIPStack*> current{nullptr};
    std::atomic<bool> stop{false};
    std::thread incoming([&] {
        const packetmaker::CPacket ping = Ping();
        while (!stop.load()) {
            if (IIPStack* stack = current.load()) {
                Input(stack, ping);
            }
        }
    });
    for (int round = 0; round < 300; ++round) {
        const int before = below.m_nPackets.load();
        IIPStack* stack = Make(below);
        ASSERT_NE(stack, nullptr);
        current.store(stack);
        while (below.m_nPackets.load() == before) {
            std::this_thread::yield();
        }
        ASSERT_EQ(IIPStackManager::Instance()->DestroyStack(stack), 0u);
    }
    stop.store(true);
    incoming.join();
}

TEST(CIPStackManagerTest, ManyLinksTakenDown_AnotherMade_Works)
{
    socketsupport::Start();
    CNowhere below;
    for (int round = 0; round < 3000; ++round) {
        IIPStack* stack = Make(below);
        ASSERT_NE(stack, nullptr);
        ASSERT_EQ(IIPStackManager::Instance()->DestroyStack(stack), 0u);
    }
    IIPStack* stack = Make(below);
    EXPECT_EQ(Input(stack, Ping()), 0u);
    EXPECT_EQ(below.m_nPackets.load(), 1);
    EXPECT_EQ(IIPStackManager::Instance()->DestroyStack(stack), 0u);
}

}  // namespace
