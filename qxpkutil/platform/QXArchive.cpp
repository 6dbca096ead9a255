#include "qxpkutil/platform/QXArchive.h"

#include <bit>
#include <cstring>

namespace qxpkutil {
namespace {

// The framework's reference tags.
constexpr std::uint16_t kNullTag = 0x0000;
constexpr std::uint16_t kBigObjectTag = 0x7FFF;  // a 32-bit tag follows
constexpr std::uint16_t kClassTag = 0x8000;
constexpr std::uint16_t kNewClassTag = 0xFFFF;
constexpr std::uint32_t kBigClassTag = 0x80000000u;
// Map indices must stay below the class bit of the 32-bit tag.
constexpr std::uint32_t kMaxMapCount = 0x7FFFFFFFu;
// Stored bytes are handed to the stream in blocks of this size.
constexpr std::size_t kBufferSize = 4096;

template <std::size_t N>
struct UIntOfSize;
template <>
struct UIntOfSize<1> { using type = std::uint8_t; };
template <>
struct UIntOfSize<2> { using type = std::uint16_t; };
template <>
struct UIntOfSize<4> { using type = std::uint32_t; };
template <>
struct UIntOfSize<8> { using type = std::uint64_t; };

}  // namespace

QXArchive::QXArchive(std::ostream& out) : m_out(&out), m_failed(!out) {
  m_buffer.reserve(kBufferSize);
}

QXArchive::QXArchive(std::istream& in) : m_in(&in), m_failed(!in) {}

QXArchive::~QXArchive() { Flush(); }

void QXArchive::Flush() {
  if (!IsStoring()) return;
  DrainBuffer();
  if (!m_failed && !m_out->flush()) m_failed = true;
}

void QXArchive::DrainBuffer() {
  if (!m_failed && !m_buffer.empty() &&
      !m_out->write(m_buffer.data(), static_cast<std::streamsize>(m_buffer.size()))) {
    m_failed = true;
  }
  m_buffer.clear();
}

void QXArchive::WriteBytes(const void* data, std::size_t size) {
  if (!IsStoring()) m_failed = true;
  if (m_failed) return;
  const char* bytes = static_cast<const char*>(data);
  m_buffer.insert(m_buffer.end(), bytes, bytes + size);
  if (m_buffer.size() >= kBufferSize) DrainBuffer();
}

// Reads exactly `size` bytes or fails; the bytes go straight to the stream buffer, which
// never hands out more than the stream holds.
bool QXArchive::ReadBytes(void* data, std::size_t size) {
  if (!IsLoading()) m_failed = true;
  if (m_failed) return false;
  const auto wanted = static_cast<std::streamsize>(size);
  if (m_in->rdbuf()->sgetn(static_cast<char*>(data), wanted) != wanted) m_failed = true;
  return !m_failed;
}

template <typename T>
QXArchive& QXArchive::Put(T value) {
  const auto bits = std::bit_cast<typename UIntOfSize<sizeof(T)>::type>(value);
  unsigned char bytes[sizeof(T)];
  for (std::size_t i = 0; i < sizeof(T); ++i)
    bytes[i] = static_cast<unsigned char>(bits >> (8 * i));
  WriteBytes(bytes, sizeof(T));
  return *this;
}

template <typename T>
QXArchive& QXArchive::Get(T& value) {
  using Bits = typename UIntOfSize<sizeof(T)>::type;
  unsigned char bytes[sizeof(T)];
  if (!ReadBytes(bytes, sizeof(T))) return *this;
  Bits bits = 0;
  for (std::size_t i = 0; i < sizeof(T); ++i) bits |= static_cast<Bits>(Bits{bytes[i]} << (8 * i));
  value = std::bit_cast<T>(bits);
  return *this;
}

QXArchive& QXArchive::operator<<(double v) { return Put(v); }
QXArchive& QXArchive::operator<<(float v) { return Put(v); }
QXArchive& QXArchive::operator<<(std::int32_t v) { return Put(v); }
QXArchive& QXArchive::operator<<(std::uint32_t v) { return Put(v); }
QXArchive& QXArchive::operator<<(std::int16_t v) { return Put(v); }
QXArchive& QXArchive::operator<<(std::uint16_t v) { return Put(v); }
QXArchive& QXArchive::operator<<(std::uint8_t v) { return Put(v); }
QXArchive& QXArchive::operator>>(double& v) { return Get(v); }
QXArchive& QXArchive::operator>>(float& v) { return Get(v); }
QXArchive& QXArchive::operator>>(std::int32_t& v) { return Get(v); }
QXArchive& QXArchive::operator>>(std::uint32_t& v) { return Get(v); }
QXArchive& QXArchive::operator>>(std::int16_t& v) { return Get(v); }
QXArchive& QXArchive::operator>>(std::uint16_t& v) { return Get(v); }
QXArchive& QXArchive::operator>>(std::uint8_t& v) { return Get(v); }

void QXArchive::WriteCount(std::uint32_t count) {
  if (count < 0xFFFF) {
    Put(static_cast<std::uint16_t>(count));
  } else {
    Put(std::uint16_t{0xFFFF});
    Put(count);
  }
}

std::uint32_t QXArchive::ReadCount() {
  std::uint16_t word = 0;
  Get(word);
  if (m_failed) return 0;
  if (word != 0xFFFF) return word;
  std::uint32_t count = 0;
  Get(count);
  return m_failed ? 0 : count;
}

// Classes and objects share one map counter, numbered in the order they are first met,
// in both directions.
bool QXArchive::MapStored(const void* key) {
  if (m_mapCount >= kMaxMapCount) m_failed = true;
  if (m_failed) return false;
  m_storeMap.emplace(key, m_mapCount++);
  return true;
}

bool QXArchive::MapLoaded(const QXRuntimeClass* cls) {
  if (m_mapCount >= kMaxMapCount) m_failed = true;
  if (m_failed) return false;
  m_loadMap.push_back(cls);
  ++m_mapCount;
  return true;
}

void QXArchive::WriteTag(std::uint32_t index, bool isClass) {
  if (index < kBigObjectTag) {
    Put(static_cast<std::uint16_t>(isClass ? (kClassTag | index) : index));
  } else {
    Put(kBigObjectTag);
    Put(isClass ? (kBigClassTag | index) : index);
  }
}

void QXArchive::WriteClass(const QXRuntimeClass* cls) {
  if (const auto it = m_storeMap.find(cls); it != m_storeMap.end()) {
    WriteTag(it->second, true);
    return;
  }
  const std::size_t length = std::strlen(cls->m_lpszClassName);
  Put(kNewClassTag);
  Put(cls->m_wSchema);
  Put(static_cast<std::uint16_t>(length));
  WriteBytes(cls->m_lpszClassName, length);
  MapStored(cls);
}

void QXArchive::WriteObject(const QXObject* object) {
  if (object == nullptr) {
    Put(kNullTag);
    return;
  }
  if (const auto it = m_storeMap.find(object); it != m_storeMap.end()) {
    WriteTag(it->second, false);
    return;
  }
  const QXRuntimeClass* cls = object->GetRuntimeClass();
  if (cls == nullptr || cls->m_lpszClassName == nullptr || *cls->m_lpszClassName == '\0' ||
      std::strlen(cls->m_lpszClassName) > 0xFFFF) {
    m_failed = true;
    return;
  }
  WriteClass(cls);
  if (!MapStored(object)) return;
  // Serialize serves both directions, so it is not const; storing leaves the object as it was.
  const_cast<QXObject*>(object)->Serialize(*this);
}

// Reads the class part of a new-object reference whose first word is `word` and checks
// that it names `expected`. A new class record is compared by length before any name byte
// is read, so a hostile length neither over-reads nor allocates.
bool QXArchive::ReadClass(std::uint16_t word, const QXRuntimeClass* expected) {
  const char* name = expected->m_lpszClassName;
  if (word == kNewClassTag) {
    std::uint16_t schema = 0;
    std::uint16_t length = 0;
    Get(schema);
    Get(length);
    if (m_failed || schema != expected->m_wSchema || length != std::strlen(name)) {
      m_failed = true;
      return false;
    }
    std::string stored(length, '\0');
    if (!ReadBytes(stored.data(), length) || stored != name) {
      m_failed = true;
      return false;
    }
    return MapLoaded(expected);
  }

  std::uint32_t tag = word;
  if (word == kBigObjectTag) {
    Get(tag);
    if (m_failed) return false;
  } else if ((word & kClassTag) != 0) {
    tag = kBigClassTag | (word & 0x7FFFu);
  }
  // An object back-reference cannot become a new object the caller owns.
  const std::uint32_t index = tag & ~kBigClassTag;
  if ((tag & kBigClassTag) == 0 || index == 0 || index > m_loadMap.size() ||
      m_loadMap[index - 1] == nullptr ||
      std::strcmp(m_loadMap[index - 1]->m_lpszClassName, name) != 0) {
    m_failed = true;
    return false;
  }
  return true;
}

std::unique_ptr<QXObject> QXArchive::ReadNewObject(const QXRuntimeClass* expected,
                                                   QXObject* (*create)()) {
  if (expected == nullptr || expected->m_lpszClassName == nullptr || create == nullptr) {
    m_failed = true;
    return nullptr;
  }
  std::uint16_t word = 0;
  Get(word);
  if (m_failed || word == kNullTag) return nullptr;
  if (!ReadClass(word, expected)) return nullptr;

  if (!MapLoaded(nullptr)) return nullptr;
  std::unique_ptr<QXObject> object(create());
  if (object == nullptr) {
    m_failed = true;
    return nullptr;
  }
  object->Serialize(*this);
  if (m_failed) return nullptr;
  return object;
}

}  // namespace qxpkutil
