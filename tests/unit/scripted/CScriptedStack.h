// The stack that answers from a script: a link-time replacement of every ps_* call and of the stack manager.
#ifndef TESTS_UNIT_SCRIPTED_CSCRIPTEDSTACK_H
#define TESTS_UNIT_SCRIPTED_CSCRIPTEDSTACK_H

#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "ipstack/ps_defines.h"
#include "tests/unit/scripted/CScriptedAnswer.h"

// One call as it was made.
struct CScriptedCall
{
    std::string m_strName;
    int m_nHandle = -1;
    std::string m_strText;             // "ps_bind(101,127.0.0.1:5555{16,2},16)=0"; "=?" while the call runs
    std::string m_Data;                // bytes offered to a send, or given to a receive
    std::vector<ps_pollfd> m_Entries;  // of a ps_poll, as they were passed in
    std::vector<int> m_Read;           // of a ps_select, the lists as they were passed in
    std::vector<int> m_Write;
    long m_lResult = 0;
    int m_nThread = 0;  // threads numbered in the order of their first call
};

// Thread: any. A script is best written before the threads that consume it start, or inside CScriptedAnswer::Calls.
class CScriptedStack
{
public:
    static CScriptedStack& Instance();

    // Appends an answer for the next call of this function; with a handle, for the next one on that handle,
    // which comes first. An unknown name fails the test. Manager operations are "Manager::AttachThread" and so on.
    CScriptedAnswer& On(const std::string& name);
    CScriptedAnswer& On(const std::string& name, int handle);

    // The answer where the script has none; replaces the stack's own default. Never counts as left over.
    CScriptedAnswer& Default(const std::string& name);
    CScriptedAnswer& Default(const std::string& name, int handle);

    // Makes pipes work: what binds to, connects to or is accepted on 127.0.0.1:5555 moves real bytes, and waits
    // that the script has no answer for really wait, for pipes, SetReady and the time-out. Only answers for its
    // very handle reach a pipe's socket then. `record`: whether calls answered that way are in the record too.
    void EnablePipes(bool record = false);

    // Readiness that such waits report, until set anew (0: none), or once. Any waiting thread wakes.
    void SetReady(int handle, short events);
    void SetReadyOnce(int handle, short events);

    // The texts of the calls so far, oldest first, and forgets them; the second of one function only (others
    // stay). The third gives the whole records.
    std::vector<std::string> TakeCalls();
    std::vector<std::string> TakeCallsOf(const std::string& name);
    std::vector<CScriptedCall> TakeRecords();

    // Puts a line of the test's own into the record, so that what a sink or a reactor is told stands between the
    // calls of the stack, in order.
    void Note(const std::string& text);

    // Calls of one function since the start, taken ones included; on one handle.
    unsigned int CountOf(const std::string& name) const;
    unsigned int CountOf(const std::string& name, int handle) const;

    // What sends on this handle have accepted since the last time.
    std::string TakeSent(int handle);

    // Off: calls are counted but not kept, for tests that make very many.
    void SetRecording(bool on);

    // A function whose calls are not kept; for calls of no interest to a test.
    void Ignore(const std::string& name);

    // The handle that the next unscripted ps_socket gives: 101 and up.
    void SetNextHandle(int handle);

    // Answers of the script that no call has asked for: "ps_accept x2".
    std::vector<std::string> Leftovers() const;

    // As new. No call may be under way.
    void Reset();

private:
    friend class CScriptedRun;
    CScriptedStack() = default;

    using CKey = std::pair<std::string, int>;
    static constexpr int s_nAnyHandle = -0x7fff;
    static bool CheckName(const std::string& name);

    bool Take(const CKey& key, CScriptedAnswer& answer);
    bool FindDefault(const CKey& key, CScriptedAnswer& answer);
    int GetNextHandle();

    mutable std::mutex m_Mutex;
    std::map<CKey, std::deque<CScriptedAnswer>> m_Script;
    std::map<CKey, CScriptedAnswer> m_Defaults;
    CScriptedAnswer m_Unknown;  // what is said of calls that there are none of
    std::vector<std::shared_ptr<CScriptedCall>> m_Calls;
    std::map<CKey, unsigned int> m_Counts;
    std::map<int, std::string> m_Sent;
    std::set<std::string> m_Ignored;
    std::map<unsigned long, int> m_Threads;
    bool m_bRecording = true;
    int m_nNextHandle = 101;
};

#endif
