// A range of bytes (RFC 9110, 14).
#ifndef HTTPD_CRANGE_H
#define HTTPD_CRANGE_H

#include <cstdint>
#include <string>

struct CRange
{
    enum class EKind
    {
        WHOLE,  // no range, or one that a server may ignore: several of them, other units, not well-formed
        PART,
        UNSATISFIABLE
    };

    EKind m_eKind = EKind::WHOLE;
    std::uint64_t m_qwFirst = 0;
    std::uint64_t m_qwLength = 0;

    // `value`: of the field; `size`: of the file.
    static CRange Read(const std::string& value, std::uint64_t size);
};

#endif
