// One input of library_fuzz.
#ifndef TESTS_FUZZ_CLIBRARYROUND_H
#define TESTS_FUZZ_CLIBRARYROUND_H

#include <functional>
#include <memory>
#include <vector>

#include "CFuzzInput.h"
#include "CLibrarySinks.h"
#include "mantle/mantle.h"
#include "uxport/uxport.h"

// Acceptors, connectors and transports of all three types on the stack's loopback, driven by the input from the loop of
// the network thread or, through the proxies, of a user thread, and from inside every callback. Checks that each
// attempt has one outcome, that nothing comes after a stop, a cancel, a disconnect or an end, that streams arrive as
// they were sent, and that all objects are gone afterwards. Thread: the one that runs it.
class CLibraryRound : public mantle::CMNTimerWrapperIDSink
{
public:
    // `proxies`: it runs on a user thread.
    CLibraryRound(const std::uint8_t* data, std::size_t size, bool proxies, std::function<void()> done);
    ~CLibraryRound() override;
    CLibraryRound(const CLibraryRound&) = delete;
    CLibraryRound& operator=(const CLibraryRound&) = delete;

    void Begin();

    // From the sinks, the last thing that they do: the input says what happens inside the callback.
    void React();
    void TakeEnd(uxport::IPSTransport* transport);

    // `attempt` has its outcome.
    void EndAttempt(CFuzzAttempt* attempt);

private:
    static constexpr std::size_t s_nSlots = 4;
    static constexpr std::size_t s_nMostEnds = 32;
    static constexpr unsigned int s_dwMostOperations = 300;
    static constexpr int s_nMostTurns = 400;
    static constexpr int s_nMostSilence = 120;  // seconds that an attempt takes at most

    struct CServer
    {
        unsigned long m_dwType = 0;
        mantle::CMNAutoPtr<uxport::IPSAcceptor> m_pAcceptor;
        std::unique_ptr<CFuzzServerSink> m_pSink;  // while it listens
    };
    struct CClient
    {
        unsigned long m_dwType = 0;
        mantle::CMNAutoPtr<uxport::IPSConnector> m_pConnector;
        std::unique_ptr<CFuzzAttempt> m_pAttempt;  // while one is under way
    };

    void OnTimer(mantle::CMNTimerWrapperID*) override;
    void Operate();
    void Listen(CServer& server);
    void Stop(CServer& server);
    void Connect(CClient& client);
    void Cancel(CClient& client);
    void OperateEnd(unsigned int operation);
    void Send(CFuzzEnd& end);
    void Reset(CFuzzEnd& end);
    void Options(CFuzzEnd& end);
    void Drop(std::size_t index, bool disconnect);
    void Yield(long milliseconds);
    bool IsAnyPending() const;
    void Finish();
    void LetAllGo();

    CFuzzInput m_Input;
    const bool m_bProxies;
    std::function<void()> m_fDone;
    mantle::CMNTimerWrapperID m_Timer;
    CServer m_Servers[s_nSlots];
    CClient m_Clients[s_nSlots];
    std::vector<std::unique_ptr<CFuzzEnd>> m_Ends;
    std::vector<std::unique_ptr<CFuzzEnd>> m_Released;  // without a disconnect: something may still come
    std::vector<std::unique_ptr<CFuzzServerSink>> m_OldSinks;
    std::vector<std::unique_ptr<CFuzzAttempt>> m_OldAttempts;
    unsigned int m_dwOperations = 0;
    unsigned int m_dwDepth = 0;
    bool m_bWaits = false;      // the timer runs
    bool m_bFinishing = false;  // the input is over
    bool m_bLetGo = false;
    int m_nTurns = 0;
    const long m_lLiveBefore = mantle::CMNLiveObjects::Count();
};

#endif
