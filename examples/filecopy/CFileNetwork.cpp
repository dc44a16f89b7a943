#include "CFileNetwork.h"

#include <ipstack/ipstack.h>

using namespace uxport;

MNResult CFileNetwork::Start()
{
    const MNResult result = ipstack::IIPStackManager::Instance()->Startup(ipstack::CIPStackSettings());
    return result == MN_OK ? IPSConnectionManager::Instance()->Init(1) : result;
}

CMNInetAddr CFileNetwork::GetServerAddress()
{
    return CMNInetAddr("127.0.0.1", 7000);
}
