#include "CCallsRound.h"

#include <climits>
#include <cstring>
#include <memory>

#include "tests/unit/ipstack/PacketMaker.h"

namespace
{

constexpr std::uint16_t FirstPort = 7000;

// Where sockets are bound and sent to: the stack's own addresses twice, as what goes there comes back.
constexpr const char* Hosts4[] = {"127.0.0.1", CFuzzStack::s_szOwn, "0.0.0.0",   CFuzzStack::s_szPeer,
                                  "127.0.0.1", CFuzzStack::s_szOwn, "127.0.0.2", "255.255.255.255",
                                  "224.0.0.1", "10.66.0.255",       "192.0.2.1"};
constexpr const char* Hosts6[] = {
    "::1",     CFuzzStack::s_szOwn6, "::",         CFuzzStack::s_szPeer6, "::1", "fd66::1", "fe80::1",
    "ff02::1", "::ffff:10.66.0.1",   "2001:db8::1"};

const ps_sockaddr* Plain(const std::vector<char>& record)
{
    return reinterpret_cast<const ps_sockaddr*>(record.data());
}

}  // namespace

void CCallsRound::Run()
{
    CFuzzStack& stack = CFuzzStack::Instance();
    for (unsigned int i = 0; i < s_dwMostCalls && !m_Input.IsOver(); ++i) {
        m_nCauseBefore = get_pserrno();
        Call();
    }
    for (const int socket : m_Sockets) {
        Require(ps_close(socket) == 0, "an open socket can be closed");
    }
    stack.CheckRest();
}

void CCallsRound::Call()
{
    using COperation = void (CCallsRound::*)();
    constexpr COperation operations[] = {
        &CCallsRound::Open,   &CCallsRound::Open,      &CCallsRound::Close,     &CCallsRound::Accept,
        &CCallsRound::Send,   &CCallsRound::Send,      &CCallsRound::SendTo,    &CCallsRound::SendTo,
        &CCallsRound::WriteV, &CCallsRound::Receive,   &CCallsRound::Receive,   &CCallsRound::Names,
        &CCallsRound::Names,  &CCallsRound::SetOption, &CCallsRound::SetOption, &CCallsRound::GetOption,
        &CCallsRound::Poll,   &CCallsRound::Select,    &CCallsRound::Pass,
    };
    const unsigned int operation = m_Input.Byte() % 24;
    if (operation < std::size(operations)) {
        (this->*operations[operation])();
        return;
    }
    const int socket = Pick();
    switch (operation) {
    case 19: {
        const std::vector<char> address = Address();
        Check(ps_bind(socket, Plain(address), static_cast<int>(address.size())), 0);
        break;
    }
    case 20:
        Check(ps_listen(socket, static_cast<signed char>(m_Input.Byte())), 0);
        break;
    case 21:
    case 22: {
        const std::vector<char> address = Address();
        Check(ps_connect(socket, Plain(address), static_cast<int>(address.size())), 0);
        break;
    }
    default:
        Check(ps_shutdown(socket, m_Input.Byte() % 4), 0);
        break;
    }
}

long CCallsRound::Check(long result, long most)
{
    constexpr int largestCause = 133;
    Require(result >= -1 && result <= most, "a result is within its bounds");
    const int cause = get_pserrno();
    Require(result == -1 ? cause > 0 && cause <= largestCause : cause == m_nCauseBefore,
            "a failure has a cause, a success leaves the last one alone");
    m_nCauseBefore = cause;
    return result;
}

// Mostly one of the sockets; else a handle that is none.
int CCallsRound::Pick()
{
    constexpr int others[] = {0, -1, INT_MAX, INT_MIN, 8193, 70000};
    const unsigned int pick = m_Input.Byte();
    constexpr unsigned int odd = 0xF0;
    if (pick >= odd || m_Sockets.empty()) {
        return others[pick % std::size(others)];
    }
    return m_Sockets[pick % m_Sockets.size()];
}

