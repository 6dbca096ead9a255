#include "qxpkutil/io/TextReader.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <utility>
#include <vector>

#include "qxpkutil/io/io_internal.h"

namespace qxpkutil {

namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

void SkipBlanks(std::string_view& s) {
  while (!s.empty() && IsBlank(s.front())) s.remove_prefix(1);
}

// Reads one number from the front of `s`; from_chars takes no '+' sign, so it is skipped.
bool TakeNumber(std::string_view& s, double& value) {
  if (!s.empty() && s.front() == '+') s.remove_prefix(1);
  const auto r = std::from_chars(s.data(), s.data() + s.size(), value);
  if (r.ec != std::errc() || !std::isfinite(value)) return false;
  s.remove_prefix(static_cast<std::size_t>(r.ptr - s.data()));
  return true;
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

}  // namespace

bool ReadTextSignal(const std::string& path, Trace& trace, std::string& error) {
  std::vector<char> bytes;
  if (!io_internal::ReadWholeFile(path, io_internal::kMaxInputBytes, bytes, error)) return false;
  return ParseTextSignal(std::string_view(bytes.data(), bytes.size()), path, trace, error);
}

bool ParseTextSignal(std::string_view text, const std::string& name, Trace& trace,
                     std::string& error) {
  if (text.substr(0, 3) == "\xEF\xBB\xBF") text.remove_prefix(3);  // UTF-8 byte order mark
  Trace parsed;
  // About 20 characters per line is typical; reserving avoids most regrowth.
  parsed.x.reserve(text.size() / 20);
  parsed.y.reserve(text.size() / 20);
  std::size_t lineNumber = 0;
  bool sawContent = false;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    ++lineNumber;
    std::string_view rest = line;
    SkipBlanks(rest);
    if (rest.empty() || rest.front() == '#') continue;
    double x = 0.0, y = 0.0;
    if (!ParsePoint(rest, x, y)) {
      if (!sawContent) {  // the header line
        sawContent = true;
        continue;
      }
      error = name + ": line " + std::to_string(lineNumber) +
              ": expected two numbers (x and y) separated by a tab, comma or blanks";
      return false;
    }
    sawContent = true;
    if (!parsed.x.empty() && x < parsed.x.back()) {
      error = name + ": line " + std::to_string(lineNumber) +
              ": x is smaller than on the line before (x values must ascend)";
      return false;
    }
    if (parsed.x.size() == INT32_MAX) {
      error = name + ": more points than the library can index";
      return false;
    }
    parsed.x.push_back(x);
    parsed.y.push_back(y);
  }
  if (parsed.x.empty()) {
    error = name + ": no data lines (expected two columns, x and y)";
    return false;
  }
  trace = std::move(parsed);
  return true;
}

}  // namespace qxpkutil
