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
#include "tools/qxpeak/detection.h"

namespace qxpkutil::qxpeak {

// The readable names of the status marks set in `flags` ("normal", "series_low",
// "series_top", "labelled", "charged"), comma-separated.
std::string MarkNames(std::uint32_t flags);

// One header line, then one line per peak of every trace in order: the trace's position,
// id, scan number and retention time (seconds), every field of the peak record but the
// spare values (they carry nothing a search writes), the flag word in hex with its mark
// names, the signal-to-noise and resolution columns when `peaks` carry them, and the label.
// Numbers are written in the shortest form that reads back exactly; unknown values (no
// scan number, no retention time, the unset mark, a resolution of -1, a NaN) are empty.
// Tabs and line breaks inside ids and labels become blanks. `traces` and `peaks` are
// parallel.
std::string FormatTsv(const std::vector<Trace>& traces, const std::vector<TracePeaks>& peaks);

// {"input": name, "traces": [{index, kind, id, scan, ms_level, rt_seconds,
// centroided_input, points, peaks: [{...}]}]} with the fields of FormatTsv; unknown values
// are null. Text that is not valid UTF-8 is written with replacement characters.
std::string FormatJson(const std::string& inputName, const std::vector<Trace>& traces,
                       const std::vector<TracePeaks>& peaks);

// The library's dump of each trace's table (count line, header, one line per peak), one
// after the other; each dump starts with its "# Peaks" count line, so the traces can be
// told apart.
std::string FormatDump(const std::vector<TracePeaks>& peaks);

}  // namespace qxpkutil::qxpeak
