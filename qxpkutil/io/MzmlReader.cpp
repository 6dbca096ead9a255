#include "qxpkutil/io/MzmlReader.h"

#include <algorithm>
#include <bit>
#include <climits>
#include <cmath>
#include <cstring>
#include <string_view>
#include <unordered_map>
#include <utility>

#include <pugixml.hpp>
#include <zlib.h>

#include "qxpkutil/io/Base64.h"
#include "qxpkutil/io/io_internal.h"
#include "qxpkutil/platform/QXParse.h"

namespace qxpkutil {

namespace {

using io_internal::Printable;

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
// The numpress codecs, alone (linear, pic, slof) and followed by zlib.
constexpr std::string_view kNumpress[] = {"MS:1002312", "MS:1002313", "MS:1002314",
                                          "MS:1002746", "MS:1002747", "MS:1002748"};

// Deflate never compresses better than about 1032 to 1; a declared length beyond that
// bound cannot be honest, and refusing it keeps a tiny file from claiming gigabytes.
constexpr std::uint64_t kMaxDeflateRatio = 1032;
constexpr std::size_t kChunk = std::size_t{1} << 20;

// The N of a "scan=N" token in a native id such as "controllerType=0 scan=12"; -1 if none.
std::int64_t ScanNumberOf(std::string_view id) {
  for (std::size_t pos = id.find("scan="); pos != std::string_view::npos;
       pos = id.find("scan=", pos + 1)) {
    if (pos != 0 && id[pos - 1] != ' ') continue;
    std::string_view digits = id.substr(pos + 5);
    digits = digits.substr(0, digits.find(' '));
    std::uint64_t n = 0;
    if (QXParseUInt64(digits, n) && n <= INT64_MAX) return static_cast<std::int64_t>(n);
  }
  return -1;
}

// cvParams of an element, including those of the referenceable parameter groups it names.
class ParamLookup {
 public:
  void Load(pugi::xml_node mzml) {
    m_groups.clear();
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

bool SaysMinutes(pugi::xml_node param) {
  return kMinuteUnit == param.attribute("unitAccession").value() ||
         std::string_view("minute") == param.attribute("unitName").value();
}

// One binaryDataArray as its cvParams describe it.
struct ArrayDescription {
  enum class Role { kOther, kMz, kIntensity, kTime };
  Role role = Role::kOther;
  int bytes = 0;  // 4 or 8; 0 when no known type was declared
  bool integer = false;
  bool zlib = false;
  bool minutes = false;     // a time array in minutes
  std::string unsupported;  // why the data cannot be decoded (an unknown compression)
};

ArrayDescription Describe(const ParamLookup& params, pugi::xml_node array) {
  ArrayDescription d;
  params.ForEach(array, [&](pugi::xml_node p) {
    const std::string_view acc = p.attribute("accession").value();
    const std::string_view name = p.attribute("name").value();
    if (acc == kMzArray) {
      d.role = ArrayDescription::Role::kMz;
    } else if (acc == kIntensityArray) {
      d.role = ArrayDescription::Role::kIntensity;
    } else if (acc == kTimeArray) {
      d.role = ArrayDescription::Role::kTime;
      d.minutes = SaysMinutes(p);
    } else if (acc == kFloat32 || acc == kFloat64 || acc == kInt32 || acc == kInt64) {
      d.bytes = acc == kFloat32 || acc == kInt32 ? 4 : 8;
      d.integer = acc == kInt32 || acc == kInt64;
    } else if (acc == kZlib) {
      d.zlib = true;
    } else if (std::find(std::begin(kNumpress), std::end(kNumpress), acc) != std::end(kNumpress) ||
               name.find("numpress") != std::string_view::npos ||
               name.find("Numpress") != std::string_view::npos) {
      d.unsupported = "numpress compression is not supported yet";
    } else if (acc != kNoCompression && name.find("compression") != std::string_view::npos) {
      d.unsupported = "unsupported compression '" + Printable(name) + "'";
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
    if (!d.unsupported.empty()) return Fail(why, d.unsupported);
    if (d.bytes == 0) return Fail(why, "no 32- or 64-bit number type declared");
    if (count > kMaxArrayValues) {
      return Fail(why, "declared length " + std::to_string(count) + " is more than the " +
                           std::to_string(kMaxArrayValues) + " values a trace may hold");
    }
    // The common case, little-endian 64-bit floats as they are, decodes straight into `out`;
    // any other outcome goes the general way below, which says what is wrong.
    if (std::endian::native == std::endian::little && !d.zlib && d.bytes == 8 && !d.integer) {
      out.resize(static_cast<std::size_t>(count));
      std::size_t written = 0;
      if (DecodeBase64(text, reinterpret_cast<std::uint8_t*>(out.data()), out.size() * 8,
                       written) &&
          written == out.size() * 8) {
        return true;
      }
    }
    if (!DecodeBase64(text, text.size() / 4 * 3 + 3, m_encoded)) {
      return Fail(why, "invalid base64 data");
    }
    const std::uint64_t bytes = count * static_cast<std::uint64_t>(d.bytes);
    if (d.zlib && bytes > m_encoded.size() * kMaxDeflateRatio + 64) {
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
    const std::size_t n = static_cast<std::size_t>(count);
    out.resize(n);
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

  // Inflates m_encoded into m_inflated, refusing more than `expected` bytes. The output
  // grows with what the stream really yields, never to the declared size up front, so a
  // stream that lies about its size costs no more than it holds.
  bool Inflate(std::size_t expected, std::string& why) {
    z_stream zs{};
    if (inflateInit(&zs) != Z_OK) return Fail(why, "zlib cannot start");
    // One byte of room beyond `expected` tells an oversized stream from an exact one.
    const std::size_t limit = expected + 1;
    std::size_t size = std::min(limit, std::max<std::size_t>(m_encoded.size() * 4, 1 << 16));
    m_inflated.resize(size);
    std::size_t inLeft = m_encoded.size();
    zs.next_in = m_encoded.data();
    int status = Z_OK;
    std::size_t produced = 0;
    while (status == Z_OK) {
      if (produced == size) {
        if (size == limit) break;
        size = std::min(limit, size * 2);
        m_inflated.resize(size);
      }
      // zlib counts in unsigned int; feed it in slices.
      if (zs.avail_in == 0 && inLeft > 0) {
        zs.avail_in = static_cast<uInt>(std::min<std::size_t>(inLeft, UINT_MAX));
        inLeft -= zs.avail_in;
      }
      zs.next_out = m_inflated.data() + produced;
      zs.avail_out = static_cast<uInt>(std::min<std::size_t>(size - produced, UINT_MAX));
      const uInt before = zs.avail_out;
      status = inflate(&zs, Z_NO_FLUSH);
      produced += before - zs.avail_out;
      if (status == Z_BUF_ERROR && zs.avail_out > 0) break;  // no input left
      if (status == Z_BUF_ERROR) status = Z_OK;               // only out of room
    }
    inflateEnd(&zs);
    if (produced > expected) return Fail(why, "inflates to more data than declared");
    if (status != Z_STREAM_END) {
      return Fail(why, status == Z_BUF_ERROR || status == Z_OK ? "zlib data ends early"
                                                                : "invalid zlib data");
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

bool IsNameEnd(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '>' || c == '/';
}

// Whether `text` at `at` starts the tag `<name` (`prefix` "<") or `</name` (`prefix` "</").
bool IsTagAt(std::string_view text, std::size_t at, std::string_view prefix,
             std::string_view name) {
  const std::string_view rest = text.substr(at);
  return rest.size() > prefix.size() + name.size() && rest.starts_with(prefix) &&
         rest.substr(prefix.size()).starts_with(name) &&
         IsNameEnd(rest[prefix.size() + name.size()]);
}

// The most text that markup starting at a '<' needs to be told apart ("</chromatogram>").
constexpr std::size_t kMarkupLookahead = 16;

// One past the end of the markup that starts at text[at] == '<': a comment, a CDATA section,
// a processing instruction, or a tag (whose quoted attribute values may hold '>'); npos
// when the text ends first. Searching markup by markup keeps a '<' inside a comment or CDATA
// section from being taken for a tag.
std::size_t MarkupEnd(std::string_view text, std::size_t at) {
  const std::string_view rest = text.substr(at);
  const auto past = [&](std::string_view open, std::string_view close) {
    const std::size_t found = text.find(close, at + open.size());
    return found == std::string_view::npos ? found : found + close.size();
  };
  if (rest.starts_with("<!--")) return past("<!--", "-->");
  if (rest.starts_with("<![CDATA[")) return past("<![CDATA[", "]]>");
  if (rest.starts_with("<?")) return past("<?", "?>");
  char quote = 0;
  for (std::size_t i = at + 1; i < text.size(); ++i) {
    const char c = text[i];
    if (quote != 0) {
      if (c == quote) quote = 0;
    } else if (c == '"' || c == '\'') {
      quote = c;
    } else if (c == '>') {
      return i + 1;
    }
  }
  return std::string_view::npos;
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
    if (rtFiltered && !(trace.rt >= rt_min && trace.rt <= rt_max)) return false;
    if (ms_level != 0 && trace.ms_level != ms_level) return false;
  }
  return true;
}

// The base64 text of the arrays is most of a file. Where a <binaryDataArray> declares its
// encodedLength and the text that many characters after <binary> closes it, the search for
// an element's end steps over the array's text instead of reading it. Interpret reads every
// such text anyway (to leave it out of what it parses) and refuses the element, and with it
// the rest of the file, when a '<' comes before the declared end: a lying length is caught
// whether or not the array is decoded, and an element is cut where a full search cuts it.
class DeclaredLengths {
 public:
  static constexpr std::size_t kNeedMore = std::string_view::npos - 1;

  // For the markup text[lt, end): where the next search for '<' may start. That is `end`,
  // or past the array text after a <binary> tag when its declared end closes the <binary>;
  // kNeedMore when text up to `available` would tell but `text` ends first.
  std::size_t After(std::string_view text, std::size_t lt, std::size_t end,
                    std::size_t available) {
    if (IsTagAt(text, lt, "<", "binaryDataArray")) {
      m_length = EncodedLength(text.substr(lt, end - lt));
      return end;
    }
    if (m_length == kNone || !IsTagAt(text, lt, "<", "binary")) return end;
    // Past what may be read (or a <binary/>), the length is not one to go by.
    const std::size_t room = available > end ? available - end : 0;
    if (text[end - 2] == '/' || room < kMarkupLookahead || m_length > room - kMarkupLookahead) {
      m_length = kNone;
      return end;
    }
    const std::size_t close = end + static_cast<std::size_t>(m_length);
    if (close + kMarkupLookahead > text.size()) return kNeedMore;
    m_length = kNone;
    return IsTagAt(text, close, "</", "binary") ? close : end;
  }

 private:
  static constexpr std::uint64_t kNone = std::numeric_limits<std::uint64_t>::max();

  // The value of the start tag's encodedLength attribute; kNone when it has none or it is
  // not a number.
  static std::uint64_t EncodedLength(std::string_view tag) {
    for (std::size_t at = tag.find("encodedLength"); at != std::string_view::npos;
         at = tag.find("encodedLength", at + 1)) {
      std::string_view rest = tag.substr(at + 13);
      if (!IsNameEnd(tag[at - 1]) || rest.size() < 2 || rest[0] != '=' ||
          (rest[1] != '"' && rest[1] != '\'')) {
        continue;
      }
      const std::size_t close = rest.find(rest[1], 2);
      std::uint64_t n = 0;
      if (close != std::string_view::npos && QXParseUInt64(rest.substr(2, close - 2), n)) {
        return n;
      }
      return kNone;
    }
    return kNone;
  }

  std::uint64_t m_length = kNone;
};

struct MzmlReader::Workspace::Impl {
  // The element without the text of its <binary> elements, parsed; each left-out text is
  // stood for by one character, found again by where pugixml's value of it starts.
  std::string skeleton;
  std::vector<std::pair<std::size_t, std::string_view>> payloads;  // (skeleton offset, text)
  std::string broken;  // why the last element interpreted stops the file; empty when it does not
  pugi::xml_document document;
  ArrayDecoder decoder;

  // Copies the markup of `text` into `skeleton`, leaving out the base64 text of each
  // <binary>: the parser then never walks megabytes of it.
  // False when an array's declared length ends past a '<': the search for the element's end
  // stepped over markup, and the element may not be what it seems.
  [[nodiscard]] bool Skeletonize(std::string_view text) {
    skeleton.clear();
    payloads.clear();
    DeclaredLengths declared;
    std::size_t copied = 0;
    for (std::size_t lt = text.find('<'); lt != std::string_view::npos;) {
      const std::size_t end = MarkupEnd(text, lt);
      if (end == std::string_view::npos) break;
      const std::size_t next = text.find('<', end);
      const std::size_t stepped = declared.After(text, lt, end, text.size());
      if (stepped != end && stepped != next) return false;
      if (next != std::string_view::npos && IsTagAt(text, lt, "<", "binary") &&
          text[end - 2] != '/') {
        const std::string_view body = text.substr(end, next - end);
        if (body.size() > 1) {
          skeleton.append(text.substr(copied, end - copied));
          payloads.emplace_back(skeleton.size(), body);
          skeleton += 'A';
          copied = next;
        }
      }
      lt = next;
    }
    skeleton.append(text.substr(copied));
    return true;
  }

  // Decodes the array whose <binary> value (in the parsed skeleton) is `value`. A text with
  // an entity (which XML allows, though base64 has no '&') is decoded as the parser
  // resolves it, looked for only when the text as it stands fails.
  bool DecodeArray(const ArrayDescription& d, const char* value, std::uint64_t count,
                   std::vector<double>& out, std::string& why) {
    std::string_view text = value;
    for (const auto& [offset, left] : payloads) {
      if (value == skeleton.data() + offset) text = left;
    }
    if (decoder.Decode(d, text, count, out, why)) return true;
    if (text.find('&') == std::string_view::npos) return false;
    const std::string wrapped = "<b>" + std::string(text) + "</b>";
    pugi::xml_document resolved;
    return resolved.load_buffer(wrapped.data(), wrapped.size()) &&
           decoder.Decode(d, resolved.child_value("b"), count, out, why);
  }
};

MzmlReader::Workspace::Workspace() : m_impl(std::make_unique<Impl>()) {}
MzmlReader::Workspace::~Workspace() = default;

struct MzmlReader::Impl {
  // Where the bytes come from: a file (through the gz reader) or a text in memory.
  io_internal::Input input;
  bool fromMemory = false;
  bool atEnd = false;  // the source has nothing more
  std::string name;
  MzmlReadOptions options;

  // Unconsumed text is buffer[pos, size()): a view of the mapped file, or of `owned`, which
  // holds what was read so far of a file that cannot be mapped (or the text in memory).
  std::string_view buffer;
  std::string owned;
  std::size_t pos = 0;
  bool mapped = false;

  std::string error;
  std::string header;
  std::string listTags[2];
  pugi::xml_document headerDocument;
  ParamLookup params;
  Workspace::Impl workspace;  // Next's own

  // The list being read, and how many elements each list held so far.
  int reading = 0;  // 0 spectra, 1 chromatograms
  std::size_t seen[2] = {0, 0};
  bool done = false;

  // Appends what the source gives (the first time, maps the whole file when asked to and it
  // can); false at the end of the source or on a read error.
  bool Fill() {
    if (atEnd) return false;
    if (!fromMemory && owned.empty() && !mapped && options.map_file) {
      buffer = input.Map();
      mapped = !buffer.empty();
      atEnd = mapped;
      if (mapped) return true;
    }
    if (pos > kChunk && pos * 2 > owned.size()) {
      owned.erase(0, pos);
      pos = 0;
    }
    buffer = owned;
    if (fromMemory) {
      atEnd = true;
      return false;
    }
    // As much as is held already (from a chunk to a quarter of the element limit): an element
    // that needs many reads to end is searched again from its start only a few times.
    const std::size_t used = owned.size();
    const std::size_t chunk = std::clamp(used - pos, kChunk, kMaxMzmlElementBytes / 4);
    owned.resize(used + chunk);
    const long got = input.Read(owned.data() + used, chunk);
    owned.resize(used + static_cast<std::size_t>(std::max(got, 0L)));
    buffer = owned;
    if (got < 0) error = input.Error();
    if (got <= 0) atEnd = true;
    return got > 0;
  }

  bool Fail(std::string text) {
    error = name + ": " + std::move(text);
    done = true;
    return false;
  }

  // Finds "<tagName" (as a whole name) at or after `from`, reading more as needed but never
  // holding more than `budget` bytes past `pos`; npos when absent.
  std::size_t FindTag(std::string_view tagName, std::size_t from, std::size_t budget) {
    const std::string needle = "<" + std::string(tagName);
    for (;;) {
      for (std::size_t at = buffer.find(needle, from); at != std::string::npos;
           at = buffer.find(needle, at + 1)) {
        if (at + needle.size() >= buffer.size()) break;  // the name may go on
        if (IsNameEnd(buffer[at + needle.size()])) return at;
      }
      from = buffer.size() >= needle.size() + 1 ? buffer.size() - needle.size() - 1 : 0;
      from = std::max(from, pos);
      if (buffer.size() - pos > budget) return std::string::npos;
      const std::size_t before = pos;
      if (!Fill()) return std::string::npos;
      from -= before - pos;  // Fill may have moved the text to the front
    }
  }

  // The end of the start tag at `at` (one past its '>'), reading more as needed; npos
  // when the file ends first or the tag is unreasonably long.
  std::size_t TagEnd(std::size_t at) {
    std::size_t from = at;
    for (;;) {
      const std::size_t gt = buffer.find('>', from);
      if (gt != std::string::npos) return gt + 1;
      from = buffer.size();
      if (buffer.size() - at > (std::size_t{16} << 20)) return std::string::npos;
      const std::size_t before = pos;
      if (!Fill()) return std::string::npos;
      at -= before - pos;
      from -= before - pos;
    }
  }

  bool OpenSource() {
    Fill();
    if (!error.empty()) return false;
    const std::string_view head(buffer.data(), std::min<std::size_t>(buffer.size(), 4));
    if (head.size() >= 2 && ((head[0] == '\xFF' && head[1] == '\xFE') ||
                             (head[0] == '\xFE' && head[1] == '\xFF') ||
                             (head[0] == '<' && head[1] == '\0') ||
                             (head[0] == '\0' && head[1] == '<'))) {
      return Fail("UTF-16 text is not supported; convert the file to UTF-8");
    }
    if (buffer.compare(0, 3, "\xEF\xBB\xBF") == 0) pos = 3;
    while (pos < buffer.size() && std::strchr(" \t\r\n", buffer[pos]) != nullptr) ++pos;
    if (pos >= buffer.size() || buffer[pos] != '<') {
      return Fail("not an mzML file (it does not start with '<')");
    }
    const std::size_t mzml = FindTag("mzML", pos, kMaxMzmlHeaderBytes);
    if (mzml == std::string::npos) {
      return Fail(error.empty() ? "not an mzML file (no <mzML> element)" : error);
    }
    pos = mzml;
    // The header runs to the first list (or the end of an empty run); comments and CDATA
    // sections are stepped over whole.
    std::size_t end = std::string::npos;
    for (std::size_t from = pos;;) {
      const std::size_t lt = buffer.find('<', from);
      if (lt != std::string::npos && (lt + 20 <= buffer.size() || atEnd)) {
        const std::string_view tag = buffer.substr(lt);
        if (tag.starts_with("<spectrumList") || tag.starts_with("<chromatogramList") ||
            tag.starts_with("</run")) {
          end = lt;
          break;
        }
        const bool skipped = tag.starts_with("<!--") || tag.starts_with("<![CDATA[");
        const std::size_t next = skipped ? MarkupEnd(buffer, lt) : lt + 1;
        if (next != std::string::npos) {
          from = next;
          continue;
        }
      }
      if (buffer.size() - pos > kMaxMzmlHeaderBytes) {
        return Fail("the mzML header (before the first spectrum) is larger than " +
                    std::to_string(kMaxMzmlHeaderBytes >> 20) + " MiB");
      }
      from = lt == std::string::npos ? buffer.size() : lt;
      const std::size_t before = pos;
      if (!Fill()) {
        return Fail(error.empty() ? "ends before its first spectrum or chromatogram "
                                    "(truncated file?)"
                                  : error);
      }
      from -= before - pos;
    }
    header.assign(buffer, pos, end - pos);
    pos = end;
    if (header.find("<run") == std::string::npos)
      return Fail("not an mzML file (no <run> element)");
    const std::string closed = header + "</run></mzML>";
    const pugi::xml_parse_result parsed = headerDocument.load_buffer(closed.data(), closed.size());
    if (!parsed) {
      return Fail("malformed mzML header at byte " + std::to_string(parsed.offset) + ": " +
                  parsed.description());
    }
    params.Load(headerDocument.child("mzML"));
    reading = options.selection.list == MzmlSelection::List::kChromatograms ? 1 : 0;
    return true;
  }

  // Turns the element in `text` (of list `kind`, at `position` in it) into `trace`; true
  // when the trace is to be returned. Problems with the element go to trace.problem; only
  // the selection decides whether it is returned. Reads nothing that changes while the file
  // is read, so that threads with workspaces of their own may call it at once.
  bool Interpret(std::string_view text, int kind, std::size_t position, bool listRead,
                 Workspace::Impl& ws, Trace& trace) const {
    trace = Trace();
    trace.kind = kind == 0 ? Trace::Kind::kSpectrum : Trace::Kind::kChromatogram;
    trace.index = static_cast<std::int32_t>(std::min<std::size_t>(position, INT32_MAX));
    const char* elementName = kind == 0 ? "spectrum" : "chromatogram";
    if (!ws.Skeletonize(text)) {
      ws.broken = name + ": " + elementName + " " + std::to_string(position) +
                  ": an array's encodedLength reaches past the end of its text (damaged file?)";
      return false;
    }
    ws.broken.clear();
    const pugi::xml_parse_result parsed =
        ws.document.load_buffer_inplace(ws.skeleton.data(), ws.skeleton.size());
    const pugi::xml_node node = ws.document.child(elementName);
    if (!parsed || !node) {
      trace.problem = std::string(elementName) + " " + std::to_string(position) +
                      ": malformed XML" + (parsed ? "" : std::string(": ") + parsed.description());
      trace.selected = listRead;
      return trace.selected || options.keep_elements;
    }
    trace.id = node.attribute("id").value();
    trace.scan_number = ScanNumberOf(trace.id);
    if (kind == 0) {
      if (pugi::xml_node p = params.Find(node, kMsLevel)) {
        std::uint64_t level = 0;
        if (QXParseUInt64(p.attribute("value").value(), level) && level <= INT_MAX) {
          trace.ms_level = static_cast<int>(level);
        }
      }
      trace.centroided = static_cast<bool>(params.Find(node, kCentroidSpectrum));
      const pugi::xml_node scan = node.child("scanList").child("scan");
      if (pugi::xml_node p = params.Find(scan, kScanStartTime)) {
        double rt = 0.0;
        if (QXParseDouble(p.attribute("value").value(), rt))
          trace.rt = SaysMinutes(p) ? rt * 60.0 : rt;
      }
    }
    trace.selected = listRead && options.selection.Accepts(trace);
    if (!trace.selected) return options.keep_elements;
    const std::string where = std::string(elementName) + " " + std::to_string(position) +
                              (trace.id.empty() ? "" : " (" + Printable(trace.id) + ")");
    std::uint64_t declared = 0;
    if (!QXParseUInt64(node.attribute("defaultArrayLength").value(), declared)) {
      trace.problem = where + ": missing or invalid defaultArrayLength";
      return true;
    }
    const ArrayDescription::Role xRole =
        kind == 0 ? ArrayDescription::Role::kMz : ArrayDescription::Role::kTime;
    bool haveX = false, haveY = false, minutes = false;
    for (pugi::xml_node array : node.child("binaryDataArrayList").children("binaryDataArray")) {
      const ArrayDescription d = Describe(params, array);
      const bool isX = d.role == xRole && !haveX;
      const bool isY = d.role == ArrayDescription::Role::kIntensity && !haveY;
      if (!isX && !isY) continue;
      std::uint64_t count = declared;
      if (pugi::xml_attribute a = array.attribute("arrayLength");
          a && !QXParseUInt64(a.value(), count)) {
        trace.problem = where + ": invalid arrayLength";
        break;
      }
      std::string why;
      if (!ws.DecodeArray(d, array.child_value("binary"), count, isX ? trace.x : trace.y,
                          why)) {
        trace.problem = where + ": " + RoleName(d.role) + " array: " + why;
        break;
      }
      (isX ? haveX : haveY) = true;
      if (isX) minutes = d.minutes;
    }
    if (trace.problem.empty() && (!haveX || !haveY)) {
      trace.problem = where + ": no " + (haveX ? "intensity" : RoleName(xRole)) + " array";
    }
    if (trace.problem.empty() && minutes) {
      for (double& t : trace.x) t *= 60.0;  // every time leaves the reader in seconds
    }
    if (trace.problem.empty()) {
      io_internal::CheckAndSortTrace(trace, where, kind == 0 ? "m/z" : "time");
    }
    if (!trace.problem.empty()) {
      trace.x.clear();
      trace.y.clear();
    }
    return true;
  }

  // One past the close tag of the element `name` whose start tag ends at `from`, reading
  // more as needed; markup is stepped over whole, so that a comment or CDATA section holding
  // the close tag does not end the element. npos when the file ends first or the element
  // grows beyond the limit (`error` says which).
  std::size_t ElementEnd(std::string_view name, std::size_t from, bool stepOverArrays) {
    DeclaredLengths declared;
    for (;;) {
      bool needMore = false;  // to tell whether to step over an array's text
      const std::size_t lt = buffer.find('<', from);
      if (lt != std::string::npos && (lt + kMarkupLookahead <= buffer.size() || atEnd)) {
        const std::size_t end = MarkupEnd(buffer, lt);
        if (end != std::string::npos) {
          if (IsTagAt(buffer, lt, "</", name)) return end;
          const std::size_t available = atEnd ? buffer.size() : pos + kMaxMzmlElementBytes;
          from = stepOverArrays ? declared.After(buffer, lt, end, available) : end;
          if (from != DeclaredLengths::kNeedMore) continue;
          needMore = true;
        }
      }
      from = lt == std::string::npos ? buffer.size() : lt;
      if (buffer.size() - pos > kMaxMzmlElementBytes) {
        Fail(std::string("a ") + std::string(name) + " element is larger than " +
             std::to_string(kMaxMzmlElementBytes >> 20) + " MiB");
        return std::string::npos;
      }
      const std::size_t before = pos;
      const bool more = Fill();
      from -= before - pos;
      if (!more && needMore && error.empty()) continue;  // decided with what there is
      if (!more) {
        const int kind = name == "spectrum" ? 0 : 1;
        Fail(error.empty() ? "ends inside " + std::string(name) + " " +
                                 std::to_string(seen[kind]) + " (truncated file?)"
                           : error);
        return std::string::npos;
      }
    }
  }

  // The mapped pages before `keep` (the reading position when null) that were not handed out
  // yet, for the caller to let go (touched again, they are read again from the file).
  io_internal::Input::Pages Passed(const char* keep = nullptr) {
    if (!mapped) return {};
    return input.Passed(keep != nullptr ? static_cast<std::size_t>(keep - buffer.data()) : pos);
  }

  // Cuts the next element to interpret out of the file: its text (valid until the next
  // read, or, for a mapped file, while the reader lives), list and position. False at the
  // end of the list or when the file is broken.
  bool FindElement(std::string_view& text, int& kind, std::size_t& position) {
    while (!done) {
      std::size_t at = buffer.find('<', pos);
      while (at == std::string::npos || at + 24 > buffer.size()) {
        if (at == std::string::npos) pos = buffer.size();  // nothing of use before
        const std::size_t before = pos;
        const bool more = Fill();
        if (at != std::string::npos) at -= before - pos;  // Fill may move the text
        if (!more) {
          if (!error.empty()) return Fail(error);
          if (at != std::string::npos && at < buffer.size()) break;
          return Fail("ends before </run> (truncated file?)");
        }
        at = buffer.find('<', at == std::string::npos ? pos : at);
      }
      const std::string_view tag(buffer.data() + at, std::min<std::size_t>(24, buffer.size() - at));
      const auto isTag = [&](std::string_view name) {
        return tag.size() > name.size() && tag.starts_with(name) && IsNameEnd(tag[name.size()]);
      };
      pos = at;
      if (isTag("</run")) {
        done = true;
        return false;
      }
      if (tag.starts_with("<!--")) {
        std::size_t close = buffer.find("-->", pos);
        while (close == std::string::npos) {
          if (buffer.size() - pos > kMaxMzmlElementBytes) return Fail("endless comment");
          if (!Fill()) return Fail("ends inside a comment (truncated file?)");
          close = buffer.find("-->", pos);
        }
        pos = close + 3;
        continue;
      }
      const int listKind = isTag("<spectrumList") ? 0 : isTag("<chromatogramList") ? 1 : -1;
      if (listKind >= 0) {
        const std::size_t end = TagEnd(pos);
        if (end == std::string::npos)
          return Fail("ends inside a list's start tag (truncated file?)");
        listTags[listKind].assign(buffer, pos, end - pos);
        pos = end;
        if (listKind == 1 && options.selection.list == MzmlSelection::List::kAuto && seen[0] == 0) {
          reading = 1;  // no spectrum: the chromatograms are what there is to read
        }
        // The rest of the file holds nothing to return.
        if (listKind == 1 && reading == 0 && !options.keep_elements) {
          done = true;
          return false;
        }
        continue;
      }
      kind = isTag("<spectrum") ? 0 : isTag("<chromatogram") ? 1 : -1;
      if (kind < 0) {  // a closing list tag or anything else: step over it
        const std::size_t end = TagEnd(pos);
        if (end == std::string::npos) return Fail("ends inside a tag (truncated file?)");
        pos = end;
        continue;
      }
      const char* elementName = kind == 0 ? "spectrum" : "chromatogram";
      const std::size_t startEnd = TagEnd(pos);
      if (startEnd == std::string::npos) {
        return Fail(std::string("ends inside a ") + elementName + " (truncated file?)");
      }
      const std::size_t end =
          buffer[startEnd - 2] == '/'
              ? startEnd
              : ElementEnd(elementName, startEnd, kind == reading || options.keep_elements);
      if (end == std::string::npos) return false;
      text = std::string_view(buffer.data() + pos, end - pos);
      pos = end;
      position = seen[kind]++;
      if (kind == reading || options.keep_elements) return true;
    }
    return false;
  }

  bool Next(Trace& trace) {
    std::string_view text;
    int kind = 0;
    std::size_t position = 0;
    for (;;) {
      io_internal::Input::Release(Passed());  // what came before is not looked at
      if (!FindElement(text, kind, position)) return false;
      if (Interpret(text, kind, position, kind == reading, workspace, trace)) {
        if (options.keep_elements) trace.element.assign(text);
        return true;
      }
      if (!workspace.broken.empty()) {
        error = workspace.broken;
        done = true;
        return false;
      }
    }
  }
};

MzmlReader::MzmlReader() : m_impl(std::make_unique<Impl>()) {}
MzmlReader::~MzmlReader() = default;

bool MzmlReader::Open(const std::string& path, const MzmlReadOptions& options,
                      std::string& error) {
  io_internal::Input input;
  if (!input.Open(path, error)) {
    m_impl = std::make_unique<Impl>();
    m_impl->done = true;
    return false;
  }
  return OpenInput(std::move(input), options, error);
}

bool MzmlReader::OpenInput(io_internal::Input&& input, const MzmlReadOptions& options,
                           std::string& error) {
  m_impl = std::make_unique<Impl>();
  m_impl->options = options;
  m_impl->input = std::move(input);
  m_impl->name = m_impl->input.Name();
  if (!m_impl->OpenSource()) {
    error = m_impl->error;
    m_impl->done = true;
    return false;
  }
  return true;
}

bool MzmlReader::OpenText(std::string text, const std::string& name,
                          const MzmlReadOptions& options, std::string& error) {
  m_impl = std::make_unique<Impl>();
  m_impl->options = options;
  m_impl->name = name;
  m_impl->fromMemory = true;
  m_impl->owned = std::move(text);
  m_impl->buffer = m_impl->owned;
  if (!m_impl->OpenSource()) {
    error = m_impl->error;
    m_impl->done = true;
    return false;
  }
  return true;
}

bool MzmlReader::Next(Trace& trace) { return m_impl->Next(trace); }

bool MzmlReader::NextElement(Element& element, const Element* oldest) {
  std::string_view text;
  int kind = 0;
  // Letting pages go takes a while; Interpret does it, outside the caller's lock.
  element.m_passed = m_impl->Passed(oldest != nullptr && !oldest->m_owned ? oldest->m_view.data()
                                                                          : nullptr);
  if (!m_impl->FindElement(text, kind, element.position)) {
    io_internal::Input::Release(std::exchange(element.m_passed, {}));
    return false;
  }
  // A mapped file's text stays where it is; a buffer's moves on and is copied.
  element.m_owned = !m_impl->mapped;
  element.m_view = element.m_owned ? std::string_view() : text;
  if (element.m_owned) element.m_copy.assign(text);
  element.kind = kind == 0 ? Trace::Kind::kSpectrum : Trace::Kind::kChromatogram;
  element.listRead = kind == m_impl->reading;
  return true;
}

bool MzmlReader::Interpret(Element& element, Workspace& workspace, Trace& trace) const {
  io_internal::Input::Release(std::exchange(element.m_passed, {}));
  const int kind = element.kind == Trace::Kind::kSpectrum ? 0 : 1;
  if (!m_impl->Interpret(element.Text(), kind, element.position, element.listRead,
                         *workspace.m_impl, trace)) {
    element.broken = workspace.m_impl->broken;
    return false;
  }
  if (m_impl->options.keep_elements) trace.element.assign(element.Text());
  return true;
}
const std::string& MzmlReader::Error() const { return m_impl->error; }
const char* MzmlReader::ListElement() const {
  return m_impl->reading == 0 ? "spectrum" : "chromatogram";
}
std::size_t MzmlReader::ListSize() const { return m_impl->seen[m_impl->reading]; }
const std::string& MzmlReader::HeaderXml() const { return m_impl->header; }
const std::string& MzmlReader::ListTag(Trace::Kind kind) const {
  return m_impl->listTags[kind == Trace::Kind::kSpectrum ? 0 : 1];
}

bool ReadMzml(const std::string& path, const MzmlSelection& selection, std::vector<Trace>& traces,
              std::string& error) {
  MzmlReader reader;
  MzmlReadOptions options;
  options.selection = selection;
  std::vector<Trace> read;
  if (!reader.Open(path, options, error)) return false;
  for (Trace t; reader.Next(t);) read.push_back(std::move(t));
  if (!reader.Error().empty()) {
    error = reader.Error();
    return false;
  }
  traces = std::move(read);
  return true;
}

}  // namespace qxpkutil
