// A thread that makes lines of what the members of the room send, and sends them to everybody.
#ifndef CHAT_CCHATWORKER_H
#define CHAT_CCHATWORKER_H

#include <map>
#include <string>

#include "CChatServer.h"

// A member's first line is its name. It leaves by /quit, by disconnecting, or by a line that is too long.
class CChatWorker : public mantle::CMNThreadUser
{
public:
    static constexpr std::size_t s_nMaxLine = 500;

    explicit CChatWorker(CChatServer& owner);

    // Thread: the owner. The worker gets a duplicate of `data`.
    void PostText(unsigned long member, const uxport::CMNMessageBlock& data, const CChatRoom& room);
    void PostLeft(unsigned long member, const CChatRoom& room);

private:
    class CJob;
    struct CSpeaker
    {
        std::string m_strName;
        std::string m_strPart;  // of a line
        bool m_bLeft = false;   // says no more
    };

    void OnText(unsigned long member, const uxport::CMNMessageBlock& data, const CChatRoom& room);
    void OnLine(CSpeaker& speaker, const std::string& line, const CChatRoom& room);
    void OnLeft(unsigned long member, const CChatRoom& room);
    static void Leave(CSpeaker& speaker, const CChatRoom& room);
    static void Say(const std::string& text, const CChatRoom& room);

    CChatServer& m_Owner;
    std::map<unsigned long, CSpeaker> m_Speakers;  // the worker thread's
};

#endif
