#include "mantle/MNDefines.h"

namespace mantle
{

const char* MNResultName(MNResult result) noexcept
{
    switch (result) {
#define MN_RESULT_NAME(name, number, text) \
  case number:                             \
    return #name;
        MN_RESULT_MAP(MN_RESULT_NAME)
#undef MN_RESULT_NAME
    default:
        return "unknown";
    }
}

const char* MNResultText(MNResult result) noexcept
{
    switch (result) {
#define MN_RESULT_TEXT(name, number, text) \
  case number:                             \
    return text;
        MN_RESULT_MAP(MN_RESULT_TEXT)
#undef MN_RESULT_TEXT
    default:
        return "unknown";
    }
}

}  // namespace mantle
