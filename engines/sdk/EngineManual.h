#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engines/sdk/StepNotifications.h"
#include "tamb/TambType.h"

namespace qor::engines {

/// The type of a key in an engine's document.
enum class KeyType {
  /// A non-empty text.
  Text,
  /// A file or a URL: a text, or an object with the percent-encoded bytes of a name that is not UTF-8.
  Location,
  /// true or false.
  Flag,
  /// An integer from 0 to 2^64 - 1.
  Count,
  /// One of the choices, a text.
  Choice,
  /// An object with its own keys.
  Object,
};

/// As a manual names it: "string", "location", "boolean", "count", "choice" or "object".
std::string keyTypeName(KeyType type);

/// One key of an engine's document.
struct ManualKey {
  std::string name = {};
  KeyType type = KeyType::Text;
  std::string summary = {};
  bool isRequired = false;
  /// Empty for a choice that defaults to the first one, a flag that defaults to false, and a count that
  /// defaults to 0.
  std::optional<NotificationValue> defaultValue = std::nullopt;
  std::vector<std::string> choices = {};
  std::vector<ManualKey> keys = {};
};

/// An argument of a command, or a value of a notification. A name that ends in "N" stands for numbered names:
/// "streamN" for "stream0", "stream1" and so on.
struct ManualValue {
  std::string name = {};
  tamb::TambType type = tamb::TambType::UTF8String;
  std::string summary = {};
};

struct ManualCommand {
  std::string name = {};
  std::string summary = {};
  std::vector<ManualValue> arguments = {};
};

struct ManualNotification {
  /// The notification line.
  std::string line = {};
  std::string summary = {};
  std::vector<ManualValue> values = {};
  bool isAnError = false;
};

/// An engine's description of itself, for people and for programs: the keys of its document, the commands
/// that it executes and the notifications that it publishes. The key "engine", which every document has, is
/// not listed.
struct EngineManual {
  /// The value of the document's key "engine".
  std::string name = {};
  std::string summary = {};
  /// The step that its commands are addressed to and its notifications come from.
  std::string step = {};
  std::vector<ManualKey> keys = {};
  std::vector<ManualCommand> commands = {};
  std::vector<ManualNotification> notifications = {};
};

/// The notifications of every engine derived from EngineBase, published by the engine or by its process:
/// answers to commands, and the two ends of a run.
std::vector<ManualNotification> commonNotifications();

/// The manual with the common notifications after its own; if both list a line, the manual's entry counts.
/// EngineFactory adds them for every engine, so a manual lists them only if they have further values.
EngineManual withCommonNotifications(EngineManual manual);

/// The manual as text for a terminal; ends with a line end.
std::string manualText(const EngineManual& manual);

/// The manual for programs: an indented JSON object without a final line end. docs/engine-libraries.md
/// describes its members.
std::string manualJson(const EngineManual& manual);

/// Reads a manual in that form. Unknown members are ignored; of the known ones, only names, types and "step"
/// are required. Throws TAMBRuntimeError, one line that quotes the wrong part and states what was expected.
/// Takes time and memory in proportion to the text. Any thread.
EngineManual manualFrom(std::string_view text);

}  // namespace qor::engines
