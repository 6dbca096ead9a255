// For tests that touch the file system: a scratch folder of its own, removed with all it
// holds when the test ends, and whole-file reads and writes in binary mode.
//
//   qxpkutil::testing::ScratchDir dir;
//   qxpkutil::testing::WriteText(dir.PathOf("a.ini"), "[Sec]\nKey=1\n");
//   auto rows = qxpkutil::testing::TsvRows(ReadText(dir.PathOf("run.peaks.tsv")));
#pragma once

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

namespace qxpkutil::testing {

class ScratchDir {
 public:
  // A random name, so that tests run in parallel never share a folder.
  ScratchDir()
      : path_(std::filesystem::temp_directory_path() /
              ("qxpkutil-" + std::to_string(std::random_device{}()))) {
    std::filesystem::create_directories(path_);
  }
  ~ScratchDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
  }
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;

  std::string PathOf(const std::string& name) const { return (path_ / name).string(); }
  std::size_t FileCount() const {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(path_),
                                                  std::filesystem::directory_iterator()));
  }

 private:
  std::filesystem::path path_;
};

inline void WriteText(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

inline std::string ReadText(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

// A tab-separated table as rows of cells; TsvColumn: one column's cells below its header.
inline std::vector<std::vector<std::string>> TsvRows(const std::string& text) {
  std::vector<std::vector<std::string>> rows;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream cells(line + '\t');
    rows.emplace_back();
    for (std::string cell; std::getline(cells, cell, '\t');) rows.back().push_back(cell);
  }
  return rows;
}
inline std::vector<std::string> TsvColumn(const std::string& text, const std::string& name) {
  const auto rows = TsvRows(text);
  std::vector<std::string> values;
  for (std::size_t r = 1, c = 0; r < rows.size(); ++r) {
    while (c < rows[0].size() && rows[0][c] != name) ++c;
    values.push_back(c < rows[r].size() ? rows[r][c] : "");
  }
  return values;
}

}  // namespace qxpkutil::testing
