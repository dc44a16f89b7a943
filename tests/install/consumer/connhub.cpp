#include <connhub/connhub.h>

namespace
{

class CSink : public connhub::IMNUDPTransportSink
{
public:
    unsigned long OnReceive(mantle::CMNMessageBlock&, const mantle::CMNInetAddr&) override { return 0; }
};

}  // namespace

int main()
{
    CSink sink;
    connhub::IMNUDPTransport* transport = nullptr;
    if (connhub::CMNConnectionManager::Instance()->CreateUDPTransport(&sink, transport) != 0)
        return 1;
    const bool opened = transport->Open(mantle::CMNInetAddr("127.0.0.1", 0)) == 0;
    transport->ReleaseReference();
    return opened ? 0 : 1;
}
