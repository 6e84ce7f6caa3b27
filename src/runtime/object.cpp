#include "kevra/object.h"

namespace kevra {

const CRuntimeClass CObject::classCObject = {"CObject", nullptr};

bool CRuntimeClass::IsDerivedFrom(const CRuntimeClass * pBaseClass) const
{
    for (const CRuntimeClass * p = this; p != nullptr; p = p->m_pBaseClass)
        if (p == pBaseClass)
            return true;
    return false;
}

CRuntimeClass * CObject::GetRuntimeClass() const
{
    return const_cast<CRuntimeClass *>(&classCObject);
}

CObject::~CObject() = default;

void CObject::Serialize() {}

bool CObject::IsKindOf(const CRuntimeClass * pClass) const
{
    return GetRuntimeClass()->IsDerivedFrom(pClass);
}

} // namespace kevra
