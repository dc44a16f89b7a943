// Address text and records, httpd's requests and ranges, ping's replies, filecopy's list.
#include <cstring>
#include <memory>
#include <stdexcept>

#include "CFuzzInput.h"
#include "examples/filecopy/CFileList.h"
#include "examples/filecopy/CFileProtocol.h"
#include "examples/httpd/CHttpRequest.h"
#include "examples/httpd/CRange.h"
#include "examples/ping/IcmpEcho.h"
#include "mantle/CMNInetAddr.h"
#include "platform/ipstack/CIPAddress.h"

using mantle::CMNInetAddr;

namespace
{

// Bytes that end where their memory does, so that a read past them shows.
class CExact
{
public:
    explicit CExact(const std::vector<std::uint8_t>& bytes) : m_pBytes(new char[bytes.size()]), m_nLength(bytes.size())
    {
        std::copy(bytes.begin(), bytes.end(), m_pBytes.get());
    }

    const char* Get() const { return m_pBytes.get(); }
    std::size_t GetLength() const { return m_nLength; }

private:
    std::unique_ptr<char[]> m_pBytes;
    std::size_t m_nLength;
};

void AddressText(CFuzzInput& input)
{
    const std::uint16_t port = input.Word();
    const std::string text = input.Text(input.GetLeft());
    CMNInetAddr address("10.1.2.3", 1);
    if (address.Set(text.c_str(), port) != mantle::MN_OK) {
        Require(address == CMNInetAddr::s_InetAddrAny, "what is no address leaves none");
        return;
    }
    Require(address.GetPort() == port, "the port is the one given");
    const CMNInetAddr again(address.GetHostString(), port);
    Require(again == address && again.hash() == address.hash(), "an address is the one that its text names");
    Require(CMNInetAddr(text, port) == address, "both ways of making one agree");
    CMNInetAddr copy;
    Require(copy.Set(address.PrepareForStack(), address.GetSize()) == mantle::MN_OK && copy == address,
            "an address is the one that its record names");
}

void AddressRecord(CFuzzInput& input)
{
    int room = input.Byte() % 40;
    const CExact record(input.Bytes(input.GetLeft()));
    const int length = static_cast<int>(record.GetLength());
    CMNInetAddr address;
    if (address.Set(static_cast<const void*>(record.Get()), length) != mantle::MN_OK) {
        Require(address == CMNInetAddr::s_InetAddrAny, "a bad record changes nothing");
    } else {
        Require(CMNInetAddr(address.GetHostString(), address.GetPort()) == address, "a record has a text");
    }
    ipstack::CIPAddress inner;
    if (inner.Read(reinterpret_cast<const ps_sockaddr*>(record.Get()), length) == 0) {
        const std::unique_ptr<char[]> written(new char[static_cast<std::size_t>(room)]);
        const int given = room;
        inner.Write(reinterpret_cast<ps_sockaddr*>(written.get()), &room);
        ipstack::CIPAddress again;
        const bool whole = given >= room;
        Require(!whole || (again.Read(reinterpret_cast<const ps_sockaddr*>(written.get()), room) == 0 &&
                           again.m_wPort == inner.m_wPort && ip_addr_cmp(&again.m_Ip, &inner.m_Ip)),
                "a record that is written can be read");
    }
}

// What a request has come to.
struct COutcome
{
    CHttpRequest::EState m_eState;
    std::size_t m_nTaken;
    std::string m_strTarget;
    std::string m_strRange;

    bool operator==(const COutcome& other) const
    {
        return m_eState == other.m_eState && m_nTaken == other.m_nTaken && m_strTarget == other.m_strTarget &&
               m_strRange == other.m_strRange;
    }
};

COutcome ReadRequest(const CExact& text, std::size_t step)
{
    CHttpRequest request;
    std::size_t taken = 0;
    while (taken < text.GetLength() && request.GetState() == CHttpRequest::EState::INCOMPLETE) {
        const std::size_t given = std::min(step, text.GetLength() - taken);
        const std::size_t took = request.Take(text.Get() + taken, given);
        taken += took;
        Require(took <= given, "a request takes no more than it is given");
        Require(took == given || request.GetState() != CHttpRequest::EState::INCOMPLETE,
                "a request that waits for more has taken all");
    }
    const bool complete = request.GetState() == CHttpRequest::EState::COMPLETE;
    return {request.GetState(), complete ? taken : 0, complete ? request.GetTarget() : "",
            complete ? request.GetRange() : ""};
}

void Request(CFuzzInput& input)
{
    const std::size_t step = 1 + input.Byte();
    const CExact text(input.Bytes(input.GetLeft()));
    Require(ReadRequest(text, text.GetLength()) == ReadRequest(text, step),
            "a request is the same in whatever pieces it comes");
}

void Range(CFuzzInput& input)
{
    const std::uint64_t high = input.DWord();
    const std::uint64_t size = high << 32 | input.DWord();
    const std::string text = input.Text(input.GetLeft());
    const CRange range = CRange::Read(text, size);
    if (range.m_eKind == CRange::EKind::WHOLE) {
        Require(range.m_qwFirst == 0 && range.m_qwLength == size, "no range is the whole");
    } else if (range.m_eKind == CRange::EKind::PART) {
        Require(range.m_qwLength != 0 && range.m_qwFirst < size && range.m_qwLength <= size - range.m_qwFirst,
                "a range lies in its file");
    }
}

void EchoReply(CFuzzInput& input)
{
    const CExact packet(input.Bytes(input.GetLeft()));
    const auto reply = icmp::ReadReply(packet.Get(), packet.GetLength());
    Require(!reply || (reply->m_nLength >= icmp::HEADER_LENGTH && reply->m_nLength <= packet.GetLength()),
            "a reply is within its packet");
}

void FileList(CFuzzInput& input)
{
    const std::string text = input.Text(input.GetLeft());
    try {
        const CFileList list = CFileList::Decode(text);
        Require(CFileList::Decode(list.Encode()).GetFiles() == list.GetFiles(), "a list is the one that is sent");
        const std::uint64_t bytes = list.GetBytes();
        const std::uint64_t steps = CFileProtocol::CountSteps(bytes);
        Require(steps >= bytes / CFileProtocol::s_qwStep, "the steps reach to the end");
        for (const CFileEntry& file : list.GetFiles()) {
            Require(file.m_qwSize <= bytes, "no file is larger than all together");
        }
    } catch (const std::runtime_error&) {  // no list
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using CReader = void (*)(CFuzzInput&);
    constexpr CReader readers[] = {AddressText, AddressRecord, Request, Range, EchoReply, FileList};
    CFuzzInput input(data, size);
    readers[input.Byte() % std::size(readers)](input);
    return 0;
}
