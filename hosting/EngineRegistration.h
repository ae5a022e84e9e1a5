#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace qor::hosting {

/// What one file of an engine registry holds.
struct EngineRegistration {
  /// What the key "engine" of a description chooses it by: up to 64 letters, digits, ".", "_" and "-", the
  /// first of them a letter or a digit.
  std::string name;
  /// What it is for, in one line.
  std::string summary;
  /// Of both, one is given and the other empty: a shared library that offers the engine, or a program that is
  /// the engine. A relative path starts from the file's folder.
  std::string library;
  std::string program;
  /// The program's own arguments.
  std::vector<std::string> arguments;
  /// A file with the program's manual, as JSON; empty when there is none. A library has its own.
  std::string manual;
  /// Where the path of the library or the program stands, and that of the manual, as "LINE:COLUMN".
  std::string pathPlace;
  std::string manualPlace;
};

/// Reads the content of one file of an engine registry, a JSON object with the members above. Throws
/// std::runtime_error, one line that begins with the place, as in "3:14: ", quotes what is wrong and states
/// what is expected. Looks at no file. Takes time and memory in proportion to the text. Any thread.
EngineRegistration parseEngineRegistration(std::string_view text);

/// "LINE:COLUMN" of a byte of the text, both from 1 on, in characters.
std::string placeIn(std::string_view text, std::size_t offset);

}  // namespace qor::hosting
