// Reference counting.
#ifndef MANTLE_CMNREFERENCECONTROL_H
#define MANTLE_CMNREFERENCECONTROL_H

#include "mantle/CMNMutexThread.h"
#include "mantle/IMNTimerQueue.h"

namespace mantle
{

// What is counted, as its holders see it. Both return the count after the change.
class MANTLE_API IMNReferenceControl
{
public:
    virtual unsigned long AddReference() = 0;
    virtual unsigned long ReleaseReference() = 0;
    virtual ~IMNReferenceControl() = default;
};

// How many counted objects live in this process: what a test compares before and after.
class MANTLE_API CMNLiveObjects
{
public:
    static long Count() noexcept;

private:
    template <class Lock>
    friend class CMNReferenceControlT;
    static void Add(long step) noexcept;
};

// Reports a release of an object whose count is 0.
MANTLE_API void MNReportReferenceUnderflow(const char* place);

// The count, under `Lock`; reaching 0 calls OnReferenceDestory. Not itself an IMNReferenceControl: the
// deriving class forwards its AddReference and ReleaseReference to the operations ending in _i.
template <class Lock>
class CMNReferenceControlT
{
public:
    CMNReferenceControlT() { CMNLiveObjects::Add(1); }
    virtual ~CMNReferenceControlT() { CMNLiveObjects::Add(-1); }
    CMNReferenceControlT(const CMNReferenceControlT&) = delete;
    CMNReferenceControlT& operator=(const CMNReferenceControlT&) = delete;

    // Deletes the object.
    virtual void OnReferenceDestory() { delete this; }

protected:
    unsigned long AddReference_i()
    {
        CMNMutexGuardT<Lock> guard(m_Lock);
        return ++m_dwReference;
    }

    // Adds a reference unless the count is 0, that is unless the object is dying. Returns: whether it did.
    bool TryAddReference_i()
    {
        CMNMutexGuardT<Lock> guard(m_Lock);
        if (m_dwReference == 0)
            return false;
        ++m_dwReference;
        return true;
    }

    unsigned long ReleaseReference_i()
    {
        bool underflow = false;
        {
            CMNMutexGuardT<Lock> guard(m_Lock);
            if (m_dwReference == 0)
                underflow = true;
            else if (--m_dwReference != 0)
                return m_dwReference;
        }
        if (underflow)
            MNReportReferenceUnderflow("ReleaseReference");
        else
            OnReferenceDestory();
        return 0;
    }

    unsigned long GetReference_i()
    {
        CMNMutexGuardT<Lock> guard(m_Lock);
        return m_dwReference;
    }

private:
    Lock m_Lock;
    unsigned long m_dwReference MN_GUARDED_BY(m_Lock) = 0;
};

// Something whose deletion is pending: it waits in its thread's list until its timer fires or the thread's
// run has ended.
class MANTLE_API CMNPendingDelete
{
public:
    virtual ~CMNPendingDelete();

protected:
    CMNPendingDelete() = default;

    // Takes a zero-delay timer for the deletion on the calling thread's own timer queue and puts the object into
    // that thread's list, so that a refused or dropped timer leaks nothing. Without a thread object or a timer
    // queue nothing happens: the object is then never deleted. On the thread that runs the clean-up at the end of
    // the process the object goes in any case, at the clean-up's next step.
    void ScheduleDelete(IMNTimerHandler* handler);

    // The list alone, for a deletion that brings a timer of its own: DeletePending runs at the end of the calling
    // thread's run unless ForgetDelete came first. Without a thread object nothing happens.
    void EnlistDelete();

    // Takes the object out of the list; the destructor does too.
    void ForgetDelete();

    virtual void DeletePending() = 0;

private:
    friend class CMNPendingDeleteList;
    CMNPendingDelete* m_pNext = nullptr;
    CMNPendingDelete* m_pPrev = nullptr;
    class CMNPendingDeleteList* m_pList = nullptr;
    IMNTimerHandler* m_pHandler = nullptr;
    bool m_bWithoutTimer = false;  // there was no memory for it; the list's next deletion takes this one along
};

// The timer handler of a deferred deletion.
template <class T>
class CMNTimerDeleteT : public IMNTimerHandler
{
public:
    explicit CMNTimerDeleteT(T* object) : m_pObject(object) {}
    void OnTimeout(const CMNTimeValue&, void*) override { delete m_pObject; }

private:
    T* m_pObject;
};

// A counted object that is deleted later, on a zero-delay timer of the thread that released it last, never
// inside the call that did. A reference taken after the count fell to 0 does not save it.
template <class Lock>
class CMNReferenceControlTimerDeleteT : public CMNReferenceControlT<Lock>, private CMNPendingDelete
{
public:
    CMNReferenceControlTimerDeleteT() : m_TimerDelete(this) {}

    void OnReferenceDestory() override
    {
        if (m_dwDeletePending != 0)
            return;
        m_dwDeletePending = 1;
        ScheduleDelete(&m_TimerDelete);
    }

    bool IsDeletePending() const noexcept { return m_dwDeletePending != 0; }

private:
    void DeletePending() override { delete this; }

    CMNTimerDeleteT<CMNReferenceControlTimerDeleteT> m_TimerDelete;
    unsigned int m_dwDeletePending = 0;
};

// Holds one reference.
template <class T>
class CMNAutoPtr
{
public:
    CMNAutoPtr() noexcept = default;
    CMNAutoPtr(T* object) : m_pObject(object)
    {
        if (m_pObject)
            m_pObject->AddReference();
    }
    CMNAutoPtr(const CMNAutoPtr& other) : CMNAutoPtr(other.m_pObject) {}
    CMNAutoPtr(CMNAutoPtr&& other) noexcept : m_pObject(other.m_pObject) { other.m_pObject = nullptr; }
    ~CMNAutoPtr() { ParaOut(); }

    CMNAutoPtr& operator=(CMNAutoPtr other) noexcept
    {
        T* object = m_pObject;
        m_pObject = other.m_pObject;
        other.m_pObject = object;
        return *this;
    }

    // Releases what is held and gives the empty place out, to be filled with a pointer that brings its
    // reference along.
    T*& ParaOut()
    {
        T* object = m_pObject;
        m_pObject = nullptr;
        if (object)
            object->ReleaseReference();
        return m_pObject;
    }

    T* Get() const noexcept { return m_pObject; }
    T* operator->() const noexcept { return m_pObject; }
    T& operator*() const noexcept { return *m_pObject; }
    explicit operator bool() const noexcept { return m_pObject != nullptr; }

private:
    T* m_pObject = nullptr;
};

}  // namespace mantle

#endif
