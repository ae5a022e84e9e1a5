#pragma once

#include <cstddef>

namespace tamb {

/// Allocates the memory blocks that contain media. Any thread; a block may be released on another thread than
/// the one that allocated it. Does not wait for the release of other blocks.
class IMemoryBlockAllocator {
 public:
  virtual ~IMemoryBlockAllocator() = default;
  /// A block of at least `size` bytes, aligned for any type; throws std::bad_alloc if none is available.
  virtual void* Allocate(std::size_t size) = 0;
  /// Releases a block of this allocator; ignores a null pointer.
  virtual void Release(void* block) noexcept = 0;
};

}  // namespace tamb
