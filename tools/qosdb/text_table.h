// SPDX-License-Identifier: MIT
// text_table.h - rows of text printed as aligned columns.
#pragma once

#include <algorithm>
#include <ostream>
#include <string>
#include <vector>

namespace qosdb {

class TextTable {
 public:
  explicit TextTable(std::vector<std::string> headers) : rows_{std::move(headers)} {}
  void add(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }
  bool empty() const { return rows_.size() == 1; }
  std::size_t rows() const { return rows_.size() - 1; }

  // Headers and rows, columns two blanks apart, each line after `indent`.
  void print(std::ostream& out, const std::string& indent = "  ") const {
    std::vector<std::size_t> width;
    for (const auto& row : rows_) {
      if (width.size() < row.size()) width.resize(row.size(), 0);
      for (std::size_t c = 0; c < row.size(); ++c) width[c] = std::max(width[c], row[c].size());
    }
    for (const auto& row : rows_) {
      std::string line = indent;
      for (std::size_t c = 0; c < row.size(); ++c) {
        line += row[c];
        if (c + 1 < row.size()) line += std::string(width[c] - row[c].size() + 2, ' ');
      }
      out << line.substr(0, line.find_last_not_of(' ') + 1) << '\n';
    }
  }

 private:
  std::vector<std::vector<std::string>> rows_;
};

}  // namespace qosdb
