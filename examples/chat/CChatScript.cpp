#include "CChatScript.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "CChatWorker.h"
#include "CWork.h"

using namespace uxport;

namespace
{

constexpr const char* QUIT = "/quit";
constexpr const char* LEAVES = " leaves";

}  // namespace

CChatScript::CChatScript(const CMNInetAddr& server, std::istream& script, mantle::CMNThreadUser& thread)
    : m_Server(server), m_Script(script), m_Thread(thread)
{
}

void CChatScript::Start()
{
    // As an event, here and below: a client must not be deleted by what it calls.
    m_Thread.PostEvent(new CWork([this] { Next(); }));
}

bool CChatScript::ReadLine()
{
    m_bSaid = false;
    return m_Script >> m_strSpeaker >> std::ws && std::getline(m_Script, m_strText);
}

void CChatScript::Next()
{
    if (m_bSaid) {
        if (m_strText == QUIT)
            m_Clients.erase(m_strSpeaker);
        if (!ReadLine()) {
            m_bDone = m_Script.eof();
            m_Thread.Stop();
            return;
        }
    }
    const auto speaker = m_Clients.find(m_strSpeaker);
    if (speaker == m_Clients.end())
        return Join();
    m_bSaid = true;
    const bool leaves = m_strText == QUIT || m_strText.size() > CChatWorker::s_nMaxLine;
    Expect(leaves ? m_strSpeaker + LEAVES : m_strSpeaker + ": " + m_strText);
    speaker->second->Say(m_strText);
}

void CChatScript::Join()
{
    auto client = std::make_unique<CChatClient>(
        m_strSpeaker, [this](CChatClient& heard, const std::string& line) { OnLine(heard, line); },
        [this](const CChatClient& ended) {
            m_Thread.PostEvent(new CWork([this, name = ended.GetName()] { OnEnded(name); }));
        });
    const MNResult result = client->Join(m_Server);
    m_Clients[m_strSpeaker] = std::move(client);
    Expect(m_strSpeaker + " joins");
    if (result != MN_OK)
        OnEnded(m_strSpeaker);
}

void CChatScript::Expect(const std::string& line)
{
    m_strExpected = line;
    for (auto& client : m_Clients)
        client.second->m_bHeard = false;
}

void CChatScript::OnLine(CChatClient& client, const std::string& line)
{
    client.m_bHeard = client.m_bHeard || line == m_strExpected;
    Check();
}

void CChatScript::OnEnded(const std::string& name)
{
    m_Clients.erase(name);
    if (m_strExpected == name + LEAVES)
        return Check();
    std::fprintf(stderr, "chat: %s has lost the connection\n", name.c_str());
    m_Thread.Stop();
}

void CChatScript::Check()
{
    if (m_strExpected.empty() ||
        !std::all_of(m_Clients.begin(), m_Clients.end(), [](const auto& client) { return client.second->m_bHeard; }))
        return;
    std::printf("%s (heard by %zu)\n", m_strExpected.c_str(), m_Clients.size());
    m_strExpected.clear();
    Start();
}
