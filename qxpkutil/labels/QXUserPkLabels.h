// User peak labels: named positions (a mass or time with a tolerance, or a known spacing
// between neighbouring peaks) that QXPeakTable::MatchUserPeakLabels stamps onto peaks.
// A list is edited item by item and kept in tab-separated label files ("lbs" for spectra,
// "lbc" for chromatograms) or in the same lines as ";"-terminated text.
//
//   QXUserPkLabels labels;
//   labels.AddUserLabel(QXUserPeakLabelItem(1.0034, 0.01, "13C", 0), -1);
//   labels.SetUserLabelType(1);                        // a difference list
//   table.MatchUserPeakLabels(&labels, 1, kQXFilterAll, nullptr);
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "qxpkutil/platform/QXObject.h"

namespace qxpkutil {

// One label: a position (or, in a difference list, a spacing), its tolerance, the charge a
// peak must carry (0 = any) and the name stamped onto matching peaks. A default item is
// x 0.0, delta x 1.0, charge 0, empty name.
class QXUserPeakLabelItem : public QXObject {
 public:
  static const QXRuntimeClass classQXUserPeakLabelItem;

  QXUserPeakLabelItem() = default;
  // A null `label` is taken as the empty name.
  QXUserPeakLabelItem(double x, double deltaX, const char* label, int charge);

  const QXRuntimeClass* GetRuntimeClass() const override { return &classQXUserPeakLabelItem; }

  // Overwrites all four fields; a null `label` is taken as the empty name.
  void SetUserLabel(double x, double deltaX, const char* label, int charge);
  void GetUserLabel(double& x, double& deltaX, std::string& label, int& charge) const;

  // True when x, delta x and charge are exactly equal and the names are byte-for-byte equal.
  bool operator==(const QXUserPeakLabelItem& other) const;

 private:
  friend class QXUserPkLabels;
  friend class QXPeakTable;  // matching reads the fields in place

  double m_dXValue = 0.0;
  double m_dDeltaX = 1.0;
  std::int32_t m_nCharge = 0;
  std::string m_strLabel;
};

// An ordered list of owned label items plus three switches: the label type (0 = absolute
// positions, 1 = differences), whether a label's non-zero charge must match the peak's, and
// a changed flag that edits set and matching clears. An empty list holds no items and has
// all three at 0. Indices are 0-based; out-of-range indices change nothing and return 0
// (or -1 for searches). Copies are deep.
//
// Matching (QXPeakTable::MatchUserPeakLabels) appends each matching label's name to the
// peak's label, after a "," when it already has one, and sets mark 0x800. An absolute label
// marks the one peak GetPeakInRange(x - delta x, x + delta x) picks from all peaks; a label
// whose window is NaN or ends at kQXUnsetValue matches nothing rather than meeting the range
// query's no-upper-limit rule. A difference label marks the first peak of every pair of
// consecutive filtered peaks (in table order) whose centroids lie x +/- delta x apart,
// bounds excluded.
class QXUserPkLabels : public QXObject {
 public:
  static const QXRuntimeClass classQXUserPkLabels;

  QXUserPkLabels() = default;
  QXUserPkLabels(const QXUserPkLabels& src);
  QXUserPkLabels& operator=(const QXUserPkLabels& src);
  QXUserPkLabels(QXUserPkLabels&&) noexcept = default;
  QXUserPkLabels& operator=(QXUserPkLabels&&) noexcept = default;
  ~QXUserPkLabels() override;

  const QXRuntimeClass* GetRuntimeClass() const override { return &classQXUserPkLabels; }

  std::int32_t GetNumUserLabels() const { return static_cast<std::int32_t>(m_arrLabels.size()); }

  // ---- Editing ----
  // Inserts a default item (or a copy of `item`) before `index` when 0 <= index < count,
  // else appends it; sets the changed flag. A list already holding INT32_MAX items is
  // left alone.
  void AddUserLabel(std::int32_t index);
  void AddUserLabel(const QXUserPeakLabelItem& item, std::int32_t index);
  // Deletes item `index` (-1 = the last); 1 on success, 0 for an empty list or a bad index.
  // Leaves the changed flag alone.
  int DeleteUserLabel(std::int32_t index);
  // Deletes every item and sets the changed flag.
  void DeleteAllUserLabels();
  // Swaps items `from` and `to` (the items between them stay put) and sets the changed
  // flag; 0, with nothing changed, unless both are valid indices and differ.
  int MoveUserLabel(std::int32_t from, std::int32_t to);
  // Overwrites item `index` with `item`; nothing for a bad index. Leaves the changed flag alone.
  void ReplaceLabel(std::int32_t index, const QXUserPeakLabelItem& item);
  // Overwrites item `index` and sets the changed flag; 1, or 0 for a bad index.
  int SetUserLabel(std::int32_t index, const char* label, double x, double deltaX, int charge);

