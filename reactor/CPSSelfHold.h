// Keeps an object alive while it calls out.
#ifndef UXPORT_REACTOR_CPSSELFHOLD_H
#define UXPORT_REACTOR_CPSSELFHOLD_H

namespace uxport
{

// Holds a reference on a counted object for a scope, so that a callback may give up the last one. An object
// that nobody references yet is left as it is: the hold must not be what deletes it.
template <class T>
class CPSSelfHoldT
{
public:
    explicit CPSSelfHoldT(T& object) : m_pObject(object.TryAddReference() ? &object : nullptr) {}
    ~CPSSelfHoldT()
    {
        if (m_pObject)
            m_pObject->ReleaseReference();
    }
    // Whether everybody else has let go meanwhile: the object dies with this hold and calls nobody any more.
    // `others`: references that do not count as somebody's.
    bool IsLast(unsigned long others = 0) const { return m_pObject && m_pObject->GetReferenceCount() == 1 + others; }

    CPSSelfHoldT(const CPSSelfHoldT&) = delete;
    CPSSelfHoldT& operator=(const CPSSelfHoldT&) = delete;

private:
    T* m_pObject;
};

}  // namespace uxport

#endif
