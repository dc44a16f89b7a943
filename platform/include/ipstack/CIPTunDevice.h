// A link to the operating system's own stack.
#ifndef IPSTACK_CIPTUNDEVICE_H
#define IPSTACK_CIPTUNDEVICE_H

#include <memory>
#include <string>

#include "ipstack/IIPStack.h"

namespace ipstack
{

// A TUN device (Linux): layer 3, one packet a read or write, nothing in front of it. Needs the right to make one, or a
// device that exists and belongs to the user. The system's end gets its address, MTU and state by the system's tools.
//
// Making: Open, then the link over it (IIPStackManager::CreateStack), then Start with the link. Taking down: the link
// first (IIPStackManager::DestroyStack), then this object.
class IPSTACK_API CIPTunDevice : public IIPStackLowLevel
{
public:
    CIPTunDevice();

    // Waits for running input. Not from inside it.
    ~CIPTunDevice() override;
    CIPTunDevice(const CIPTunDevice&) = delete;
    CIPTunDevice& operator=(const CIPTunDevice&) = delete;

    // Makes the device, or joins one that exists. `name`: at most 15 characters; with "%d" the system numbers it.
    // Returns: 0; MN_ERROR_ALREADY_INITIALIZED when it is open; MN_ERROR_INVALID_ARG for a name that is none;
    // MN_ERROR_FAILURE when the system refuses (GetSystemError tells why); MN_ERROR_NOT_IMPLEMENTED where there are no
    // such devices.
    unsigned long Open(const std::string& name);

    // The device's name; empty while it is not open.
    std::string GetName() const;

    // The system's error number of an Open that failed.
    int GetSystemError() const;

    // Whether the device has gone (somebody deleted it): nothing comes in any more and what goes out is dropped. One
    // trace line tells it too. Seen by the thread that Start began, or by the next output. A device that is down may
    // come up again and is not lost. Thread: any.
    bool IsLost() const;

    // Hands what the device brings to `stack` from now on, on a thread of its own. Returns: 0; MN_ERROR_NOT_INITIALIZED
    // while it is not open; MN_ERROR_ALREADY_INITIALIZED when it has been started; MN_ERROR_INVALID_ARG for null;
    // MN_ERROR_FAILURE when there is no thread to be had.
    unsigned long Start(IIPStack* stack);

    // Ends that and waits for running input; Start may follow. Not from inside it.
    void Stop();

    // A packet that the system does not take at once is dropped and counted.
    unsigned long IPStackLowLevelOutput(const char* data, unsigned long length, unsigned char flag) override;

private:
    class CImpl;
    std::unique_ptr<CImpl> m_pImpl;
};

}  // namespace ipstack

#endif
