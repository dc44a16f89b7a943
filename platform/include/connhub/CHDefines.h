// Export macro.
#ifndef CONNHUB_CHDEFINES_H
#define CONNHUB_CHDEFINES_H

#if defined(_WIN32)
#  if defined(CONNHUB_BUILDING)
#    define CONNHUB_API __declspec(dllexport)
#  else
#    define CONNHUB_API __declspec(dllimport)
#  endif
#else
#  define CONNHUB_API __attribute__((visibility("default")))
#endif

#endif
