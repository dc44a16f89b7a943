// The ps_* calls of the scripted stack.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "ipstack/ps_socket.h"
#include "tests/unit/scripted/CScriptedPipes.h"
#include "tests/unit/scripted/CScriptedRun.h"

namespace
{

constexpr unsigned int MAX_LISTED = 16;

std::string Text(long number)
{
    return std::to_string(number);
}

template <class... Rest>
std::string Text(long number, Rest... rest)
{
    return Text(number) + "," + Text(rest...);
}

CScriptedPipes& Pipes()
{
    return CScriptedPipes::Instance();
}

std::string Bytes(const void* data, unsigned long length)
{
    return data ? std::string(static_cast<const char*>(data), length) : std::string();
}

// Writes a record of a working pipe as the answer of a script would be written.
void Store(const std::string& record, ps_sockaddr* address, int* length)
{
    if (!address || !length)
        return;
    const std::size_t room = *length < 0 ? 0 : static_cast<std::size_t>(*length);
    std::memcpy(address, record.data(), std::min(room, record.size()));
    *length = static_cast<int>(record.size());
}

int NameCall(const char* name, int handle, ps_sockaddr* address, int* length, bool peer)
{
    const bool pipe = Pipes().Owns(handle);
    CScriptedRun run(name, handle, Text(handle, length ? *length : 0), pipe);
    if (pipe && !run.IsScripted())
        Store(peer ? Pipes().PeerRecord(handle) : Pipes().LocalRecord(handle), address, length);
    run.StoreAddress(address, length);
    return static_cast<int>(run.Finish(0, ":" + (address ? ScriptedAddressText(address, 28) : std::string())));
}

long SendCall(const char* name, int handle, const std::string& arguments, const std::string& data)
{
    const bool pipe = Pipes().Owns(handle);
    CScriptedRun run(name, handle, arguments, pipe);
    run.KeepData(data);
    long unscripted = static_cast<long>(data.size());
    if (pipe && !run.IsScripted())
        unscripted = Pipes().Send(handle, data.data(), data.size());
    const long result = run.Finish(unscripted);
    run.Accepted(data, result);
    return result;
}

int PlainCall(const char* name, int handle, const std::string& arguments, bool pipe = false)
{
    CScriptedRun run(name, handle, arguments, pipe);
    return static_cast<int>(run.Finish(0));
}

int ApplyReady(const CScriptedRun& run, ps_pollfd* entries, unsigned int count)
{
    int ready = 0;
    for (unsigned int i = 0; i < count; ++i) {
        for (const auto& [handle, events] : run.Answer().m_Ready) {
            if (entries[i].fd == handle)
                entries[i].revents = static_cast<short>(entries[i].revents | events);
        }
        if (entries[i].revents != 0)
            ++ready;
    }
    return ready;
}

int ApplyReady(const CScriptedRun& run, ps_fdsets& out)
{
    out.read.count = out.write.count = out.except.count = 0;
    for (const auto& [handle, events] : run.Answer().m_Ready) {
        if (events & PS_POLLIN)
            out.read.handles[out.read.count++] = handle;
        if (events & PS_POLLOUT)
            out.write.handles[out.write.count++] = handle;
    }
    return static_cast<int>(out.read.count + out.write.count);
}

std::string ListText(const int* handles, unsigned int count)
{
    std::string text = "[";
    for (unsigned int i = 0; i < count && i < MAX_LISTED; ++i)
        text += (i != 0 ? "," : "") + std::to_string(handles[i]);
    return text + (count > MAX_LISTED ? ",...]" : "]");
}

std::string EntriesText(const ps_pollfd* entries, unsigned int count)
{
    std::string text = "[";
    for (unsigned int i = 0; i < count && i < MAX_LISTED; ++i)
        text += (i != 0 ? "," : "") + std::to_string(entries[i].fd) + ":" + std::to_string(entries[i].events);
    return text + (count > MAX_LISTED ? ",...]" : "]");
}

}  // namespace

int ps_socket(int family, int type, int protocol)
{
    CScriptedRun run("ps_socket", -1, Text(family, type, protocol));
    const bool needed = !run.Answer().m_Result;
    return static_cast<int>(run.Finish(needed ? CScriptedRun::NewHandle() : 0));
}

int ps_bind(int handle, const ps_sockaddr* address, int length)
{
    const bool pipe = Pipes().IsMeetingPoint(address);
    CScriptedRun run("ps_bind", handle, Text(handle) + "," + ScriptedAddressText(address, length) + "," + Text(length),
                     pipe);
    if (pipe && !run.IsScripted())
        Pipes().Bind(handle);
    return static_cast<int>(run.Finish(0));
}

