#include "service/decimal_cells.hpp"

#include "platform/data_file.hpp"

namespace zoomaf {

size_t DecimalCells::line_end_length(size_t at) const {
    if (text_[at] == '\n') return 1;
    if (text_[at] != '\r') return 0;
    return at + 1 < text_.size() && text_[at + 1] == '\n' ? 2 : 1;
}

void DecimalCells::skip_blank_lines() {
    size_t p = pos_;
    for (;;) {
        while (p < text_.size() && is_blank(text_[p]) && line_end_length(p) == 0) ++p;
        const size_t line_end = p < text_.size() ? line_end_length(p) : 0;
        if (line_end == 0) break;
        pos_ = p += line_end;
        ++line_;
        column_ = 0;
    }
    if (p == text_.size()) pos_ = p;
}

bool DecimalCells::rest_is_blank() {
    skip_blank_lines();
    cell_line_ = line_;
    return pos_ == text_.size();
}

DecimalCells::Result DecimalCells::next(int32_t& value) {
    cell_line_ = line_;
    cell_column_ = column_;
    size_t end = pos_;
    while (end < text_.size() && text_[end] != ',' && line_end_length(end) == 0) ++end;
    cell_ = trim_blanks(text_.substr(pos_, end - pos_));
    if (end == text_.size() && cell_.empty()) {
        separator_ = Separator::end;
        pos_ = end;
        return Result::end;
    }
    if (end == text_.size()) {
        separator_ = Separator::end;
        pos_ = end;
    } else if (text_[end] == ',') {
        separator_ = Separator::comma;
        pos_ = end + 1;
        ++column_;
    } else {
        separator_ = Separator::line_end;
        pos_ = end + line_end_length(end);
        ++line_;
        column_ = 0;
    }
    return parse_decimal(cell_, value) ? Result::number : Result::not_a_number;
}

std::string DecimalCells::cell_text() const {
    return printable(cell_);
}

}  // namespace zoomaf
