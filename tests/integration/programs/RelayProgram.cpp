// A bad path between two ends on 127.0.0.1: loses, repeats, reorders, delays and damages datagrams both ways, as a seed
// says. Prints its two ports, that for the server and that for the client, relays until SIGTERM, and prints what it did.
//
//     uxport_relay --server PORT [--seed N] [--lose %] [--repeat %] [--reorder %] [--damage %] [--delay MS]
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <netinet/in.h>
#include <uv.h>
#include <CLI/CLI.hpp>

namespace
{

// In percent of all datagrams, of each direction.
struct CWeather
{
    unsigned int m_dwSeed = 1;
    double m_dLose = 0;
    double m_dRepeat = 0;
    double m_dReorder = 0;
    double m_dDamage = 0;
    unsigned int m_dwDelay = 0;  // milliseconds, of every datagram
};

void Require(int result, const char* what)
{
    if (result >= 0)
        return;
    std::fprintf(stderr, "uxport_relay: %s: %s\n", what, uv_strerror(result));
    std::exit(2);
}

sockaddr_in Loopback(unsigned short port)
{
    sockaddr_in address{};
    Require(uv_ip4_addr("127.0.0.1", port, &address), "address");
    return address;
}

// One end's socket: what comes in there goes out at the other.
class CSide
{
public:
    CSide(uv_loop_t* loop, std::string name, const CWeather& weather, unsigned int seed)
        : m_pLoop(loop), m_strName(std::move(name)), m_Weather(weather), m_Random(seed), m_Buffer(65536)
    {
        Require(uv_udp_init(loop, &m_Socket), "socket");
        Require(uv_timer_init(loop, &m_Timer), "timer");
        m_Socket.data = this;
        m_Timer.data = this;
        const sockaddr_in any = Loopback(0);
        Require(uv_udp_bind(&m_Socket, reinterpret_cast<const sockaddr*>(&any), 0), "bind");
        int room = SOCKET_ROOM;
        uv_recv_buffer_size(reinterpret_cast<uv_handle_t*>(&m_Socket), &room);
        Require(uv_udp_recv_start(&m_Socket, OnBuffer, OnDatagram), "receive");
    }

    // `end`: where this side's end is; port 0 until it has said something.
    void Join(CSide& other, unsigned short end)
    {
        m_pOther = &other;
        m_End = Loopback(end);
    }

    unsigned short GetPort() const
    {
        sockaddr_in address{};
        int length = sizeof address;
        Require(uv_udp_getsockname(&m_Socket, reinterpret_cast<sockaddr*>(&address), &length), "port");
        return ntohs(address.sin_port);
    }

    void Report() const
    {
        std::printf("from %s: %lu in, %lu out, %lu lost, %lu repeated, %lu reordered, %lu damaged\n", m_strName.c_str(),
                    m_dwIn, m_dwOut, m_dwLost, m_dwRepeated, m_dwReordered, m_dwDamaged);
    }

private:
    static constexpr int SOCKET_ROOM = 4 << 20;
    static constexpr unsigned int MOST_BEHIND = 5;  // milliseconds that a reordered datagram comes late

    static void OnBuffer(uv_handle_t* handle, std::size_t, uv_buf_t* buffer)
    {
        std::vector<char>& room = static_cast<CSide*>(handle->data)->m_Buffer;
        *buffer = uv_buf_init(room.data(), static_cast<unsigned int>(room.size()));
    }

    static void OnDatagram(uv_udp_t* handle, ssize_t length, const uv_buf_t* buffer, const sockaddr* from, unsigned int)
    {
        if (length >= 0 && from)
            static_cast<CSide*>(handle->data)->Take(buffer->base, static_cast<std::size_t>(length), from);
    }

    void Take(const char* data, std::size_t length, const sockaddr* from)
    {
        m_End = *reinterpret_cast<const sockaddr_in*>(from);
        ++m_dwIn;
        // All are drawn for every datagram, so that its fate depends on its place alone.
        const bool lost = Draw(m_Weather.m_dLose);
        const bool repeated = Draw(m_Weather.m_dRepeat);
        const bool reordered = Draw(m_Weather.m_dReorder);
        const bool damaged = Draw(m_Weather.m_dDamage);
        const std::uint32_t number = static_cast<std::uint32_t>(m_Random());
        if (lost) {
            ++m_dwLost;
            return;
        }
        std::string datagram(data, length);
        if (damaged && length != 0) {
            ++m_dwDamaged;
            char& byte = datagram[number % length];
            byte = static_cast<char>(byte ^ (1 << (number >> 16) % 8));
        }
        if (reordered)
            ++m_dwReordered;
        const std::uint64_t late = reordered ? 1 + number % MOST_BEHIND : 0;
        if (repeated) {
            ++m_dwRepeated;
            Later(datagram, 1);
        }
        Later(std::move(datagram), late);
    }