  // ---- Reading ----
  // Copy item `index` out; 1, or 0 (outputs untouched) for a bad index.
  int GetUserLabel(std::int32_t index, QXUserPeakLabelItem& item) const;
  int GetUserLabel(std::int32_t index, std::string& label, double& x, double& deltaX,
                   int& charge) const;
  // Index of the first item equal to `item`, or whose name equals `name` exactly; -1 if none.
  std::int32_t FindLabel(const QXUserPeakLabelItem& item) const;
  std::int32_t FindLabelName(const std::string& name) const;

  // ---- Merging (the two lists' type and charge switches are neither compared nor copied) ----
  // Appends copies of all of `other`'s items, duplicates included; 0 for a null `other`, else
  // 1. `other` may be this list, which then doubles.
  int AppendLabelList(const QXUserPkLabels* other);
  // For each of `other`'s items, overwrites the first item of the same name, or appends a
  // copy when there is none (only appending sets the changed flag); 0 for a null `other`,
  // else 1.
  int AppendListReplaceDup(const QXUserPkLabels* other);

  // ---- Switches ----
  // 1 makes a difference list; any other value an absolute-position list.
  int GetUserLabelType() const { return m_nLabelType; }
  void SetUserLabelType(int type) { m_nLabelType = type; }
  int GetUseChargeState() const { return m_bUseChargeState; }
  void SetUseChargeState(int use) { m_bUseChargeState = use; }
  int LabelsChanged() const { return m_bLabelsChanged; }
  void SetLabelsChanged(int changed) { m_bLabelsChanged = changed; }

  // ---- Label files and text ----
  // Reads labels from the file at `path`, or from `text` when `path` is null or empty. The
  // header line sets the charge switch ("UseChargeState") and the label type ("Difference")
  // even when no label follows; the first label line replaces the whole list. Each line is
  // "label<TAB>x<TAB>delta x[<TAB>charge]"; a field a line lacks keeps the previous line's
  // value (before the first: x 1.0, delta x 1.0, charge 0, empty name), so an empty line
  // repeats the label before it. Names may be of any length; line ends ("\n", "\r\n") are
  // not part of a line, in files or text. Numbers follow the library's one rule (QXParse.h)
  // whatever the process locale: one sign at most, no "nan", "inf" or hexadecimal, and one
  // beyond the range of its type counts as malformed. Returns 1 when
  // at least one label line was read, else 0; with `showMessages`, an unopenable file shows
  // kQXMsgLabelFileOpenError and a missing header or a read error kQXMsgLabelFileReadError.
  int LoadLabelsFromFile(const char* path, int showMessages, const std::string& text);
  // Writes the header and one line per label (with a charge column when `withCharge`) to
  // the file at `path`, or replaces `text` with the ";"-terminated form when `path` is null
  // or empty. The file is replaced in one step, so a failed save leaves the old file intact.
  // Returns 1 when at least one label line was written (0 for an empty list, whose header is
  // still written); on failure returns 0 and, with `showMessages`, shows message 24725 when
  // the file cannot be opened for writing and 24715 when writing it fails.
  int SaveLabelsToFile(int withCharge, const char* path, int showMessages, std::string& text);

 private:
  friend class QXPeakTable;  // matching reads the items in place

  // Puts `item` before `index` (0 <= index < count) or at the end; false when full.
  bool InsertItem(std::unique_ptr<QXUserPeakLabelItem> item, std::int32_t index);
  // Resolves an index that must name an item; -1 when it does not.
  std::int32_t CheckIndex(std::int32_t index) const;
  // Takes the next ";"-terminated piece of `text` into `line` and drops it from `text`;
  // 0 when `text` is empty or holds no ";" (an unterminated last piece is ignored).
  static int GetNextLine(std::string_view& line, std::string_view& text);

  std::vector<std::unique_ptr<QXUserPeakLabelItem>> m_arrLabels;
  int m_bLabelsChanged = 0;
  int m_nLabelType = 0;
  int m_bUseChargeState = 0;
};

}  // namespace qxpkutil
