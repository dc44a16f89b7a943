#include "tests/integration/support/CLinkPeer.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>

#include <gtest/gtest.h>

#include "connhub/connhub.h"

using namespace uxport;

namespace
{

const char* const HOST = "127.0.0.1";

class CNoSink : public connhub::IMNUDPTransportSink
{
public:
    unsigned long OnReceive(CMNMessageBlock&, const CMNInetAddr&) override { return 0; }
};

}  // namespace

unsigned short FindUdpPort(unsigned short other)
{
    unsigned short port = other;
    while (port == other) {
        CNoSink sink;
        mantle::CMNAutoPtr<connhub::IMNUDPTransport> transport;
        CMNInetAddr address;
        EXPECT_EQ(MN_OK, connhub::CMNConnectionManager::Instance()->CreateUDPTransport(&sink, transport.ParaOut()));
        EXPECT_EQ(MN_OK, transport->Open(CMNInetAddr(HOST, 0)));
        EXPECT_EQ(MN_OK, transport->GetLocalAddress(address));
        transport.ParaOut();
        port = address.GetPort();
    }
    return port;
}

CLinkPeer::CLinkPeer(const std::string& address, unsigned short localPort, unsigned short remotePort)
{
    Start(address, localPort, remotePort);
}

void CLinkPeer::Start(const std::string& address, unsigned short localPort, unsigned short remotePort)
{
    int input[2];
    int output[2];
    ASSERT_EQ(0, pipe2(input, O_CLOEXEC));
    ASSERT_EQ(0, pipe2(output, O_CLOEXEC));
    std::string texts[] = {UXPORT_LINK_PEER, address, std::to_string(localPort), std::to_string(remotePort)};
    char* arguments[] = {texts[0].data(), texts[1].data(), texts[2].data(), texts[3].data(), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
    EXPECT_EQ(0, posix_spawn(&m_nProcess, UXPORT_LINK_PEER, &actions, nullptr, arguments, environ));
    posix_spawn_file_actions_destroy(&actions);
    close(input[0]);
    close(output[1]);
    m_nInput = input[1];
    std::FILE* const reader = fdopen(output[0], "r");
    char line[64] = "";
    EXPECT_NE(nullptr, std::fgets(line, sizeof line, reader));
    EXPECT_STREQ("ready\n", line);
    std::fclose(reader);
}

CLinkPeer::~CLinkPeer()
{
    close(m_nInput);
    if (m_nProcess <= 0)
        return;
    int status = 0;
    EXPECT_EQ(m_nProcess, waitpid(m_nProcess, &status, 0));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status;
}

void CLinkPeer::Kill()
{
    kill(m_nProcess, SIGKILL);
    waitpid(m_nProcess, nullptr, 0);
    m_nProcess = -1;
}

CLinkEnd::CLinkEnd(const std::string& address, unsigned short localPort, unsigned short remotePort)
{
    ipstack::CIPStackConfig config;
    config.m_strAddress = address;
    EXPECT_EQ(MN_OK, ipstack::IIPStackManager::Instance()->CreateStack(config, &m_Capture, m_pStack));
    m_Capture.SetStack(m_pStack);
    EXPECT_EQ(MN_OK, m_Link.Open(&m_Capture, HOST, remotePort, HOST, localPort));
}

CLinkEnd::~CLinkEnd()
{
    EXPECT_EQ(MN_OK, ipstack::IIPStackManager::Instance()->DestroyStack(m_pStack));
    // What comes in until the link has gone meets a closed one; the capture must outlast the link.
    m_Link.Open(nullptr, "", 0, HOST, 0);
}
