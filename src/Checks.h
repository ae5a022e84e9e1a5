#pragma once

#include <concepts>
#include <cstdint>
#include <string>
#include <type_traits>

#include "qor/utils/MessageFormatter.h"
#include "tamb/LogLevel.h"

namespace qor::multiprocess_communication {

/// The place that a report names as its origin.
struct ReportSite {
  /// The source path without its ending, as in "src/Serializers".
  const char* source;
  /// A fixed line is a part of the report, like its text, and may differ from the line of the code.
  int line;
};

/// Writes a log record to the framework's current logger writer, or to the standard error stream when there
/// is none or it throws. Any thread.
void report(tamb::LogLevel level, const std::string& message, ReportSite site) noexcept;

/// A text, or a callable that composes one: only a failed check calls it.
template <class T>
concept ReportText = std::convertible_to<T, std::string> || std::is_invocable_r_v<std::string, T>;

/// The checks of a class or of a group of free functions. A failed check writes one error record and throws
/// tamb::TAMBRuntimeError with the same message; a passed check costs one branch. Construct it where it is
/// used: it refers to the object whose header its texts contain. Without a line argument, a report names the
/// caller's line.
class Checks {
 public:
  /// `formatter` decorates the texts; without one they are reported as they are.
  explicit constexpr Checks(const char* source, const utils::IMessageFormatter* formatter = nullptr)
      : source_(source), formatter_(formatter) {}

  template <ReportText Text>
  void isTrue(bool condition, const Text& text, int line = __builtin_LINE()) const {
    if (!condition) [[unlikely]] {
      fail(compose(text), "] [ Condition is not true ]", line);
    }
  }

  template <ReportText Text>
  void isFalse(bool condition, const Text& text, int line = __builtin_LINE()) const {
    if (condition) [[unlikely]] {
      fail(compose(text), "] [ Condition is not false ]", line);
    }
  }

  template <class Pointer, ReportText Text>
  void isNotNull(const Pointer& pointer, const Text& text, int line = __builtin_LINE()) const {
    if (pointer == nullptr) [[unlikely]] {
      fail(compose(text), "] [ Pointer is null ]", line);
    }
  }

  template <ReportText Text>
  void isAtMost(std::uint64_t value1, std::uint64_t value2, const Text& text,
                int line = __builtin_LINE()) const {
    if (value1 > value2) [[unlikely]] {
      fail(compose(text),
           "] [ value1 (" + std::to_string(value1) + ") is not <= value2 (" + std::to_string(value2) + ") ]",
           line);
    }
  }

  /// Always fails.
  template <ReportText Text>
  [[noreturn]] void never(const Text& text, int line = __builtin_LINE()) const {
    fail(compose(text), "]", line);
  }

  /// Writes a record like a failed check, without brackets, and returns. It reports failures after which the
  /// caller continues, so that it does not throw.
  template <ReportText Text>
  void log(const Text& text, int line = __builtin_LINE(),
           tamb::LogLevel level = tamb::LogLevel::Error) const noexcept {
    try {
      report(level, decorate(compose(text)), {source_, line});
    } catch (...) {  // out of memory
      report(level, "a report whose text could not be composed", {source_, line});
    }
  }

 private:
  template <ReportText Text>
  static std::string compose(const Text& text) {
    if constexpr (std::convertible_to<Text, std::string>) {
      return text;
    } else {
      return text();
    }
  }

  std::string decorate(const std::string& text) const;
  [[noreturn]] void fail(const std::string& text, const std::string& suffix, int line) const;

  const char* source_;
  const utils::IMessageFormatter* formatter_;
};

}  // namespace qor::multiprocess_communication
