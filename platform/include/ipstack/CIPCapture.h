// Writes down what passes on a link.
#ifndef IPSTACK_CIPCAPTURE_H
#define IPSTACK_CIPCAPTURE_H

#include <cstdint>
#include <memory>
#include <string>

#include "ipstack/IIPStack.h"

namespace ipstack
{

// Stands between a link and the layer below it, and writes the packets of both directions to a file while switched on:
// pcap with nanoseconds, raw IP packets (link type 101).
//
// Making: the layer below, this object over it, the link over this object (IIPStackManager::CreateStack), SetStack with
// the link, and then the layer below is given this object where it wants the link. Taking down: the link, the layer
// below, this object.
class IPSTACK_API CIPCapture : public IIPStackLowLevel, public IIPStack
{
public:
    // `below` must outlive the link.
    explicit CIPCapture(IIPStackLowLevel& below);

    // Ends the file. State: nothing passes any more.
    ~CIPCapture() override;
    CIPCapture(const CIPCapture&) = delete;
    CIPCapture& operator=(const CIPCapture&) = delete;

    // Where the packets from below go. Before that they are answered MN_ERROR_NOT_INITIALIZED. Thread: any.
    void SetStack(IIPStack* stack);

    // Writes every packet from now on to a new file, or over an old one. A write that fails, on a full disk say, ends
    // the file: one trace line tells it, GetSystemError tells why, packets pass as before and are counted
    // (capture.failed) until Stop or Start. Thread: any. Returns: 0; MN_ERROR_ALREADY_INITIALIZED when it is on;
    // MN_ERROR_FAILURE when the file can't be made (GetSystemError tells why).
    unsigned long Start(const std::string& path);

    // Ends the file; a packet that is being written is whole. Thread: any.
    void Stop();
    bool IsOn() const;

    // The system's error number of what ended the last file or kept it from being made; 0: nothing did. What the
    // system takes late may fail as late as Stop. Thread: any.
    int GetSystemError() const;

    // Packets written since the last Start. Thread: any.
    std::uint64_t GetPackets() const;

    // From the link, and from below.
    unsigned long IPStackLowLevelOutput(const char* data, unsigned long length, unsigned char flag) override;
    unsigned long Input(const char* data, unsigned long length) override;

private:
    class CImpl;
    std::unique_ptr<CImpl> m_pImpl;
};

}  // namespace ipstack

#endif
