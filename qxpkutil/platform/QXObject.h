// Run-time class records and the common base of the library's model classes.
// A model class names its record ("QXPeakTable", ...) so that callers can test kinds
// and archives can tag objects by class name, as documents of the original framework did.
//
//   const QXObject& any = table;
//   if (any.IsKindOf(&QXPeakTable::classQXPeakTable)) { ... }
#pragma once

#include <cstdint>

namespace qxpkutil {

class QXArchive;

// Schema word of a class record that carries no schema number.
inline constexpr std::uint16_t kQXNoSchema = 0xFFFF;

// The record of one class: its name, its schema word and its base class's record.
struct QXRuntimeClass {
  const char* m_lpszClassName;
  std::uint16_t m_wSchema;
  const QXRuntimeClass* m_pBaseClass;

  // True when this record is `base` or derives from it; false for a null `base`.
  bool IsDerivedFrom(const QXRuntimeClass* base) const;
};

// Base of every model class: dynamic type information and archive storage.
class QXObject {
 public:
  static const QXRuntimeClass classQXObject;

  QXObject() = default;
  QXObject(const QXObject&) = default;
  QXObject& operator=(const QXObject&) = default;
  virtual ~QXObject() = default;

  virtual const QXRuntimeClass* GetRuntimeClass() const { return &classQXObject; }
  // True when this object's class is `cls` or derives from it.
  bool IsKindOf(const QXRuntimeClass* cls) const { return GetRuntimeClass()->IsDerivedFrom(cls); }
  // Stores the object's body to, or loads it from, `ar`; the base stores nothing.
  virtual void Serialize(QXArchive& ar);
};

}  // namespace qxpkutil
