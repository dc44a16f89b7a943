#include "CUdpPorts.h"

#include <stdexcept>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

constexpr int FIRST = 20000;
constexpr int PAIRS = 6000;

bool IsFree(int port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<unsigned short>(port));
    const int handle = socket(AF_INET, SOCK_DGRAM, 0);
    const bool free = bind(handle, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    close(handle);
    return free;
}

}  // namespace

CUdpPorts::CUdpPorts()
{
    for (int i = 0; i < PAIRS; ++i) {
        const int port = FIRST + 2 * ((getpid() + i) % PAIRS);
        if (IsFree(port) && IsFree(port + 1)) {
            m_strOne = "127.0.0.1:" + std::to_string(port);
            m_strTwo = "127.0.0.1:" + std::to_string(port + 1);
            return;
        }
    }
    throw std::runtime_error("no UDP port is free");
}
