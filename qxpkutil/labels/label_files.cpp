// Label files and their ";"-terminated text form: the header line with its two keywords,
// one tab-separated line per label, and a line reader whose fields carry over from line to
// line.
#include "qxpkutil/labels/QXUserPkLabels.h"

#include <charconv>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "qxpkutil/platform/QXAtomicFile.h"
#include "qxpkutil/platform/QXMessages.h"
#include "qxpkutil/platform/QXParse.h"

namespace qxpkutil {
namespace {

constexpr std::string_view kUseChargeKeyword = "UseChargeState";
constexpr std::string_view kDifferenceKeyword = "Difference";

void Report(int showMessages, int id) {
  if (showMessages != 0) QXShowMessage(id, QXLoadString(id));
}

// ---- Reading ----

// The values of the latest label line; a field a line lacks keeps what it held before.
struct LabelFields {
  std::string label;
  double x = 1.0;
  double deltaX = 1.0;
  int charge = 0;
};

// Reads one number after optional white space, by the library's one rule for numbers
// whatever the process locale is. False (nothing stored) when no number starts there.
bool ReadNumber(std::string_view& rest, double& value) {
  const std::size_t used = QXParseDoublePrefix(rest, value);
  rest.remove_prefix(used);
  return used != 0;
}

bool ReadNumber(std::string_view& rest, int& value) {
  const std::size_t used = QXParseIntPrefix(rest, value);
  rest.remove_prefix(used);
  return used != 0;
}

// Reads "label<TAB>x delta-x charge" into `fields`, stopping at the first field that is
// missing or malformed: the fields from there on keep their earlier values. A line
// starting with a tab therefore changes nothing.
void ParseLabelLine(std::string_view line, LabelFields& fields) {
  // A label item holds its name as a C string, so a line ends at its first NUL: without
  // this, a name starting with NUL would be stored empty and saved as a line that loads
  // back as a repeat of the label before it.
  line = line.substr(0, line.find('\0'));
  const std::size_t tab = line.find('\t');
  const std::string_view label = line.substr(0, tab);
  if (label.empty()) return;
  fields.label.assign(label);
  line.remove_prefix(label.size());
  if (!ReadNumber(line, fields.x)) return;
  if (!ReadNumber(line, fields.deltaX)) return;
  ReadNumber(line, fields.charge);
}

// Lines are compared and parsed without their line end, "\r\n" included.
std::string_view TrimLineEnd(std::string_view line) {
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.remove_suffix(1);
  return line;
}

// ---- Writing ----

void AppendFixed(std::string& out, double value) {
  // Wide enough for the largest double in fixed notation (309 digits and 6 decimals).
  char buffer[400];
  const auto result =
      std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed, 6);
  out.append(buffer, result.ptr);
}

// "%s\t%lf\t%lf\t%d\n", or without the charge; written without the C library so that the
// process locale cannot change the decimal point.
void AppendLabelLine(std::string& out, const std::string& label, double x, double deltaX,
                     int charge, int withCharge) {
  out += label;
  out += '\t';
  AppendFixed(out, x);
  out += '\t';
  AppendFixed(out, deltaX);
  if (withCharge != 0) {
    char buffer[16];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, charge);
    out += '\t';
    out.append(buffer, result.ptr);
  }
  out += '\n';
}

// Replaces the file at `path` with `content`, leaving any old file intact on failure.
bool WriteLabelFile(const char* path, const std::string& content, int showMessages) {
  std::error_code ec;
  const bool existed = std::filesystem::exists(path, ec);
  // Opening for appending proves the file may be written without touching what it holds,
  // so a read-only label file is refused rather than renamed over.
  std::FILE* probe = std::fopen(path, "a");
  if (probe == nullptr) {
    Report(showMessages, kQXMsgLabelFileOpenError);
    return false;
  }
  std::fclose(probe);
  if (!QXWriteFileAtomically(path, content)) {
    if (!existed) std::remove(path);  // the empty file the probe created
    Report(showMessages, kQXMsgLabelFileWriteError);
    return false;
  }
  return true;
}

}  // namespace

int QXUserPkLabels::GetNextLine(std::string_view& line, std::string_view& text) {
  if (text.empty()) return 0;
  const std::size_t end = text.find(';');
  if (end == std::string_view::npos) {
    line = {};
    return 0;
  }
  line = text.substr(0, end);
  text.remove_prefix(end + 1);
  return 1;
}

int QXUserPkLabels::LoadLabelsFromFile(const char* path, int showMessages,
                                       const std::string& text) {
  const bool fromFile = path != nullptr && *path != '\0';
  std::ifstream file;
  if (fromFile) {
    file.open(path);
    if (!file.is_open()) {
      Report(showMessages, kQXMsgLabelFileOpenError);
      return 0;
    }
  }
  std::string fileLine;
  std::string_view rest = text;
  auto nextLine = [&](std::string_view& line) {
    if (fromFile) {
      if (!std::getline(file, fileLine)) return false;
      line = fileLine;
    } else if (GetNextLine(line, rest) == 0) {
      return false;
    }
    line = TrimLineEnd(line);
    return true;
  };

  std::string_view line;
  if (!nextLine(line)) {
    Report(showMessages, kQXMsgLabelFileReadError);
    return 0;
  }
  m_bUseChargeState = line.find(kUseChargeKeyword) != std::string_view::npos ? 1 : 0;
  m_nLabelType = line.find(kDifferenceKeyword) != std::string_view::npos ? 1 : 0;

  LabelFields fields;
  int read = 0;
  bool failed = false;
  while (nextLine(line)) {
    ParseLabelLine(line, fields);
    // The old labels go only once a label line arrives: a header alone keeps them.
    if (read == 0) DeleteAllUserLabels();
    if (!InsertItem(std::make_unique<QXUserPeakLabelItem>(fields.x, fields.deltaX,
                                                          fields.label.c_str(), fields.charge),
                    -1)) {
      failed = true;
      break;
    }
    read = 1;
  }
  if (failed || file.bad()) Report(showMessages, kQXMsgLabelFileReadError);
  return read;
}

int QXUserPkLabels::SaveLabelsToFile(int withCharge, const char* path, int showMessages,
                                     std::string& text) {
  const bool toFile = path != nullptr && *path != '\0';
  std::string out = QXLoadString(kQXMsgLabelFileHeader);
  if (withCharge != 0) out += "\tCharge";
  if (m_bUseChargeState != 0) (out += '\t') += kUseChargeKeyword;
  if (m_nLabelType == 1) (out += '\t') += kDifferenceKeyword;
  out += '\n';
  // In text, the header piece ends in an extra line end before its ";".
  if (!toFile) out += "\n;";
  for (const auto& item : m_arrLabels) {
    AppendLabelLine(out, item->m_strLabel, item->m_dXValue, item->m_dDeltaX, item->m_nCharge,
                    withCharge);
    if (!toFile) out += ';';
  }
  const int written = m_arrLabels.empty() ? 0 : 1;
  if (!toFile) {
    text = std::move(out);
    return written;
  }
  return WriteLabelFile(path, out, showMessages) ? written : 0;
}

}  // namespace qxpkutil
