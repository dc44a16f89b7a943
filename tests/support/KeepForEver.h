// Objects that live until the process ends, on purpose.
#ifndef TESTS_KEEPFOREVER_H
#define TESTS_KEEPFOREVER_H

#include <vector>

// Keeps `object` within reach, so that a leak checker does not take it for lost.
template <typename T>
T* KeepForEver(T* object)
{
    static std::vector<T*>& s_Kept = *new std::vector<T*>;
    s_Kept.push_back(object);
    return object;
}

#endif
