#include <cstdint>
#include <cstring>

#include "mantle/IMNTraceManager.h"

namespace mantle
{

namespace
{

constexpr std::size_t s_nDigits = 24;  // of the longest number, with sign and prefix

// Writes `value` in `base` before `end`; returns the first character.
char* WriteDigits(char* end, unsigned long long value, unsigned int base) noexcept
{
    do {
        *--end = "0123456789abcdef"[value % base];
        value /= base;
    } while (value != 0);
    return end;
}

}  // namespace

Text_Formator::Text_Formator(char* buffer, std::size_t size) noexcept : m_szBuffer(buffer), m_nSize(size)
{
    static char s_cEmpty = '\0';
    if (!m_szBuffer || m_nSize == 0) {
        m_szBuffer = &s_cEmpty;
        m_nSize = 0;
    } else {
        m_szBuffer[0] = '\0';
    }
}

void Text_Formator::Put(const char* text, std::size_t length) noexcept
{
    if (m_nSize == 0)
        return;
    const std::size_t room = m_nSize - 1 - m_nLength;
    if (length > room)
        length = room;
    std::memcpy(m_szBuffer + m_nLength, text, length);
    m_nLength += length;
    m_szBuffer[m_nLength] = '\0';
}

Text_Formator& Text_Formator::operator<<(const char* text) noexcept
{
    if (text)
        Put(text, std::strlen(text));
    return *this;
}

Text_Formator& Text_Formator::operator<<(char value) noexcept
{
    Put(&value, 1);
    return *this;
}

Text_Formator& Text_Formator::operator<<(int value) noexcept
{
    return *this << static_cast<long long>(value);
}

Text_Formator& Text_Formator::operator<<(unsigned int value) noexcept
{
    return *this << static_cast<unsigned long long>(value);
}

Text_Formator& Text_Formator::operator<<(long value) noexcept
{
    return *this << static_cast<long long>(value);
}

Text_Formator& Text_Formator::operator<<(unsigned long value) noexcept
{
    return *this << static_cast<unsigned long long>(value);
}

Text_Formator& Text_Formator::operator<<(long long value) noexcept
{
    char digits[s_nDigits];
    char* const end = digits + sizeof(digits);
    const auto magnitude = static_cast<unsigned long long>(value);
    char* first = WriteDigits(end, value < 0 ? 0 - magnitude : magnitude, 10);
    if (value < 0)
        *--first = '-';
    Put(first, static_cast<std::size_t>(end - first));
    return *this;
}

Text_Formator& Text_Formator::operator<<(unsigned long long value) noexcept
{
    char digits[s_nDigits];
    char* const end = digits + sizeof(digits);
    char* first = WriteDigits(end, value, 10);
    Put(first, static_cast<std::size_t>(end - first));
    return *this;
}

Text_Formator& Text_Formator::operator<<(const void* value) noexcept
{
    char digits[s_nDigits];
    char* const end = digits + sizeof(digits);
    char* first = WriteDigits(end, reinterpret_cast<std::uintptr_t>(value), 16);
    *--first = 'x';
    *--first = '0';
    Put(first, static_cast<std::size_t>(end - first));
    return *this;
}

}  // namespace mantle
