#include "hosting/EngineRegistration.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>

#include "engines/sdk/Quotation.h"

namespace qor::hosting {

namespace {

using engines::isOneLine;
using Json = nlohmann::json;

constexpr std::size_t longestName = 64;
constexpr std::string_view lettersAndDigits =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
constexpr std::string_view marks = "._-";
/// What stands between two tokens.
constexpr std::string_view separators = " \t\r\n,:";
constexpr std::string_view expectedObject = R"(an object such as {"name": "NAME", "library": "FILE"})";
constexpr std::array<std::string_view, 6> keys{"name",    "summary",   "library",
                                               "program", "arguments", "manual"};

bool isName(std::string_view text) {
  return !text.empty() && text.size() <= longestName &&
         lettersAndDigits.find(text.front()) != std::string_view::npos &&
         std::ranges::all_of(text, [](char each) {
           return lettersAndDigits.find(each) != std::string_view::npos ||
                  marks.find(each) != std::string_view::npos;
         });
}

/// Reports to its owner how far a parser has read.
class CountingIterator {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = const char*;
  using reference = const char&;

  CountingIterator(const char* at, const char*& reached) : at_(at), reached_(&reached) {}

  reference operator*() const { return *at_; }
  CountingIterator& operator++() {
    *reached_ = ++at_;
    return *this;
  }
  CountingIterator operator++(int) {
    const auto before = *this;
    ++*this;
    return before;
  }
  bool operator==(const CountingIterator& other) const { return at_ == other.at_; }

 private:
  const char* at_;
  const char** reached_;
};

/// Takes the registration out of the text while that is parsed: it stops at the first thing that does not
/// belong there, and knows where that stands.
class Reader final : public nlohmann::json_sax<Json> {
 public:
  explicit Reader(std::string_view text) : text_(text), reached_(text.data()) {}

  EngineRegistration read() {
    const char* const end = text_.data() + text_.size();
    Json::sax_parse(CountingIterator(text_.data(), reached_), CountingIterator(end, reached_), this);
    requireWhole();
    return std::move(registration_);
  }

  bool null() override { refuseValue("null"); }
  bool boolean(bool value) override { refuseValue(value ? "true" : "false"); }
  bool number_integer(number_integer_t value) override { refuseValue(std::to_string(value)); }
  bool number_unsigned(number_unsigned_t value) override { refuseValue(std::to_string(value)); }
  bool number_float(number_float_t /*value*/, const string_t& text) override { refuseValue(text); }
  bool binary(binary_t& /*value*/) override { refuseValue("binary"); }

  bool string(string_t& value) override {
    beginToken();
    if (!isWithinObject_ || (key_ == "arguments" && !isWithinArguments_))
      failValue(engines::quoteText(value));
    if (value.find('\0') != std::string::npos) fail(describe("is", "a string with a null character"));
    take(value);
    endToken();
    return true;
  }

  bool start_object(std::size_t /*elements*/) override {
    beginToken();
    if (isWithinObject_) failValue("an object");
    isWithinObject_ = true;
    endToken();
    return true;
  }

  bool key(string_t& name) override {
    beginToken();
    if (std::ranges::find(keys, name) == keys.end())
      fail(fmt::format("unknown key {}; expected one of \"{}\"", engines::quoteText(name),
                       fmt::join(keys, "\", \"")));
    if (!seen_.insert(name).second) fail(fmt::format("duplicate key {:?}", name));
    key_ = name;
    endToken();
    return true;
  }

  bool end_object() override {
    endToken();
    return true;
  }

  bool start_array(std::size_t /*elements*/) override {
    beginToken();
    if (key_ != "arguments" || isWithinArguments_) failValue("a list");
    isWithinArguments_ = true;
    endToken();
    return true;
  }

  bool end_array() override {
    isWithinArguments_ = false;
    endToken();
    return true;
  }

  bool parse_error(std::size_t position, const std::string& /*token*/,
                   const Json::exception& /*error*/) override {
    const std::size_t offset = std::min(position == 0 ? 0 : position - 1, text_.size());
    const auto rest = text_.substr(offset);
    failAt(offset,
           fmt::format("invalid JSON at {}; expected {}",
                       rest.empty() ? "the end of the text" : engines::quoteText(rest), expectedObject));
  }

