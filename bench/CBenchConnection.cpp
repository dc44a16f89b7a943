#include "bench/CBenchConnection.h"

using namespace uxport;

namespace
{

constexpr unsigned short PORT = 7020;

}  // namespace

CBenchConnection::CBenchConnection()
{
    CBenchNetwork& network = CBenchNetwork::Instance();
    network.Run([&] {
        const CMNInetAddr address("127.0.0.1", PORT);
        IPSConnectionManager* manager = IPSConnectionManager::Instance();
        if (manager->CreateConnectionServer(CONNECTION_TYPE_TCP, m_pAcceptor.ParaOut()) != MN_OK ||
            manager->CreateConnectionClient(CONNECTION_TYPE_TCP, m_pConnector.ParaOut()) != MN_OK ||
            m_pAcceptor->StartListen(this, address, 0, 0) != MN_OK ||
            m_pConnector->AsycConnect(this, address, nullptr, nullptr, 0, 0) != MN_OK)
            network.Done();
    });
}

CBenchConnection::~CBenchConnection()
{
    CBenchNetwork::Instance().RunNow([this] {
        for (CBenchEnd* end : {&m_Client, &m_Server}) {
            if (end->m_pTransport)
                end->m_pTransport->Disconnect(0);
            end->m_pTransport = nullptr;
        }
        m_pAcceptor = nullptr;
        m_pConnector = nullptr;
    });
}

MNResult CBenchConnection::OnConnectIndication(long result, IPSTransport* transport, IPSAcceptorConnectorId* id)
{
    if (result == 0) {
        CBenchEnd& end = id->IsConnector() ? m_Client : m_Server;
        end.m_pTransport = transport;
        transport->OpenWithSink(&end);
    }
    if (result != 0 || IsOpen())
        CBenchNetwork::Instance().Done();
    return MN_OK;
}
