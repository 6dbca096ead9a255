// The detection settings of qxpeak: read from an INI file in the library's own profile
// layout (the section "<prefix>\PeakSettingsTrace-<n>" with the keys that
// QXPeakTableList::PersistSettings writes), changed by command-line overrides, and printed
// back in the same layout so that a user can save, edit and reuse them.
//
//   DetectionConfig config;  std::string error;
//   if (!BuildDetectionConfig(options, config, error)) { std::cerr << error << '\n'; }
//   std::cout << FormatSettingsIni(config.list, "qxpeak", 0);
#pragma once

#include <string>
#include <string_view>

#include "qxpkutil/labels/QXUserPkLabels.h"

#include "qxpkutil/settings/QXPeakTableList.h"
#include "qxpkutil/settings/SettingsFile.h"
#include "tools/qxpeak/run/detection.h"
#include "tools/qxpeak/cli/options.h"

namespace qxpkutil::qxpeak {

// Restores `list` from the INI file at `path`, checked as the library's LoadSettingsText
// checks text: false with one line in `error` when the file cannot be read or the text is
// refused. The file is read once, so a pipe or "-" (standard input) works.
[[nodiscard]] bool LoadSettingsFile(const std::string& path, const std::string& section, int trace,
                                    QXPeakTableList& list, std::string& error);

// Reads a label file (read once, like settings) into `labels`. False with one line in
// `error` when it cannot be read, lacks its header line (whose absence would cost the
// first label), holds ';' or NUL (which the library's label text cannot carry) or no label.
[[nodiscard]] bool LoadLabels(const std::string& path, QXUserPkLabels& labels, std::string& error);

// The classic segment list the options describe: settings file or defaults, then overrides.
[[nodiscard]] bool BuildClassicList(const Options& options, QXPeakTableList& list,
                                    std::string& error);

// Gives `list` the library's default settings: one segment over the whole data.
void LoadDefaultSettings(const std::string& section, int trace, QXPeakTableList& list);

// Applies the command-line overrides: the switches, then each given value to every segment.
// Ranges given with --segment replace the segments with copies of the first, one per range.
void ApplyOverrides(const SettingOverrides& overrides, QXPeakTableList& list);

// The settings of `list` as an INI file (a comment line, the section line, key=value lines),
// readable by LoadSettingsFile with the same section and trace.
std::string FormatSettingsIni(QXPeakTableList& list, const std::string& section, int trace);

// The same settings on one line ("key=value; ..."), for records inside other files.
std::string FormatSettingsLine(QXPeakTableList& list, const std::string& section, int trace);

// The whole configuration of a search from the options: the automatic description, or the
// classic list (settings file or defaults, overrides), the label file (checked here), and
// the measurements.
[[nodiscard]] bool BuildDetectionConfig(const Options& options, DetectionConfig& config,
                                        std::string& error);

}  // namespace qxpkutil::qxpeak