// A record, mostly a good one, which ends where its memory does.
std::vector<char> CCallsRound::Address()
{
    enum EForm : unsigned int
    {
        SIX = 1,
        CUT = 2,
        CHANGED = 4,
        NO_FAMILY = 8
    };
    const unsigned int form = m_Input.Byte() & 0x0F;
    const unsigned int host = m_Input.Byte();
    const auto port = static_cast<std::uint16_t>(FirstPort + m_Input.Byte() % 8);
    ps_sockaddr_in6 record{};
    const bool six = (form & SIX) != 0;
    record.sin6_len = six ? sizeof(ps_sockaddr_in6) : sizeof(ps_sockaddr_in);
    record.sin6_family = six ? PS_AF_INET6 : PS_AF_INET;
    record.sin6_port = static_cast<std::uint16_t>(port << 8 | port >> 8);
    if (six) {
        const auto address = packetmaker::Address6(Hosts6[host % std::size(Hosts6)]);
        std::copy(address.begin(), address.end(), record.sin6_addr);
    } else {
        reinterpret_cast<ps_sockaddr_in&>(record).sin_addr = packetmaker::Address4(Hosts4[host % std::size(Hosts4)]);
    }
    const char* const bytes = reinterpret_cast<const char*>(&record);
    std::vector<char> address(bytes, bytes + record.sin6_len);
    // Two of the rare forms at once: they would be too frequent otherwise.
    if ((form & (CHANGED | CUT)) == (CHANGED | CUT)) {
        address[m_Input.Byte() % address.size()] = static_cast<char>(m_Input.Byte());
        address.resize(m_Input.Byte() % (address.size() + 1));
    }
    if ((form & (CHANGED | NO_FAMILY)) == (CHANGED | NO_FAMILY) && address.size() > 1) {
        address[1] = 0;
    }
    address.shrink_to_fit();
    return address;
}

void CCallsRound::Keep(int socket)
{
    if (ps_socket_nonblock(socket) == 0) {
        m_Sockets.push_back(socket);
    }
    if (m_Sockets.size() > s_nMostSockets) {
        Require(ps_close(m_Sockets.front()) == 0, "an open socket can be closed");
        m_Sockets.erase(m_Sockets.begin());
    }
}

void CCallsRound::Open()
{
    constexpr int families[] = {PS_AF_INET, PS_AF_INET6, PS_AF_INET, PS_AF_INET6, 0, 1};
    constexpr int types[] = {PS_SOCK_STREAM, PS_SOCK_DGRAM, PS_SOCK_RAW, PS_SOCK_STREAM, PS_SOCK_DGRAM, PS_SOCK_RAW, 0};
    const int family = families[m_Input.Byte() % std::size(families)];
    const int type = types[m_Input.Byte() % std::size(types)];
    const int protocol = type == PS_SOCK_RAW ? m_Input.Byte() : 0;
    const long socket = Check(ps_socket(family, type, protocol), INT_MAX);
    if (socket > 0) {
        Keep(static_cast<int>(socket));
    }
}

void CCallsRound::Close()
{
    const int socket = Pick();
    const bool open = Check(ps_close(socket), 0) == 0;
    for (std::size_t i = 0; i < m_Sockets.size(); ++i) {
        if (m_Sockets[i] == socket) {
            Require(open, "an open socket can be closed");
            m_Sockets.erase(m_Sockets.begin() + static_cast<std::ptrdiff_t>(i));
            Require(ps_recv(socket, nullptr, 0, 0) == -1 && get_pserrno() == PS_EBADF, "a closed handle is none");
            return;
        }
    }
    Require(!open, "what is no socket can't be closed");
}

void CCallsRound::Accept()
{
    const int room = m_Input.Byte() % 40;
    const std::unique_ptr<char[]> address(new char[static_cast<std::size_t>(room)]);
    int length = room;
    const long socket = Check(ps_accept(Pick(), reinterpret_cast<ps_sockaddr*>(address.get()), &length), INT_MAX);
    if (socket > 0) {
        Keep(static_cast<int>(socket));
    }
}

// Few bytes as in the input, or many that mean nothing.
std::string CCallsRound::Payload()
{
    constexpr std::size_t longest = 16;
    const unsigned int form = m_Input.Byte();
    if (form % 8 == 7) {
        return Header4();
    }
    if (form % 2 == 0) {
        return m_Input.Text(form / 2);
    }
    std::string bytes = m_Input.Text(longest);
    bytes.resize(form == 0xFF ? 70000 : m_Input.Word());
    return bytes;
}

