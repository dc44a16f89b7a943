#include "bench/CBenchNetwork.h"

#include <cstdio>
#include <cstdlib>

#include "ipstack/ipstack.h"

using namespace uxport;

CBenchNetwork& CBenchNetwork::Instance()
{
    static CBenchNetwork network;
    return network;
}

CBenchNetwork::CBenchNetwork()
{
    IPSConnectionManager* manager = IPSConnectionManager::Instance();
    if (ipstack::IIPStackManager::Instance()->Startup(ipstack::CIPStackSettings()) != MN_OK ||
        manager->Init(1) != MN_OK) {
        std::fprintf(stderr, "the network thread does not start\n");
        std::exit(1);
    }
    m_pReactor = static_cast<CPSReactorPoll*>(manager->GetReactor());
}

void CBenchNetwork::Run(const std::function<void()>& work)
{
    m_pReactor->PostEvent(new CBenchEvent(work));
    m_Done.Wait();
}

void CBenchNetwork::Done()
{
    m_Done.Signal();
}

void CBenchNetwork::RunNow(const std::function<void()>& work)
{
    Run([&] {
        work();
        Done();
    });
}
