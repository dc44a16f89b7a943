// Many threads at once: every call from anywhere, no lost wake-up, nobody starved.
#include <algorithm>
#include <atomic>
#include <memory>
#include <random>
#include <set>
#include <thread>

#include "KitLink.h"
#include "KitPackets.h"
#include "mantle/CMNClock.h"

using namespace kit;

namespace
{

constexpr int s_nThreads = 4;

bool Echo(const CPair& pair, std::size_t length)
{
    return Transfer(pair.m_Client.Get(), pair.m_Server.Get(), length) &&
           Transfer(pair.m_Server.Get(), pair.m_Client.Get(), length);
}

}  // namespace

TEST(Threads, EachItsConnections_Echo_AllArrives)
{
    StartStack();
    InThreads(s_nThreads, [](int number) {
        for (std::size_t round = 0; round < 15; ++round) {
            const CPair pair = Connected();
            ASSERT_TRUE(Echo(pair, 1000 * round + 77 * static_cast<std::size_t>(number) + 1));
            ASSERT_TRUE(Echo(pair, 40000));
        }
    });
}

TEST(Threads, OneConnection_FourDirectionsAtOnce_AllArrives)
{
    constexpr std::size_t total = 3000000;
    const CPair pair = Connected();
    InThreads(4, [&](int number) {
        const int ends[2] = {pair.m_Client.Get(), pair.m_Server.Get()};
        const int end = ends[number % 2];
        if (number < 2) {
            for (std::size_t sent = 0; sent < total;) {
                const long taken = SendPattern(end, sent, std::min<std::size_t>(9999, total - sent));
                ASSERT_GE(taken, 0);
                sent += static_cast<std::size_t>(taken);
                ASSERT_TRUE(taken > 0 || WaitFor(end, PS_POLLOUT) != 0);
            }
        } else {
            ASSERT_TRUE(ReceivePattern(end, 0, total));
        }
    });
}

TEST(Threads, OneDatagramSocket_AllSend_EachDatagramWhole)
{
    const CSocket receiver = BoundUdp();
    const CSocket sender = BoundUdp();
    const CAddress to = LocalAddress(receiver.Get());
    std::atomic<int> running{s_nThreads};
    std::thread reader([&] {
        std::size_t seen = 0;
        while (running.load() > 0 || Look(receiver.Get(), PS_POLLIN) != 0) {
            if (WaitFor(receiver.Get(), PS_POLLIN, 10) == 0) {
                continue;
            }
            const CBytes datagram = ReceiveDatagram(receiver.Get());
            ASSERT_GE(datagram.size(), 2U);
            ASSERT_EQ(CBytes(datagram.size(), datagram[0]), datagram);
            ++seen;
        }
        EXPECT_GT(seen, 0U);
    });
    InThreads(s_nThreads, [&](int number) {
        for (std::size_t i = 0; i < 2000; ++i) {
            const CBytes datagram(2 + i % 700, static_cast<unsigned char>(number));
            ASSERT_EQ(static_cast<long>(datagram.size()), SendTo(sender.Get(), datagram, to));
        }
        --running;
    });
    reader.join();
}

TEST(Threads, OneListener_AllAccept_EachConnectionOnce)
{
    constexpr int connections = 400;
    const CSocket listener = Listener(CAddress::Loopback(), 1024);
    const CAddress at = LocalAddress(listener.Get());
    std::vector<CSocket> clients;
    clients.reserve(connections);
    std::set<unsigned int> expected;
    for (int i = 0; i < connections; ++i) {
        clients.push_back(Tcp());
        ASSERT_EQ(0, Connect(clients.back().Get(), at));
        expected.insert(LocalAddress(clients.back().Get()).Port());
    }
    std::vector<std::vector<CSocket>> accepted(s_nThreads);
    InThreads(s_nThreads, [&](int number) {
        for (;;) {
            CSocket one(ps_accept(listener.Get(), nullptr, nullptr));
            if (one.Get() < 0) {
                EXPECT_EQ(PS_EAGAIN, get_pserrno());
                return;
            }
            accepted[static_cast<std::size_t>(number)].push_back(std::move(one));
        }
    });
    std::multiset<unsigned int> ports;
    for (const auto& some : accepted) {
        for (const CSocket& one : some) {
            ports.insert(PeerAddress(one.Get()).Port());
        }
    }
    EXPECT_EQ(std::multiset<unsigned int>(expected.begin(), expected.end()), ports);
}

