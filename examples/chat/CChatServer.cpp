#include "CChatServer.h"

#include <utility>

#include "CChatMember.h"
#include "CChatWorker.h"
#include "CWork.h"

using namespace uxport;

CChatServer::CChatServer(const CMNInetAddr& address, int workers) : m_Address(address)
{
    mantle::CMNThreadManager::Instance()->RegisterThread(this, true);
    for (int i = 0; i < workers; ++i)
        m_Workers.push_back(new CChatWorker(*this));
    Changed();
}

CChatServer::~CChatServer() = default;

void CChatServer::OnThreadInit()
{
    for (CChatWorker* worker : m_Workers)
        worker->Create(mantle::CMNThreadManager::Instance()->GetNewThreadType());
    IPSConnectionManager* manager = IPSConnectionManager::Instance();
    m_bListening = manager->CreateConnectionServer(CONNECTION_TYPE_TCP, m_pAcceptor.ParaOut()) == MN_OK &&
                   m_pAcceptor->StartListen(this, m_Address, 0, 0) == MN_OK;
}

void CChatServer::OnThreadRun()
{
    RunEventLoop();
    if (m_pAcceptor)
        m_pAcceptor->StopListen(MN_OK);
    m_pAcceptor = nullptr;
    m_Members.clear();
    m_Room.reset();
    for (CChatWorker* worker : m_Workers) {
        worker->Stop();
        worker->Join();
    }
    DrainEvents();  // the rooms that the workers have brought back
}

MNResult CChatServer::OnConnectIndication(long, IPSTransport* transport, IPSAcceptorConnectorId*)
{
    const unsigned long member = m_dwNextMember++;
    m_Members[member] = std::make_unique<CChatMember>(*this, member, transport);
    Changed();
    return MN_OK;
}

void CChatServer::OnText(unsigned long member, const CMNMessageBlock& data)
{
    WorkerOf(member).PostText(member, data, m_Room);
}

void CChatServer::OnLeft(unsigned long member)
{
    m_Members.erase(member);
    Changed();
    WorkerOf(member).PostLeft(member, m_Room);
}

void CChatServer::PostKick(unsigned long member)
{
    PostEvent(new CWork([this, member] {
        if (m_Members.count(member) != 0)
            OnLeft(member);
    }));
}

void CChatServer::PostRoom(CChatRoom room)
{
    PostEvent(new CWork([kept = std::move(room)] {}));
}

void CChatServer::Changed()
{
    auto room = std::make_shared<std::vector<mantle::CMNAutoPtr<IPSTransport>>>();
    for (const auto& member : m_Members)
        room->emplace_back(member.second->GetTransport());
    m_Room = std::move(room);
}