// An IPv4 packet for who writes its header: from and to any address, with some bytes of the input behind it.
std::string CCallsRound::Header4()
{
    const char* const source = Hosts4[m_Input.Byte() % std::size(Hosts4)];
    const char* const destination = Hosts4[m_Input.Byte() % std::size(Hosts4)];
    const std::uint8_t protocol = m_Input.Byte();
    const std::uint16_t fragment = m_Input.Byte() % 4 == 3 ? m_Input.Word() : std::uint16_t{0};
    const packetmaker::CHeader4 header{source, destination, protocol, fragment};
    packetmaker::CPacket packet = packetmaker::Make4(header, m_Input.Bytes(m_Input.Byte()));
    if (m_Input.Byte() % 4 == 3) {
        packet[m_Input.Byte() % packet.size()] = m_Input.Byte();
    }
    return {packet.begin(), packet.end()};
}

void CCallsRound::Send()
{
    const int socket = Pick();
    const std::string data = Payload();
    Check(ps_send(socket, data.data(), data.size(), 0), static_cast<long>(data.size()));
}

void CCallsRound::SendTo()
{
    const int socket = Pick();
    const std::vector<char> address = Address();
    const std::string data = Payload();
    Check(ps_sendto(socket, data.data(), data.size(), 0, Plain(address), static_cast<int>(address.size())),
          static_cast<long>(data.size()));
}

void CCallsRound::WriteV()
{
    const int socket = Pick();
    const unsigned long count = m_Input.Byte() % 4 == 3 ? PS_IOV_MAX + m_Input.Byte() % 2 : m_Input.Byte() % 8;
    std::string data = Payload();
    std::vector<ps_iovec> pieces(count);
    std::size_t at = 0;
    for (ps_iovec& piece : pieces) {
        const std::size_t length = std::min<std::size_t>(m_Input.Byte(), data.size() - at);
        piece = {data.data() + at, length};
        at += length;
    }
    Check(ps_writev(socket, pieces.data(), count), static_cast<long>(at));
}

void CCallsRound::Receive()
{
    const int socket = Pick();
    const std::size_t room = m_Input.Byte() % 8 == 7 ? 70000 : m_Input.Byte();
    const std::unique_ptr<char[]> data(new char[room]);
    const int flags = m_Input.Byte() & PS_MSG_PEEK;
    const int addressRoom = m_Input.Byte() % 64;
    const std::unique_ptr<char[]> address(new char[static_cast<std::size_t>(addressRoom)]);
    int length = addressRoom;
    Check(ps_recvfrom(socket, data.get(), room, flags,
                      addressRoom >= 40 ? nullptr : reinterpret_cast<ps_sockaddr*>(address.get()), &length),
          static_cast<long>(room));
    std::int32_t waiting = 0;
    Check(ps_ioctl(socket, m_Input.Byte() % 8 == 7 ? 0 : PS_FIONREAD, &waiting), 0);
    Require(waiting >= 0, "what waits can be counted");
}

void CCallsRound::Names()
{
    const int socket = Pick();
    const int room = m_Input.Byte() % 40;
    const std::unique_ptr<char[]> address(new char[static_cast<std::size_t>(room)]);
    auto* const record = room == 39 ? nullptr : reinterpret_cast<ps_sockaddr*>(address.get());
    int length = room;
    Check(ps_getsockname(socket, record, &length), 0);
    length = room == 38 ? -1 : room;
    Check(ps_getpeername(socket, record, &length), 0);
    Check(ps_is_socket_errno(socket), INT_MAX);
    Check(ps_fcntl(socket, PS_F_GETFL, 0), PS_O_NONBLOCK);
    Check(ps_fcntl(socket, m_Input.Byte() % 8, PS_O_NONBLOCK | (m_Input.Byte() & 2)), PS_O_NONBLOCK);
}

