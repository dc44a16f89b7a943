#include "tests/unit/scripted/CScriptedStack.h"

#include <gtest/gtest.h>

#include <cstring>

#include "mantle/CMNInetAddr.h"
#include "tests/unit/scripted/CScriptedPipes.h"
#include "tests/unit/scripted/CScriptedRun.h"

namespace
{

using CLock = std::lock_guard<std::mutex>;

const std::set<std::string>& KnownNames()
{
    static const std::set<std::string> s_Names = {"ps_socket",
                                                  "ps_bind",
                                                  "ps_listen",
                                                  "ps_accept",
                                                  "ps_connect",
                                                  "ps_send",
                                                  "ps_sendto",
                                                  "ps_writev",
                                                  "ps_recv",
                                                  "ps_recvfrom",
                                                  "ps_poll",
                                                  "ps_select",
                                                  "ps_close",
                                                  "ps_shutdown",
                                                  "ps_getsockname",
                                                  "ps_getpeername",
                                                  "ps_setsockopt",
                                                  "ps_getsockopt",
                                                  "ps_fcntl",
                                                  "ps_ioctl",
                                                  "ps_socket_nonblock",
                                                  "ps_nodelay",
                                                  "ps_set_snd_rcv_buffer",
                                                  "ps_is_socket_errno",
                                                  "get_pserrno",
                                                  "Manager::Startup",
                                                  "Manager::AttachThread",
                                                  "Manager::IsInitialized",
                                                  "Manager::CreateStack",
                                                  "Manager::DestroyStack",
                                                  "Manager::GetCounters"};
    return s_Names;
}

}  // namespace

CScriptedAnswer& CScriptedAnswer::WithAddress(const char* host, unsigned short port)
{
    const mantle::CMNInetAddr address(host, port);
    return WithRecord(
        std::string(static_cast<const char*>(address.PrepareForStack()), static_cast<std::size_t>(address.GetSize())));
}

CScriptedStack& CScriptedStack::Instance()
{
    static CScriptedStack& s_Stack = *new CScriptedStack;  // threads may outlive main
    return s_Stack;
}

bool CScriptedStack::CheckName(const std::string& name)
{
    const bool known = KnownNames().count(name) != 0;
    EXPECT_TRUE(known) << "the stack has no call " << name;
    return known;
}

CScriptedAnswer& CScriptedStack::On(const std::string& name)
{
    return On(name, s_nAnyHandle);
}

CScriptedAnswer& CScriptedStack::On(const std::string& name, int handle)
{
    const bool known = CheckName(name);
    CLock lock(m_Mutex);
    return known ? m_Script[{name, handle}].emplace_back() : m_Unknown = CScriptedAnswer();
}

CScriptedAnswer& CScriptedStack::Default(const std::string& name)
{
    return Default(name, s_nAnyHandle);
}

CScriptedAnswer& CScriptedStack::Default(const std::string& name, int handle)
{
    CheckName(name);
    CLock lock(m_Mutex);
    return m_Defaults[{name, handle}] = CScriptedAnswer();
}

void CScriptedStack::EnablePipes(bool record)
{
    CScriptedPipes::Instance().Enable(record);
}

void CScriptedStack::SetReady(int handle, short events)
{
    CScriptedPipes::Instance().SetReady(handle, events, false);
}

void CScriptedStack::SetReadyOnce(int handle, short events)
{
    CScriptedPipes::Instance().SetReady(handle, events, true);
}

std::vector<std::string> CScriptedStack::TakeCalls()
{
    std::vector<std::string> texts;
    CLock lock(m_Mutex);
    for (const auto& call : m_Calls)
        texts.push_back(call->m_strText);
    m_Calls.clear();
    return texts;
}

std::vector<std::string> CScriptedStack::TakeCallsOf(const std::string& name)
{
    CheckName(name);
    std::vector<std::string> texts;
    std::vector<std::shared_ptr<CScriptedCall>> others;
    CLock lock(m_Mutex);
    for (const auto& call : m_Calls) {
        if (call->m_strName == name)
            texts.push_back(call->m_strText);
        else
            others.push_back(call);
    }
    m_Calls.swap(others);
    return texts;
}

std::vector<CScriptedCall> CScriptedStack::TakeRecords()
{
    std::vector<CScriptedCall> records;
    CLock lock(m_Mutex);
    for (const auto& call : m_Calls)
        records.push_back(*call);
    m_Calls.clear();
    return records;
}

void CScriptedStack::Note(const std::string& text)
{
    auto note = std::make_shared<CScriptedCall>();
    note->m_strName = "note";
    note->m_strText = text;
    CLock lock(m_Mutex);
    if (m_bRecording)
        m_Calls.push_back(note);
}

unsigned int CScriptedStack::CountOf(const std::string& name) const
{
    CheckName(name);
    unsigned int count = 0;
    CLock lock(m_Mutex);
    for (auto found = m_Counts.lower_bound({name, -0x7fffffff}); found != m_Counts.end(); ++found) {
        if (found->first.first != name)
            break;
        count += found->second;
    }
    return count;
}

unsigned int CScriptedStack::CountOf(const std::string& name, int handle) const
{
    CheckName(name);
    CLock lock(m_Mutex);
    const auto found = m_Counts.find({name, handle});
    return found == m_Counts.end() ? 0 : found->second;
}

std::string CScriptedStack::TakeSent(int handle)
{
    CLock lock(m_Mutex);
    return std::exchange(m_Sent[handle], std::string());
}

void CScriptedStack::SetRecording(bool on)
{
    CLock lock(m_Mutex);
    m_bRecording = on;
}

void CScriptedStack::Ignore(const std::string& name)
{
    CheckName(name);
    CLock lock(m_Mutex);
    m_Ignored.insert(name);
}

void CScriptedStack::SetNextHandle(int handle)
{
    CLock lock(m_Mutex);
    m_nNextHandle = handle;
}

int CScriptedStack::GetNextHandle()
{
    CLock lock(m_Mutex);
    return m_nNextHandle++;
}

std::vector<std::string> CScriptedStack::Leftovers() const
{
    std::vector<std::string> texts;
    CLock lock(m_Mutex);
    for (const auto& [key, answers] : m_Script) {
        unsigned long count = 0;
        for (const CScriptedAnswer& answer : answers)
            count += answer.m_dwTimes;
        if (count == 0)
            continue;
        std::string text = key.first;
        if (key.second != s_nAnyHandle)
            text += "(" + std::to_string(key.second) + ")";
        texts.push_back(text + " x" + std::to_string(count));
    }
    return texts;
}

void CScriptedStack::Reset()
{
    CScriptedPipes::Instance().Reset();
    CLock lock(m_Mutex);
    m_Script.clear();
    m_Defaults.clear();
    m_Calls.clear();
    m_Counts.clear();
    m_Sent.clear();
    m_Ignored.clear();
    m_Threads.clear();
    m_bRecording = true;
    m_nNextHandle = 101;
}

bool CScriptedStack::Take(const CKey& key, CScriptedAnswer& answer)
{
    const auto found = m_Script.find(key);
    if (found == m_Script.end())
        return false;
    auto& answers = found->second;
    while (!answers.empty() && answers.front().m_dwTimes == 0)
        answers.pop_front();
    if (answers.empty())
        return false;
    answer = answers.front();
    if (--answers.front().m_dwTimes == 0)
        answers.pop_front();
    return true;
}

bool CScriptedStack::FindDefault(const CKey& key, CScriptedAnswer& answer)
{
    const auto found = m_Defaults.find(key);
    if (found == m_Defaults.end())
        return false;
    answer = found->second;
    return true;
}
