#include <ipstack/ipstack.h>
#include <uxport/uxport.h>

int main()
{
    const bool started = ipstack::IIPStackManager::Instance()->Startup(ipstack::CIPStackSettings()) == 0;
    uxport::IPSConnectionManager* manager = uxport::IPSConnectionManager::Instance();
    return started && manager && manager->Init(1) == uxport::MN_OK && manager->GetReactor() ? 0 : 1;
}
