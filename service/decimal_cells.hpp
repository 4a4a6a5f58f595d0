// The number files of the service (the lens table, the laser calibration) are read by the
// rule the shipped files are written for: one decimal integer (leading white space skipped),
// then exactly one character skipped as its separator. So "1,2,3\n" and "1\r\n2\r\n3" both
// give 1, 2, 3. This reader adds what the bare rule lacks: it knows the line of each
// number, and it tells a cell that is not a number from the end of the file.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

namespace zoomaf {

class DecimalCells {
public:
    enum class Result { number, end, not_a_number };

    // Reads the whole stream (the caller closes it). read_failed() tells a read error.
    explicit DecimalCells(FILE* file);

    // The next cell. A number outside int32 counts as not a number.
    Result next(int32_t& value);
    // Line (from 1) of the cell next() looked at last.
    int line() const { return cell_line_; }
    // The text of that cell up to the next separator (for messages).
    std::string_view cell_text() const { return cell_; }
    bool read_failed() const { return read_failed_; }

private:
    std::string text_;
    size_t pos_ = 0;
    int line_ = 1;  // line of text_[pos_]
    int cell_line_ = 1;
    std::string_view cell_;
    bool read_failed_ = false;
};

}  // namespace zoomaf
