// A close ends what other threads do with the socket.
#include <atomic>
#include <memory>
#include <thread>

#include "KitLink.h"

using namespace kit;

namespace
{

constexpr int s_nRounds = 60;  // in some the close comes before the call, in some while it waits

// Runs `wait` in a thread of its own and closes the socket beside it.
void CloseBeside(CSocket& socket, int round, const std::function<void()>& wait)
{
    std::atomic<bool> started{false};
    std::thread waiter([&] {
        started = true;
        wait();
    });
    while (!started) {
        std::this_thread::yield();
    }
    if (round % 3 != 0) {
        PassStackTime(round % 3);
    }
    EXPECT_EQ(0, socket.Close());
    waiter.join();
}

void ExpectEnded(long result)
{
    EXPECT_EQ(-1, result);
    EXPECT_EQ(PS_EBADF, get_pserrno());
}

void SetBlocking(const CSocket& socket)
{
    EXPECT_EQ(0, ps_fcntl(socket.Get(), PS_F_SETFL, 0));
}

}  // namespace

TEST(Closing, AnotherThreadPolls_Close_HangUp)
{
    for (int round = 0; round < s_nRounds; ++round) {
        CPair pair = Connected();
        const int handle = pair.m_Server.Get();
        CloseBeside(pair.m_Server, round, [handle] { EXPECT_EQ(PS_POLLHUP, WaitFor(handle, PS_POLLIN, -1)); });
    }
}

TEST(Closing, AnotherThreadPollsUdpAndListener_Close_HangUp)
{
    for (int round = 0; round < s_nRounds; ++round) {
        CSocket udp = BoundUdp();
        CSocket listener = Listener();
        const int handles[2] = {udp.Get(), listener.Get()};
        CloseBeside(udp, round, [handles] { EXPECT_EQ(PS_POLLHUP, WaitFor(handles[0], PS_POLLIN, -1)); });
        CloseBeside(listener, round, [handles] { EXPECT_EQ(PS_POLLHUP, WaitFor(handles[1], PS_POLLIN, -1)); });
    }
}

TEST(Closing, AnotherThreadSelects_Close_EveryListThatAsked)
{
    for (int round = 0; round < s_nRounds; ++round) {
        CPair pair = Connected();
        const int handle = pair.m_Server.Get();
        CloseBeside(pair.m_Server, round, [handle] {
            const auto sets = std::make_unique<ps_fdsets>();
            sets->read.handles[sets->read.count++] = handle;
            sets->except.handles[sets->except.count++] = handle;
            EXPECT_EQ(2, ps_select(0, sets.get(), sets.get(), nullptr));
        });
    }
}

TEST(Closing, AnotherThreadReceives_Close_BadHandle)
{
    for (int round = 0; round < s_nRounds; ++round) {
        CPair pair = Connected();
        SetBlocking(pair.m_Server);
        const int handle = pair.m_Server.Get();
        CloseBeside(pair.m_Server, round, [handle] {
            char room[16];
            ExpectEnded(ps_recv(handle, room, sizeof(room), 0));
        });
    }
}

TEST(Closing, AnotherThreadReceivesDatagrams_Close_BadHandle)
{
    for (int round = 0; round < s_nRounds; ++round) {
        CSocket udp = BoundUdp();
        CSocket raw = Raw(253);
        SetBlocking(udp);
        SetBlocking(raw);
        const int handles[2] = {udp.Get(), raw.Get()};
        CloseBeside(udp, round, [handles] {
            char room[16];
            CAddress from;
            int length = CAddress::RoomLength();
            ExpectEnded(ps_recvfrom(handles[0], room, sizeof(room), 0, from.Room(), &length));
        });
        CloseBeside(raw, round, [handles] {
            char room[16];
            ExpectEnded(ps_recv(handles[1], room, sizeof(room), 0));
        });
    }
}

TEST(Closing, AnotherThreadSends_Close_BadHandle)
{
    for (int round = 0; round < s_nRounds; ++round) {
        CPair pair = Connected();
        Fill(pair.m_Client.Get(), 8192);
        SetBlocking(pair.m_Client);
        const int handle = pair.m_Client.Get();
        CloseBeside(pair.m_Client, round, [handle] { ExpectEnded(SendPattern(handle, 0, 5000)); });
    }
}

TEST(Closing, AnotherThreadWritesGathered_Close_BadHandle)
{
    for (int round = 0; round < s_nRounds; ++round) {
        CPair pair = Connected();
        Fill(pair.m_Client.Get(), 8192);
        while (ps_send(pair.m_Client.Get(), "x", 1, 0) == 1) {
        }
        SetBlocking(pair.m_Client);
        const int handle = pair.m_Client.Get();
        CloseBeside(pair.m_Client, round, [handle] {
            char text[] = "sixteen bytes...";
            const ps_iovec pieces[2] = {{text, 8}, {text + 8, 8}};
            ExpectEnded(ps_writev(handle, pieces, 2));
        });
    }
}

TEST(Closing, AnotherThreadAccepts_Close_BadHandle)
{
    for (int round = 0; round < s_nRounds; ++round) {
        CSocket listener = Listener();
        SetBlocking(listener);
        const int handle = listener.Get();
        CloseBeside(listener, round, [handle] { ExpectEnded(ps_accept(handle, nullptr, nullptr)); });
    }
}

TEST(Closing, AnotherThreadConnects_Close_BadHandle)
{
    CLink link("10.9.0.1");
    for (int round = 0; round < s_nRounds; ++round) {
        CSocket client = BlockingTcp();
        const int handle = client.Get();
        CloseBeside(client, round, [handle] { ExpectEnded(Connect(handle, CAddress::V4(10, 9, 0, 77, 4000))); });
    }
}

TEST(Closing, AnotherThreadReceives_ReadingShut_CallEnds)
{
    CPair pair = Connected();
    SetBlocking(pair.m_Server);
    const int handle = pair.m_Server.Get();
    std::thread waiter([handle] {
        char room[16];
        EXPECT_LE(ps_recv(handle, room, sizeof(room), 0), 0);
    });
    PassStackTime(5);
    EXPECT_EQ(0, ps_shutdown(handle, PS_SHUT_RD));
    waiter.join();
}