int ps_listen(int handle, int backlog)
{
    return PlainCall("ps_listen", handle, Text(handle, backlog), Pipes().Owns(handle));
}

int ps_accept(int handle, ps_sockaddr* address, int* length)
{
    const bool pipe = Pipes().Owns(handle);
    CScriptedRun run("ps_accept", handle, Text(handle, length ? *length : 0), pipe);
    int unscripted = -1;
    if (pipe && !run.IsScripted()) {
        std::string record;
        unscripted = Pipes().Accept(handle, CScriptedRun::NewHandle(), record);
        if (unscripted != -1)
            Store(record, address, length);
    }
    if (unscripted == -1 && !run.Answer().m_Result)
        CScriptedRun::Error() = PS_EAGAIN;
    run.StoreAddress(address, length);
    const bool given = run.Answer().m_Record && address;
    return static_cast<int>(run.Finish(unscripted, given ? ":" + ScriptedAddressText(address, 28) : std::string()));
}

int ps_connect(int handle, const ps_sockaddr* address, int length)
{
    const bool pipe = Pipes().IsMeetingPoint(address);
    CScriptedRun run("ps_connect", handle,
                     Text(handle) + "," + ScriptedAddressText(address, length) + "," + Text(length), pipe);
    int unscripted = 0;
    if (pipe && !run.IsScripted())
        unscripted = Pipes().Connect(handle);
    return static_cast<int>(run.Finish(unscripted));
}

long ps_send(int handle, const void* data, unsigned long length, int flags)
{
    const std::string bytes = Bytes(data, length);
    return SendCall("ps_send", handle, Text(handle) + "," + ScriptedDataText(bytes) + "," + Text(flags), bytes);
}

long ps_sendto(int handle, const void* data, unsigned long length, int flags, const ps_sockaddr* address,
               int addressLength)
{
    const std::string bytes = Bytes(data, length);
    return SendCall("ps_sendto", handle,
                    Text(handle) + "," + ScriptedDataText(bytes) + "," + Text(flags) + "," +
                        ScriptedAddressText(address, addressLength) + "," + Text(addressLength),
                    bytes);
}

long ps_writev(int handle, const ps_iovec* pieces, unsigned long count)
{
    std::string bytes;
    std::string lengths = "[";
    for (unsigned long i = 0; i < count; ++i) {
        bytes += Bytes(pieces[i].iov_base, pieces[i].iov_len);
        if (i < MAX_LISTED)
            lengths += (i != 0 ? "," : "") + std::to_string(pieces[i].iov_len);
    }
    lengths += count > MAX_LISTED ? ",...]" : "]";
    return SendCall("ps_writev", handle, Text(handle) + "," + lengths + "," + Text(static_cast<long>(count)), bytes);
}

long ps_recv(int handle, void* data, unsigned long length, int flags)
{
    const bool pipe = Pipes().Owns(handle);
    CScriptedRun run("ps_recv", handle, Text(handle, static_cast<long>(length), flags), pipe);
    long unscripted = 0;
    if (pipe && !run.IsScripted())
        unscripted = Pipes().Recv(handle, data, length);
    else
        unscripted = run.StoreData(data, length);
    if (unscripted > 0)
        run.KeepData(Bytes(data, static_cast<unsigned long>(unscripted)));
    return run.Finish(unscripted);
}

long ps_recvfrom(int handle, void* data, unsigned long length, int flags, ps_sockaddr* address, int* addressLength)
{
    CScriptedRun run("ps_recvfrom", handle,
                     Text(handle, static_cast<long>(length), flags, addressLength ? *addressLength : 0));
    const long unscripted = run.StoreData(data, length);
    if (unscripted > 0)
        run.KeepData(Bytes(data, static_cast<unsigned long>(unscripted)));
    run.StoreAddress(address, addressLength);
    const bool given = run.Answer().m_Record && address;
    return run.Finish(unscripted, given ? ":" + ScriptedAddressText(address, 28) : std::string());
}

int ps_poll(ps_pollfd* entries, unsigned int count, int timeout)
{
    CScriptedRun run("ps_poll", -1, EntriesText(entries, count) + "," + Text(count, timeout), false);
    run.KeepEntries(entries, count);
    if (run.IsScripted())
        return static_cast<int>(run.Finish(ApplyReady(run, entries, count)));
    if (Pipes().IsEnabled())
        return static_cast<int>(run.Finish(Pipes().Poll(entries, count, timeout)));
    ADD_FAILURE() << "ps_poll beyond the script: " << EntriesText(entries, count);
    return static_cast<int>(run.Finish(-1));
}

