// Objects that the clean-up at the end of the process destroys.
#ifndef MANTLE_CMNSINGLETON_H
#define MANTLE_CMNSINGLETON_H

#include <type_traits>

#include "mantle/CMNMutexThread.h"
#include "mantle/CMNThreadManager.h"

namespace mantle
{

// Registers with the thread manager at construction; the clean-up deletes it, newest first.
class MANTLE_API CMNCleanUpBase
{
public:
    // What the clean-up does with the object: deletes it.
    virtual void CleanUp() { delete this; }
    virtual ~CMNCleanUpBase();
    CMNCleanUpBase(const CMNCleanUpBase&) = delete;
    CMNCleanUpBase& operator=(const CMNCleanUpBase&) = delete;

protected:
    CMNCleanUpBase();
};

// The base of a T of CMNSingletonT in which threads may still be when the clean-up comes, as nobody joins them. The
// clean-up tells it to end, and it stays valid to the end of the process.
class MANTLE_API CMNLasting
{
public:
    // Closes what the object owns; calls that are under way or come later get a result. Thread: the clean-up's.
    virtual void End() = 0;

protected:
    virtual ~CMNLasting() = default;
};

// Holds the one T of the process, made on first use.
template <class T>
class CMNSingletonT : public CMNCleanUpBase
{
public:
    // Thread: any. Returns: the object; null once the clean-up has destroyed or ended it.
    static T* Instance();

    void CleanUp() override;

private:
    CMNSingletonT() = default;
    ~CMNSingletonT() override { s_pInstance.store(nullptr); }

    T m_Object;
    static inline std::atomic<CMNSingletonT*> s_pInstance{nullptr};
    static inline CMNSingletonT* s_pEnded = nullptr;
};

template <class T>
void CMNSingletonT<T>::CleanUp()
{
    if constexpr (std::is_base_of_v<CMNLasting, T>) {
        s_pEnded = s_pInstance.exchange(nullptr);
        m_Object.End();
    } else {
        delete this;
    }
}

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
