// What server and client say to each other.
#ifndef FILECOPY_CFILEPROTOCOL_H
#define FILECOPY_CFILEPROTOCOL_H

#include <cstddef>
#include <cstdint>

// The server sends one stream: the length of the list of files, the list, and then the files in its order, without
// anything between them. The client answers one byte for each step of the stream that it has consumed, the last one
// counting however short it is; then the server closes. It lets at most a window go without an answer: on a user
// thread SendData refuses nothing, so that this, and not a full socket, bounds what waits in memory on the way.
class CFileProtocol
{
public:
    static constexpr unsigned short s_wPort = 7000;
    static constexpr std::size_t s_nLengthSize = 8;  // most significant byte first
    static constexpr std::size_t s_nMaxList = 64 * 1024 * 1024;
    static constexpr std::size_t s_nSendSize = 64 * 1024;
    // Of the socket that sends, or receives, much. A window of more would not fit into what Linux lets the UDP socket
    // below hold unless it is told to (net.core.rmem_max).
    static constexpr unsigned long s_dwBuffer = 256 * 1024;
    static constexpr std::uint64_t s_qwStep = 256 * 1024;
    static constexpr std::uint64_t s_qwWindow = 16 * s_qwStep;

    static constexpr std::uint64_t CountSteps(std::uint64_t bytes) { return (bytes + s_qwStep - 1) / s_qwStep; }
};

#endif
