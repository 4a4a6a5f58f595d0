#include "service/decimal_cells.hpp"

#include "platform/data_file.hpp"

namespace zoomaf {

void DecimalCells::skip_blank_lines() {
    size_t p = pos_;
    while (p < text_.size() && is_blank(text_[p])) ++p;
    while (p < text_.size() && text_[p] == '\n') {
        pos_ = ++p;
        ++line_;
        column_ = 0;
        while (p < text_.size() && is_blank(text_[p])) ++p;
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
    while (end < text_.size() && text_[end] != ',' && text_[end] != '\n') ++end;
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
        pos_ = end + 1;
        ++line_;
        column_ = 0;
    }
    return parse_decimal(cell_, value) ? Result::number : Result::not_a_number;
}

std::string DecimalCells::cell_text() const {
    return printable(cell_);
}

}  // namespace zoomaf
