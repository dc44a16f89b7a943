// One copy over the embedded stack, as the main thread sees it.
#ifndef FILECOPY_CFILECOPY_H
#define FILECOPY_CFILECOPY_H

#include <cstdint>
#include <memory>
#include <string>

#include <mantle/mantle.h>

#include "CFileFetcher.h"
#include "CFileServer.h"

// Serves a file on the network thread and fetches it there.
class CFileCopy
{
public:
    CFileCopy(std::string path, std::uint64_t corruptAt, CFileFetcher::FProgress progress);

    // Starts the stack and the library with one network thread, copies and waits for the end.
    // Thread: the main thread, once.
    CFileFetcher::COutcome Run();

private:
    class CEvent;

    void Start();
    void Finish(const CFileFetcher::COutcome& outcome);
    void Stop();

    std::string m_strPath;
    std::uint64_t m_qwCorruptAt;
    CFileFetcher::FProgress m_fProgress;
    CFileFetcher::COutcome m_Outcome;
    std::unique_ptr<CFileServer> m_pServer;    // the network thread's
    std::unique_ptr<CFileFetcher> m_pFetcher;  // the network thread's
    mantle::CMNEventThread m_Done{1, 0};
};

#endif
