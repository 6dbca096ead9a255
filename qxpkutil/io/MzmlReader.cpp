#include "qxpkutil/io/MzmlReader.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstring>
#include <string_view>
#include <unordered_map>
#include <utility>

#include <zlib.h>

#include "qxpkutil/io/Base64.h"
#include "qxpkutil/io/io_internal.h"

namespace qxpkutil {

namespace {

// Controlled-vocabulary accessions the reader understands.
constexpr std::string_view kMsLevel = "MS:1000511";
constexpr std::string_view kCentroidSpectrum = "MS:1000127";
constexpr std::string_view kScanStartTime = "MS:1000016";
constexpr std::string_view kMinuteUnit = "UO:0000031";
constexpr std::string_view kMzArray = "MS:1000514";
constexpr std::string_view kIntensityArray = "MS:1000515";
constexpr std::string_view kTimeArray = "MS:1000595";
constexpr std::string_view kFloat32 = "MS:1000521";
constexpr std::string_view kFloat64 = "MS:1000523";
constexpr std::string_view kInt32 = "MS:1000519";
constexpr std::string_view kInt64 = "MS:1000522";
constexpr std::string_view kZlib = "MS:1000574";
constexpr std::string_view kNoCompression = "MS:1000576";

// Deflate never compresses better than about 1032 to 1; a declared length beyond that
// bound cannot be honest, and refusing it keeps a tiny file from claiming gigabytes.
constexpr std::uint64_t kMaxDeflateRatio = 1032;
// The library counts points in 32 bits and indexes them in signed 32 bits.
constexpr std::uint64_t kMaxPoints = INT32_MAX;

bool ParseUnsigned(std::string_view text, std::uint64_t& value) {
  const char* end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, value);
  return result.ec == std::errc() && result.ptr == end && !text.empty();
}

bool ParseDouble(std::string_view text, double& value) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '+')) text.remove_prefix(1);
  while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
  const char* end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, value);
  return result.ec == std::errc() && result.ptr == end && !text.empty();
}

// `text` for a one-line message: control characters become '?', and a long text is cut.
std::string Printable(std::string text) {
  constexpr std::size_t kLongest = 80;
  if (text.size() > kLongest) text = text.substr(0, kLongest) + "...";
  for (char& c : text) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = '?';
  }
  return text;
}

// The N of a "scan=N" token in a native id such as "controllerType=0 scan=12"; -1 if none.
std::int64_t ScanNumberOf(std::string_view id) {
  for (std::size_t pos = id.find("scan="); pos != std::string_view::npos;
       pos = id.find("scan=", pos + 1)) {
    if (pos != 0 && id[pos - 1] != ' ') continue;
    std::string_view digits = id.substr(pos + 5);
    digits = digits.substr(0, digits.find(' '));
    std::uint64_t n = 0;
    if (ParseUnsigned(digits, n) && n <= INT64_MAX) return static_cast<std::int64_t>(n);
  }
  return -1;
}

// cvParams of an element, including those of the referenceable parameter groups it names.
class ParamLookup {
 public:
  explicit ParamLookup(pugi::xml_node mzml) {
    for (pugi::xml_node g :
         mzml.child("referenceableParamGroupList").children("referenceableParamGroup")) {
      m_groups.emplace(g.attribute("id").value(), g);
    }
  }

  // Calls fn(cvParam) for every cvParam of `node` and of its referenced groups.
  template <class Fn>
  void ForEach(pugi::xml_node node, Fn&& fn) const {
    for (pugi::xml_node p : node.children("cvParam")) fn(p);
    for (pugi::xml_node ref : node.children("referenceableParamGroupRef")) {
      const auto it = m_groups.find(ref.attribute("ref").value());
      if (it == m_groups.end()) continue;
      for (pugi::xml_node p : it->second.children("cvParam")) fn(p);
    }
  }

  pugi::xml_node Find(pugi::xml_node node, std::string_view accession) const {
    pugi::xml_node found;
    ForEach(node, [&](pugi::xml_node p) {
      if (!found && accession == p.attribute("accession").value()) found = p;
    });
    return found;
  }

 private:
  std::unordered_map<std::string_view, pugi::xml_node> m_groups;
};

