#include "qxpkutil/platform/QXObject.h"

namespace qxpkutil {

const QXRuntimeClass QXObject::classQXObject{"QXObject", kQXNoSchema, nullptr};

bool QXRuntimeClass::IsDerivedFrom(const QXRuntimeClass* base) const {
  for (const QXRuntimeClass* cls = this; cls != nullptr; cls = cls->m_pBaseClass) {
    if (cls == base) return true;
  }
  return false;
}

void QXObject::Serialize(QXArchive&) {}

}  // namespace qxpkutil
