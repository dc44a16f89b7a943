#include "mantle/CMNSingleton.h"

namespace mantle
{

CMNCleanUpBase::CMNCleanUpBase()
{
    CMNThreadManager::Instance()->AddCleanUp(this);
}

CMNCleanUpBase::~CMNCleanUpBase()
{
    CMNThreadManager::Instance()->RemoveCleanUp(this);
}

}  // namespace mantle
