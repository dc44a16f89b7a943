// The stack that the file travels on.
#ifndef FILECOPY_CFILENETWORK_H
#define FILECOPY_CFILENETWORK_H

#include <mantle/mantle.h>
#include <uxport/uxport.h>

class CFileNetwork
{
public:
    // Starts the stack, and the library with one network thread. Thread: main, once.
    static uxport::MNResult Start();

    // Where the server listens and the client connects to.
    static uxport::CMNInetAddr GetServerAddress();
};

#endif
