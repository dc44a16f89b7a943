// A network-side transport that records what it is told and answers what the test says.
#ifndef TESTS_UNIT_PROXY_CFAKETRANSPORT_H
#define TESTS_UNIT_PROXY_CFAKETRANSPORT_H

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <deque>
#include <string>
#include <utility>

#include "mantle/CMNInetAddr.h"
#include "mantle/CMNMessageBlock.h"
#include "mantle/CMNReferenceControl.h"
#include "proxy/PSNetworkThread.h"
#include "tests/unit/scripted/CScriptedStack.h"
#include "uxport/IPSTransport.h"

// Notes "net:OpenWithSink", "net:SendData(abc)", "net:Disconnect(10002)" and "net:gone", the last from the
// destructor, with " on another thread" behind it where that is not the network thread. The last release deletes it
// at once.
class CFakeTransport : public uxport::IPSTransport, public mantle::CMNReferenceControlT<mantle::CMNMutexThread>
{
public:
    static constexpr unsigned long s_dwAll = ~0ul;

    ~CFakeTransport() override { Note("gone"); }

    // Answers the next SendData: its result and how many bytes it takes.
    void Answer(uxport::MNResult result, unsigned long taken) { m_Answers.emplace_back(result, taken); }

    unsigned long AddReference() override { return AddReference_i(); }
    unsigned long ReleaseReference() override { return ReleaseReference_i(); }

    uxport::MNResult OpenWithSink(uxport::IPSTransportSink* sink) override
    {
        Note("OpenWithSink");
        if (m_dwOpen == uxport::MN_OK)
            m_pSink = sink;
        return m_dwOpen;
    }
    uxport::IPSTransportSink* GetSink() override { return m_pSink; }

    uxport::MNResult SendData(uxport::CMNMessageBlock& data, uxport::CPSTransportParameter* param) override
    {
        std::string text(data.GetChainedLength(), '\0');
        data.PeekChained(&text[0], text.size());
        Note("SendData(" + text + (param ? "," + std::to_string(param->Tag) : std::string()) + ")");
        std::pair<uxport::MNResult, unsigned long> answer(uxport::MN_OK, s_dwAll);
        if (!m_Answers.empty()) {
            answer = m_Answers.front();
            m_Answers.pop_front();
        }
        unsigned long taken = 0;
        data.AdvanceChainedReadPtr(std::min(answer.second, data.GetChainedLength()), &taken);
        m_strSent += text.substr(0, taken);
        if (param)
            param->SentLength = taken;
        return answer.first;
    }

    uxport::MNResult SetOption(unsigned long optionId, void* arg) override
    {
        m_dwOption = optionId;
        m_pArg = arg;
        return m_dwOptionResult;
    }
    uxport::MNResult GetOption(unsigned long optionId, void* arg) override
    {
        m_dwOption = optionId;
        m_pArg = arg;
        if (optionId == uxport::OPT_TYPE && m_dwOptionResult == uxport::MN_OK)
            *static_cast<std::uint64_t*>(arg) = m_qwType;
        return m_dwOptionResult;
    }
    uxport::MNResult Disconnect(long reason) override
    {
        Note("Disconnect(" + std::to_string(reason) + ")");
        m_pSink = nullptr;
        return m_dwDisconnect;
    }
    uxport::MNResult GetPeerAddr(uxport::CMNInetAddr& addr) override
    {
        addr = m_Peer;
        return m_dwAddrResult;
    }
    uxport::MNResult GetLocalAddr(uxport::CMNInetAddr& addr) override
    {
        addr = m_Local;
        return m_dwAddrResult;
    }

    uxport::IPSTransportSink* m_pSink = nullptr;
    uxport::MNResult m_dwOpen = uxport::MN_OK;
    uxport::MNResult m_dwOptionResult = uxport::MN_OK;
    uxport::MNResult m_dwAddrResult = uxport::MN_OK;
    uxport::MNResult m_dwDisconnect = uxport::MN_OK;
    std::uint64_t m_qwType = uxport::CONNECTION_TYPE_TCP;
    const uxport::CMNInetAddr m_Peer{"10.0.0.2", 80};
    const uxport::CMNInetAddr m_Local{"10.0.0.1", 4000};
    unsigned long m_dwOption = 0;  // of the last option asked
    void* m_pArg = nullptr;
    std::string m_strSent;  // what was taken so far

private:
    static void Note(const std::string& text)
    {
        const bool network = uxport::PSIsNetworkThread();
        CScriptedStack::Instance().Note("net:" + text + (network ? "" : " on another thread"));
    }

    std::deque<std::pair<uxport::MNResult, unsigned long>> m_Answers;
};

#endif