// One binaryDataArray as its cvParams describe it.
struct ArrayDescription {
  enum class Role { kOther, kMz, kIntensity, kTime };
  Role role = Role::kOther;
  int bytes = 0;  // 4 or 8; 0 when no known type was declared
  bool integer = false;
  bool zlib = false;
  std::string unsupported;  // name of a compression the reader does not know
};

ArrayDescription Describe(const ParamLookup& params, pugi::xml_node array) {
  ArrayDescription d;
  params.ForEach(array, [&](pugi::xml_node p) {
    const std::string_view acc = p.attribute("accession").value();
    if (acc == kMzArray)
      d.role = ArrayDescription::Role::kMz;
    else if (acc == kIntensityArray)
      d.role = ArrayDescription::Role::kIntensity;
    else if (acc == kTimeArray)
      d.role = ArrayDescription::Role::kTime;
    else if (acc == kFloat32) {
      d.bytes = 4;
      d.integer = false;
    } else if (acc == kFloat64) {
      d.bytes = 8;
      d.integer = false;
    } else if (acc == kInt32) {
      d.bytes = 4;
      d.integer = true;
    } else if (acc == kInt64) {
      d.bytes = 8;
      d.integer = true;
    } else if (acc == kZlib)
      d.zlib = true;
    else if (acc != kNoCompression &&
             std::string_view(p.attribute("name").value()).find("compression") !=
                 std::string_view::npos) {
      d.unsupported = p.attribute("name").value();
    }
  });
  return d;
}

template <class T>
void Widen(const std::uint8_t* bytes, std::size_t count, double* out) {
  for (std::size_t i = 0; i < count; ++i) {
    std::uint8_t raw[sizeof(T)];
    std::memcpy(raw, bytes + i * sizeof(T), sizeof(T));
    // mzML arrays are little-endian whatever the machine.
    if constexpr (std::endian::native == std::endian::big) {
      for (std::size_t k = 0; k < sizeof(T) / 2; ++k) std::swap(raw[k], raw[sizeof(T) - 1 - k]);
    }
    T v;
    std::memcpy(&v, raw, sizeof(T));
    out[i] = static_cast<double>(v);
  }
}

// Scratch buffers shared by every array of one file, sized per array and reused.
class ArrayDecoder {
 public:
  // Decodes `text` as `count` values of the described type into `out`; false with a reason.
  bool Decode(const ArrayDescription& d, std::string_view text, std::uint64_t count,
              std::vector<double>& out, std::string& why) {
    if (!d.unsupported.empty()) return Fail(why, "unsupported compression '" + d.unsupported + "'");
    if (d.bytes == 0) return Fail(why, "no 32- or 64-bit number type declared");
    if (!DecodeBase64(text, text.size() / 4 * 3 + 3, m_encoded)) {
      return Fail(why, "invalid base64 data");
    }
    const std::uint64_t bytes = count * static_cast<std::uint64_t>(d.bytes);
    if (count > kMaxPoints || (d.zlib && bytes > m_encoded.size() * kMaxDeflateRatio + 64)) {
      return Fail(why, "declared length " + std::to_string(count) +
                           " is more than the encoded data can hold");
    }
    const std::vector<std::uint8_t>* raw = &m_encoded;
    // Some writers leave the element of an empty array empty even when it is compressed.
    if (d.zlib && !(count == 0 && m_encoded.empty())) {
      if (!Inflate(static_cast<std::size_t>(bytes), why)) return false;
      raw = &m_inflated;
    }
    if (raw->size() != bytes) {
      return Fail(why, "holds " + std::to_string(raw->size()) + " bytes where the declared " +
                           std::to_string(count) + " values need " + std::to_string(bytes));
    }
    out.resize(static_cast<std::size_t>(count));
    const std::size_t n = static_cast<std::size_t>(count);
    if (d.integer) {
      d.bytes == 4 ? Widen<std::int32_t>(raw->data(), n, out.data())
                   : Widen<std::int64_t>(raw->data(), n, out.data());
    } else {
      d.bytes == 4 ? Widen<float>(raw->data(), n, out.data())
                   : Widen<double>(raw->data(), n, out.data());
    }
    return true;
  }

 private:
  static bool Fail(std::string& why, std::string text) {
    why = std::move(text);
    return false;
  }

