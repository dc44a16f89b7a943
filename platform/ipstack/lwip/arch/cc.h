/* lwIP's view of the compiler and the system. */
#ifndef UXPORT_LWIP_ARCH_CC_H
#define UXPORT_LWIP_ARCH_CC_H

#include <stdint.h>
#include <stdlib.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A failed assertion of lwIP's: counted, kept, traced; the caller goes on (CIPAssertion). */
void uxport_ipstack_assertion(const char* message, const char* file, int line);

/* A random number from the system's generator (CIPIsn). */
uint32_t uxport_ipstack_random(void);

#ifdef __cplusplus
}
#endif

#define LWIP_PLATFORM_ASSERT(message) uxport_ipstack_assertion(message, __FILE__, __LINE__)
#define LWIP_PLATFORM_DIAG(arguments) \
  do {                                \
  } while (0)
#define LWIP_RAND() uxport_ipstack_random()

/* Without the builtins lwIP calls a function for each field of a header. */
#if defined(__GNUC__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
#  define lwip_htons(x) __builtin_bswap16(x)
#  define lwip_htonl(x) __builtin_bswap32(x)
#endif

#endif
