#include "bench/CAsioEcho.h"

#include <array>
#include <deque>
#include <thread>
#include <vector>

#define ASIO_STANDALONE
#include <asio.hpp>

using asio::ip::tcp;

namespace
{

constexpr std::size_t READ_SIZE = 65535;

// One end: reads and writes on the I/O thread, is heard and told on the application's.
class CEnd : public std::enable_shared_from_this<CEnd>
{
public:
    CEnd(asio::io_context& application, tcp::socket socket) : m_Application(application), m_Socket(std::move(socket))
    {
        m_Socket.set_option(tcp::no_delay(true));
    }

    // Thread: the I/O thread.
    void Read()
    {
        m_Socket.async_read_some(
            asio::buffer(m_Read), [self = shared_from_this()](std::error_code error, std::size_t length) {
                if (error)
                    return;
                asio::post(self->m_Application,
                           [self, text = std::string(self->m_Read.data(), length)] { self->m_fOnReceive(text); });
                self->Read();
            });
    }

    void Close() { m_Socket.close(); }

    // Thread: the application's.
    void Send(std::string text)
    {
        asio::post(m_Socket.get_executor(), [self = shared_from_this(), text = std::move(text)]() mutable {
            self->m_Writes.push_back(std::move(text));
            if (self->m_Writes.size() == 1)
                self->Write();
        });
    }

    std::function<void(const std::string&)> m_fOnReceive;

private:
    void Write()
    {
        asio::async_write(m_Socket, asio::buffer(m_Writes.front()),
                          [self = shared_from_this()](std::error_code error, std::size_t) {
                              if (error)
                                  return;
                              self->m_Writes.pop_front();
                              if (!self->m_Writes.empty())
                                  self->Write();
                          });
    }

    asio::io_context& m_Application;
    tcp::socket m_Socket;
    std::array<char, READ_SIZE> m_Read;
    std::deque<std::string> m_Writes;
};

}  // namespace

class CAsioEcho::CImpl
{
public:
    asio::io_context m_Io{1};
    asio::io_context m_Application{1};
    std::vector<std::shared_ptr<CEnd>> m_Clients;
    std::vector<std::shared_ptr<CEnd>> m_Servers;
    std::thread m_Thread;
};

CAsioEcho::CAsioEcho(std::size_t connections) : m_pImpl(std::make_unique<CImpl>())
{
    CImpl& impl = *m_pImpl;
    tcp::acceptor acceptor(impl.m_Io, tcp::endpoint(asio::ip::address_v4::loopback(), 0));
    for (std::size_t i = 0; i < connections; ++i) {
        tcp::socket client(impl.m_Io);
        client.connect(acceptor.local_endpoint());
        impl.m_Servers.push_back(std::make_shared<CEnd>(impl.m_Application, acceptor.accept()));
        impl.m_Clients.push_back(std::make_shared<CEnd>(impl.m_Application, std::move(client)));
    }
    for (auto* ends : {&impl.m_Clients, &impl.m_Servers}) {
        for (const auto& end : *ends)
            end->Read();
    }
    impl.m_Thread = std::thread([&impl] {
        const auto work = asio::make_work_guard(impl.m_Io);
        impl.m_Io.run();
    });
}

CAsioEcho::~CAsioEcho()
{
    m_pImpl->m_Io.stop();
    m_pImpl->m_Thread.join();
}

void CAsioEcho::Run(const std::string& text, const std::function<bool()>& next)
{
    CImpl& impl = *m_pImpl;
    for (const auto& server : impl.m_Servers)
        server->m_fOnReceive = [end = server.get()](const std::string& data) { end->Send(data); };
    for (const auto& client : impl.m_Clients) {
        client->m_fOnReceive = [&, end = client.get(), arrived = std::size_t{0}](const std::string& data) mutable {
            arrived += data.size();
            if (arrived < text.size())
                return;
            arrived = 0;
            if (next())
                end->Send(text);
            else
                impl.m_Application.stop();
        };
        client->Send(text);
    }
    const auto work = asio::make_work_guard(impl.m_Application);
    impl.m_Application.run();
}
