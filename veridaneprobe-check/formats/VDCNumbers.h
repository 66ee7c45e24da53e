#pragma once

#include <charconv>
#include <cstdint>
#include <optional>
#include <string_view>

// The number scanning the line grammars share: whole words, nothing rounded that the text
// resolves.
namespace VDCNumbers {

// The words of text, separated by blanks and tabs; returns the word at the cursor and moves on.
inline std::string_view nextWord(std::string_view text, size_t& cursor) {
  while (cursor < text.size() && (text[cursor] == ' ' || text[cursor] == '\t')) {
    ++cursor;
  }
  const size_t start = cursor;
  while (cursor < text.size() && text[cursor] != ' ' && text[cursor] != '\t') {
    ++cursor;
  }
  return text.substr(start, cursor - start);
}

inline std::optional<int64_t> integer(std::string_view word) {
  if (!word.empty() && word[0] == '+') {
    word.remove_prefix(1);
  }
  int64_t value = 0;
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
  if (word.empty() || error != std::errc() || end != word.data() + word.size()) {
    return std::nullopt;
  }
  return value;
}

inline std::optional<double> decimal(std::string_view word) {
  if (!word.empty() && word[0] == '+') {
    word.remove_prefix(1);
  }
  double value = 0;
  const auto [end, error] =
      std::from_chars(word.data(), word.data() + word.size(), value, std::chars_format::general);
  if (word.empty() || error != std::errc() || end != word.data() + word.size() ||
      !(value - value == 0)) {
    return std::nullopt;
  }
  return value;
}

// A decimal number of seconds as whole picoseconds, exactly when it has at most 12 decimals
// and no exponent (a counter's timestamps): "1234.567890123456" is 1234567890123456 ps (the
// 13th and later decimals are dropped). Up to about 106 days of seconds fit.
inline std::optional<int64_t> picosecondsOfSeconds(std::string_view word) {
  bool negative = false;
  if (!word.empty() && (word[0] == '-' || word[0] == '+')) {
    negative = word[0] == '-';
    word.remove_prefix(1);
  }
  const size_t point = word.find('.');
  const std::string_view whole = word.substr(0, point);
  std::string_view fraction = point == std::string_view::npos ? "" : word.substr(point + 1);
  if (whole.empty() && fraction.empty()) {
    return std::nullopt;
  }
  int64_t seconds = 0;
  if (!whole.empty()) {
    const auto [end, error] = std::from_chars(whole.data(), whole.data() + whole.size(), seconds);
    if (error != std::errc() || end != whole.data() + whole.size() || seconds > 9'000'000) {
      return std::nullopt;
    }
  }
  int64_t picoseconds = 0;
  for (size_t digit = 0; digit < 12; ++digit) {
    const char c = digit < fraction.size() ? fraction[digit] : '0';
    if (c < '0' || c > '9') {
      return std::nullopt;
    }
    picoseconds = picoseconds * 10 + (c - '0');
  }
  for (size_t digit = 12; digit < fraction.size(); ++digit) {
    if (fraction[digit] < '0' || fraction[digit] > '9') {
      return std::nullopt;
    }
  }
  const int64_t total = seconds * 1'000'000'000'000 + picoseconds;
  return negative ? -total : total;
}

}  // namespace VDCNumbers
