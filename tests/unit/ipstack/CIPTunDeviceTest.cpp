#include "ipstack/CIPTunDevice.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstring>
#include <ctime>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "SocketSupport.h"
#include "ipstack/ipstack.h"
#include "mantle/IMNTraceManager.h"
#include "mantle/MNDefines.h"

namespace
{

using ipstack::CIPTunDevice;
using ipstack::IIPStackManager;

const char* const s_szKernelEnd = "10.78.0.1";
const char* const s_szOurEnd = "10.78.0.2";
constexpr std::uint16_t s_wPort = 7;

// A socket of the kernel's.
class CKernelSocket
{
public:
    explicit CKernelSocket(int type) : m_nHandle(::socket(AF_INET, type | SOCK_CLOEXEC, 0))
    {
        const timeval limit{20, 0};
        ::setsockopt(m_nHandle, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
        ::setsockopt(m_nHandle, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
    }
    ~CKernelSocket() { ::close(m_nHandle); }
    CKernelSocket(const CKernelSocket&) = delete;
    CKernelSocket& operator=(const CKernelSocket&) = delete;

    int Connect(const char* host, std::uint16_t port) const
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        ::inet_pton(AF_INET, host, &address.sin_addr);
        return ::connect(m_nHandle, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    }
    bool Send(const std::string& text) const
    {
        return ::send(m_nHandle, text.data(), text.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
    }
    std::string Receive(std::size_t most) const
    {
        std::string text(most, '\0');
        const ssize_t length = ::recv(m_nHandle, text.data(), most, 0);
        text.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
        return text;
    }
    int Get() const { return m_nHandle; }

private:
    const int m_nHandle;
};

// A socket of ours on the link's address.
int MakeSocket(int type)
{
    ps_sockaddr_in address{};
    address.sin_len = sizeof(address);
    address.sin_family = PS_AF_INET;
    address.sin_port = htons(s_wPort);
    const int handle = ps_socket(PS_AF_INET, type, 0);
    EXPECT_EQ(ps_bind(handle, reinterpret_cast<const ps_sockaddr*>(&address), sizeof(address)), 0);
    ps_socket_nonblock(handle);
    return handle;
}

// Keeps the trace while it lives.
class CSink : public mantle::IMNTraceSink
{
public:
    CSink() { mantle::IMNTraceManager::Instance()->SetSink(this); }
    ~CSink() override { mantle::IMNTraceManager::Instance()->SetSink(nullptr); }
    CSink(const CSink&) = delete;
    CSink& operator=(const CSink&) = delete;
    void OnTrace(int, const char* text) override
    {
        const std::lock_guard<std::mutex> guard(m_Mutex);
        m_Lines.emplace_back(text);
    }
    std::vector<std::string> Get()
    {
        const std::lock_guard<std::mutex> guard(m_Mutex);
        return m_Lines;
    }

private:
    std::mutex m_Mutex;
    std::vector<std::string> m_Lines;
};

// Deletes the device as `ip link del` does.
bool Delete(const std::string& name)
{
    struct
    {
        nlmsghdr m_Header;
        ifinfomsg m_Info;
    } request{};
    request.m_Header.nlmsg_len = sizeof(request);
    request.m_Header.nlmsg_type = RTM_DELLINK;
    request.m_Header.nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK;
    request.m_Info.ifi_index = static_cast<int>(if_nametoindex(name.c_str()));
    const int handle = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    struct
    {
        nlmsghdr m_Header;
        nlmsgerr m_Error;
    } answer{};
    const bool done = ::send(handle, &request, sizeof(request), 0) == sizeof(request) &&
                      ::recv(handle, &answer, sizeof(answer), 0) > 0 && answer.m_Error.error == 0;
    ::close(handle);
    return done;
}

// Time that this process's threads have spent.
long long CpuMs()
{
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return time.tv_sec * 1000LL + time.tv_nsec / 1000000;
}

bool Configure(const std::string& name)
{
    const CKernelSocket control(SOCK_DGRAM);
    ifreq request{};
    std::strncpy(request.ifr_name, name.c_str(), sizeof(request.ifr_name) - 1);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    ::inet_pton(AF_INET, s_szKernelEnd, &address.sin_addr);
    std::memcpy(&request.ifr_addr, &address, sizeof(address));
    bool done = ::ioctl(control.Get(), SIOCSIFADDR, &request) == 0;
    ::inet_pton(AF_INET, "255.255.255.0", &address.sin_addr);
    std::memcpy(&request.ifr_netmask, &address, sizeof(address));
    done = done && ::ioctl(control.Get(), SIOCSIFNETMASK, &request) == 0;
    request.ifr_mtu = 1400;
    done = done && ::ioctl(control.Get(), SIOCSIFMTU, &request) == 0;
    request.ifr_flags = IFF_UP | IFF_RUNNING;
    return done && ::ioctl(control.Get(), SIOCSIFFLAGS, &request) == 0;
}

// Each case in a network namespace of its own, which belongs to a thread that ends with it.
class CIPTunDeviceTest : public testing::Test
{
protected:
    void InNamespace(const std::function<void()>& body)
    {
        std::string reason;
        std::thread thread([&] {
            if (::unshare(CLONE_NEWNET) != 0) {
                reason = "no right to make a network namespace";
                return;
            }
            const int clone = ::open("/dev/net/tun", O_RDWR | O_CLOEXEC);
            if (clone < 0) {
                reason = "no TUN devices here";
                return;
            }
            ::close(clone);
            body();
        });
        thread.join();
        if (!reason.empty()) {
            GTEST_SKIP() << reason;
        }
    }

    // The device with a link on it, the kernel's end configured.
    void Open()
    {
        socketsupport::Start();
        m_pDevice = std::make_unique<CIPTunDevice>();
        ASSERT_EQ(m_pDevice->Open("uxt%d"), 0u) << std::strerror(m_pDevice->GetSystemError());
        ASSERT_TRUE(Configure(m_pDevice->GetName()));
        ipstack::CIPStackConfig config;
        config.m_strAddress = s_szOurEnd;
        ASSERT_EQ(IIPStackManager::Instance()->CreateStack(config, m_pDevice.get(), m_pStack), 0u);
        ASSERT_EQ(m_pDevice->Start(m_pStack), 0u);
    }

    void Close()
    {
        EXPECT_EQ(IIPStackManager::Instance()->DestroyStack(m_pStack), 0u);
        m_pDevice.reset();
    }

    std::unique_ptr<CIPTunDevice> m_pDevice;
    ipstack::IIPStack* m_pStack = nullptr;
};

TEST_F(CIPTunDeviceTest, NamesThatAreNone_Opened_Refused)
{
    CIPTunDevice device;
    EXPECT_EQ(device.Open(""), mantle::MN_ERROR_INVALID_ARG);
    EXPECT_EQ(device.Open("a/b"), mantle::MN_ERROR_INVALID_ARG);
    EXPECT_EQ(device.Open("sixteen_letters_"), mantle::MN_ERROR_INVALID_ARG);
    EXPECT_EQ(device.GetName(), "");
}

TEST_F(CIPTunDeviceTest, NotOpen_Used_NothingHappens)
{
    CIPTunDevice device;
    EXPECT_EQ(device.Start(nullptr), mantle::MN_ERROR_INVALID_ARG);
    EXPECT_EQ(device.IPStackLowLevelOutput("x", 1, 0), 0u);
    device.Stop();
}

TEST_F(CIPTunDeviceTest, NoRight_Opened_FailsWithTheSystemsReason)
{
    std::thread thread([] {
        if (::geteuid() == 0) {
            // Rights belong to a thread; the raw call changes this one's alone.
            if (::syscall(SYS_setresuid, 65534, 65534, 65534) != 0) {
                return;
            }
        }
        CIPTunDevice device;
        EXPECT_EQ(device.Open("uxt%d"), mantle::MN_ERROR_FAILURE);
        EXPECT_NE(device.GetSystemError(), 0);
        EXPECT_EQ(device.GetName(), "");
    });
    thread.join();
}

TEST_F(CIPTunDeviceTest, Open_OpenedAgain_AlreadyInitialized)
{
    InNamespace([this] {
        Open();
        EXPECT_EQ(m_pDevice->Open("uxt%d"), mantle::MN_ERROR_ALREADY_INITIALIZED);
        EXPECT_EQ(m_pDevice->Start(m_pStack), mantle::MN_ERROR_ALREADY_INITIALIZED);
        EXPECT_EQ(m_pDevice->GetName().compare(0, 3, "uxt"), 0);
        Close();
    });
}

TEST_F(CIPTunDeviceTest, KernelsDatagram_Sent_AnsweredByOurs)
{
    InNamespace([this] {
        Open();
        const int ours = MakeSocket(PS_SOCK_DGRAM);
        const CKernelSocket kernel(SOCK_DGRAM);
        ASSERT_EQ(kernel.Connect(s_szOurEnd, s_wPort), 0);
        for (const std::size_t size : {1u, 1000u, 1372u, 6000u}) {
            ASSERT_TRUE(kernel.Send(std::string(size, 'k')));
            ASSERT_NE(socketsupport::WaitFor(ours, PS_POLLIN), 0) << size;
            std::string data(8192, '\0');
            ps_sockaddr_in from{};
            int fromLength = sizeof(from);
            const long length =
                ps_recvfrom(ours, data.data(), data.size(), 0, reinterpret_cast<ps_sockaddr*>(&from), &fromLength);
            ASSERT_EQ(length, static_cast<long>(size));
            ASSERT_EQ(ps_sendto(ours, data.data(), size, 0, reinterpret_cast<const ps_sockaddr*>(&from), fromLength),
                      length);
            EXPECT_EQ(kernel.Receive(8192), std::string(size, 'k'));
        }
        ps_close(ours);
        EXPECT_GE(socketsupport::GetCounter("tun.in"), 4u);
        EXPECT_GE(socketsupport::GetCounter("tun.out"), 4u);
        Close();
    });
}

TEST_F(CIPTunDeviceTest, KernelsConnection_Made_BytesBothWaysAndTheEnd)
{
    InNamespace([this] {
        Open();
        const int listener = MakeSocket(PS_SOCK_STREAM);
        ASSERT_EQ(ps_listen(listener, 4), 0);
        const CKernelSocket kernel(SOCK_STREAM);
        ASSERT_EQ(kernel.Connect(s_szOurEnd, s_wPort), 0);
        ASSERT_NE(socketsupport::WaitFor(listener, PS_POLLIN), 0);
        const int ours = ps_accept(listener, nullptr, nullptr);
        ASSERT_GE(ours, 1);
        ps_socket_nonblock(ours);
        ASSERT_TRUE(kernel.Send("question"));
        ASSERT_NE(socketsupport::WaitFor(ours, PS_POLLIN), 0);
        char data[100];
        ASSERT_EQ(ps_recv(ours, data, sizeof(data), 0), 8);
        ASSERT_EQ(ps_send(ours, "answer", 6, 0), 6);
        EXPECT_EQ(kernel.Receive(100), "answer");
        ps_close(ours);
        EXPECT_EQ(kernel.Receive(100), "");  // the end
        ps_close(listener);
        Close();
    });
}

TEST_F(CIPTunDeviceTest, PacketsComing_StoppedAndStarted_GoesOn)
{
    InNamespace([this] {
        Open();
        const int ours = MakeSocket(PS_SOCK_DGRAM);
        const CKernelSocket kernel(SOCK_DGRAM);
        ASSERT_EQ(kernel.Connect(s_szOurEnd, s_wPort), 0);
        for (int round = 0; round < 20; ++round) {
            m_pDevice->Stop();
            ASSERT_TRUE(kernel.Send("x"));
            ASSERT_EQ(m_pDevice->Start(m_pStack), 0u);
            ASSERT_NE(socketsupport::WaitFor(ours, PS_POLLIN), 0) << round;
            char data[10];
            EXPECT_EQ(ps_recv(ours, data, sizeof(data), 0), 1);
        }
        ps_close(ours);
        Close();
    });
}

TEST_F(CIPTunDeviceTest, DeviceDown_PacketSent_Counted)
{
    InNamespace([this] {
        Open();
        const CKernelSocket control(SOCK_DGRAM);
        ifreq request{};
        std::strncpy(request.ifr_name, m_pDevice->GetName().c_str(), sizeof(request.ifr_name) - 1);
        ASSERT_EQ(::ioctl(control.Get(), SIOCSIFFLAGS, &request), 0);  // down
        const std::uint64_t before = socketsupport::GetCounter("tun.output_failed");
        const std::string packet(40, '\x45');
        EXPECT_EQ(m_pDevice->IPStackLowLevelOutput(packet.data(), packet.size(), 0), 0u);
        EXPECT_EQ(socketsupport::GetCounter("tun.output_failed"), before + 1);
        EXPECT_FALSE(m_pDevice->IsLost()) << "it may come up again";
        Close();
    });
}

TEST_F(CIPTunDeviceTest, DeviceDeleted_WhileReading_ToldOnceAndTheThreadSleeps)
{
    InNamespace([this] {
        CSink sink;
        Open();
        const std::string name = m_pDevice->GetName();
        EXPECT_FALSE(m_pDevice->IsLost());
        ASSERT_TRUE(Delete(name));
        for (int waited = 0; sink.Get().empty() && waited < 20000; ++waited) {
            ::poll(nullptr, 0, 1);
        }
        EXPECT_TRUE(m_pDevice->IsLost());
        const long long before = CpuMs();
        ::poll(nullptr, 0, 300);
        EXPECT_LT(CpuMs() - before, 100) << "a busy loop";
        const std::uint64_t failed = socketsupport::GetCounter("tun.output_failed");
        const std::string packet(40, '\x45');
        EXPECT_EQ(m_pDevice->IPStackLowLevelOutput(packet.data(), packet.size(), 0), 0u);
        EXPECT_EQ(socketsupport::GetCounter("tun.output_failed"), failed + 1);
        m_pDevice->Stop();
        EXPECT_EQ(m_pDevice->Start(m_pStack), 0u);
        m_pDevice->Stop();
        EXPECT_TRUE(m_pDevice->IsLost());
        ASSERT_EQ(sink.Get().size(), 1u);
        EXPECT_NE(sink.Get()[0].find(name), std::string::npos) << sink.Get()[0];
        Close();
    });
}

TEST_F(CIPTunDeviceTest, DeviceDeleted_NotStartedAndPacketSent_Told)
{
    InNamespace([this] {
        CSink sink;
        Open();
        m_pDevice->Stop();
        ASSERT_TRUE(Delete(m_pDevice->GetName()));
        EXPECT_FALSE(m_pDevice->IsLost());
        const std::string packet(40, '\x45');
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(m_pDevice->IPStackLowLevelOutput(packet.data(), packet.size(), 0), 0u);
        }
        EXPECT_TRUE(m_pDevice->IsLost());
        EXPECT_EQ(sink.Get().size(), 1u);
        Close();
    });
}

}  // namespace
