// The number files of the service (the lens table, the laser calibration): decimal integers
// separated by commas or line ends (LF, CR LF or a CR alone), "1,2,3\n" or "1\r\n2\r\n3". A
// cell is the text from one separator to the next, blanks around it ignored; it is a number
// only when that text is a whole decimal integer within int32, so "2872.5", "2.8e3", "12-3"
// or a stray byte is refused as one cell instead of being read as two numbers that shift
// every later cell. The reader knows the line and the column of each cell for messages.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace zoomaf {

class DecimalCells {
public:
    enum class Result { number, end, not_a_number };
    // What ended the cell next() looked at last.
    enum class Separator { comma, line_end, end };

    explicit DecimalCells(std::string_view text) : text_(text) {}

    // Passes over lines that hold nothing but blanks.
    void skip_blank_lines();
    // The next cell: end when the text is used up (blanks aside), otherwise the cell read
    // and its separator passed over.
    Result next(int32_t& value);

    // After the cells a reader takes: true when only blanks are left, otherwise line() is
    // the line where more begins.
    bool rest_is_blank();

    Separator separator() const { return separator_; }
    // Line (from 1) and column (from 0) of the cell next() looked at last.
    int line() const { return cell_line_; }
    int column() const { return cell_column_; }
    // The text of that cell, bytes outside printable ASCII as \xNN (for messages).
    std::string cell_text() const;

private:
    // 1 for LF or a CR alone, 2 for CR LF, 0 when text_[at] ends no line.
    size_t line_end_length(size_t at) const;

    std::string_view text_;
    size_t pos_ = 0;
    int line_ = 1;  // line of text_[pos_]
    int column_ = 0;
    int cell_line_ = 1;
    int cell_column_ = 0;
    std::string_view cell_;
    Separator separator_ = Separator::end;
};

}  // namespace zoomaf
