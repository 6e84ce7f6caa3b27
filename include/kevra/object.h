// Root object and run-time class records.
//
// Every processing class, table and filter derives from CObject and carries a
// static record `classXxx` naming the class and its base. Kind tests walk the
// chain of base records, so a class may deliberately name a base other than its
// C++ base (the record is what the tests see).
//
//   class CFoo : public CObject {
//       KEVRA_DECLARE_DYNAMIC(CFoo)        // leaves the access at public:
//       ...
//   };
//   KEVRA_IMPLEMENT_DYNAMIC(CFoo, CObject)  // in the .cpp, inside namespace kevra
//
//   p->IsKindOf(KEVRA_RUNTIME_CLASS(CFoo))
#ifndef KEVRA_OBJECT_H
#define KEVRA_OBJECT_H

namespace kevra {

struct CRuntimeClass {
    const char * m_lpszClassName;
    const CRuntimeClass * m_pBaseClass;

    // True when this record is pBaseClass or has it somewhere in its base chain.
    bool IsDerivedFrom(const CRuntimeClass * pBaseClass) const;
};

class CObject {
public:
    static const CRuntimeClass classCObject;

    // Virtual slots in this order: run-time class, destructor, serialisation.
    virtual CRuntimeClass * GetRuntimeClass() const;
    virtual ~CObject();
    virtual void Serialize();

    bool IsKindOf(const CRuntimeClass * pClass) const;

protected:
    CObject() = default;
    CObject(const CObject &) = default;
    CObject & operator=(const CObject &) = default;
};

} // namespace kevra

// Address of a class's run-time record, as a const CRuntimeClass *.
#define KEVRA_RUNTIME_CLASS(class_name) (&class_name::class##class_name)

#define KEVRA_DECLARE_DYNAMIC(class_name)                                        \
public:                                                                          \
    static const ::kevra::CRuntimeClass class##class_name;                       \
    ::kevra::CRuntimeClass * GetRuntimeClass() const override;

// Defines the record with an explicit base record pointer.
#define KEVRA_IMPLEMENT_DYNAMIC_RECORD(class_name, base_record)                  \
    const ::kevra::CRuntimeClass class_name::class##class_name = {               \
        #class_name, (base_record)};                                             \
    ::kevra::CRuntimeClass * class_name::GetRuntimeClass() const                 \
    {                                                                            \
        return const_cast<::kevra::CRuntimeClass *>(&class_name::class##class_name); \
    }

// Defines the record naming base_name's record as the base.
#define KEVRA_IMPLEMENT_DYNAMIC(class_name, base_name)                           \
    KEVRA_IMPLEMENT_DYNAMIC_RECORD(class_name, KEVRA_RUNTIME_CLASS(base_name))

#endif
