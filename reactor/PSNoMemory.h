// What is given up for want of memory where no call can answer it.
#ifndef UXPORT_REACTOR_PSNOMEMORY_H
#define UXPORT_REACTOR_PSNOMEMORY_H

#include "uxport/PSDefines.h"

namespace uxport
{

// Counts, and writes a trace line for the counts that are powers of two. `place`: what was given up where. Thread: any.
void PSReportNoMemory(const char* place) noexcept;

// How often that was. Thread: any.
unsigned long PSGetNoMemoryCount() noexcept;

}  // namespace uxport

#endif
