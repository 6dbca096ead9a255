#include "qxpkutil/io/TraceReader.h"

#include <utility>

#include "qxpkutil/io/io_internal.h"

namespace qxpkutil {

bool TraceReader::Open(const std::string& path, const MzmlReadOptions& options,
                       std::string& error) {
  m_isMzml = false;
  m_textPending = false;
  io_internal::Input input;
  if (!input.Open(path, error)) return false;
  const std::string head = input.Peek(4096);
  std::size_t i = head.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0;
  while (i < head.size() && (head[i] == ' ' || head[i] == '\t' || head[i] == '\r' ||
                             head[i] == '\n')) {
    ++i;
  }
  // UTF-16 mzML starts "<\0" or "\0<" (after its byte order mark): the mzML reader names it.
  const bool wide = head.size() >= 2 && (head[0] == '\xFF' || head[0] == '\xFE') &&
                    (head[1] == '\xFE' || head[1] == '\xFF');
  if ((i < head.size() && head[i] == '<') || wide ||
      (head.size() >= 2 && head[0] == '\0' && head[1] == '<')) {
    m_isMzml = true;
    return m_mzml.OpenInput(std::move(input), options, error);
  }
  Trace trace;
  if (!io_internal::ReadTextFrom(input, trace, error)) return false;
  if (options.selection.list == MzmlSelection::List::kChromatograms) {
    trace.kind = Trace::Kind::kChromatogram;
  }
  m_text = std::move(trace);
  m_textPending = true;
  return true;
}

bool TraceReader::Next(Trace& trace) {
  if (m_isMzml) return m_mzml.Next(trace);
  if (!m_textPending) return false;
  trace = std::move(m_text);
  m_textPending = false;
  return true;
}

const std::string& TraceReader::Error() const {
  return m_isMzml ? m_mzml.Error() : m_noError;
}

}  // namespace qxpkutil
