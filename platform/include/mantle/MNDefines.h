// Export macro and result codes.
#ifndef MANTLE_MNDEFINES_H
#define MANTLE_MNDEFINES_H

#include <string>

#if defined(_WIN32)
#  if defined(MANTLE_BUILDING)
#    define MANTLE_API __declspec(dllexport)
#  else
#    define MANTLE_API __declspec(dllimport)
#  endif
#else
#  define MANTLE_API __attribute__((visibility("default")))
#endif

namespace mantle
{

// What an operation answers: 0 or one of the codes below.
using MNResult = unsigned long;

using CMNString = std::string;

// The one table of result codes: name, number, text.
#define MN_RESULT_MAP(XX)                                                          \
  XX(MN_OK, 0, "success")                                                          \
  XX(MN_ERROR_FAILURE, 10001, "a call of the stack failed, or the connection did") \
  XX(MN_ERROR_NOT_INITIALIZED, 10002, "the object is not open or already closed")  \
  XX(MN_ERROR_ALREADY_INITIALIZED, 10003, "the object is already in use")          \
  XX(MN_ERROR_NOT_IMPLEMENTED, 10004, "the operation is not offered")              \
  XX(MN_ERROR_NULL_POINTER, 10005, "a needed inner object or sink is missing")     \
  XX(MN_ERROR_UNEXPECTED, 10006, "the state is not the expected one")              \
  XX(MN_ERROR_INVALID_ARG, 10008, "an argument is not acceptable")                 \
  XX(MN_ERROR_NOT_AVAILABLE, 10009, "the result is not there yet")                 \
  XX(MN_ERROR_NOT_FOUND, 10011, "nothing there by that name, or nothing pending")  \
  XX(MN_ERROR_FOUND, 10012, "something was there already; it has been replaced")   \
  XX(MN_ERROR_PARTIAL_DATA, 10013, "only a part of the data was taken")            \
  XX(MN_ERROR_NETWORK_SOCKET_ERROR, 20001, "a socket call failed")

#define MN_RESULT_CONSTANT(name, number, text) inline constexpr MNResult name = number;
MN_RESULT_MAP(MN_RESULT_CONSTANT)
#undef MN_RESULT_CONSTANT

// The code's name ("MN_OK") and one-line text; "unknown" for a number that is no code. Thread: any.
MANTLE_API const char* MNResultName(MNResult result) noexcept;
MANTLE_API const char* MNResultText(MNResult result) noexcept;

}  // namespace mantle

#endif
