#include "qxpkutil/io/TextReader.h"

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

#include "qxpkutil/io/io_internal.h"
#include "qxpkutil/platform/QXParse.h"
#include "qxpkutil/platform/QXTypes.h"

namespace qxpkutil {

namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

void SkipBlanks(std::string_view& s) {
  while (!s.empty() && IsBlank(s.front())) s.remove_prefix(1);
}

// Reads one number from the front of `s` by the library's rule, which never yields a
// value that is not finite.
bool TakeNumber(std::string_view& s, double& value) {
  const std::size_t used = QXParseDoublePrefix(s, value);
  s.remove_prefix(used);
  return used != 0;
}

// A data line: number, separator (a comma or tab with optional blanks, or blanks alone),
// number, optional trailing blanks or comma.
bool ParsePoint(std::string_view line, double& x, double& y) {
  SkipBlanks(line);
  if (!TakeNumber(line, x)) return false;
  const std::size_t before = line.size();
  SkipBlanks(line);
  if (!line.empty() && line.front() == ',') {
    line.remove_prefix(1);
    SkipBlanks(line);
  } else if (line.size() == before) {
    return false;  // no separator at all
  }
  if (!TakeNumber(line, y)) return false;
  SkipBlanks(line);
  if (!line.empty() && line.front() == ',') line.remove_prefix(1);
  SkipBlanks(line);
  return line.empty();
}

// Whether a field reads as an attempt at a number: a digit first (after a sign or a point),
// or nan/inf. "9OO", "nan" and "1e999" are such attempts, "intensity" and "m/z" are not.
bool LooksNumeric(std::string_view field) {
  if (!field.empty() && (field.front() == '+' || field.front() == '-')) field.remove_prefix(1);
  if (!field.empty() && field.front() == '.') field.remove_prefix(1);
  if (!field.empty() && field.front() >= '0' && field.front() <= '9') return true;
  std::string lower;
  for (const char c : field.substr(0, 3)) lower += static_cast<char>(c | 0x20);
  return lower == "nan" || lower == "inf";
}

bool IsHeader(std::string_view line) {
  std::size_t start = 0;
  for (std::size_t i = 0; i <= line.size(); ++i) {
    if (i == line.size() || IsBlank(line[i]) || line[i] == ',' || line[i] == ';') {
      if (i > start && LooksNumeric(line.substr(start, i - start))) return false;
      start = i + 1;
    }
  }
  return true;
}

// Takes lines one at a time and builds the trace.
class LineParser {
 public:
  explicit LineParser(std::string name) : m_name(std::move(name)) {}

  bool Line(std::string_view line, std::string& error) {
    ++m_lineNumber;
    if (m_lineNumber == 1 && line.substr(0, 3) == "\xEF\xBB\xBF") line.remove_prefix(3);
    std::string_view rest = line;
    SkipBlanks(rest);
    if (rest.empty() || rest.front() == '#') return true;
    double x = 0.0, y = 0.0;
    const bool first = !m_sawContent;
    m_sawContent = true;
    if (!ParsePoint(rest, x, y)) {
      if (first && IsHeader(rest)) return true;
      while (!rest.empty() && IsBlank(rest.back())) rest.remove_suffix(1);
      error = m_name + ": line " + std::to_string(m_lineNumber) + ": '" +
              io_internal::Printable(rest) +
              "' is not two finite numbers (x and y) separated by a tab, comma or blanks";
      return false;
    }
    if (m_trace.x.size() == kQXMaxPoints) {
      error = m_name + ": more than " + std::to_string(kQXMaxPoints) + " points";
      return false;
    }
    m_trace.x.push_back(x);
    m_trace.y.push_back(y);
    return true;
  }

  bool Finish(Trace& trace, std::string& error) {
    if (m_trace.x.empty()) {
      error = m_name + ": no data lines (expected two columns, x and y)";
      return false;
    }
    io_internal::CheckAndSortTrace(m_trace, m_name, "x");
    trace = std::move(m_trace);
    return true;
  }

  const std::string& Name() const { return m_name; }
  std::size_t LineNumber() const { return m_lineNumber; }

 private:
  std::string m_name;
  Trace m_trace;
  std::size_t m_lineNumber = 0;
  bool m_sawContent = false;
};

bool IsUtf16(std::string_view head) {
  return head.size() >= 2 &&
         ((head[0] == '\xFF' && head[1] == '\xFE') || (head[0] == '\xFE' && head[1] == '\xFF') ||
          (head[0] != '\0' && head[1] == '\0'));
}

std::string LineTooLong(const LineParser& parser) {
  return parser.Name() + ": line " + std::to_string(parser.LineNumber() + 1) +
         " is longer than " + std::to_string(kMaxTextLineBytes >> 20) +
         " MiB (not a text signal?)";
}

}  // namespace

namespace io_internal {

bool ReadTextFrom(Input& input, Trace& trace, std::string& error) {
  LineParser parser(input.Name());
  if (IsUtf16(input.Peek(2))) {
    error = input.Name() + ": UTF-16 text is not supported; convert the file to UTF-8";
    return false;
  }
  std::string buffer;
  std::size_t pos = 0;
  constexpr std::size_t kChunk = std::size_t{1} << 20;
  for (;;) {
    const std::size_t used = buffer.size();
    buffer.resize(used + kChunk);
    const long got = input.Read(buffer.data() + used, kChunk);
    buffer.resize(used + static_cast<std::size_t>(std::max(got, 0L)));
    if (got < 0) {
      error = input.Error();
      return false;
    }
    for (std::size_t nl; (nl = buffer.find('\n', pos)) != std::string::npos; pos = nl + 1) {
      if (nl - pos > kMaxTextLineBytes) {
        error = LineTooLong(parser);
        return false;
      }
      if (!parser.Line(std::string_view(buffer).substr(pos, nl - pos), error)) return false;
    }
    if (buffer.size() - pos > kMaxTextLineBytes) {
      error = LineTooLong(parser);
      return false;
    }
    if (got == 0) break;
    buffer.erase(0, pos);
    pos = 0;
  }
  if (pos < buffer.size() && !parser.Line(std::string_view(buffer).substr(pos), error)) {
    return false;
  }
  return parser.Finish(trace, error);
}

}  // namespace io_internal

bool ReadTextSignal(const std::string& path, Trace& trace, std::string& error) {
  io_internal::Input input;
  return input.Open(path, error) && io_internal::ReadTextFrom(input, trace, error);
}

bool ParseTextSignal(std::string_view text, const std::string& name, Trace& trace,
                     std::string& error) {
  if (IsUtf16(text.substr(0, 2))) {
    error = name + ": UTF-16 text is not supported; convert the file to UTF-8";
    return false;
  }
  LineParser parser(name);
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    const std::string_view line = text.substr(0, end);
    if (line.size() > kMaxTextLineBytes) {
      error = LineTooLong(parser);
      return false;
    }
    if (!parser.Line(line, error)) return false;
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
  return parser.Finish(trace, error);
}

}  // namespace qxpkutil
