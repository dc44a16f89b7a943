// Echo over the kernel's loopback by Asio, with the same two threads as a connection of a user thread has.
#ifndef BENCH_CASIOECHO_H
#define BENCH_CASIOECHO_H

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

// The sockets belong to an I/O thread, what happens on them to the thread that runs Run; data crosses over by posts, a
// buffer of its own each time. Both ends of `connections` connections. Thread: the application's.
class CAsioEcho
{
public:
    explicit CAsioEcho(std::size_t connections);
    ~CAsioEcho();
    CAsioEcho(const CAsioEcho&) = delete;
    CAsioEcho& operator=(const CAsioEcho&) = delete;

    // Sends `text` there and back on every connection, again and again while `next`, asked on this thread after each
    // round trip, is true.
    void Run(const std::string& text, const std::function<bool()>& next);

private:
    class CImpl;
    std::unique_ptr<CImpl> m_pImpl;
};

#endif
