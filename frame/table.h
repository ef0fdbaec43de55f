// SPDX-License-Identifier: MIT
// table.h - typed views of the region's tables and the maximum-index rule.
//
// A TableView is an array of rows at a base address that one process has
// mapped; its indexing is bounds-checked in debug builds. The flow, the
// classifier and the SID cluster tables are additionally bounded by a
// maximum index kept in the statistics block: their scans cover rows 0 to
// that index, and a new row is found by one rule shared by all three
// (MaxIndexedTable::takeFree, or findOrTakeFree for an add that first looks
// for a row it may take over). Invariant of those tables: every used row
// lies at or below the maximum index.
#pragma once

#include <cassert>
#include <cstddef>
#include <cstdint>

namespace qos {

template <typename Row, std::size_t N>
class TableView {
 public:
  static constexpr int32_t kRows = static_cast<int32_t>(N);

  constexpr TableView() = default;
  explicit TableView(Row* rows) : rows_(rows) {}

  bool attached() const { return rows_ != nullptr; }
  Row* data() const { return rows_; }
  Row* begin() const { return rows_; }
  Row* end() const { return rows_ + N; }

  Row& operator[](std::size_t i) const {
    assert(rows_ != nullptr && i < N);
    return rows_[i];
  }

  // Index of the first row in [from, to] (clamped to the table) that
  // satisfies pred, or -1.
  template <typename Pred>
  int32_t find(Pred pred, int32_t from = 0, int32_t to = kRows - 1) const {
    if (from < 0) from = 0;
    if (to > kRows - 1) to = kRows - 1;
    if (from > to) return -1;
    const Row* const end = rows_ + to + 1;
    for (const Row* r = rows_ + from; r != end; ++r) {
      if (pred(*r)) return static_cast<int32_t>(r - rows_);
    }
    return -1;
  }

 private:
  Row* rows_ = nullptr;
};

// A row chosen for an add: one that was found, or a free one; row -1 when
// nothing was found and the table is full.
struct RowPick {
  int32_t row;
  bool found;
};

// A table whose scans stop at a maximum index (a word of the statistics
// block). Row must say whether it is in use through used().
template <typename Row, std::size_t N>
class MaxIndexedTable {
 public:
  static constexpr int32_t kRows = static_cast<int32_t>(N);

  MaxIndexedTable(TableView<Row, N> rows, int32_t& maxIndex) : rows_(rows), maxIndex_(maxIndex) {}

  Row& operator[](std::size_t i) const { return rows_[i]; }
  const TableView<Row, N>& rows() const { return rows_; }
  int32_t maxIndex() const { return maxIndex_; }

  // The last row that scans cover (the maximum index, kept inside the table
  // even if another process stored a wild value).
  int32_t last() const { return maxIndex_ > kRows - 1 ? kRows - 1 : maxIndex_; }

  // First row of the used range, from `from` on, that satisfies pred; -1.
  template <typename Pred>
  int32_t findInRange(Pred pred, int32_t from = 0) const {
    return rows_.find(pred, from, last());
  }

  // The maximum-index rule: the first free row of the used range; else the
  // range grows by one row, which is taken untested; else the table is full
  // (-1). Growing is part of the rule: it stays even if the caller then
  // does not use the row.
  int32_t takeFree() {
    return findOrTakeFree([](const Row&) { return false; }).row;
  }

  // The row an add works on: the first row of the used range that satisfies
  // pred (found), else the row takeFree() hands out. One pass over the range
  // answers both, and the range grows only when nothing was found.
  template <typename Pred>
  RowPick findOrTakeFree(Pred pred) {
    int32_t firstFree = -1;
    const int32_t to = last();
    for (int32_t i = 0; i <= to; ++i) {
      const Row& r = rows_[i];
      if (pred(r)) return {i, true};
      if (firstFree < 0 && !r.used()) firstFree = i;
    }
    if (firstFree >= 0) return {firstFree, false};
    if (maxIndex_ < 0 || maxIndex_ >= kRows - 1) return {-1, false};
    return {++maxIndex_, false};
  }

  // The rule's row written to `out`; -1 when the table is full or `out` is
  // NULL (then the range does not grow).
  int32_t takeFreeInto(uint32_t* out) {
    if (out == nullptr) return -1;
    int32_t i = takeFree();
    if (i < 0) return -1;
    *out = static_cast<uint32_t>(i);
    return 0;
  }

  // Lowers the maximum index to the highest used row; with no row in use
  // it becomes the last row of the table.
  void lower() {
    maxIndex_ = kRows - 1;
    for (int32_t i = kRows - 1; i >= 0; --i) {
      if (rows_[i].used()) {
        maxIndex_ = i;
        return;
      }
    }
  }

 private:
  TableView<Row, N> rows_;
  int32_t& maxIndex_;
};

}  // namespace qos
