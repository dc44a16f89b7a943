// The fixture of tests whose thread is a network thread with its reactor.
#ifndef TESTS_UNIT_DOUBLES_ENDPOINTTEST_H
#define TESTS_UNIT_DOUBLES_ENDPOINTTEST_H

#include <memory>
#include <set>
#include <sstream>
#include <string>

#include "mantle/CMNInetAddr.h"
#include "mantle/CMNMessageBlock.h"
#include "tests/unit/doubles/CRecordingReactor.h"
#include "tests/unit/doubles/CRecordingSinks.h"
#include "tests/unit/scripted/ScriptedStackTest.h"

// The reactor is open, the thread object's queues are the reactor's, the next socket gets handle 7.
class EndpointTest : public ScriptedStackTest
{
protected:
    static constexpr int s_nSocket = 7;

    void SetUp() override
    {
        m_Stack.EnablePipes();
        m_Stack.SetNextHandle(1001);
        ASSERT_EQ(m_Reactor.Open(), uxport::MN_OK);
        m_Thread.UseReactor(&m_Reactor);
        m_Stack.TakeCalls();
        m_Stack.SetNextHandle(s_nSocket);
    }

    void TearDown() override
    {
        m_Reactor.ProcessTimerTick();
        m_Reactor.ProcessTimerTick();
        m_Thread.UseReactor(nullptr);
        m_Reactor.Close();
        ScriptedStackTest::TearDown();
    }

    // One turn of the loop, whose wait reports `events` of `handle` if that is watched. Returns: what was watched beside
    // the reactor's own pipe, as "7:1 8:3" with the wanted events.
    std::string Turn(int handle = -1, short events = 0)
    {
        m_Stack.On("ps_poll").WithReady(handle, events).Calls([this] { m_Reactor.SetStopFlag(); });
        m_Reactor.SetStartFlag();
        EXPECT_EQ(m_Reactor.RunEventLoop(), uxport::MN_OK);
        const CCalls polls = m_Stack.TakeCallsOf("ps_poll");
        EXPECT_EQ(polls.size(), 1u);
        return polls.empty() ? std::string("?") : Watched(polls.front());
    }

    // A block with a copy of `text`.
    static std::unique_ptr<uxport::CMNMessageBlock> Block(const std::string& text)
    {
        auto block = std::make_unique<uxport::CMNMessageBlock>(text.size());
        EXPECT_EQ(block->Write(text.data(), text.size()), uxport::MN_OK);
        return block;
    }

    // `pieces` blocks of `text` each, chained.
    static std::unique_ptr<uxport::CMNMessageBlock> Chain(unsigned int pieces, const std::string& text)
    {
        std::unique_ptr<uxport::CMNMessageBlock> chain = Block(text);
        uxport::CMNMessageBlock* last = chain.get();
        for (unsigned int i = 1; i < pieces; ++i) {
            uxport::CMNMessageBlock* block = Block(text).release();
            last->Append(block);
            last = block;
        }
        return chain;
    }

    // What is left to read in a chain.
    static std::string Rest(const uxport::CMNMessageBlock& block)
    {
        std::string text(block.GetChainedLength(), '\0');
        block.PeekChained(&text[0], text.size());
        return text;
    }

    CRecordingReactor m_Reactor;

private:
    static constexpr int s_nPipe = 1003;  // its read end

    // From the text of a wait, "ps_poll([1003:1,7:1],2,0)=1".
    static std::string Watched(const std::string& poll)
    {
        std::set<std::string> entries;
        std::istringstream list(poll.substr(poll.find('[') + 1, poll.find(']') - poll.find('[') - 1));
        for (std::string entry; std::getline(list, entry, ',');) {
            if (entry.rfind(std::to_string(s_nPipe) + ":", 0) != 0)
                entries.insert(entry);
        }
        std::string text;
        for (const std::string& entry : entries)
            text += (text.empty() ? "" : " ") + entry;
        return text;
    }
};

#endif
