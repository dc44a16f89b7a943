// What a session of the examples runs on in its tests: a transport that takes what the case allows, and timers whose
// time the case moves.
#ifndef TESTS_UNIT_EXAMPLES_CSCRIPTEDTRANSPORT_H
#define TESTS_UNIT_EXAMPLES_CSCRIPTEDTRANSPORT_H

#include <algorithm>
#include <map>
#include <string>

#include <mantle/mantle.h>
#include <uxport/uxport.h>

// As a TCP transport of the network thread: what finds no room stays with the caller, who hears 10013.
class CScriptedTransport : public uxport::IPSTransport
{
public:
    using MNResult = uxport::MNResult;

    unsigned long AddReference() override { return ++m_dwReferences; }
    unsigned long ReleaseReference() override { return --m_dwReferences; }
    MNResult OpenWithSink(uxport::IPSTransportSink* sink) override
    {
        m_pSink = sink;
        return uxport::MN_OK;
    }
    uxport::IPSTransportSink* GetSink() override { return m_pSink; }
    MNResult SendData(uxport::CMNMessageBlock& data, uxport::CPSTransportParameter*) override
    {
        const std::size_t length = std::min<std::size_t>(data.GetLength(), m_nRoom);
        m_nLongest = std::max<std::size_t>(m_nLongest, data.GetLength());
        m_strSent.append(data.GetReadPtr(), length);
        m_nRoom -= length;
        data.AdvanceReadPtr(length);
        return m_bFails ? uxport::MN_ERROR_NETWORK_SOCKET_ERROR
                        : (data.GetLength() == 0 ? uxport::MN_OK : uxport::MN_ERROR_PARTIAL_DATA);
    }
    MNResult SetOption(unsigned long, void*) override { return uxport::MN_ERROR_INVALID_ARG; }
    MNResult GetOption(unsigned long, void*) override { return uxport::MN_ERROR_INVALID_ARG; }
    MNResult Disconnect(long) override
    {
        ++m_nDisconnects;
        m_pSink = nullptr;
        return uxport::MN_OK;
    }
    MNResult GetPeerAddr(uxport::CMNInetAddr&) override { return uxport::MN_OK; }
    MNResult GetLocalAddr(uxport::CMNInetAddr&) override { return uxport::MN_OK; }

    // The peer's side.
    void Receive(const std::string& text)
    {
        uxport::CMNMessageBlock block(text.size());
        block.Write(text.data(), text.size());
        if (m_pSink)
            m_pSink->OnReceive(block, this, nullptr);
    }
    void MakeRoom(std::size_t length)
    {
        m_nRoom += length;
        if (m_pSink)
            m_pSink->OnSend(this, nullptr);
    }

    std::size_t m_nRoom = 0;
    bool m_bFails = false;
    std::string m_strSent;
    std::size_t m_nLongest = 0;  // block that was offered
    int m_nDisconnects = 0;
    unsigned long m_dwReferences = 0;
    uxport::IPSTransportSink* m_pSink = nullptr;
};

// The calling thread's timers while the object lives.
class CHandMovedTimers : public mantle::CMNThread, public mantle::IMNTimerQueue
{
public:
    CHandMovedTimers() { mantle::CMNThreadManager::Instance()->AttachCurrentThread(this); }
    ~CHandMovedTimers() override { mantle::CMNThreadManager::Instance()->AttachCurrentThread(nullptr); }

    mantle::IMNTimerQueue* GetTimerQueue() override { return this; }
    mantle::MNResult ScheduleTimer(mantle::IMNTimerHandler* handler, void* arg, const mantle::CMNTimeValue& interval,
                                   unsigned long count) override
    {
        m_Timers[handler] = {m_tvNow + interval, interval, count, arg};
        return mantle::MN_OK;
    }
    mantle::MNResult CancelTimer(mantle::IMNTimerHandler* handler) override
    {
        m_Timers.erase(handler);
        return mantle::MN_OK;
    }

    void Pass(const mantle::CMNTimeValue& step)
    {
        const mantle::CMNTimeValue end = m_tvNow + step;
        for (;;) {
            const auto next = std::min_element(m_Timers.begin(), m_Timers.end(), [](const auto& a, const auto& b) {
                return a.second.m_tvDue < b.second.m_tvDue;
            });
            if (next == m_Timers.end() || end < next->second.m_tvDue)
                break;
            Fire(next->first);
        }
        m_tvNow = end;
    }
    std::size_t GetTimers() const { return m_Timers.size(); }

private:
    struct CTimer
    {
        mantle::CMNTimeValue m_tvDue;
        mantle::CMNTimeValue m_tvInterval;
        unsigned long m_dwCount;
        void* m_pArg;
    };

    void Fire(mantle::IMNTimerHandler* handler)
    {
        CTimer& timer = m_Timers[handler];
        void* arg = timer.m_pArg;
        m_tvNow = timer.m_tvDue;
        timer.m_tvDue = timer.m_tvDue + timer.m_tvInterval;
        if (timer.m_dwCount != 0 && --timer.m_dwCount == 0)
            m_Timers.erase(handler);
        handler->OnTimeout(m_tvNow, arg);
    }

    std::map<mantle::IMNTimerHandler*, CTimer> m_Timers;
    mantle::CMNTimeValue m_tvNow;
};

#endif
