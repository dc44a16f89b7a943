#include "CChatWorker.h"

#include <utility>

using namespace uxport;

// What has arrived from a member, or that it has left (without data). The room goes back to the owner even when the job
// is never run.
class CChatWorker::CJob : public IMNEvent
{
public:
    CJob(CChatWorker& worker, unsigned long member, CMNMessageBlock* data, CChatRoom room)
        : m_Worker(worker), m_dwMember(member), m_pData(data), m_Room(std::move(room))
    {
    }
    ~CJob() override
    {
        if (m_pData)
            m_pData->DestroyChained();
        m_Worker.m_Owner.PostRoom(std::move(m_Room));
    }
    CJob(const CJob&) = delete;
    CJob& operator=(const CJob&) = delete;

    MNResult OnEventFire() override
    {
        if (m_pData)
            m_Worker.OnText(m_dwMember, *m_pData, m_Room);
        else
            m_Worker.OnLeft(m_dwMember, m_Room);
        return MN_OK;
    }

private:
    CChatWorker& m_Worker;
    unsigned long m_dwMember;
    CMNMessageBlock* m_pData;
    CChatRoom m_Room;
};

CChatWorker::CChatWorker(CChatServer& owner) : m_Owner(owner)
{
    mantle::CMNThreadManager::Instance()->RegisterThread(this, true);
}

void CChatWorker::PostText(unsigned long member, const CMNMessageBlock& data, const CChatRoom& room)
{
    PostEvent(new CJob(*this, member, data.DuplicateChained(), room));
}

void CChatWorker::PostLeft(unsigned long member, const CChatRoom& room)
{
    PostEvent(new CJob(*this, member, nullptr, room));
}

void CChatWorker::OnText(unsigned long member, const CMNMessageBlock& data, const CChatRoom& room)
{
    CSpeaker& speaker = m_Speakers[member];
    std::string text(data.GetChainedLength(), '\0');
    data.PeekChained(text.data(), text.size());
    for (const char c : text) {
        if (speaker.m_bLeft)
            return;
        if (c == '\n')
            OnLine(speaker, std::exchange(speaker.m_strPart, {}), room);
        else if (speaker.m_strPart.size() < s_nMaxLine)
            speaker.m_strPart += c;
        else
            return m_Owner.PostKick(member);
    }
}

void CChatWorker::OnLine(CSpeaker& speaker, const std::string& line, const CChatRoom& room)
{
    if (speaker.m_strName.empty()) {
        speaker.m_strName = line;
        Say(line + " joins", room);
    } else if (line == "/quit") {
        Leave(speaker, room);
    } else {
        Say(speaker.m_strName + ": " + line, room);
    }
}

void CChatWorker::OnLeft(unsigned long member, const CChatRoom& room)
{
    Leave(m_Speakers[member], room);
    m_Speakers.erase(member);
}

void CChatWorker::Leave(CSpeaker& speaker, const CChatRoom& room)
{
    if (!speaker.m_bLeft && !speaker.m_strName.empty())
        Say(speaker.m_strName + " leaves", room);
    speaker.m_bLeft = true;
}

void CChatWorker::Say(const std::string& text, const CChatRoom& room)
{
    const std::string line = text + '\n';
    for (const auto& transport : *room) {
        CMNMessageBlock block(line.size());
        block.Write(line.data(), line.size());
        transport->SendData(block, nullptr);
    }
}
