#include "CRange.h"

#include <algorithm>
#include <charconv>

namespace
{

bool ReadNumber(const char* begin, const char* end, std::uint64_t& number)
{
    const auto read = std::from_chars(begin, end, number);
    return begin != end && read.ec == std::errc() && read.ptr == end;
}

}  // namespace

CRange CRange::Read(const std::string& value, std::uint64_t size)
{
    const CRange whole{EKind::WHOLE, 0, size};
    const CRange unsatisfiable{EKind::UNSATISFIABLE, 0, 0};
    const std::string unit = "bytes=";
    const std::size_t dash = value.find('-');
    if (value.compare(0, unit.size(), unit) != 0 || dash == std::string::npos)
        return whole;
    const char* first = value.data() + unit.size();
    const char* middle = value.data() + dash;
    const char* end = value.data() + value.size();
    std::uint64_t from = 0;
    std::uint64_t to = 0;
    if (first == middle) {  // the last so many bytes
        if (!ReadNumber(middle + 1, end, to))
            return whole;
        to = std::min(to, size);
        return to == 0 ? unsatisfiable : CRange{EKind::PART, size - to, to};
    }
    if (!ReadNumber(first, middle, from))
        return whole;
    if (middle + 1 == end)
        to = ~std::uint64_t{0};
    else if (!ReadNumber(middle + 1, end, to) || to < from)
        return whole;
    return from >= size ? unsatisfiable : CRange{EKind::PART, from, std::min(to, size - 1) - from + 1};
}
