// Somebody who is told of something.
#ifndef MANTLE_IMNOBSERVER_H
#define MANTLE_IMNOBSERVER_H

#include "mantle/MNDefines.h"

namespace mantle
{

class MANTLE_API IMNObserver
{
public:
    virtual ~IMNObserver() = default;
    virtual MNResult OnObserve(const char* topic, void* data) = 0;
};

}  // namespace mantle

#endif
