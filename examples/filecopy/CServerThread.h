// A user thread with a file server on it.
#ifndef FILECOPY_CSERVERTHREAD_H
#define FILECOPY_CSERVERTHREAD_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include <mantle/mantle.h>

#include "CFileServer.h"

// Thread: the one that made it.
class CServerThread
{
public:
    CServerThread();

    // Takes the server down on its thread and ends that.
    ~CServerThread();
    CServerThread(const CServerThread&) = delete;
    CServerThread& operator=(const CServerThread&) = delete;

    // Starts the thread and a server there.
    uxport::MNResult Start(const std::string& path, std::uint64_t corruptAt, const uxport::CMNInetAddr& address);

private:
    // Runs `work` on the thread, waits for it and returns its result.
    uxport::MNResult Run(const std::function<uxport::MNResult()>& work);

    mantle::CMNThreadUser* m_pThread;        // the manager's, until the end of the process
    std::unique_ptr<CFileServer> m_pServer;  // the thread's
};

#endif
