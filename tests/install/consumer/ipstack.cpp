#include <ipstack/ipstack.h>

int main()
{
    const bool started = ipstack::IIPStackManager::Instance()->Startup(ipstack::CIPStackSettings()) == 0;
    return started && ps_socket(PS_AF_INET, PS_SOCK_STREAM, 0) >= 1 ? 0 : 1;
}
