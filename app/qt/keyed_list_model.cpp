#include "app/qt/keyed_list_model.h"

#include <algorithm>

namespace tidewatch {

KeyedListModel::KeyedListModel(std::vector<QByteArray> roleNames, QObject* parent)
    : QAbstractListModel(parent), roleNames_(std::move(roleNames)) {}

int KeyedListModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(rows_.size());
}

QVariant KeyedListModel::data(const QModelIndex& index, int role) const {
  if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid)) return {};
  const auto column = static_cast<size_t>(role - (Qt::UserRole + 1));
  const auto& values = rows_[static_cast<size_t>(index.row())].values;
  return column < values.size() ? values[column] : QVariant();
}

QHash<int, QByteArray> KeyedListModel::roleNames() const {
  QHash<int, QByteArray> names;
  for (size_t i = 0; i < roleNames_.size(); ++i) names.insert(Qt::UserRole + 1 + static_cast<int>(i), roleNames_[i]);
  return names;
}

int KeyedListModel::indexOf(const QString& key) const {
  const std::string wanted = key.toStdString();
  for (size_t i = 0; i < rows_.size(); ++i) {
    if (rows_[i].key == wanted) return static_cast<int>(i);
  }
  return -1;
}

void KeyedListModel::reset(std::vector<Row> rows) {
  beginResetModel();
  rows_ = std::move(rows);
  endResetModel();
  Q_EMIT countChanged();
}

void KeyedListModel::update(std::vector<Row> rows) {
  {
    std::unordered_set<std::string> seen;
    std::erase_if(rows, [&seen](const Row& row) { return !seen.insert(row.key).second; });
  }
  const size_t before = rows_.size();
  std::unordered_set<std::string> wanted;
  for (const auto& row : rows) wanted.insert(row.key);

  // Removals first, from the back so indexes stay valid.
  for (size_t i = rows_.size(); i-- > 0;) {
    if (wanted.contains(rows_[i].key)) continue;
    beginRemoveRows(QModelIndex(), static_cast<int>(i), static_cast<int>(i));
    rows_.erase(rows_.begin() + static_cast<std::ptrdiff_t>(i));
    endRemoveRows();
  }
  // Then each target position in turn: the row is there, comes from further down, or is new.
  for (size_t target = 0; target < rows.size(); ++target) {
    const auto found = std::find_if(rows_.begin() + static_cast<std::ptrdiff_t>(target), rows_.end(),
                                    [&](const Row& row) { return row.key == rows[target].key; });
    const auto at = static_cast<size_t>(found - rows_.begin());
    const int row = static_cast<int>(target);
    if (found == rows_.end()) {
      beginInsertRows(QModelIndex(), row, row);
      rows_.insert(rows_.begin() + static_cast<std::ptrdiff_t>(target), rows[target]);
      endInsertRows();
      continue;
    }
    if (at != target) {
      beginMoveRows(QModelIndex(), static_cast<int>(at), static_cast<int>(at), QModelIndex(), row);
      Row moved = std::move(rows_[at]);
      rows_.erase(rows_.begin() + static_cast<std::ptrdiff_t>(at));
      rows_.insert(rows_.begin() + static_cast<std::ptrdiff_t>(target), std::move(moved));
      endMoveRows();
    }
    if (!(rows_[target] == rows[target])) {
      rows_[target] = rows[target];
      Q_EMIT dataChanged(index(row), index(row));
    }
  }
  if (rows_.size() != before) Q_EMIT countChanged();
}

}  // namespace tidewatch
