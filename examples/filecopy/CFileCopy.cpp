#include "CFileCopy.h"

#include <utility>

#include <ipstack/ipstack.h>

using namespace uxport;

namespace
{

constexpr const char* SERVER_HOST = "127.0.0.1";
constexpr unsigned short SERVER_PORT = 7000;

}  // namespace

// Calls one operation of the copy on the network thread.
class CFileCopy::CEvent : public IMNEvent
{
public:
    CEvent(CFileCopy& copy, void (CFileCopy::*operation)()) : m_Copy(copy), m_pOperation(operation) {}

    MNResult OnEventFire() override
    {
        (m_Copy.*m_pOperation)();
        return MN_OK;
    }

private:
    CFileCopy& m_Copy;
    void (CFileCopy::*m_pOperation)();
};

CFileCopy::CFileCopy(std::string path, std::uint64_t corruptAt, CFileFetcher::FProgress progress)
    : m_strPath(std::move(path)), m_qwCorruptAt(corruptAt), m_fProgress(std::move(progress))
{
}

CFileFetcher::COutcome CFileCopy::Run()
{
    ipstack::IIPStackManager::Instance()->Startup(ipstack::CIPStackSettings());
    IPSConnectionManager* manager = IPSConnectionManager::Instance();
    if (manager->Init(1) != MN_OK || manager->GetReactor()->PostEvent(new CEvent(*this, &CFileCopy::Start)) != MN_OK) {
        m_Outcome.m_strError = "the network thread does not start";
        return m_Outcome;
    }
    m_Done.Wait();
    return m_Outcome;
}

void CFileCopy::Start()
{
    const CMNInetAddr address(SERVER_HOST, SERVER_PORT);
    m_pServer = std::make_unique<CFileServer>(m_strPath, m_qwCorruptAt);
    m_pFetcher =
        std::make_unique<CFileFetcher>(m_fProgress, [this](const CFileFetcher::COutcome& outcome) { Finish(outcome); });
    CFileFetcher::COutcome failed;
    if (m_pServer->Start(address) != MN_OK)
        failed.m_strError = "the server does not start";
    else if (m_pFetcher->Start(address) != MN_OK)
        failed.m_strError = "the client does not start";
    if (!failed.m_strError.empty())
        Finish(failed);
}

void CFileCopy::Finish(const CFileFetcher::COutcome& outcome)
{
    // Called from inside the fetcher; an event of its own may delete it.
    m_Outcome = outcome;
    IPSConnectionManager::Instance()->GetReactor()->PostEvent(new CEvent(*this, &CFileCopy::Stop));
}

void CFileCopy::Stop()
{
    m_pFetcher.reset();
    m_pServer.reset();
    m_Done.Signal();
}
