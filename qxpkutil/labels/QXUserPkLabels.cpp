#include "qxpkutil/labels/QXUserPkLabels.h"

#include <cstddef>
#include <limits>
#include <utility>

namespace qxpkutil {
namespace {

// Every item must stay reachable through a 32-bit index.
constexpr std::size_t kMaxLabels = std::numeric_limits<std::int32_t>::max();

}  // namespace

const QXRuntimeClass QXUserPeakLabelItem::classQXUserPeakLabelItem{
    "QXUserPeakLabelItem", kQXNoSchema, &QXObject::classQXObject};
const QXRuntimeClass QXUserPkLabels::classQXUserPkLabels{"QXUserPkLabels", kQXNoSchema,
                                                         &QXObject::classQXObject};

// ---- QXUserPeakLabelItem ----

QXUserPeakLabelItem::QXUserPeakLabelItem(double x, double deltaX, const char* label, int charge) {
  SetUserLabel(x, deltaX, label, charge);
}

void QXUserPeakLabelItem::SetUserLabel(double x, double deltaX, const char* label, int charge) {
  m_dXValue = x;
  m_dDeltaX = deltaX;
  m_strLabel = label != nullptr ? label : "";
  m_nCharge = charge;
}

void QXUserPeakLabelItem::GetUserLabel(double& x, double& deltaX, std::string& label,
                                       int& charge) const {
  x = m_dXValue;
  deltaX = m_dDeltaX;
  label = m_strLabel;
  charge = m_nCharge;
}

bool QXUserPeakLabelItem::operator==(const QXUserPeakLabelItem& other) const {
  return m_dXValue == other.m_dXValue && m_dDeltaX == other.m_dDeltaX &&
         m_nCharge == other.m_nCharge && m_strLabel == other.m_strLabel;
}

// ---- QXUserPkLabels: construction ----

QXUserPkLabels::QXUserPkLabels(const QXUserPkLabels& src) : QXObject(src) { *this = src; }

QXUserPkLabels& QXUserPkLabels::operator=(const QXUserPkLabels& src) {
  if (&src == this) return *this;
  m_arrLabels.clear();
  m_arrLabels.reserve(src.m_arrLabels.size());
  for (const auto& item : src.m_arrLabels) {
    m_arrLabels.push_back(std::make_unique<QXUserPeakLabelItem>(*item));
  }
  m_bLabelsChanged = src.m_bLabelsChanged;
  m_nLabelType = src.m_nLabelType;
  m_bUseChargeState = src.m_bUseChargeState;
  return *this;
}

QXUserPkLabels::~QXUserPkLabels() = default;

std::int32_t QXUserPkLabels::CheckIndex(std::int32_t index) const {
  return (index >= 0 && index < GetNumUserLabels()) ? index : -1;
}

bool QXUserPkLabels::InsertItem(std::unique_ptr<QXUserPeakLabelItem> item, std::int32_t index) {
  if (m_arrLabels.size() >= kMaxLabels) return false;
  if (CheckIndex(index) >= 0) {
    m_arrLabels.insert(m_arrLabels.begin() + index, std::move(item));
  } else {
    m_arrLabels.push_back(std::move(item));
  }
  m_bLabelsChanged = 1;
  return true;
}

// ---- Editing ----

void QXUserPkLabels::AddUserLabel(std::int32_t index) {
  InsertItem(std::make_unique<QXUserPeakLabelItem>(), index);
}

void QXUserPkLabels::AddUserLabel(const QXUserPeakLabelItem& item, std::int32_t index) {
  InsertItem(std::make_unique<QXUserPeakLabelItem>(item), index);
}

int QXUserPkLabels::DeleteUserLabel(std::int32_t index) {
  const std::int32_t at = index == -1 ? GetNumUserLabels() - 1 : CheckIndex(index);
  if (at < 0) return 0;
  m_arrLabels.erase(m_arrLabels.begin() + at);
  // Deleting one item deliberately leaves the changed flag as it was.
  return 1;
}

void QXUserPkLabels::DeleteAllUserLabels() {
  m_arrLabels.clear();
  m_bLabelsChanged = 1;
}

int QXUserPkLabels::MoveUserLabel(std::int32_t from, std::int32_t to) {
  if (CheckIndex(from) < 0 || CheckIndex(to) < 0 || from == to) return 0;
  // A swap, not a shift: the items between the two stay where they are.
  std::swap(m_arrLabels[from], m_arrLabels[to]);
  m_bLabelsChanged = 1;
  return 1;
}

void QXUserPkLabels::ReplaceLabel(std::int32_t index, const QXUserPeakLabelItem& item) {
  if (CheckIndex(index) >= 0) *m_arrLabels[index] = item;
}

int QXUserPkLabels::SetUserLabel(std::int32_t index, const char* label, double x, double deltaX,
                                 int charge) {
  if (CheckIndex(index) < 0) return 0;
  m_arrLabels[index]->SetUserLabel(x, deltaX, label, charge);
  m_bLabelsChanged = 1;
  return 1;
}

// ---- Reading ----

int QXUserPkLabels::GetUserLabel(std::int32_t index, QXUserPeakLabelItem& item) const {
  if (CheckIndex(index) < 0) return 0;
  item = *m_arrLabels[index];
  return 1;
}

int QXUserPkLabels::GetUserLabel(std::int32_t index, std::string& label, double& x, double& deltaX,
                                 int& charge) const {
  if (CheckIndex(index) < 0) return 0;
  m_arrLabels[index]->GetUserLabel(x, deltaX, label, charge);
  return 1;
}

std::int32_t QXUserPkLabels::FindLabel(const QXUserPeakLabelItem& item) const {
  for (std::size_t i = 0; i < m_arrLabels.size(); ++i) {
    if (*m_arrLabels[i] == item) return static_cast<std::int32_t>(i);
  }
  return -1;
}

std::int32_t QXUserPkLabels::FindLabelName(const std::string& name) const {
  for (std::size_t i = 0; i < m_arrLabels.size(); ++i) {
    if (m_arrLabels[i]->m_strLabel == name) return static_cast<std::int32_t>(i);
  }
  return -1;
}

// ---- Merging ----

int QXUserPkLabels::AppendLabelList(const QXUserPkLabels* other) {
  if (other == nullptr) return 0;
  // Counted up front so that appending a list to itself copies each item once.
  const std::int32_t count = other->GetNumUserLabels();
  for (std::int32_t i = 0; i < count; ++i) AddUserLabel(*other->m_arrLabels[i], -1);
  return 1;
}

int QXUserPkLabels::AppendListReplaceDup(const QXUserPkLabels* other) {
  if (other == nullptr) return 0;
  const std::int32_t count = other->GetNumUserLabels();
  for (std::int32_t i = 0; i < count; ++i) {
    const QXUserPeakLabelItem& item = *other->m_arrLabels[i];
    const std::int32_t same = FindLabelName(item.m_strLabel);
    if (same >= 0) {
      ReplaceLabel(same, item);
    } else {
      AddUserLabel(item, -1);
    }
  }
  return 1;
}

}  // namespace qxpkutil
