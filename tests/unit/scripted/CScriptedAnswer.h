// One answer of the script.
#ifndef TESTS_UNIT_SCRIPTED_CSCRIPTEDANSWER_H
#define TESTS_UNIT_SCRIPTED_CSCRIPTEDANSWER_H

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// What the stack answers to one call. Everything that is not set is what the stack answers without a script.
class CScriptedAnswer
{
public:
    // The result. Without it: the length of WithData, the number of WithReady, or the call's own default.
    CScriptedAnswer& Returns(long result)
    {
        m_Result = result;
        return *this;
    }

    // -1, with this cause in get_pserrno().
    CScriptedAnswer& Fails(int cause) { return WithError(cause).Returns(-1); }

    // What get_pserrno() answers from now on, and what the system's errno becomes.
    CScriptedAnswer& WithError(int cause)
    {
        m_Error = cause;
        return *this;
    }
    CScriptedAnswer& WithErrno(int value)
    {
        m_Errno = value;
        return *this;
    }

    // Bytes for ps_recv and ps_recvfrom; what is beyond the caller's room is dropped.
    CScriptedAnswer& WithData(std::string data)
    {
        m_Data = std::move(data);
        return *this;
    }

    // The address that the call writes; a record is written as it is, odd length and family bytes included.
    CScriptedAnswer& WithAddress(const char* host, unsigned short port);
    CScriptedAnswer& WithRecord(std::string record)
    {
        m_Record = std::move(record);
        return *this;
    }

    // The value for ps_getsockopt and ps_ioctl, written in the caller's length.
    CScriptedAnswer& WithValue(long value)
    {
        m_Value = value;
        return *this;
    }

    // Returned events for one handle of a wait (PS_POLLIN puts it into the read list of a select, PS_POLLOUT
    // into the write list); in the order of these calls for a select. A handle that is not asked for counts too
    // in a select and is left out in a poll.
    CScriptedAnswer& WithReady(int handle, short events)
    {
        m_Ready.emplace_back(handle, events);
        return *this;
    }

    // Runs inside the call, on the calling thread and without any lock, before the answer is given. It may call
    // the stack, extend the script, take calls, stop loops.
    CScriptedAnswer& Calls(std::function<void()> function)
    {
        m_Function = std::move(function);
        return *this;
    }

    // The same answer to so many calls.
    CScriptedAnswer& Times(unsigned int times)
    {
        m_dwTimes = times;
        return *this;
    }

    std::optional<long> m_Result;
    std::optional<int> m_Error;
    std::optional<int> m_Errno;
    std::optional<std::string> m_Data;
    std::optional<std::string> m_Record;
    std::optional<long> m_Value;
    std::vector<std::pair<int, short>> m_Ready;
    std::function<void()> m_Function;
    unsigned int m_dwTimes = 1;
};

#endif
