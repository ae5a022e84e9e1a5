#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "engines/sdk/EngineManual.h"

namespace qor::engines {

/// The values of an engine's document, or of one object within it: checked against the keys of a manual, with
/// the manual's defaults for missing keys. Access to a key that the manual does not contain, or contains with
/// another type, throws std::logic_error. Immutable, therefore usable on any thread.
class DocumentValues {
 public:
  bool isGiven(const std::string& key) const;
  /// The value of a text, a location (bytes, not necessarily UTF-8) or a choice; empty if it is missing and
  /// has no default. Contains no null characters.
  const std::string& text(const std::string& key) const;
  bool flag(const std::string& key) const;
  std::uint64_t count(const std::string& key) const;
  /// The enumerator of the choice; enumerators are numbered in the order of the manual's choices.
  template <class Enumeration>
  Enumeration choice(const std::string& key) const {
    return static_cast<Enumeration>(choiceNumber(key));
  }
  /// The values of an object; only defaults if it is missing.
  const DocumentValues& object(const std::string& key) const;
  /// The text of a given value, cut to 60 bytes, for error messages.
  const std::string& quoted(const std::string& key) const;

 private:
  friend class DocumentReader;
  struct Value {
    KeyType type = KeyType::Text;
    std::string quotation = {};
    std::string text = {};
    bool flag = false;
    std::uint64_t count = 0;
    std::size_t choice = 0;
    std::shared_ptr<const DocumentValues> object = nullptr;
  };

  const Value& value(const std::string& key) const;
  const Value& valueOf(const std::string& key, KeyType type) const;
  std::size_t choiceNumber(const std::string& key) const;

  std::map<std::string, Value> values_;
};

/// Reads a description, a JSON object, for the engine with that manual. Throws TAMBRuntimeError if it is not
/// an object, is for another engine, or has a key that is unknown, missing or of a wrong type. The text is
/// one line that quotes the wrong part and states what was expected.
DocumentValues readDocument(const std::string& text, const EngineManual& manual);

/// The value of a description's key "engine". Throws TAMBRuntimeError, as readDocument does, if it is not one
/// of `names`.
std::string engineNamedIn(const std::string& text, const std::vector<std::string>& names);

/// Throws the TAMBRuntimeError for an error that a manual cannot express.
[[noreturn]] void refuseDocument(const std::string& what);

}  // namespace qor::engines
