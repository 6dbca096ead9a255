// Text outputs of a peak search over one input: a tab-separated table, JSON, and the
// library's own text dump (QXPeakTable::DumpToFile). Each formats the whole input, all its
// traces, into one string that the caller writes in one step.
//
//   std::string tsv = FormatTsv(traces, peaks);
//   std::string json = FormatJson("run.mzML", traces, peaks);
//   std::string dump = FormatDump(peaks);
#pragma once

#include <string>
#include <vector>

#include "qxpkutil/io/Trace.h"
#include "tools/qxpeak/run/detection.h"

namespace qxpkutil::qxpeak {

// The readable names of the status marks set in `flags` ("normal", "series_low",
// "series_top", "labelled", "charged"), comma-separated.
std::string MarkNames(std::uint32_t flags);

// One header line, then one line per peak of every trace in order: the trace's position,
// id, scan number, retention time (rt_s, seconds) and the unit of every x column (x_unit:
// "m/z" for spectra, "s" for chromatograms), the fields of the library's Peak, the mark
// word in hex with its names, the resolution column when `peaks` carry it, and the label.
// Numbers are written in the shortest form that reads back exactly; values that were not
// measured (no scan number, no retention time, no centroid, no S/N, charge 0, a resolution
// of -1) are empty, never 0.
// Tabs and line breaks inside ids and labels become blanks. `traces` and `peaks` are
// parallel.
std::string FormatTsv(const std::vector<Trace>& traces, const std::vector<TracePeaks>& peaks);

// {"input": name, "traces": [{index, kind, id, scan, ms_level, rt_s, x_unit,
// centroided_input, points, skipped, peaks: [{...}]}]} with the fields of FormatTsv; values
// not measured are null; `skipped` is null or why the trace was not searched. Text that is not
// valid UTF-8 is written with replacement characters.
std::string FormatJson(const std::string& inputName, const std::vector<Trace>& traces,
                       const std::vector<TracePeaks>& peaks);

// The same outputs in pieces, for writing them as traces arrive: the TSV header and each
// trace's rows; the JSON document's head, one trace (one line; traces are joined with
// ",\n") and its tail.
std::string TsvHeader(bool withResolution);
void AppendTsvRows(std::string& out, const Trace& trace, const TracePeaks& found,
                   bool withResolution);
std::string JsonHead(const std::string& inputName);
std::string JsonTrace(const Trace& trace, const TracePeaks& found);
inline constexpr const char* kJsonTail = "\n]}\n";

// The library's dump of each trace's table (count line, header, one line per peak), one
// after the other; each dump starts with its "# Peaks" count line, so the traces can be
// told apart. The table is rebuilt from the peaks (bound heights read from the trace).
std::string FormatDump(const std::vector<Trace>& traces, const std::vector<TracePeaks>& peaks);
void AppendDump(std::string& out, const Trace& trace, const TracePeaks& found);  // one trace

}  // namespace qxpkutil::qxpeak
