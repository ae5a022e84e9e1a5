#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace qor::hosting {

/// Why a run ended: one value, made where that is known, and passed on unchanged to the supervisor, to the
/// service and, as the run's last notification, to the host.
struct RunEnd {
  enum class Kind {
    /// The engine had no run.
    Unused,
    Finished,
    /// Somebody asked it to stop.
    Stopped,
    Failed,
    /// The engine's process died.
    Died,
  };
  Kind kind = Kind::Unused;
  /// Why it failed or died, in one line; empty otherwise.
  std::string reason = {};

  friend bool operator==(const RunEnd&, const RunEnd&) = default;
};

inline constexpr std::array<std::string_view, 5> runEndNames{"unused", "finished", "stopped", "failed",
                                                             "died"};

/// As reports and logs name it.
constexpr std::string_view nameOf(RunEnd::Kind kind) {
  return runEndNames.at(static_cast<std::size_t>(kind));
}

/// Empty for an unknown name.
constexpr std::optional<RunEnd::Kind> runEndNamed(std::string_view name) {
  for (std::size_t i = 0; i < runEndNames.size(); ++i) {
    if (runEndNames[i] == name) return static_cast<RunEnd::Kind>(i);
  }
  return std::nullopt;
}

}  // namespace qor::hosting
