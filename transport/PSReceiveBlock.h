// A block to receive into.
#ifndef UXPORT_TRANSPORT_PSRECEIVEBLOCK_H
#define UXPORT_TRANSPORT_PSRECEIVEBLOCK_H

#include <new>
#include <optional>

#include "mantle/CMNMessageBlock.h"
#include "reactor/PSNoMemory.h"

namespace uxport
{

// Returns: false when there is no memory, which is reported.
inline bool PSMakeBlock(std::optional<CMNMessageBlock>& block, unsigned long size) noexcept
{
    try {
        block.emplace(size);
        return true;
    } catch (const std::bad_alloc&) {
        PSReportNoMemory("receiving");
        return false;
    }
}

}  // namespace uxport

#endif