  // Inflates m_encoded into m_inflated, refusing more than `expected` bytes: one byte of
  // room beyond it tells an oversized stream from an exact one.
  bool Inflate(std::size_t expected, std::string& why) {
    m_inflated.resize(expected + 1);
    z_stream zs{};
    if (inflateInit(&zs) != Z_OK) return Fail(why, "zlib cannot start");
    std::size_t inLeft = m_encoded.size(), outLeft = m_inflated.size();
    zs.next_in = m_encoded.data();
    zs.next_out = m_inflated.data();
    int status = Z_OK;
    while (status == Z_OK) {
      // zlib counts in unsigned int; feed it in slices.
      if (zs.avail_in == 0 && inLeft > 0) {
        zs.avail_in = static_cast<uInt>(std::min<std::size_t>(inLeft, UINT_MAX));
        inLeft -= zs.avail_in;
      }
      if (zs.avail_out == 0 && outLeft > 0) {
        zs.avail_out = static_cast<uInt>(std::min<std::size_t>(outLeft, UINT_MAX));
        outLeft -= zs.avail_out;
      }
      status = inflate(&zs, Z_NO_FLUSH);
    }
    const std::size_t produced = static_cast<std::size_t>(zs.total_out);
    inflateEnd(&zs);
    if (produced > expected) return Fail(why, "inflates to more data than declared");
    if (status != Z_STREAM_END) {
      return Fail(why, status == Z_BUF_ERROR ? "zlib data ends early" : "invalid zlib data");
    }
    m_inflated.resize(produced);
    return true;
  }

  std::vector<std::uint8_t> m_encoded;
  std::vector<std::uint8_t> m_inflated;
};

const char* RoleName(ArrayDescription::Role role) {
  switch (role) {
    case ArrayDescription::Role::kMz:
      return "m/z";
    case ArrayDescription::Role::kTime:
      return "time";
    default:
      return "intensity";
  }
}

// The position of the first value that is not finite or (for x) goes backwards; -1 if none.
std::int64_t FirstBadValue(const std::vector<double>& v, bool ascending, const char*& what) {
  for (std::size_t i = 0; i < v.size(); ++i) {
    if (!std::isfinite(v[i])) {
      what = "is not a finite number";
      return static_cast<std::int64_t>(i);
    }
    if (ascending && i > 0 && v[i] < v[i - 1]) {
      what = "is smaller than the one before (values must ascend)";
      return static_cast<std::int64_t>(i);
    }
  }
  return -1;
}

}  // namespace

bool MzmlSelection::Accepts(const Trace& trace) const {
  const auto inRanges = [](const std::vector<NumberRange>& ranges, std::int64_t v) {
    if (ranges.empty()) return true;
    for (const NumberRange& r : ranges) {
      if (v >= r.first && v <= r.last) return true;
    }
    return false;
  };
  if (!inRanges(indices, trace.index)) return false;
  if (!scans.empty() && (trace.scan_number < 0 || !inRanges(scans, trace.scan_number))) {
    return false;
  }
  if (trace.kind == Trace::Kind::kSpectrum) {
    const bool rtFiltered = rt_min > -std::numeric_limits<double>::infinity() ||
                            rt_max < std::numeric_limits<double>::infinity();
    if (rtFiltered && !(trace.rt >= rt_min && trace.rt <= rt_max)) {
      return false;
    }
    if (ms_level != 0 && trace.ms_level != ms_level) return false;
  }
  return true;
}

bool MzmlRun::Read(const std::string& path, const MzmlSelection& selection, std::string& error) {
  std::vector<char> text;
  if (!io_internal::ReadWholeFile(path, io_internal::kMaxInputBytes, text, error)) return false;
  return Parse(std::move(text), path, selection, error);
}

