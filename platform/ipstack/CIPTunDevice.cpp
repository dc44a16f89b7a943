#include "ipstack/CIPTunDevice.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <vector>

#include "CIPCounters.h"
#include "mantle/CMNBurst.h"
#include "mantle/CMNThread.h"
#include "mantle/IMNTraceManager.h"
#include "mantle/MNDefines.h"

#if defined(__linux__)
#  include <fcntl.h>
#  include <linux/if_tun.h>
#  include <net/if.h>
#  include <poll.h>
#  include <sys/eventfd.h>
#  include <sys/ioctl.h>
#  include <unistd.h>
#endif

namespace ipstack
{

#if defined(__linux__)

namespace
{

const char* const s_szClone = "/dev/net/tun";
constexpr std::size_t s_nLongestPacket = 65536;
constexpr std::size_t s_nTextLength = 80;  // a trace line

// What the system answers of a device that has gone; a device that is down answers EIO and may come up again.
bool IsGone(int error)
{
    return error == EBADFD || error == ENODEV || error == ENXIO || error == EBADF;
}

}  // namespace

class CIPTunDevice::CImpl
{
public:
    CImpl() = default;
    ~CImpl()
    {
        Stop();
        Close();
    }

    unsigned long Open(const std::string& name)
    {
        if (m_nHandle >= 0) {
            return mantle::MN_ERROR_ALREADY_INITIALIZED;
        }
        ifreq request{};
        if (name.empty() || name.size() >= sizeof(request.ifr_name) || name.find('/') != std::string::npos) {
            return mantle::MN_ERROR_INVALID_ARG;
        }
        std::memcpy(request.ifr_name, name.data(), name.size());
        request.ifr_flags = IFF_TUN | IFF_NO_PI;
        m_nHandle = ::open(s_szClone, O_RDWR | O_NONBLOCK | O_CLOEXEC);
        m_nWake = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
        if (m_nHandle < 0 || m_nWake < 0 || ::ioctl(m_nHandle, TUNSETIFF, &request) != 0) {
            m_nError = errno;
            Close();
            return mantle::MN_ERROR_FAILURE;
        }
        m_strName = request.ifr_name;
        m_nError = 0;
        return mantle::MN_OK;
    }

    unsigned long Start(IIPStack* stack)
    {
        if (!stack) {
            return mantle::MN_ERROR_INVALID_ARG;
        }
        if (m_nHandle < 0) {
            return mantle::MN_ERROR_NOT_INITIALIZED;
        }
        if (m_pReader) {
            return mantle::MN_ERROR_ALREADY_INITIALIZED;
        }
        std::uint64_t left;
        [[maybe_unused]] const ssize_t taken = ::read(m_nWake, &left, sizeof(left));
        auto reader = std::make_unique<CReader>(*this, *stack);
        if (reader->Create(mantle::CMNThreadManager::Instance()->GetNewThreadType()) != mantle::MN_OK) {
            return mantle::MN_ERROR_FAILURE;
        }
        m_pReader = std::move(reader);
        return mantle::MN_OK;
    }

    void Stop()
    {
        if (m_pReader) {
            m_pReader->Stop();
            m_pReader->Join();
            m_pReader.reset();
        }
    }

    void Write(const char* data, unsigned long length)
    {
        if (m_nHandle < 0) {
            return;
        }
        ssize_t written;
        do {
            written = ::write(m_nHandle, data, length);
        } while (written < 0 && errno == EINTR);
        const int error = written < 0 ? errno : 0;
        CIPCounters::Add(written < 0 ? CIPCounters::TunOutputFailed : CIPCounters::TunOut);
        if (IsGone(error)) {
            Lose();
        }
    }

    // Tells once that the device has gone. Thread: any.
    void Lose()
    {
        if (m_bLost.exchange(true)) {
            return;
        }
        char text[s_nTextLength];
        mantle::Text_Formator(text, sizeof(text)) << "ipstack: the TUN device " << m_strName.c_str() << " has gone";
        mantle::IMNTraceManager::Instance()->Trace(0, text);
    }