    bool Draw(double percent) { return std::uniform_real_distribution<double>(0, 100)(m_Random) < percent; }

    void Later(std::string datagram, std::uint64_t late)
    {
        const std::uint64_t wait = m_Weather.m_dwDelay + late;
        if (wait == 0)
            return Send(datagram);
        m_Waiting.emplace(uv_now(m_pLoop) + wait, std::move(datagram));
        Wait();
    }

    void Wait()
    {
        if (m_Waiting.empty())
            return;
        const std::uint64_t due = m_Waiting.begin()->first;
        const std::uint64_t now = uv_now(m_pLoop);
        uv_timer_start(
            &m_Timer, [](uv_timer_t* timer) { static_cast<CSide*>(timer->data)->SendDue(); }, due > now ? due - now : 0,
            0);
    }

    void SendDue()
    {
        while (!m_Waiting.empty() && m_Waiting.begin()->first <= uv_now(m_pLoop)) {
            Send(m_Waiting.begin()->second);
            m_Waiting.erase(m_Waiting.begin());
        }
        Wait();
    }

    // A datagram for an end that nobody knows yet, or that the system does not take, is one more that is lost.
    void Send(std::string& datagram)
    {
        const uv_buf_t piece = uv_buf_init(datagram.data(), static_cast<unsigned int>(datagram.size()));
        if (m_pOther->m_End.sin_port != 0 &&
            uv_udp_try_send(&m_pOther->m_Socket, &piece, 1, reinterpret_cast<const sockaddr*>(&m_pOther->m_End)) >= 0)
            ++m_dwOut;
    }

    uv_loop_t* m_pLoop;
    const std::string m_strName;
    const CWeather m_Weather;
    std::mt19937 m_Random;
    std::vector<char> m_Buffer;
    uv_udp_t m_Socket{};
    uv_timer_t m_Timer{};
    CSide* m_pOther = nullptr;
    sockaddr_in m_End{};
    std::multimap<std::uint64_t, std::string> m_Waiting;  // by the time when they are due
    unsigned long m_dwIn = 0;
    unsigned long m_dwOut = 0;
    unsigned long m_dwLost = 0;
    unsigned long m_dwRepeated = 0;
    unsigned long m_dwReordered = 0;
    unsigned long m_dwDamaged = 0;
};

}  // namespace

int main(int argc, char** argv)
{
    CLI::App options("A bad path between two ends on 127.0.0.1.");
    CWeather weather;
    unsigned short server = 0;
    options.add_option("--server", server, "UDP port of the server's end")->required();
    options.add_option("--seed", weather.m_dwSeed);
    options.add_option("--delay", weather.m_dwDelay);
    for (auto& [name, percent] : {std::pair<const char*, double*>{"--lose", &weather.m_dLose},
                                  {"--repeat", &weather.m_dRepeat},
                                  {"--reorder", &weather.m_dReorder},
                                  {"--damage", &weather.m_dDamage}})
        options.add_option(name, *percent)->check(CLI::Range(0, 100));
    CLI11_PARSE(options, argc, argv);

    uv_loop_t* loop = uv_default_loop();
    CSide serving(loop, "server", weather, weather.m_dwSeed);
    CSide getting(loop, "client", weather, weather.m_dwSeed + 1);
    serving.Join(getting, server);
    getting.Join(serving, 0);
    std::printf("%d %d\n", serving.GetPort(), getting.GetPort());
    std::fflush(stdout);

    uv_signal_t end;
    Require(uv_signal_init(loop, &end), "signal");
    Require(uv_signal_start(
                &end, [](uv_signal_t* signal, int) { uv_stop(signal->loop); }, SIGTERM),
            "signal");
    uv_run(loop, UV_RUN_DEFAULT);
    serving.Report();
    getting.Report();
    return 0;
}
