// The round trip of 64 bytes on one TCP connection of the kernel's, to be compared with link_bench.
//
//     kernel_trip serve PORT | kernel_trip measure ADDRESS PORT SECONDS
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

namespace
{

constexpr std::size_t ROUND_TRIP = 64;

sockaddr_in Address(const char* host, const char* port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(std::strtoul(port, nullptr, 10)));
    ::inet_pton(AF_INET, host, &address.sin_addr);
    return address;
}

int MakeSocket()
{
    const int handle = ::socket(AF_INET, SOCK_STREAM, 0);
    const int on = 1;
    ::setsockopt(handle, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    ::setsockopt(handle, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return handle;
}

bool Whole(int handle, char* data)
{
    return ::recv(handle, data, ROUND_TRIP, MSG_WAITALL) == static_cast<ssize_t>(ROUND_TRIP);
}

bool Send(int handle, const char* data)
{
    return ::send(handle, data, ROUND_TRIP, MSG_NOSIGNAL) == static_cast<ssize_t>(ROUND_TRIP);
}

int Serve(const char* port)
{
    const int listener = MakeSocket();
    const sockaddr_in address = Address("0.0.0.0", port);
    if (::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listener, 1) != 0)
        return 1;
    const int connection = ::accept(listener, nullptr, nullptr);
    const int on = 1;
    ::setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    char data[ROUND_TRIP];
    while (Whole(connection, data) && Send(connection, data)) {
    }
    return 0;
}

int Measure(const char* host, const char* port, unsigned long seconds)
{
    using CClock = std::chrono::steady_clock;
    const sockaddr_in address = Address(host, port);
    int handle = MakeSocket();
    // The server may not listen yet.
    for (int round = 0; ::connect(handle, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0; ++round) {
        if (round == 100)
            return 1;
        ::close(handle);
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        handle = MakeSocket();
    }
    char data[ROUND_TRIP];
    std::memset(data, 'E', sizeof data);
    std::vector<double> trips;
    const CClock::time_point begin = CClock::now();
    while (CClock::now() - begin < std::chrono::seconds(seconds)) {
        const CClock::time_point sent = CClock::now();
        if (!Send(handle, data) || !Whole(handle, data))
            return 1;
        trips.push_back(std::chrono::duration<double, std::micro>(CClock::now() - sent).count());
    }
    std::sort(trips.begin(), trips.end());
    std::printf("round trip of %zu bytes: median %.1f us, 99 %% %.1f us, %zu of them\n", ROUND_TRIP,
                trips[trips.size() / 2], trips[trips.size() * 99 / 100], trips.size());
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc == 3 && std::strcmp(argv[1], "serve") == 0)
        return Serve(argv[2]);
    if (argc == 5 && std::strcmp(argv[1], "measure") == 0)
        return Measure(argv[2], argv[3], std::strtoul(argv[4], nullptr, 10));
    std::fputs("kernel_trip: serve PORT | measure ADDRESS PORT SECONDS\n", stderr);
    return 2;
}
