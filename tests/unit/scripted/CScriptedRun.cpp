#include "tests/unit/scripted/CScriptedRun.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "mantle/CMNInetAddr.h"
#include "mantle/CMNThreadManager.h"
#include "tests/unit/scripted/CScriptedPipes.h"

namespace
{

constexpr std::size_t MAX_TEXT = 48;
constexpr std::size_t MAX_HEX = 16;

}  // namespace

int& CScriptedRun::Error()
{
    static thread_local int s_nError = 0;
    return s_nError;
}

CScriptedRun::CScriptedRun(const char* name, int handle, const std::string& arguments, bool pipe)
    : m_pCall(std::make_shared<CScriptedCall>())
{
    m_pCall->m_strName = name;
    m_pCall->m_nHandle = handle;
    m_pCall->m_strText = std::string(name) + "(" + arguments + ")=?";

    CScriptedStack& stack = CScriptedStack::Instance();
    {
        std::lock_guard<std::mutex> lock(stack.m_Mutex);
        const int any = CScriptedStack::s_nAnyHandle;
        m_bScripted = stack.Take({name, handle}, m_Answer) || (!pipe && stack.Take({name, any}, m_Answer)) ||
                      stack.FindDefault({name, handle}, m_Answer) ||
                      (!pipe && stack.FindDefault({name, any}, m_Answer));
        m_bHidden = pipe && !m_bScripted && !CScriptedPipes::Instance().IsRecorded();
        ++stack.m_Counts[{name, handle}];
        const auto thread = stack.m_Threads.emplace(mantle::CMNThreadManager::GetThreadSelfId(),
                                                    static_cast<int>(stack.m_Threads.size()) + 1);
        m_pCall->m_nThread = thread.first->second;
        if (stack.m_bRecording && !m_bHidden && stack.m_Ignored.count(name) == 0)
            stack.m_Calls.push_back(m_pCall);
    }
    if (m_Answer.m_Function)
        m_Answer.m_Function();
}

void CScriptedRun::KeepData(const std::string& data)
{
    std::lock_guard<std::mutex> lock(CScriptedStack::Instance().m_Mutex);
    m_pCall->m_Data = data;
}

void CScriptedRun::KeepEntries(const ps_pollfd* entries, unsigned int count)
{
    std::lock_guard<std::mutex> lock(CScriptedStack::Instance().m_Mutex);
    m_pCall->m_Entries.assign(entries, entries + count);
}

void CScriptedRun::KeepLists(const ps_fdsets& sets)
{
    std::lock_guard<std::mutex> lock(CScriptedStack::Instance().m_Mutex);
    m_pCall->m_Read.assign(sets.read.handles, sets.read.handles + sets.read.count);
    m_pCall->m_Write.assign(sets.write.handles, sets.write.handles + sets.write.count);
}

void CScriptedRun::StoreAddress(ps_sockaddr* address, int* length)
{
    if (!address || !length || !m_Answer.m_Record)
        return;
    const std::string& record = *m_Answer.m_Record;
    const std::size_t room = *length < 0 ? 0 : static_cast<std::size_t>(*length);
    std::memcpy(address, record.data(), std::min(room, record.size()));
    *length = static_cast<int>(record.size());
}

long CScriptedRun::StoreData(void* data, unsigned long length)
{
    if (!m_Answer.m_Data)
        return 0;
    const std::size_t count = std::min<std::size_t>(length, m_Answer.m_Data->size());
    if (count != 0)
        std::memcpy(data, m_Answer.m_Data->data(), count);
    return static_cast<long>(count);
}

void CScriptedRun::StoreValue(void* value, int length)
{
    const long number = m_Answer.m_Value.value_or(0);
    if (length == static_cast<int>(sizeof(int))) {
        const int small = static_cast<int>(number);
        std::memcpy(value, &small, sizeof small);
    } else if (length == static_cast<int>(sizeof(long))) {
        std::memcpy(value, &number, sizeof number);
    }
}

void CScriptedRun::Accepted(const std::string& data, long result)
{
    if (result <= 0)
        return;
    CScriptedStack& stack = CScriptedStack::Instance();
    std::lock_guard<std::mutex> lock(stack.m_Mutex);
    if (stack.m_bRecording && !m_bHidden)
        stack.m_Sent[m_pCall->m_nHandle].append(data, 0, static_cast<std::size_t>(result));
}

long CScriptedRun::Finish(long unscripted, const std::string& remark)
{
    const long result = m_Answer.m_Result.value_or(unscripted);
    {
        std::lock_guard<std::mutex> lock(CScriptedStack::Instance().m_Mutex);
        m_pCall->m_lResult = result;
        m_pCall->m_strText.pop_back();
        m_pCall->m_strText += std::to_string(result) + remark;
    }
    if (m_Answer.m_Error)
        Error() = *m_Answer.m_Error;
    if (m_Answer.m_Errno)
        errno = *m_Answer.m_Errno;
    return result;
}

std::string ScriptedAddressText(const ps_sockaddr* address, int length)
{
    if (!address)
        return "null";
    const std::string bytes = "{" + std::to_string(address->sa_len) + "," + std::to_string(address->sa_family) + "}";
    mantle::CMNInetAddr decoded;
    if (decoded.Set(address, length) != mantle::MN_OK)
        return "?" + bytes;
    return decoded.ToString() + bytes;
}

std::string ScriptedDataText(const std::string& data)
{
    const bool readable =
        data.size() <= MAX_TEXT && std::all_of(data.begin(), data.end(), [](char c) { return c >= ' ' && c <= '~'; });
    if (readable)
        return "'" + data + "'";
    static const char s_szDigits[] = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < std::min(data.size(), MAX_HEX); ++i) {
        const auto byte = static_cast<unsigned char>(data[i]);
        text += s_szDigits[byte >> 4];
        text += s_szDigits[byte & 15];
    }
    return data.size() > MAX_HEX ? text + "..." + std::to_string(data.size()) : text;
}
