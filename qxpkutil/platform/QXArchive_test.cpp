#include "qxpkutil/platform/QXArchive.h"

#include <gtest/gtest.h>

#include <bit>
#include <limits>
#include <sstream>
#include <string>
#include <string_view>

#include "testing/QXTestArchive.h"

namespace qxpkutil {
namespace {

template <typename T>
void Io(QXArchive& ar, T& v) {
  ar.IsStoring() ? void(ar << v) : void(ar >> v);
}

// A record with a 96-byte body of twelve doubles, like a stored peak.
class TestPeak : public QXObject {
 public:
  static const QXRuntimeClass classTestPeak;
  static QXObject* Create() { return new TestPeak(); }
  const QXRuntimeClass* GetRuntimeClass() const override { return &classTestPeak; }
  void Serialize(QXArchive& ar) override {
    for (double& v : values) Io(ar, v);
  }
  double values[12] = {};
};
const QXRuntimeClass TestPeak::classTestPeak{"QXTestPeak", kQXNoSchema, &QXObject::classQXObject};

// The same body under another class name and schema.
class OtherPeak : public TestPeak {
 public:
  static const QXRuntimeClass classOtherPeak;
  static QXObject* Create() { return new OtherPeak(); }
  const QXRuntimeClass* GetRuntimeClass() const override { return &classOtherPeak; }
};
const QXRuntimeClass OtherPeak::classOtherPeak{"QXOtherPeak", 1, &TestPeak::classTestPeak};

// Little-endian bytes assembled by hand, independently of the archive.
struct Bytes {
  std::string s;
  Bytes& U16(std::uint16_t v) { return Le(v, 2); }
  Bytes& U32(std::uint32_t v) { return Le(v, 4); }
  Bytes& F64(double v) { return Le(std::bit_cast<std::uint64_t>(v), 8); }
  Bytes& Text(std::string_view t) { s += t; return *this; }
  Bytes& Le(std::uint64_t v, int n) {
    for (int i = 0; i < n; ++i) s += static_cast<char>((v >> (8 * i)) & 0xFF);
    return *this;
  }
  Bytes& NewClass(std::uint16_t schema, std::string_view name) {
    return U16(0xFFFF).U16(schema).U16(static_cast<std::uint16_t>(name.size())).Text(name);
  }
  Bytes& PeakBody(double first) {
    for (int i = 0; i < 12; ++i) F64(first + i);
    return *this;
  }
};

template <typename Fn>
std::string Store(Fn&& write) {
  std::ostringstream out;
  {
    QXArchive ar(out);
    write(ar);
  }
  return out.str();
}

TestPeak MakePeak(double first) {
  TestPeak p;
  for (int i = 0; i < 12; ++i) p.values[i] = first + i;
  return p;
}

// Every scalar type once, stored or loaded by one routine.
struct Scalars {
  double d[4];
  float f;
  std::int32_t i32;
  std::uint32_t u32;
  std::int16_t i16;
  std::uint16_t u16;
  std::uint8_t u8;
  void Serialize(QXArchive& ar) {
    for (double& v : d) Io(ar, v);
    Io(ar, f); Io(ar, i32); Io(ar, u32); Io(ar, i16); Io(ar, u16); Io(ar, u8);
  }
};

TEST(QXArchive, ScalarsAreLittleEndianAndRoundTripBitExactly) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double tiny = std::numeric_limits<double>::denorm_min();
  Scalars stored{{1.0, -0.0, nan, tiny}, 1.5f, -2, 0x01020304, -32768, 0xBEEF, 0xAB};
  const std::string bytes = testing::Stored(stored);
  EXPECT_EQ(bytes, Bytes{}
                       .F64(1.0).F64(-0.0).F64(nan).F64(tiny)
                       .Le(std::bit_cast<std::uint32_t>(1.5f), 4)
                       .U32(0xFFFFFFFE)
                       .Text("\x04\x03\x02\x01")
                       .U16(0x8000)
                       .Text("\xEF\xBE\xAB")
                       .s);
  Scalars loaded{};
  EXPECT_TRUE(testing::Loaded(loaded, bytes));
  EXPECT_EQ(testing::Stored(loaded), bytes);  // same bits back
}

class QXArchiveCount : public ::testing::TestWithParam<std::uint32_t> {};

TEST_P(QXArchiveCount, UsesTheShortFormBelow0xFFFFAndRoundTrips) {
  const std::uint32_t count = GetParam();
  const std::string bytes = Store([&](QXArchive& ar) { ar.WriteCount(count); });
  const std::string expected = count < 0xFFFF ? Bytes{}.U16(static_cast<std::uint16_t>(count)).s
                                              : Bytes{}.U16(0xFFFF).U32(count).s;
  EXPECT_EQ(bytes, expected);
  std::istringstream in(bytes);
  QXArchive ar(in);
  EXPECT_EQ(ar.ReadCount(), count);
  EXPECT_FALSE(ar.Failed());
}

INSTANTIATE_TEST_SUITE_P(Edges, QXArchiveCount,
                         ::testing::Values(0u, 1u, 0xFFFEu, 0xFFFFu, 0x10000u, 0xFFFFFFFFu));

// Two elements as the framework lays them out: a count, the new-class record, the first
// body, a class back-reference (class 1, so 0x8001) and the second body.
const std::string kTwoPeaks =
    Bytes{}.U16(2).NewClass(0xFFFF, "QXTestPeak").PeakBody(10).U16(0x8001).PeakBody(20).s;

TEST(QXArchive, StoresAndLoadsTheFrameworkLayout) {
  const TestPeak a = MakePeak(10), b = MakePeak(20);
  EXPECT_EQ(Store([&](QXArchive& ar) { ar.WriteCount(2); ar.WriteObject(&a); ar.WriteObject(&b); }),
            kTwoPeaks);

  std::istringstream in(kTwoPeaks);
  QXArchive ar(in);
  ASSERT_EQ(ar.ReadCount(), 2u);
  for (double first : {10.0, 20.0}) {
    auto object = ar.ReadNewObject(&TestPeak::classTestPeak, &TestPeak::Create);
    ASSERT_NE(object, nullptr);
    ASSERT_TRUE(object->IsKindOf(&TestPeak::classTestPeak));
    for (int i = 0; i < 12; ++i)
      EXPECT_EQ(static_cast<const TestPeak&>(*object).values[i], first + i);
  }
  EXPECT_FALSE(ar.Failed());
  EXPECT_EQ(in.rdbuf()->sgetc(), std::char_traits<char>::eof());
}

// A null reference is one zero word and takes no map index; an object written again is
// its index (class 1, object 2), which cannot be loaded as a new object.
TEST(QXArchive, NullAndRepeatedReferences) {
  const TestPeak a = MakePeak(1);
  const std::string bytes = Store([&](QXArchive& ar) {
    ar.WriteObject(nullptr);
    ar.WriteObject(&a);
    ar.WriteObject(&a);
  });
  EXPECT_EQ(bytes, Bytes{}.U16(0).NewClass(0xFFFF, "QXTestPeak").PeakBody(1).U16(2).s);
  std::istringstream in(bytes);
  QXArchive ar(in);
  EXPECT_EQ(ar.ReadNewObject(&TestPeak::classTestPeak, &TestPeak::Create), nullptr);
  EXPECT_FALSE(ar.Failed());
  EXPECT_NE(ar.ReadNewObject(&TestPeak::classTestPeak, &TestPeak::Create), nullptr);
  EXPECT_EQ(ar.ReadNewObject(&TestPeak::classTestPeak, &TestPeak::Create), nullptr);
  EXPECT_TRUE(ar.Failed());
}

// Past 0x7FFE map entries, class and object references take the 0x7FFF + 32-bit form.
TEST(QXArchive, BigMapIndicesUseTheLongTagsBothWays) {
  std::vector<TestPeak> many(0x7FFF);  // class 1, objects 2..0x8000
  OtherPeak late1, late2;               // class 0x8001, objects 0x8002 and 0x8003
  for (int i = 0; i < 12; ++i) late1.values[i] = 5 + i, late2.values[i] = 6 + i;
  const std::string bytes = Store([&](QXArchive& ar) {
    for (auto& object : many) ar.WriteObject(&object);
    ar.WriteObject(&late1);
    ar.WriteObject(&late2);
    ar.WriteObject(&late1);
  });
  // The first object carries the class record; each later one a 0x8001 class tag.
  const std::size_t lateStart = Bytes{}.NewClass(0xFFFF, "QXTestPeak").s.size() + 96 * many.size() +
                                2 * (many.size() - 1);
  const std::string tail = Bytes{}.NewClass(1, "QXOtherPeak").PeakBody(5)  // object 0x8002
                               .U16(0x7FFF).U32(0x80008001u).PeakBody(6)    // class 0x8001
                               .U16(0x7FFF).U32(0x8002u).s;                 // object 0x8002
  ASSERT_EQ(bytes.size(), lateStart + tail.size());
  EXPECT_EQ(bytes.substr(lateStart), tail);

  std::istringstream in(bytes);
  QXArchive ar(in);
  for (std::size_t i = 0; i < many.size(); ++i) {
    ASSERT_NE(ar.ReadNewObject(&TestPeak::classTestPeak, &TestPeak::Create), nullptr) << i;
  }
  for (double first : {5.0, 6.0}) {
    auto object = ar.ReadNewObject(&OtherPeak::classOtherPeak, &OtherPeak::Create);
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(static_cast<const TestPeak&>(*object).values[11], first + 11);
  }
  EXPECT_FALSE(ar.Failed());
}

struct Malformed {
  const char* name;
  std::string bytes;
  int validFirst = 0;  // objects that read fine before the bad one
};

class QXArchiveMalformed : public ::testing::TestWithParam<Malformed> {};

TEST_P(QXArchiveMalformed, FailsWithoutAnObject) {
  std::istringstream in(GetParam().bytes);
  QXArchive ar(in);
  for (int i = 0; i < GetParam().validFirst; ++i) {
    ASSERT_NE(ar.ReadNewObject(&TestPeak::classTestPeak, &TestPeak::Create), nullptr);
  }
  EXPECT_EQ(ar.ReadNewObject(&TestPeak::classTestPeak, &TestPeak::Create), nullptr);
  EXPECT_TRUE(ar.Failed());
  double untouched = 7.0;
  ar >> untouched;
  EXPECT_EQ(untouched, 7.0);
}

const std::string kOnePeak = Bytes{}.NewClass(0xFFFF, "QXTestPeak").PeakBody(0).s;

INSTANTIATE_TEST_SUITE_P(
    Bytes, QXArchiveMalformed,
    ::testing::Values(
        Malformed{"Empty", ""}, Malformed{"OddByte", "\xFF"},
        Malformed{"UnknownClassIndex", kOnePeak + Bytes{}.U16(0x8005).PeakBody(0).s, 1},
        Malformed{"ClassIndexZero", Bytes{}.U16(0x8000).PeakBody(0).s},
        Malformed{"ClassIndexNamingAnObject", kOnePeak + Bytes{}.U16(0x8002).PeakBody(0).s, 1},
        Malformed{"BigUnknownClassIndex", Bytes{}.U16(0x7FFF).U32(0xFFFFFFFF).PeakBody(0).s},
        Malformed{"BigObjectIndex", Bytes{}.U16(0x7FFF).U32(1).PeakBody(0).s},
        Malformed{"UnknownObjectIndex", Bytes{}.U16(0x0005).s},
        Malformed{"OtherClassSameLength", Bytes{}.NewClass(0xFFFF, "QXTestPeaK").PeakBody(0).s},
        Malformed{"OtherClassOtherLength", Bytes{}.NewClass(0xFFFF, "QXPeakTable").PeakBody(0).s},
        Malformed{"OtherSchema", Bytes{}.NewClass(2, "QXTestPeak").PeakBody(0).s},
        Malformed{"CutInTheName", kOnePeak.substr(0, 10)},
        Malformed{"CutInTheSecondBody", kTwoPeaks.substr(2, kTwoPeaks.size() - 3), 1}),
    [](const auto& info) { return std::string(info.param.name); });

// A name length beyond the stream is neither read nor allocated.
TEST(QXArchive, HostileNameLengthIsRejectedBeforeAnyNameByteIsRead) {
  const std::string bytes =
      Bytes{}.U16(0xFFFF).U16(0xFFFF).U16(0xFFFF).Text(std::string(100, 'x')).s;
  std::istringstream in(bytes);
  QXArchive ar(in);
  EXPECT_EQ(ar.ReadNewObject(&TestPeak::classTestPeak, &TestPeak::Create), nullptr);
  EXPECT_EQ(in.tellg(), 6);  // tag, schema and length only
}

TEST(QXArchive, WriteToAFailingStreamSetsFailed) {
  std::ostream broken(nullptr);  // no buffer: every write fails
  QXArchive ar(broken);
  ar << 1.0;
  ar.Flush();
  EXPECT_TRUE(ar.Failed());
}

}  // namespace
}  // namespace qxpkutil
