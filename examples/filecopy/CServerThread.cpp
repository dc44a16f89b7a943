#include "CServerThread.h"

using namespace uxport;

namespace
{

class CWork : public IMNEvent
{
public:
    explicit CWork(const std::function<MNResult()>& work) : m_fWork(work) {}
    MNResult OnEventFire() override { return m_fWork(); }

private:
    const std::function<MNResult()>& m_fWork;
};

}  // namespace

CServerThread::CServerThread() : m_pThread(new mantle::CMNThreadUser)
{
    // Connections may point at the thread's object after the thread has ended.
    mantle::CMNThreadManager::Instance()->RegisterThread(m_pThread, true);
}

CServerThread::~CServerThread()
{
    if (!m_pThread->IsRunning())
        return;
    Run([this] {
        m_pServer.reset();
        return MN_OK;
    });
    m_pThread->Stop();
    m_pThread->Join();
}

MNResult CServerThread::Start(const std::string& path, std::uint64_t corruptAt, const CMNInetAddr& address)
{
    if (const MNResult result = m_pThread->Create(mantle::CMNThreadManager::Instance()->GetNewThreadType());
        result != MN_OK)
        return result;
    return Run([&] {
        m_pServer = std::make_unique<CFileServer>(path, corruptAt);
        return m_pServer->Start(address);
    });
}

MNResult CServerThread::Run(const std::function<MNResult()>& work)
{
    return m_pThread->SendEvent(new CWork(work));
}