TEST(Threads, SocketsOpenAndClose_TransferBeside_Undisturbed)
{
    const CPair pair = Connected();
    std::atomic<bool> stop{false};
    std::thread transfer([&] {
        for (int i = 0; i < 20; ++i) {
            EXPECT_TRUE(Transfer(pair.m_Client.Get(), pair.m_Server.Get(), 200000));
        }
        stop = true;
    });
    InThreads(3, [&](int number) {
        while (!stop) {
            const CSocket tcp(ps_socket(PS_AF_INET, PS_SOCK_STREAM, 0));
            const CSocket other(ps_socket(PS_AF_INET6, number == 0 ? PS_SOCK_DGRAM : PS_SOCK_STREAM, 0));
            const CSocket raw(ps_socket(PS_AF_INET, PS_SOCK_RAW, 253));
            ASSERT_GE(tcp.Get(), 1);
            ASSERT_EQ(0, ps_socket_nonblock(tcp.Get()));
            ASSERT_EQ(0, Bind(tcp.Get(), CAddress::Loopback()));
            if (number == 1) {
                ASSERT_EQ(0, ps_listen(tcp.Get(), 5));
            } else {
                ASSERT_EQ(0, Connect(tcp.Get(), CAddress::Loopback(9)));  // refused
            }
            Look(tcp.Get());
            GetOption(tcp.Get(), PS_SOL_SOCKET, PS_SO_SNDBUF);
            Counters();
        }
    });
    transfer.join();
}

TEST(Threads, BulkInOne_SmallCallsInAnother_NotStarved)
{
    const CPair bulk = Connected();
    const CPair small = Connected();
    EXPECT_EQ(0, ps_set_snd_rcv_buffer(bulk.m_Client.Get(), 524288, 524288));
    EXPECT_EQ(0, ps_set_snd_rcv_buffer(bulk.m_Server.Get(), 524288, 524288));
    std::atomic<bool> stop{false};
    std::thread other([&] {
        while (!stop) {
            EXPECT_TRUE(Transfer(bulk.m_Client.Get(), bulk.m_Server.Get(), 1000000, 500000));
        }
    });
    const long long start = StackTimeMs();
    for (std::size_t i = 0; i < 500; ++i) {
        EXPECT_TRUE(Echo(small, 64));
    }
    EXPECT_LT(StackTimeMs() - start, s_nLimitMs);
    stop = true;
    other.join();
}

TEST(Threads, SameSockets_AnyCallFromAnyThread_Survives)
{
    // Handles that other threads close at any moment: every call ends, and the stack works afterwards.
    constexpr std::size_t shared = 8;
    const CSocket listener = Listener(CAddress::Loopback(), 64);
    const CAddress at = LocalAddress(listener.Get());
    std::atomic<int> handles[shared];
    for (std::atomic<int>& handle : handles) {
        handle = Tcp().Release();
    }
    InThreads(s_nThreads, [&](int number) {
        std::mt19937 random(static_cast<unsigned int>(number));
        CBytes room(5000);
        for (int i = 0; i < 6000; ++i) {
            std::atomic<int>& slot = handles[random() % shared];
            const int handle = slot.load();
            ps_pollfd entry = {handle, s_nInOut, 0};
            switch (random() % 10) {
            case 0:
                ps_close(slot.exchange((random() % 4 == 0 ? Udp() : Tcp()).Release()));
                break;
            case 1:
                Connect(handle, at);
                break;
            case 2:
                ps_send(handle, room.data(), random() % room.size(), 0);
                break;
            case 3:
                ps_recv(handle, room.data(), room.size(), 0);
                break;
            case 4:
                ps_poll(&entry, 1, static_cast<int>(random() % 2));
                break;
            case 5: {
                const int accepted = ps_accept(listener.Get(), nullptr, nullptr);
                ps_socket_nonblock(accepted);
                ps_close(slot.exchange(accepted));
                break;
            }
            case 6:
                ps_shutdown(handle, random() % 2 ? PS_SHUT_WR : PS_SHUT_RD);
                break;
            case 7:
                SetOption(handle, PS_SOL_SOCKET, PS_SO_RCVBUF, static_cast<int>(random() % 600000));
                break;
            case 8:
                Waiting(handle);
                break;
            default:
                ps_is_socket_errno(handle);
                break;
            }
        }
    });
    for (std::atomic<int>& handle : handles) {
        ps_close(handle.load());
    }
    EXPECT_TRUE(Echo(Connected(), 100000));
}

