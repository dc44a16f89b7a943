// One input of calls_fuzz.
#ifndef TESTS_FUZZ_CCALLSROUND_H
#define TESTS_FUZZ_CCALLSROUND_H

#include <string>
#include <vector>

#include "CFuzzInput.h"
#include "CFuzzStack.h"

// Sockets of every type and family, calls on them with the arguments of the input. What they send to the stack's own
// addresses comes back to them. Checks what each call answers.
class CCallsRound
{
public:
    CCallsRound(const std::uint8_t* data, std::size_t size) : m_Input(data, size) {}
    CCallsRound(const CCallsRound&) = delete;
    CCallsRound& operator=(const CCallsRound&) = delete;

    void Run();

private:
    static constexpr std::size_t s_nMostSockets = 24;
    static constexpr unsigned int s_dwMostCalls = 300;

    void Call();
    void Open();
    void Close();
    void Accept();
    void Send();
    void SendTo();
    void WriteV();
    void Receive();
    void Names();
    void SetOption();
    void GetOption();
    void Poll();
    void Select();
    void Pass();

    int Pick();
    std::vector<char> Address();
    std::string Payload();
    std::string Header4();

    // Every call goes through this: -1 comes with a cause, and only -1 does. Returns: `result`.
    long Check(long result, long most);
    void Keep(int socket);

    CFuzzInput m_Input;
    std::vector<int> m_Sockets;
    int m_nCauseBefore = 0;
};

#endif
