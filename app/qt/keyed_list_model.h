// A list model whose rows carry a stable key: each update is told to the views as the removals,
// moves, insertions and changes that turn the old rows into the new ones, so a row keeps its
// delegate (and its animation) from one scan to the next. What a row shows comes from `roles`.
#pragma once

#include <QAbstractListModel>
#include <QByteArray>
#include <QHash>
#include <QVariant>

#include <functional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

namespace tidewatch {

class KeyedListModel : public QAbstractListModel {
  Q_OBJECT
  Q_PROPERTY(int count READ rowCount NOTIFY countChanged)

 public:
  // A row as the views see it: its key and a value per role.
  struct Row {
    std::string key;
    std::vector<QVariant> values;  // in the order of the role names
    bool operator==(const Row& other) const { return key == other.key && values == other.values; }
  };

  // Role names in order; the first role is Qt::UserRole + 1.
  explicit KeyedListModel(std::vector<QByteArray> roleNames, QObject* parent = nullptr);

  int rowCount(const QModelIndex& parent = QModelIndex()) const override;
  QVariant data(const QModelIndex& index, int role) const override;
  QHash<int, QByteArray> roleNames() const override;

  // Rows with repeated keys keep the first.
  void update(std::vector<Row> rows);
  // Forgets every row at once.
  void reset(std::vector<Row> rows);
  const std::vector<Row>& rows() const { return rows_; }
  // The index of the row with the key, or -1.
  Q_INVOKABLE int indexOf(const QString& key) const;

 Q_SIGNALS:
  void countChanged();

 private:
  std::vector<QByteArray> roleNames_;
  std::vector<Row> rows_;
};

}  // namespace tidewatch
