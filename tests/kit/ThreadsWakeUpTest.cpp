// No wake-up is lost, whatever thread makes a socket ready and however many wait.
#include <atomic>
#include <ctime>
#include <thread>

#include "KitSupport.h"

using namespace kit;

namespace
{

// A wait on a handle on which nobody has waited before, behind so many idle ones in the array, races with the
// datagram that makes it ready; the wait begins a little earlier or later in each round.
void RaceWaitAgainstEvent(int rounds, int idle)
{
    constexpr int delays = 4099;  // turns of an empty loop: some microseconds
    constexpr int limitMs = 2000;
    std::vector<CSocket> others;
    others.reserve(static_cast<std::size_t>(idle));
    std::vector<ps_pollfd> entries;
    entries.reserve(static_cast<std::size_t>(idle) + 1);
    for (int i = 0; i < idle; ++i) {
        others.push_back(Udp());
        entries.push_back({others.back().Get(), PS_POLLIN, 0});
    }
    entries.push_back({-1, PS_POLLIN, 0});
    std::atomic<int> round{0};
    std::atomic<bool> stop{false};
    CAddress to;
    const CSocket sender = BoundUdp();
    std::thread helper([&] {
        for (int next = 1; next <= rounds && !stop; ++next) {
            while (round.load() < next && !stop) {
            }
            if (!stop) {
                EXPECT_EQ(1, SendTo(sender.Get(), CBytes(1), to));
            }
        }
    });
    for (int i = 1; i <= rounds && !testing::Test::HasFailure(); ++i) {
        const CSocket fresh = BoundUdp();
        to = LocalAddress(fresh.Get());
        entries.back().fd = fresh.Get();
        round = i;
        for (volatile int spin = 0; spin < i * 31 % delays; spin = spin + 1) {
        }
        EXPECT_EQ(1, PollInTime(entries.data(), static_cast<unsigned int>(entries.size()), limitMs)) << "round " << i;
    }
    stop = true;
    helper.join();
}

}  // namespace

TEST(Threads, PingPongBetweenTwo_ManyRounds_NoWakeUpLost)
{
    constexpr int rounds = 20000;
    const CPair pair = Connected();
    const auto play = [](int handle, bool begins) {
        char byte = 'p';
        for (int i = 0; i < rounds; ++i) {
            if (begins || i > 0) {
                ASSERT_EQ(1, ps_send(handle, &byte, 1, 0));
            }
            ASSERT_NE(0, WaitFor(handle, PS_POLLIN)) << "round " << i;
            ASSERT_EQ(1, ps_recv(handle, &byte, 1, 0));
        }
    };
    std::thread other([&] {
        play(pair.m_Server.Get(), false);
        EXPECT_EQ(1, ps_send(pair.m_Server.Get(), "p", 1, 0));
    });
    play(pair.m_Client.Get(), true);
    other.join();
}

TEST(Threads, BlockingPingPong_ManyRounds_NoWakeUpLost)
{
    constexpr int rounds = 20000;
    const CPair pair = Connected();
    EXPECT_EQ(0, ps_fcntl(pair.m_Client.Get(), PS_F_SETFL, 0));
    EXPECT_EQ(0, ps_fcntl(pair.m_Server.Get(), PS_F_SETFL, 0));
    std::thread other([&] {
        char byte;
        for (int i = 0; i < rounds; ++i) {
            ASSERT_EQ(1, ps_recv(pair.m_Server.Get(), &byte, 1, 0));
            ASSERT_EQ(1, ps_send(pair.m_Server.Get(), &byte, 1, 0));
        }
    });
    char byte = 'p';
    for (int i = 0; i < rounds; ++i) {
        ASSERT_EQ(1, ps_send(pair.m_Client.Get(), &byte, 1, 0));
        ASSERT_EQ(1, ps_recv(pair.m_Client.Get(), &byte, 1, 0));
    }
    other.join();
}

