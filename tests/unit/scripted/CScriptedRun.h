// One call of the scripted stack while it runs.
#ifndef TESTS_UNIT_SCRIPTED_CSCRIPTEDRUN_H
#define TESTS_UNIT_SCRIPTED_CSCRIPTEDRUN_H

#include <string>

#include "tests/unit/scripted/CScriptedStack.h"

// Records the call, takes its answer and runs the answer's function; Finish completes both.
class CScriptedRun
{
public:
    // `pipe`: the call belongs to a working pipe, so that only answers for its very handle count.
    CScriptedRun(const char* name, int handle, const std::string& arguments, bool pipe = false);
    CScriptedRun(const CScriptedRun&) = delete;
    CScriptedRun& operator=(const CScriptedRun&) = delete;

    // Whether the script, or a default of the test, answers.
    bool IsScripted() const { return m_bScripted; }
    const CScriptedAnswer& Answer() const { return m_Answer; }

    // Adds to the record what the text does not hold.
    void KeepData(const std::string& data);
    void KeepEntries(const ps_pollfd* entries, unsigned int count);
    void KeepLists(const ps_fdsets& sets);

    // A handle for a ps_socket without a script.
    static int NewHandle() { return CScriptedStack::Instance().GetNextHandle(); }

    // Writes the answer's address, data or value to where the caller wants it.
    void StoreAddress(ps_sockaddr* address, int* length);
    long StoreData(void* data, unsigned long length);
    void StoreValue(void* value, int length);

    // What sends accepted.
    void Accepted(const std::string& data, long result);

    // Ends the call: the answer's result or `unscripted`, its errors, the record. `remark` follows the result.
    long Finish(long unscripted, const std::string& remark = std::string());

    // The cause of the thread's last failure.
    static int& Error();

private:
    std::shared_ptr<CScriptedCall> m_pCall;
    CScriptedAnswer m_Answer;
    bool m_bScripted = false;
    bool m_bHidden = false;
};

// Texts of arguments.
std::string ScriptedAddressText(const ps_sockaddr* address, int length);
std::string ScriptedDataText(const std::string& data);

#endif
