// Objects that the clean-up at the end of the process destroys.
#ifndef MANTLE_CMNSINGLETON_H
#define MANTLE_CMNSINGLETON_H

#include "mantle/CMNMutexThread.h"
#include "mantle/CMNThreadManager.h"

namespace mantle
{

// Registers with the thread manager at construction; the clean-up deletes it, newest first.
class MANTLE_API CMNCleanUpBase
{
public:
    virtual ~CMNCleanUpBase();
    CMNCleanUpBase(const CMNCleanUpBase&) = delete;
    CMNCleanUpBase& operator=(const CMNCleanUpBase&) = delete;

protected:
    CMNCleanUpBase();
};

// Holds the one T of the process, made on first use.
template <class T>
class CMNSingletonT : public CMNCleanUpBase
{
public:
    // Thread: any. Returns: the object; null once the clean-up has destroyed it.
    static T* Instance();

private:
    CMNSingletonT() = default;
    ~CMNSingletonT() override { s_pInstance.store(nullptr); }

    T m_Object;
    static inline std::atomic<CMNSingletonT*> s_pInstance{nullptr};
};

template <class T>
T* CMNSingletonT<T>::Instance()
{
    CMNSingletonT* holder = s_pInstance.load();
    if (!holder) {
        if (CMNMutexThreadBase* mutex = CMNThreadManager::Instance()->GetSingletonMutex()) {
            CMNMutexGuardT<CMNMutexThreadBase> guard(*mutex);
            holder = s_pInstance.load();
            if (!holder && !CMNThreadManager::Instance()->IsCleaningUp()) {
                holder = new CMNSingletonT;
                s_pInstance.store(holder);
            }
        }
    }
    return holder ? &holder->m_Object : nullptr;
}

}  // namespace mantle

#endif