TEST(Threads, ManySocketsTwoSendersThreePollers_OverlappingSets_NothingLost)
{
    constexpr int sockets = 48;
    constexpr int rounds = 6000;
    std::vector<CPair> pairs;
    pairs.reserve(sockets);
    const CSocket listener = Listener(CAddress::Loopback(), 64);
    for (int i = 0; i < sockets; ++i) {
        pairs.push_back(ConnectedThrough(listener));
    }
    std::atomic<long> received{0};
    constexpr long total = 2L * rounds;
    InThreads(5, [&](int number) {
        if (number < 2) {
            for (int i = 0; i < rounds; ++i) {
                const std::size_t to = static_cast<std::size_t>((i * 7 + number * 24) % sockets);
                ASSERT_EQ(1, ps_send(pairs[to].m_Client.Get(), "x", 1, 0));
            }
            return;
        }
        std::vector<ps_pollfd> entries;
        for (int i = 0; i < sockets; ++i) {
            if (number == 2 || i % 2 == number - 3) {
                entries.push_back({pairs[static_cast<std::size_t>(i)].m_Server.Get(), PS_POLLIN, 0});
            }
        }
        int idle = 0;
        while (received.load() < total) {
            const int ready = PollInTime(entries.data(), static_cast<unsigned int>(entries.size()), 500);
            ASSERT_GE(ready, 0);
            idle = ready == 0 ? idle + 1 : 0;
            ASSERT_LT(idle, 40) << received.load() << " of " << total;
            for (const ps_pollfd& entry : entries) {
                char room[64];
                const long got = entry.revents != 0 ? ps_recv(entry.fd, room, sizeof(room), 0) : 0;
                ASSERT_GE(got, 0);
                received += got;
            }
        }
    });
    EXPECT_EQ(total, received.load());
}

TEST(Threads, SeveralPollOneHandle_Ready_AllWake)
{
    const CPair pair = Connected();
    std::thread sender([&] {
        PassStackTime(20);
        EXPECT_EQ(1, ps_send(pair.m_Client.Get(), "x", 1, 0));
    });
    InThreads(4, [&](int) { EXPECT_EQ(PS_POLLIN, WaitFor(pair.m_Server.Get(), PS_POLLIN)); });
    sender.join();
}

TEST(Threads, PollersComeAndGo_EachRound_AllWake)
{
    const CPair pair = Connected();
    const CPair other = Connected();
    for (int round = 0; round < 150; ++round) {
        std::thread sender([&] {
            if (round % 2 == 0) {
                PassStackTime(1);
            }
            EXPECT_EQ(1, ps_send(pair.m_Client.Get(), "x", 1, 0));
        });
        InThreads(2, [&](int number) {
            ps_pollfd entries[2] = {{other.m_Server.Get(), PS_POLLIN, 0}, {pair.m_Server.Get(), PS_POLLIN, 0}};
            EXPECT_EQ(1, PollInTime(entries + number, 2U - static_cast<unsigned int>(number), s_nLimitMs));
        });
        sender.join();
        char byte;
        ASSERT_EQ(1, ps_recv(pair.m_Server.Get(), &byte, 1, 0));
    }
}

TEST(Threads, FreshSocket_EventWhileTheWaitBegins_NoWakeUpLost)
{
    RaceWaitAgainstEvent(40000, 0);
}

TEST(Threads, FreshSocketBehindManyIdleOnes_EventWhileTheWaitBegins_NoWakeUpLost)
{
    RaceWaitAgainstEvent(10000, 1000);
}

TEST(Threads, ManyBlockedReaders_OneDatagramSocket_NothingLost)
{
    constexpr int datagrams = 5000;
    constexpr int readers = 3;
    const CSocket receiver = BoundUdp();
    const CSocket sender = BoundUdp();
    const CAddress to = LocalAddress(receiver.Get());
    EXPECT_EQ(0, ps_fcntl(receiver.Get(), PS_F_SETFL, 0));
    std::atomic<int> received{0};
    std::thread source([&] {
        for (int i = 0; i < datagrams; ++i) {
            while (i - received.load() > 50) {
                std::this_thread::yield();
            }
            ASSERT_EQ(2, SendTo(sender.Get(), CBytes(2), to));
        }
        for (int i = 0; i < readers; ++i) {
            ASSERT_EQ(1, SendTo(sender.Get(), CBytes(1), to));  // the end for one of them
        }
    });
    InThreads(readers, [&](int) {
        char room[4];
        long got = 0;
        while ((got = ps_recv(receiver.Get(), room, sizeof(room), 0)) == 2) {
            ++received;
        }
        EXPECT_EQ(1, got);
    });
    source.join();
    EXPECT_EQ(datagrams, received.load());
}

TEST(Threads, TwoPollOneIdleHandle_NoEvent_ProcessorIdle)
{
    // Waiters on one handle must not wake each other in turn.
    const CPair pair = Connected();
    const std::clock_t start = std::clock();
    InThreads(2, [&](int) { EXPECT_EQ(0, WaitFor(pair.m_Server.Get(), PS_POLLIN, 1000)); });
    EXPECT_LT(std::clock() - start, CLOCKS_PER_SEC / 3);
}
