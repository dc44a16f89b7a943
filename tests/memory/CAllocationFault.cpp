#include "tests/memory/CAllocationFault.h"

#include <dlfcn.h>
#include <execinfo.h>
#include <link.h>
#include <sys/mman.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace
{

constexpr unsigned int OWN_FRAMES = 2;  // Note, and malloc or operator new
constexpr int MOST_MODULES = 64;

struct CModule
{
    std::uintptr_t m_nBegin;
    std::uintptr_t m_nEnd;
    std::uintptr_t m_nBase;
};

CModule g_Modules[MOST_MODULES];
int g_nModules = 0;

std::atomic<CAllocationFault::CRecord*> g_pRecord{nullptr};
std::uint64_t g_qwHash = 0;
unsigned int g_dwOccurrence = 0;

__attribute__((tls_model("initial-exec"))) thread_local bool t_bTest = false;
__attribute__((tls_model("initial-exec"))) thread_local bool t_bInside = false;

int AddModule(dl_phdr_info* info, std::size_t, void*)
{
    for (int i = 0; i < info->dlpi_phnum && g_nModules < MOST_MODULES; ++i) {
        const auto& header = info->dlpi_phdr[i];
        if (header.p_type == PT_LOAD && (header.p_flags & PF_X) != 0) {
            const std::uintptr_t begin = info->dlpi_addr + header.p_vaddr;
            g_Modules[g_nModules++] = CModule{begin, begin + header.p_memsz, info->dlpi_addr};
        }
    }
    return 0;
}

std::uint64_t HashOf(void* const* frames, unsigned int count)
{
    std::uint64_t hash = 14695981039346656037u;  // FNV-1a
    for (unsigned int i = 0; i < count; ++i) {
        auto address = reinterpret_cast<std::uintptr_t>(frames[i]);
        for (int module = 0; module < g_nModules; ++module) {
            if (address >= g_Modules[module].m_nBegin && address < g_Modules[module].m_nEnd) {
                address = address - g_Modules[module].m_nBase + static_cast<std::uintptr_t>(module);
                break;
            }
        }
        hash = (hash ^ address) * 1099511628211u;
    }
    return hash != 0 ? hash : 1;
}

void Keep(CAllocationFault::CPlace& place, void* const* frames, unsigned int count)
{
    place.m_dwFrames = count;
    std::memcpy(place.m_Frames, frames, count * sizeof *frames);
}

// Returns: which allocation of its place this is.
unsigned int CountAt(CAllocationFault::CRecord& record, std::uint64_t hash, void* const* frames, unsigned int count)
{
    for (std::size_t i = 0; i < CAllocationFault::s_nMostPlaces; ++i) {
        CAllocationFault::CPlace& place = record.m_Places[(hash + i) % CAllocationFault::s_nMostPlaces];
        std::uint64_t known = 0;
        if (place.m_qwHash.compare_exchange_strong(known, hash)) {
            Keep(place, frames, count);
            record.m_dwPlaces.fetch_add(1);
            known = hash;
        }
        if (known == hash)
            return place.m_dwCount.fetch_add(1) + 1;
    }
    return 0;
}

// Returns: whether the allocation fails.
__attribute__((noinline)) bool Note()
{
    CAllocationFault::CRecord* record = g_pRecord.load(std::memory_order_relaxed);
    if (!record || t_bTest || t_bInside)
        return false;
    t_bInside = true;
    void* frames[OWN_FRAMES + CAllocationFault::s_dwFrames];
    const int found = backtrace(frames, sizeof frames / sizeof *frames);
    bool fails = false;
    if (found > static_cast<int>(OWN_FRAMES)) {
        void* const* const callers = frames + OWN_FRAMES;
        const unsigned int count = static_cast<unsigned int>(found) - OWN_FRAMES;
        const unsigned int most = count < CAllocationFault::s_dwFrames ? count : CAllocationFault::s_dwFrames;
        const unsigned int looked = most < CAllocationFault::s_dwCallers ? most : CAllocationFault::s_dwCallers;
        const std::uint64_t hash = HashOf(callers, looked);
        record->m_dwAllocations.fetch_add(1);
        const unsigned int occurrence = CountAt(*record, hash, callers, most);
        if (hash == g_qwHash && occurrence == g_dwOccurrence) {
            Keep(record->m_Failed, callers, most);
            record->m_bFailed.store(1);
            fails = true;
        }
    }
    t_bInside = false;
    return fails;
}

template <class Function>
Function Next(const char* name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

void* NextMalloc(std::size_t size)
{
    static const auto s_pNext = Next<void* (*)(std::size_t)>("malloc");
    return s_pNext(size);
}

void* NextAligned(std::size_t alignment, std::size_t size)
{
    static const auto s_pNext = Next<void* (*)(std::size_t, std::size_t)>("aligned_alloc");
    return s_pNext(alignment, size);
}

void* NewOrNull(std::size_t size)
{
    return Note() ? nullptr : NextMalloc(size != 0 ? size : 1);
}

void* NewOrNull(std::size_t size, std::align_val_t alignment)
{
    const auto step = static_cast<std::size_t>(alignment);
    return Note() ? nullptr : NextAligned(step, (size + step - 1) / step * step);
}

void* OrThrow(void* memory)
{
    if (!memory)
        throw std::bad_alloc();
    return memory;
}

}  // namespace

// A sanitizer's own allocator needs them before it can be called: in such a build only operator new fails.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
extern "C" {

__attribute__((visibility("default"))) void* malloc(std::size_t size)
{
    if (Note()) {
        errno = ENOMEM;
        return nullptr;
    }
    return NextMalloc(size);
}

__attribute__((visibility("default"))) void* realloc(void* memory, std::size_t size)
{
    static const auto s_pNext = Next<void* (*)(void*, std::size_t)>("realloc");
    if (size != 0 && Note()) {
        errno = ENOMEM;
        return nullptr;
    }
    return s_pNext(memory, size);
}

__attribute__((visibility("default"))) void* calloc(std::size_t count, std::size_t size)
{
    static const auto s_pNext = Next<void* (*)(std::size_t, std::size_t)>("calloc");
    if (Note()) {
        errno = ENOMEM;
        return nullptr;
    }
    return s_pNext(count, size);
}

__attribute__((visibility("default"))) void* aligned_alloc(std::size_t alignment, std::size_t size)
{
    if (Note()) {
        errno = ENOMEM;
        return nullptr;
    }
    return NextAligned(alignment, size);
}

__attribute__((visibility("default"))) int posix_memalign(void** memory, std::size_t alignment, std::size_t size)
{
    static const auto s_pNext = Next<int (*)(void**, std::size_t, std::size_t)>("posix_memalign");
    return Note() ? ENOMEM : s_pNext(memory, alignment, size);
}

}  // extern "C"
#endif

void* operator new(std::size_t size)
{
    return OrThrow(NewOrNull(size));
}
void* operator new[](std::size_t size)
{
    return OrThrow(NewOrNull(size));
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return NewOrNull(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept
{
    return NewOrNull(size);
}
void* operator new(std::size_t size, std::align_val_t alignment)
{
    return OrThrow(NewOrNull(size, alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment)
{
    return OrThrow(NewOrNull(size, alignment));
}
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept
{
    return NewOrNull(size, alignment);
}
void* operator new[](std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept
{
    return NewOrNull(size, alignment);
}
void operator delete(void* memory) noexcept
{
    std::free(memory);
}
void operator delete[](void* memory) noexcept
{
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept
{
    std::free(memory);
}
void operator delete(void* memory, std::align_val_t) noexcept
{
    std::free(memory);
}
void operator delete[](void* memory, std::align_val_t) noexcept
{
    std::free(memory);
}
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept
{
    std::free(memory);
}
void operator delete[](void* memory, std::size_t, std::align_val_t) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, const std::nothrow_t&) noexcept
{
    std::free(memory);
}
void operator delete[](void* memory, const std::nothrow_t&) noexcept
{
    std::free(memory);
}
void operator delete(void* memory, std::align_val_t, const std::nothrow_t&) noexcept
{
    std::free(memory);
}
void operator delete[](void* memory, std::align_val_t, const std::nothrow_t&) noexcept
{
    std::free(memory);
}

void CAllocationFault::Start()
{
    t_bTest = true;
    void* frames[2];
    backtrace(frames, 2);  // loads what it needs
    dl_iterate_phdr(AddModule, nullptr);
}

CAllocationFault::CRecord* CAllocationFault::MakeRecord()
{
    void* const memory =
        mmap(nullptr, sizeof(CRecord), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    return memory == MAP_FAILED ? nullptr : static_cast<CRecord*>(memory);  // all zero
}

void CAllocationFault::SwitchOn(CRecord& record, std::uint64_t hash, unsigned int occurrence)
{
    g_qwHash = hash;
    g_dwOccurrence = occurrence;
    g_pRecord.store(&record);
}

void CAllocationFault::SwitchOff()
{
    g_pRecord.store(nullptr);
}

void CAllocationFault::Print(const CPlace& place)
{
    char** const lines = backtrace_symbols(place.m_Frames, static_cast<int>(place.m_dwFrames));
    for (unsigned int i = 0; lines && i < place.m_dwFrames; ++i)
        std::printf("    %s\n", lines[i]);
    std::free(lines);
}

CTestScope::CTestScope() : m_bBefore(t_bTest)
{
    t_bTest = true;
}

CTestScope::~CTestScope()
{
    t_bTest = m_bBefore;
}

CLibraryScope::CLibraryScope() : m_bBefore(t_bTest)
{
    t_bTest = false;
}

CLibraryScope::~CLibraryScope()
{
    t_bTest = m_bBefore;
}
