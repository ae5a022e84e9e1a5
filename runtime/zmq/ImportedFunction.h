#pragma once

#include <string_view>
#include <vector>

namespace qor::socket {

/// The entries of a loaded library's tables through which it calls an imported function, filled by the
/// dynamic linker. Changing them affects the calls of this library only, and works regardless of the order in
/// which libraries were loaded.
class ImportedFunction {
 public:
  /// The import `name` of the library that holds the function `inside`.
  ImportedFunction(const void* inside, std::string_view name);

  /// From now on the library calls `function`, also on threads that use the library meanwhile. False if the
  /// library has no such import, its tables are of an unknown kind, or they cannot be changed.
  bool redirectTo(void* function) const noexcept;
  /// As redirectTo, for the entries that lead to `expected`.
  void replace(void* expected, void* function) const noexcept;

 private:
  struct Entry {
    void** address;
    bool isReadOnly;  ///< on a page that the dynamic linker has protected after filling it
  };
  class Library;

  static bool set(const Entry& entry, void* function) noexcept;

  std::vector<Entry> entries_;
};

}  // namespace qor::socket
