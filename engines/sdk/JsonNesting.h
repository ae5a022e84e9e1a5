#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace qor::engines {

/// Parses a JSON text without building values, up to the first error or until it is nested too deep.
class JsonNesting : public nlohmann::json_sax<nlohmann::json> {
 public:
  explicit JsonNesting(int deepest) : deepest_(deepest) {}
  bool isTooDeep() const { return depth_ > deepest_; }

  bool null() override { return true; }
  bool boolean(bool /*value*/) override { return true; }
  bool number_integer(number_integer_t /*value*/) override { return true; }
  bool number_unsigned(number_unsigned_t /*value*/) override { return true; }
  bool number_float(number_float_t /*value*/, const string_t& /*text*/) override { return true; }
  bool string(string_t& /*value*/) override { return true; }
  bool binary(binary_t& /*value*/) override { return true; }
  bool key(string_t& /*name*/) override { return true; }
  bool start_object(std::size_t /*elements*/) override { return ++depth_ <= deepest_; }
  bool start_array(std::size_t /*elements*/) override { return ++depth_ <= deepest_; }
  bool end_object() override { return leave(); }
  bool end_array() override { return leave(); }
  bool parse_error(std::size_t /*position*/, const std::string& /*token*/,
                   const nlohmann::json::exception& /*error*/) override {
    return false;
  }

 private:
  bool leave() {
    --depth_;
    return true;
  }

  const int deepest_;
  int depth_ = 0;
};

/// The deepest nesting accepted in user input: a workflow or a description needs three levels, and quoting a
/// wrong part uses stack for each.
inline constexpr int deepestNesting = 32;

/// Whether objects and arrays are nested more than `deepest` levels deep, before the first error in the text
/// if there is one. The time is proportional to the length of the text. A parser with a callback could reject
/// such a text as well, but searches the whole enclosing list at the end of each object. Any thread.
inline bool isNestedDeeper(std::string_view text, int deepest) {
  JsonNesting nesting(deepest);
  nlohmann::json::sax_parse(text, &nesting);
  return nesting.isTooDeep();
}

}  // namespace qor::engines