void CCallsRound::SetOption()
{
    constexpr int levels[] = {PS_SOL_SOCKET, PS_SOL_SOCKET_LINUX, PS_IPPROTO_TCP, PS_IPPROTO_IP, PS_IPPROTO_IPV6};
    const int socket = Pick();
    const unsigned int kind = m_Input.Byte();
    if (kind >= 0xF8) {
        Check(ps_set_snd_rcv_buffer(socket, static_cast<int>(m_Input.DWord()), static_cast<int>(m_Input.DWord())), 0);
        Check(ps_nodelay(socket, m_Input.Byte()), 0);
        return;
    }
    const int level = levels[kind % std::size(levels)];
    int name = m_Input.Byte() % 16;
    if (level == PS_SOL_SOCKET) {
        constexpr int names[] = {PS_SO_REUSEADDR, PS_SO_KEEPALIVE, PS_SO_BROADCAST, PS_SO_LINGER,
                                 PS_SO_SNDBUF,    PS_SO_RCVBUF,    PS_SO_ERROR,     PS_SO_TYPE};
        name = names[static_cast<unsigned int>(name) % std::size(names)];
    }
    const unsigned int form = m_Input.Byte();
    const std::int64_t value = form % 4 == 3 ? m_Input.DWord() : form % 4 == 2 ? -1 : m_Input.Byte();
    std::vector<char> bytes(sizeof(value));
    std::memcpy(bytes.data(), &value, sizeof(value));
    constexpr std::size_t lengths[] = {4, 8, 4, 8, 4, 8, 3, 0};
    bytes.resize(lengths[form / 4 % std::size(lengths)]);
    bytes.shrink_to_fit();
    Check(ps_setsockopt(socket, level, name, bytes.data(), static_cast<int>(bytes.size())), 0);
}

void CCallsRound::GetOption()
{
    constexpr int levels[] = {PS_SOL_SOCKET, PS_SOL_SOCKET_LINUX, PS_IPPROTO_TCP, PS_IPPROTO_IP, PS_IPPROTO_IPV6};
    const int socket = Pick();
    const int level = levels[m_Input.Byte() % std::size(levels)];
    const unsigned int pick = m_Input.Byte();
    const int name = static_cast<int>(pick < 0x80 ? pick : 0x1000 + pick % 16);
    const int room = m_Input.Byte() % 12;
    const std::unique_ptr<char[]> value(new char[static_cast<std::size_t>(room)]);
    int length = room;
    Check(ps_getsockopt(socket, level, name, value.get(), &length), 0);
    Require(length >= 0 && length <= std::max(room, 0), "an option fits its room");
}

void CCallsRound::Poll()
{
    std::vector<ps_pollfd> entries(m_Input.Byte() % 8);
    for (ps_pollfd& entry : entries) {
        entry = {Pick(), static_cast<short>(m_Input.Byte()), -1};
    }
    const int timeout = m_Input.Byte() % 4 == 3 ? m_Input.Word() : 0;
    const long ready = Check(ps_poll(entries.data(), static_cast<unsigned int>(entries.size()), timeout),
                             static_cast<long>(entries.size()));
    long events = 0;
    for (const ps_pollfd& entry : entries) {
        Require(entry.fd >= 0 || entry.revents == 0, "a negative handle is passed over");
        Require((entry.revents & ~(entry.events | PS_POLLERR | PS_POLLHUP)) == 0, "only what was asked is answered");
        events += entry.revents != 0;
    }
    Require(ready == events, "the ready ones are counted");
}

void CCallsRound::Select()
{
    const auto sets = std::make_unique<ps_fdsets>();
    for (ps_fdlist* list : {&sets->read, &sets->write, &sets->except}) {
        list->count = m_Input.Byte() % 4;
        for (unsigned int i = 0; i < list->count; ++i) {
            list->handles[i] = Pick();
        }
    }
    // For ever, or nearly, only where the answer is there at once.
    ps_pollfd entry{sets->read.count != 0 ? sets->read.handles[0] : -1, PS_POLLIN, 0};
    const bool there = ps_poll(&entry, 1, 0) != 0;
    const unsigned int form = m_Input.Byte();
    const ps_timeval limit{there ? static_cast<long>(std::uint64_t{m_Input.DWord()} << 32) : form % 2,
                           static_cast<long>(m_Input.DWord())};
    const long most = static_cast<long>(sets->read.count) + sets->write.count + sets->except.count;
    const auto out = std::make_unique<ps_fdsets>();
    Check(ps_select(0, sets.get(), form % 4 < 2 ? sets.get() : out.get(), there && form % 8 == 7 ? nullptr : &limit),
          most);
}

void CCallsRound::Pass()
{
    constexpr int steps[] = {0, 1, 50, 300, 1000, 5000, 61000, 600000};
    CFuzzStack::Pass(steps[m_Input.Byte() % std::size(steps)]);
}