bool MzmlRun::Parse(std::vector<char> text, const std::string& name, const MzmlSelection& selection,
                    std::string& error) {
  m_traces.clear();
  m_nodes.clear();
  m_listSize = 0;
  m_mzml = pugi::xml_node();
  m_document.reset();
  m_text = std::move(text);
  const pugi::xml_parse_result parsed =
      m_document.load_buffer_inplace(m_text.data(), m_text.size());
  if (!parsed) {
    error = name + ": malformed or truncated XML at byte " + std::to_string(parsed.offset) + ": " +
            parsed.description();
    return false;
  }
  pugi::xml_node mzml = m_document.child("indexedmzML").child("mzML");
  if (!mzml) mzml = m_document.child("mzML");
  const pugi::xml_node run = mzml.child("run");
  if (!run) {
    error = name + ": not an mzML file (no <mzML> element with a <run>)";
    return false;
  }
  const ParamLookup params(mzml);
  const pugi::xml_node spectra = run.child("spectrumList");
  bool readSpectra = selection.list != MzmlSelection::List::kChromatograms;
  if (selection.list == MzmlSelection::List::kAuto && !spectra.child("spectrum")) {
    readSpectra = false;
  }
  const pugi::xml_node list = readSpectra ? spectra : run.child("chromatogramList");
  const char* element = readSpectra ? "spectrum" : "chromatogram";

  ArrayDecoder decoder;
  std::vector<Trace> traces;
  std::vector<pugi::xml_node> nodes;
  std::int32_t position = 0;
  for (pugi::xml_node node : list.children(element)) {
    Trace t;
    t.kind = readSpectra ? Trace::Kind::kSpectrum : Trace::Kind::kChromatogram;
    t.index = position++;
    t.id = node.attribute("id").value();
    t.scan_number = ScanNumberOf(t.id);
    if (readSpectra) {
      if (pugi::xml_node p = params.Find(node, kMsLevel)) {
        std::uint64_t level = 0;
        if (ParseUnsigned(p.attribute("value").value(), level) && level <= INT_MAX) {
          t.ms_level = static_cast<int>(level);
        }
      }
      t.centroided = static_cast<bool>(params.Find(node, kCentroidSpectrum));
      const pugi::xml_node scan = node.child("scanList").child("scan");
      if (pugi::xml_node p = params.Find(scan, kScanStartTime)) {
        double rt = 0.0;
        if (ParseDouble(p.attribute("value").value(), rt)) {
          const bool minutes = kMinuteUnit == p.attribute("unitAccession").value() ||
                               std::string_view("minute") == p.attribute("unitName").value();
          t.rt = minutes ? rt * 60.0 : rt;
        }
      }
    }
    if (!selection.Accepts(t)) continue;
    const std::string where = name + ": " + element + " " + std::to_string(t.index) +
                              (t.id.empty() ? "" : " (" + Printable(t.id) + ")");

    std::uint64_t declared = 0;
    if (!ParseUnsigned(node.attribute("defaultArrayLength").value(), declared)) {
      error = where + ": missing or invalid defaultArrayLength";
      return false;
    }
    const ArrayDescription::Role xRole =
        readSpectra ? ArrayDescription::Role::kMz : ArrayDescription::Role::kTime;
    bool haveX = false, haveY = false;
    for (pugi::xml_node array : node.child("binaryDataArrayList").children("binaryDataArray")) {
      const ArrayDescription d = Describe(params, array);
      const bool isX = d.role == xRole && !haveX;
      const bool isY = d.role == ArrayDescription::Role::kIntensity && !haveY;
      if (!isX && !isY) continue;
      std::uint64_t count = declared;
      if (pugi::xml_attribute a = array.attribute("arrayLength");
          a && !ParseUnsigned(a.value(), count)) {
        error = where + ": invalid arrayLength";
        return false;
      }
      std::string why;
      if (!decoder.Decode(d, array.child_value("binary"), count, isX ? t.x : t.y, why)) {
        error = where + ": " + RoleName(d.role) + " array: " + why;
        return false;
      }
      (isX ? haveX : haveY) = true;
    }
    if (!haveX || !haveY) {
      error = where + ": no " + (haveX ? "intensity" : RoleName(xRole)) + " array";
      return false;
    }
    if (t.x.size() != t.y.size()) {
      error = where + ": " + RoleName(xRole) + " array has " + std::to_string(t.x.size()) +
              " values, intensity array " + std::to_string(t.y.size());
      return false;
    }
    for (const bool isX : {true, false}) {
      const char* what = "";
      const std::int64_t bad = FirstBadValue(isX ? t.x : t.y, isX, what);
      if (bad >= 0) {
        error = where + ": " + (isX ? RoleName(xRole) : "intensity") + " value " +
                std::to_string(bad) + " " + what;
        return false;
      }
    }
    traces.push_back(std::move(t));
    nodes.push_back(node);
  }
  m_mzml = mzml;
  m_listSize = static_cast<std::size_t>(position);
  m_listElement = element;
  m_traces = std::move(traces);
  m_nodes = std::move(nodes);
  return true;
}

}  // namespace qxpkutil
