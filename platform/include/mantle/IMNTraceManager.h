// Trace lines.
#ifndef MANTLE_IMNTRACEMANAGER_H
#define MANTLE_IMNTRACEMANAGER_H

#include <cstddef>

#include "mantle/MNDefines.h"

namespace mantle
{

// Where trace lines go.
class MANTLE_API IMNTraceSink
{
public:
    virtual ~IMNTraceSink() = default;
    // Thread: any; one line at a time. `text` is good during the call.
    virtual void OnTrace(int level, const char* text) = 0;
};

class MANTLE_API IMNTraceManager
{
public:
    static IMNTraceManager* Instance();

    // Replaces the sink; null restores the default, standard error. Returns the one before (null: the default).
    virtual IMNTraceSink* SetSink(IMNTraceSink* sink) = 0;

    // Writes one line at `level` (0: the gravest).
    virtual void Trace(int level, const char* text) = 0;

protected:
    virtual ~IMNTraceManager() = default;
};

// Builds one line in a buffer that it never writes past; what does not fit is cut off.
class MANTLE_API Text_Formator
{
public:
    Text_Formator(char* buffer, std::size_t size) noexcept;

    Text_Formator& operator<<(const char* text) noexcept;
    Text_Formator& operator<<(char value) noexcept;
    Text_Formator& operator<<(int value) noexcept;
    Text_Formator& operator<<(unsigned int value) noexcept;
    Text_Formator& operator<<(long value) noexcept;
    Text_Formator& operator<<(unsigned long value) noexcept;
    Text_Formator& operator<<(long long value) noexcept;
    Text_Formator& operator<<(unsigned long long value) noexcept;
    Text_Formator& operator<<(const void* value) noexcept;

    const char* GetText() const noexcept { return m_szBuffer; }
    std::size_t GetLength() const noexcept { return m_nLength; }

private:
    void Put(const char* text, std::size_t length) noexcept;

    char* m_szBuffer;
    std::size_t m_nSize;
    std::size_t m_nLength = 0;
};

}  // namespace mantle

#endif