TEST(Threads, OneCallManyPackets_NoTimePasses_AllWorkedOff)
{
    // What a call does not work off itself must go on without another call and without a tick.
    constexpr int total = 500000;
    mantle::CMNManualClock clock(false);
    CLink link("10.9.0.1", std::string(), 576);
    CPair pair = Connected(CAddress::V4(10, 9, 0, 1, 0));
    EXPECT_EQ(0, ps_set_snd_rcv_buffer(pair.m_Client.Get(), 524288, 524288));
    EXPECT_EQ(0, ps_set_snd_rcv_buffer(pair.m_Server.Get(), 524288, 524288));
    ASSERT_TRUE(Transfer(pair.m_Client.Get(), pair.m_Server.Get(), 5000000, 100000));
    EXPECT_EQ(total, SendPattern(pair.m_Client.Get(), 0, total));
    for (int i = 0; i < 5000000 && Waiting(pair.m_Server.Get()) < total; ++i) {
        std::this_thread::yield();
    }
    EXPECT_EQ(total, Waiting(pair.m_Server.Get()));
    EXPECT_TRUE(ReceivePattern(pair.m_Server.Get(), 0, total));
    EXPECT_EQ(0U, link.TakeAll().size());
}

TEST(Threads, ClockJumpsAnHour_DataUnderWay_ConnectionLives)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    CWire wire;
    CPair pair = wire.Connect();
    wire.Cut();
    EXPECT_EQ(5000, SendPattern(pair.m_Client.Get(), 0, 5000));
    PassStackTime(1000);
    wire.Mend();
    clock.Advance(mantle::CMNTimeValue(3600, 0));
    EXPECT_TRUE(ReceivePattern(pair.m_Server.Get(), 0, 5000));
    EXPECT_TRUE(Echo(pair, 100000));
}

TEST(Threads, WireTakenDown_TrafficOnIt_EverybodyComesBack)
{
    for (int round = 0; round < 15; ++round) {
        auto wire = std::make_unique<CWire>();
        CPair pair = wire->Connect();
        const CSocket a = BoundUdp(CWire::EndA());
        const CSocket b = BoundUdp(CWire::EndB());
        const CAddress to = LocalAddress(b.Get());
        std::atomic<bool> stop{false};
        std::thread traffic([&] {
            CBytes room(20000);
            while (!stop) {
                ps_send(pair.m_Client.Get(), room.data(), room.size(), 0);
                ps_recv(pair.m_Server.Get(), room.data(), room.size(), 0);
                SendTo(a.Get(), CBytes(3000), to);
            }
        });
        std::thread waiter([&] {
            while ((WaitFor(pair.m_Server.Get(), 0, 5) & PS_POLLERR) == 0 && !stop) {
            }
        });
        PassStackTime(round % 4);
        wire.reset();
        waiter.join();  // the connection has failed
        EXPECT_NE(0, Look(pair.m_Server.Get(), 0) & PS_POLLERR);
        stop = true;
        traffic.join();
    }
}

TEST(Threads, NobodyCalls_TimePasses_StackRepeatsByItself)
{
    // The answer to an opening segment is repeated although no thread calls into the stack.
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    CLink link("10.9.0.1");
    const CSocket listener = Listener(CAddress::V4(10, 9, 0, 1, 0));
    const CAddress peer = CAddress::V4(10, 9, 0, 2, 20000);
    EXPECT_EQ(0U, link.Inject(TcpPacket(peer, LocalAddress(listener.Get()), s_cTcpSyn, 1000, 0)));
    for (int i = 0; i < 3; ++i) {
        EXPECT_FALSE(link.Take([](const CBytes& packet) { return IsTcp(packet, 20000); }, 60000).empty()) << i;
    }
}
