// Shared definitions: export macro, result codes, connection types, event masks, transport options.
#ifndef UXPORT_PSDEFINES_H
#define UXPORT_PSDEFINES_H

#include "mantle/MNDefines.h"

#if defined(_WIN32)
#  if defined(UXPORT_BUILDING)
#    define UXPORT_API __declspec(dllexport)
#  else
#    define UXPORT_API __declspec(dllimport)
#  endif
#else
#  define UXPORT_API __attribute__((visibility("default")))
#endif

namespace mantle
{
class CMNInetAddr;
class CMNMessageBlock;
class CMNTimeValue;
class IMNEvent;
class IMNEventQueue;
class IMNTimerHandler;
class IMNTimerQueue;
}  // namespace mantle

namespace uxport
{

using mantle::CMNInetAddr;
using mantle::CMNMessageBlock;
using mantle::CMNTimeValue;
using mantle::IMNEvent;
using mantle::IMNEventQueue;
using mantle::IMNTimerHandler;
using mantle::IMNTimerQueue;
using mantle::MNResult;

// The result codes, under their names of the foundation framework.
#define UXPORT_RESULT_NAME(name, number, text) using mantle::name;
MN_RESULT_MAP(UXPORT_RESULT_NAME)
#undef UXPORT_RESULT_NAME

// What a connect of the protocol connectors answers when it failed at once.
inline constexpr MNResult PS_CONNECT_FAILED = static_cast<MNResult>(-1);

// No socket.
inline constexpr int PS_INVALID_HANDLE = -1;

// Connection types.
inline constexpr unsigned long CONNECTION_TYPE_RAW = 1;
inline constexpr unsigned long CONNECTION_TYPE_TCP = 2;
inline constexpr unsigned long CONNECTION_TYPE_UDP = 8;

// Event masks: registrations, readiness reports, wake-up records.
inline constexpr long ACCEPT_MASK = 1;        // a connection waits; OnInput
inline constexpr long CONNECT_MASK = 2;       // a connect completed or failed; OnInput and OnOutput
inline constexpr long READ_MASK = 4;          // data waits; OnInput
inline constexpr long WRITE_MASK = 8;         // room to write; OnOutput
inline constexpr long ALL_EVENTS_MASK = 63;   // every bit of a registration; 16 and 32 are stored, nothing reacts
inline constexpr long SHOULD_CALL = 64;       // internal: a removal calls OnClose
inline constexpr long CLOSE_MASK = 128;       // report: the handle failed or hung up
inline constexpr long EVENTQUEUE_MASK = 256;  // wake-up record: the reactor has events to run

inline constexpr long INPUT_GROUP_MASK = ACCEPT_MASK | READ_MASK;
inline constexpr long OUTPUT_GROUP_MASK = CONNECT_MASK | WRITE_MASK;
inline constexpr long READ_WATCH_MASK = ACCEPT_MASK | CONNECT_MASK | READ_MASK;  // watched for reading (lists)

// Transport options (IPSTransport::SetOption and GetOption), with the type of the value behind the pointer.
enum : unsigned long
{
    OPT_BYTES_TO_READ = 101,       // get: bytes waiting, 32-bit int
    OPT_RESERVED_102 = 102,        // answered by no transport
    OPT_FD = 103,                  // get: the socket handle, 32-bit int; set on TCP: -1 forgets the socket unclosed
    OPT_LOCAL_ADDR = 104,          // get: CMNInetAddr
    OPT_PEER_ADDR = 105,           // get: CMNInetAddr
    OPT_ALIVE = 106,               // get: 1 alive, 0 not, 32-bit int
    OPT_TYPE = 107,                // get: connection type, 64-bit
    OPT_KEEPALIVE = 108,           // set on TCP: seconds until the first probe, 0 off, 64-bit
    OPT_SEND_BUFFER = 109,         // bytes, 64-bit
    OPT_RECEIVE_BUFFER = 110,      // bytes, 64-bit
    OPT_NETWORK_TRANSPORT = 112,   // get on a transport of a user thread: its network-side IPSTransport*
    OPT_RAW_HEADER_INCLUDED = 136  // set on raw: the sender writes the IP header, 64-bit
};

}  // namespace uxport

#endif