    std::string m_strName;
    int m_nError = 0;
    std::atomic<bool> m_bLost{false};

private:
    // Known to the thread manager, whose clean-up stops and joins it.
    class CReader : public mantle::CMNThread
    {
    public:
        CReader(CIPTunDevice::CImpl& device, IIPStack& stack) : m_Device(device), m_Stack(stack) {}

        mantle::MNResult Stop(mantle::CMNTimeValue* timeout = nullptr) override
        {
            if (timeout) {
                return mantle::MN_ERROR_NOT_IMPLEMENTED;
            }
            const std::uint64_t one = 1;
            return ::write(m_Device.m_nWake, &one, sizeof(one)) == sizeof(one) ? mantle::MN_OK
                                                                               : mantle::MN_ERROR_FAILURE;
        }

        void OnThreadRun() override
        {
            pollfd waits[2] = {{m_Device.m_nHandle, POLLIN, 0}, {m_Device.m_nWake, POLLIN, 0}};
            while ((waits[1].revents & POLLIN) == 0) {
                // Input follows without limit here only as long as nobody wants the thread to end.
                if (waits[0].fd >= 0 && !ReadSome()) {
                    waits[0].fd = -1;  // nothing left to wait for but the end
                    m_Device.Lose();
                }
                if (::poll(waits, 2, -1) < 0 && errno != EINTR) {
                    return;
                }
                if ((waits[0].revents & (POLLERR | POLLHUP | POLLNVAL)) != 0) {
                    waits[0].fd = -1;
                    m_Device.Lose();
                }
            }
        }

    private:
        static constexpr int s_nAtOnce = 64;

        // Returns: false when the device has gone.
        bool ReadSome()
        {
            mantle::CMNBurst burst;
            for (int count = 0; count < s_nAtOnce; ++count) {
                const ssize_t length = ::read(m_Device.m_nHandle, m_Packet.data(), m_Packet.size());
                if (length < 0) {
                    return !IsGone(errno);
                }
                CIPCounters::Add(CIPCounters::TunIn);
                m_Stack.Input(m_Packet.data(), static_cast<unsigned long>(length));
            }
            return true;
        }

        CIPTunDevice::CImpl& m_Device;
        IIPStack& m_Stack;
        std::vector<char> m_Packet = std::vector<char>(s_nLongestPacket);
    };

    void Close()
    {
        for (int* handle : {&m_nHandle, &m_nWake}) {
            if (*handle >= 0) {
                ::close(*handle);
                *handle = -1;
            }
        }
        m_strName.clear();
    }

    int m_nHandle = -1;
    int m_nWake = -1;
    std::unique_ptr<CReader> m_pReader;
};

#else

class CIPTunDevice::CImpl
{
public:
    unsigned long Open(const std::string&) { return mantle::MN_ERROR_NOT_IMPLEMENTED; }
    unsigned long Start(IIPStack*) { return mantle::MN_ERROR_NOT_INITIALIZED; }
    void Stop() {}
    void Write(const char*, unsigned long) {}

    std::string m_strName;
    int m_nError = 0;
    std::atomic<bool> m_bLost{false};
};

#endif

CIPTunDevice::CIPTunDevice() : m_pImpl(new CImpl) {}

CIPTunDevice::~CIPTunDevice() = default;

unsigned long CIPTunDevice::Open(const std::string& name)
{
    return m_pImpl->Open(name);
}

std::string CIPTunDevice::GetName() const
{
    return m_pImpl->m_strName;
}

int CIPTunDevice::GetSystemError() const
{
    return m_pImpl->m_nError;
}

bool CIPTunDevice::IsLost() const
{
    return m_pImpl->m_bLost.load();
}

unsigned long CIPTunDevice::Start(IIPStack* stack)
{
    return m_pImpl->Start(stack);
}

void CIPTunDevice::Stop()
{
    m_pImpl->Stop();
}

unsigned long CIPTunDevice::IPStackLowLevelOutput(const char* data, unsigned long length, unsigned char)
{
    m_pImpl->Write(data, length);
    return mantle::MN_OK;
}

}  // namespace ipstack
