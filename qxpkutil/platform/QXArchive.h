// Object archive in the byte layout of the original framework's documents: little-endian
// integers and IEEE doubles, the 16/32-bit count encoding, and object references tagged
// by class (new-class tag 0xFFFF with schema word and class name, 0x8000|index class
// back-references, object back-references, 0 for null).
//
//   std::ostringstream bytes;
//   { QXArchive ar(bytes); table.Serialize(ar); }      // bytes complete once `ar` is gone
//   std::istringstream in(bytes.str());
//   QXArchive load(in); copy.Serialize(load); if (load.Failed()) { ... }
//
// A loading archive never reads past the end of its stream: truncated or malformed bytes
// set Failed(), leave the destination of the failing read untouched, and every later read
// fails too.
#pragma once

#include <cstddef>
#include <cstdint>
#include <istream>
#include <memory>
#include <ostream>
#include <string>
#include <unordered_map>
#include <vector>

#include "qxpkutil/platform/QXObject.h"

namespace qxpkutil {

class QXArchive {
 public:
  explicit QXArchive(std::ostream& out);  // a storing archive
  explicit QXArchive(std::istream& in);   // a loading archive
  ~QXArchive();                           // flushes a storing archive
  QXArchive(const QXArchive&) = delete;
  QXArchive& operator=(const QXArchive&) = delete;

  bool IsStoring() const { return m_out != nullptr; }
  bool IsLoading() const { return m_in != nullptr; }
  // True once a read met truncated or malformed bytes, a write failed, or an operation
  // of the other direction was called. Stored bytes are buffered, so a failing stream
  // shows here at the latest after Flush().
  bool Failed() const { return m_failed; }
  // Marks the archive failed (used by objects whose bodies are inconsistent).
  void SetFailed() { m_failed = true; }
  // Hands the buffered bytes of a storing archive to its stream and flushes it; sets
  // Failed() when the stream refuses them. Does nothing on a loading archive.
  void Flush();

  QXArchive& operator<<(double v);
  QXArchive& operator<<(float v);
  QXArchive& operator<<(std::int32_t v);
  QXArchive& operator<<(std::uint32_t v);
  QXArchive& operator<<(std::int16_t v);
  QXArchive& operator<<(std::uint16_t v);
  QXArchive& operator<<(std::uint8_t v);
  QXArchive& operator>>(double& v);
  QXArchive& operator>>(float& v);
  QXArchive& operator>>(std::int32_t& v);
  QXArchive& operator>>(std::uint32_t& v);
  QXArchive& operator>>(std::int16_t& v);
  QXArchive& operator>>(std::uint16_t& v);
  QXArchive& operator>>(std::uint8_t& v);

  // Count encoding: a 16-bit count, or 0xFFFF followed by a 32-bit count.
  void WriteCount(std::uint32_t count);
  // The count, or 0 with Failed() set on bad bytes. The count is not checked against the
  // bytes that follow: grow containers as elements arrive rather than reserving it.
  std::uint32_t ReadCount();

  // Writes a reference to `object`: 0x0000 for null, an object back-reference when the
  // object was written before, else its class tag followed by its Serialize body. A class
  // without a name, or with one longer than 65535 bytes, sets Failed() and writes nothing.
  void WriteObject(const QXObject* object);
  // Reads a reference to a new object of class `expected` (its name must match), made by
  // `create` and filled by its Serialize. Null references, back-references, other classes
  // and bad bytes give nullptr; all but a null reference also set Failed(). The class's
  // schema word must match the stored one, as the framework required of unversioned
  // classes. An object whose body failed to load is destroyed, never returned.
  [[nodiscard]] std::unique_ptr<QXObject> ReadNewObject(const QXRuntimeClass* expected,
                                                        QXObject* (*create)());

 private:
  // Scalars travel as their bit pattern in little-endian byte order.
  template <typename T>
  QXArchive& Put(T value);
  template <typename T>
  QXArchive& Get(T& value);
  // Map tags: an index below 0x7FFF in one 16-bit word, else 0x7FFF and a 32-bit word.
  void WriteTag(std::uint32_t index, bool isClass);
  void WriteClass(const QXRuntimeClass* cls);
  bool ReadClass(std::uint16_t word, const QXRuntimeClass* expected);
  bool MapStored(const void* key);
  bool MapLoaded(const QXRuntimeClass* cls);
  void WriteBytes(const void* data, std::size_t size);
  bool ReadBytes(void* data, std::size_t size);
  void DrainBuffer();

  std::ostream* m_out = nullptr;
  std::istream* m_in = nullptr;
  bool m_failed = false;
  // Storing: bytes not yet handed to the stream.
  std::vector<char> m_buffer;
  // Storing: map index of each class record and object written (0 is the null reference).
  std::unordered_map<const void*, std::uint32_t> m_storeMap;
  // Loading: entry i is map index i + 1; the class record of a class entry, null for an
  // object entry. Loaded objects are owned by the caller, so the map never points at them.
  std::vector<const QXRuntimeClass*> m_loadMap;
  std::uint32_t m_mapCount = 1;
};

// Stores `objects` as a count followed by each object's tagged reference, or loads them
// back, creating each with `T`'s default constructor. A load that meets bad bytes or a null
// reference leaves `objects` empty and the archive failed; objects are read one by one, so
// a hostile count ends at the first object that fails.
template <class T>
void SerializeObjectArray(QXArchive& ar, std::vector<std::unique_ptr<T>>& objects,
                          const QXRuntimeClass* cls) {
  if (ar.IsStoring()) {
    ar.WriteCount(static_cast<std::uint32_t>(objects.size()));
    for (const auto& object : objects) ar.WriteObject(object.get());
    return;
  }
  objects.clear();
  const std::uint32_t count = ar.ReadCount();
  std::vector<std::unique_ptr<T>> loaded;
  for (std::uint32_t i = 0; i < count && !ar.Failed(); ++i) {
    std::unique_ptr<QXObject> object = ar.ReadNewObject(cls, []() -> QXObject* { return new T(); });
    if (object == nullptr) {
      ar.SetFailed();  // arrays of the library never hold null references
      break;
    }
    loaded.emplace_back(static_cast<T*>(object.release()));
  }
  if (!ar.Failed()) objects = std::move(loaded);
}

}  // namespace qxpkutil
