// Calls from the test's code into the library.
#ifndef TESTS_MEMORY_INLIBRARY_H
#define TESTS_MEMORY_INLIBRARY_H

#include <new>

#include "tests/memory/CAllocationFault.h"
#include "tests/memory/CHome.h"

// Nothing may be thrown out of it. Returns: what the operation does.
template <class Operation>
uxport::MNResult InLibrary(Operation operation)
{
    try {
        const CLibraryScope library;
        return operation();
    } catch (const std::bad_alloc&) {
        Complain("a call throws std::bad_alloc");
    }
    return uxport::MN_ERROR_UNEXPECTED;
}

// What may fail for want of memory having changed nothing is done again.
template <class Operation>
uxport::MNResult InLibraryTwice(Operation operation)
{
    const uxport::MNResult result = InLibrary(operation);
    return result == uxport::MN_ERROR_UNEXPECTED ? InLibrary(operation) : result;
}

#endif
