#include "service/decimal_cells.hpp"

#include <cctype>
#include <limits>

namespace zoomaf {

namespace {
bool is_space(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}
bool is_digit(char c) {
    return c >= '0' && c <= '9';
}
}  // namespace

DecimalCells::DecimalCells(FILE* file) {
    char chunk[16384];
    size_t got = 0;
    while ((got = std::fread(chunk, 1, sizeof chunk, file)) > 0) text_.append(chunk, got);
    read_failed_ = std::ferror(file) != 0;
}

DecimalCells::Result DecimalCells::next(int32_t& value) {
    while (pos_ < text_.size() && is_space(text_[pos_])) {
        if (text_[pos_] == '\n') ++line_;
        ++pos_;
    }
    cell_line_ = line_;
    const size_t start = pos_;
    size_t end = start;
    while (end < text_.size() && text_[end] != ',' && !is_space(text_[end])) ++end;
    cell_ = std::string_view(text_).substr(start, end - start);
    if (pos_ == text_.size()) return Result::end;

    bool negative = false;
    if (text_[pos_] == '+' || text_[pos_] == '-') negative = text_[pos_++] == '-';
    if (pos_ == text_.size() || !is_digit(text_[pos_])) return Result::not_a_number;
    int64_t magnitude = 0;
    const int64_t limit = int64_t{std::numeric_limits<int32_t>::max()} + (negative ? 1 : 0);
    while (pos_ < text_.size() && is_digit(text_[pos_])) {
        magnitude = magnitude * 10 + (text_[pos_++] - '0');
        if (magnitude > limit) return Result::not_a_number;
    }
    value = static_cast<int32_t>(negative ? -magnitude : magnitude);
    // The separator: exactly one character, whatever it is.
    if (pos_ < text_.size()) {
        if (text_[pos_] == '\n') ++line_;
        ++pos_;
    }
    return Result::number;
}

}  // namespace zoomaf
