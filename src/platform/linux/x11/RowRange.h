#pragma once

namespace quillbeam {

/// Rows of a display, counted from its top; `end` is past the last.
struct RowRange {
  int begin = 0;
  int end = 0;
  bool isEmpty() const { return end <= begin; }
  friend bool operator==(const RowRange&, const RowRange&) = default;
};

}  // namespace quillbeam
