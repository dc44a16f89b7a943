// A conversation from a script.
#ifndef CHAT_CCHATSCRIPT_H
#define CHAT_CCHATSCRIPT_H

#include <istream>
#include <map>
#include <memory>
#include <string>

#include "CChatClient.h"

// Each line names who speaks and what, "ann hello everybody"; whoever speaks for the first time joins first. The next
// line is said when everybody in the room has heard this one. Thread: the user thread that made it.
class CChatScript
{
public:
    CChatScript(const uxport::CMNInetAddr& server, std::istream& script, mantle::CMNThreadUser& thread);

    // Begins; stops the thread's loop at the end.
    void Start();

    // Whether all of it has been said and heard.
    bool IsDone() const { return m_bDone; }

private:
    void Next();
    bool ReadLine();
    void Join();
    void Expect(const std::string& line);
    void OnLine(CChatClient& client, const std::string& line);
    void OnEnded(const std::string& name);
    void Check();

    uxport::CMNInetAddr m_Server;
    std::istream& m_Script;
    mantle::CMNThreadUser& m_Thread;
    std::map<std::string, std::unique_ptr<CChatClient>> m_Clients;
    std::string m_strSpeaker;
    std::string m_strText;
    bool m_bSaid = true;        // the text; not while its speaker joins
    std::string m_strExpected;  // empty: nothing
    bool m_bDone = false;
};

#endif