 private:
  void beginToken() {
    const auto begin = text_.find_first_not_of(separators, tokenEnd_);
    token_ = begin == std::string_view::npos ? text_.size() : begin;
  }
  void endToken() { tokenEnd_ = static_cast<std::size_t>(reached_ - text_.data()); }

  [[noreturn]] void failAt(std::size_t offset, const std::string& what) const {
    throw std::runtime_error(placeIn(text_, offset) + ": " + what);
  }
  [[noreturn]] void fail(const std::string& what) const { failAt(token_, what); }

  std::string describe(std::string_view verb, std::string_view value) const {
    return fmt::format("{:?} {} {}", key_, verb, value);
  }
  [[noreturn]] void refuseValue(const std::string& value) {
    beginToken();
    failValue(value);
  }
  [[noreturn]] void failValue(const std::string& value) const {
    if (!isWithinObject_) fail(fmt::format("this is {}; expected {}", value, expectedObject));
    if (isWithinArguments_) fail(describe("holds", value) + "; expected strings");
    fail(describe("is", value) + "; expected a " + (key_ == "arguments" ? "list of strings" : "string"));
  }

  void take(const std::string& value) {
    if (isWithinArguments_) {
      registration_.arguments.push_back(value);
    } else if (key_ == "name") {
      if (!isName(value))
        fail(describe("is", engines::quoteText(value)) +
             R"(; expected up to 64 letters, digits, ".", "_" and "-", a letter or a digit first)");
      registration_.name = value;
    } else if (key_ == "summary") {
      if (!isOneLine(value)) fail(describe("is", engines::quoteText(value)) + "; expected one line of text");
      registration_.summary = value;
    } else {
      if (value.empty()) fail(describe("is", "\"\"") + "; expected the path of a file");
      takePath(value);
    }
  }

  void takePath(const std::string& value) {
    const bool isManual = key_ == "manual";
    (isManual ? registration_.manualPlace : registration_.pathPlace) = placeIn(text_, token_);
    (isManual            ? registration_.manual
     : key_ == "library" ? registration_.library
                         : registration_.program) = value;
  }

  /// At the object's end.
  void requireWhole() {
    token_ = tokenEnd_ == 0 ? 0 : tokenEnd_ - 1;
    if (registration_.name.empty()) fail(R"(no "name" is given; expected the name of an engine)");
    if (registration_.library.empty() == registration_.program.empty())
      fail(registration_.library.empty() ? R"(neither "library" nor "program" is given; expected one of them)"
                                         : R"(both "library" and "program" are given; expected one of them)");
    if (!registration_.library.empty() && !registration_.arguments.empty())
      fail(R"("arguments" are given for a library; expected them for a program only)");
    if (!registration_.library.empty() && !registration_.manual.empty())
      fail(R"("manual" is given for a library, which has its own; expected it for a program only)");
  }

  const std::string_view text_;
  const char* reached_;
  /// Offsets of the token at hand, and of the end of the one before.
  std::size_t token_ = 0;
  std::size_t tokenEnd_ = 0;
  bool isWithinObject_ = false;
  bool isWithinArguments_ = false;
  std::string key_;
  std::set<std::string, std::less<>> seen_;
  EngineRegistration registration_;
};

}  // namespace

EngineRegistration parseEngineRegistration(std::string_view text) { return Reader(text).read(); }

std::string placeIn(std::string_view text, std::size_t offset) {
  const auto before = text.substr(0, std::min(offset, text.size()));
  const auto lineBegin = before.rfind('\n') + 1;  // 0 when there is none
  const auto column = std::ranges::count_if(before.substr(lineBegin), [](char each) {
    return (static_cast<unsigned char>(each) & 0xC0U) != 0x80U;
  });
  return fmt::format("{}:{}", std::ranges::count(before, '\n') + 1, column + 1);
}

}  // namespace qor::hosting