int ps_select(int highest, const ps_fdsets* in, ps_fdsets* out, const ps_timeval* timeout)
{
    const std::string time =
        timeout ? std::to_string(timeout->tv_sec) + "s" + std::to_string(timeout->tv_usec) + "us" : std::string("null");
    const std::string lists = ListText(in->read.handles, in->read.count) + "," +
                              ListText(in->write.handles, in->write.count) + "," +
                              ListText(in->except.handles, in->except.count);
    CScriptedRun run("ps_select", -1, Text(highest) + "," + lists + "," + time, false);
    run.KeepLists(*in);
    if (run.IsScripted())
        return static_cast<int>(run.Finish(ApplyReady(run, *out)));
    if (Pipes().IsEnabled())
        return static_cast<int>(run.Finish(Pipes().Select(*in, *out, timeout)));
    ADD_FAILURE() << "ps_select beyond the script: " << lists;
    return static_cast<int>(run.Finish(-1));
}

int ps_close(int handle)
{
    const bool pipe = Pipes().Owns(handle);
    CScriptedRun run("ps_close", handle, Text(handle), pipe);
    if (pipe && !run.IsScripted())
        Pipes().Close(handle);
    return static_cast<int>(run.Finish(0));
}

int ps_shutdown(int handle, int direction)
{
    return PlainCall("ps_shutdown", handle, Text(handle, direction));
}

int ps_getsockname(int handle, ps_sockaddr* address, int* length)
{
    return NameCall("ps_getsockname", handle, address, length, false);
}

int ps_getpeername(int handle, ps_sockaddr* address, int* length)
{
    return NameCall("ps_getpeername", handle, address, length, true);
}

int ps_setsockopt(int handle, int level, int name, const void* value, int length)
{
    std::string text = "null";
    if (value && length == static_cast<int>(sizeof(int))) {
        int number = 0;
        std::memcpy(&number, value, sizeof number);
        text = std::to_string(number);
    } else if (value && length == static_cast<int>(sizeof(long))) {
        long number = 0;
        std::memcpy(&number, value, sizeof number);
        text = std::to_string(number);
    } else if (value && length > 0) {
        text = ScriptedDataText(Bytes(value, static_cast<unsigned long>(length)));
    }
    return PlainCall("ps_setsockopt", handle, Text(handle, level, name) + "," + text + "," + Text(length));
}

int ps_getsockopt(int handle, int level, int name, void* value, int* length)
{
    CScriptedRun run("ps_getsockopt", handle, Text(handle, level, name, length ? *length : 0));
    if (value && length)
        run.StoreValue(value, *length);
    return static_cast<int>(run.Finish(0));
}

int ps_fcntl(int handle, int command, int value)
{
    return PlainCall("ps_fcntl", handle, Text(handle, command, value));
}

int ps_ioctl(int handle, int command, void* value)
{
    CScriptedRun run("ps_ioctl", handle, Text(handle, command));
    if (value)
        run.StoreValue(value, sizeof(int));
    return static_cast<int>(run.Finish(0));
}

int ps_socket_nonblock(int handle)
{
    const bool pipe = Pipes().Owns(handle);
    CScriptedRun run("ps_socket_nonblock", handle, Text(handle), pipe);
    if (pipe && !run.IsScripted())
        Pipes().SetNonBlocking(handle);
    return static_cast<int>(run.Finish(0));
}

int ps_nodelay(int handle, int on)
{
    return PlainCall("ps_nodelay", handle, Text(handle, on), Pipes().Owns(handle));
}

int ps_set_snd_rcv_buffer(int handle, int send, int receive)
{
    const bool pipe = Pipes().Owns(handle);
    CScriptedRun run("ps_set_snd_rcv_buffer", handle, Text(handle, send, receive), pipe);
    if (pipe && !run.IsScripted())
        Pipes().SetReceiveBuffer(handle, receive);
    return static_cast<int>(run.Finish(0));
}

int ps_is_socket_errno(int handle)
{
    return PlainCall("ps_is_socket_errno", handle, Text(handle));
}

int get_pserrno(void)
{
    CScriptedRun run("get_pserrno", -1, std::string());
    return static_cast<int>(run.Finish(CScriptedRun::Error()));
}
