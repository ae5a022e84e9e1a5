#pragma once

#include <cstddef>

namespace tamb {

/// Hands out the memory blocks that media travels in. Any thread; a block may be released on another thread
/// than the one that got it. Waits for no other block to be released.
class IMemoryBlockAllocator {
 public:
  virtual ~IMemoryBlockAllocator() = default;
  /// A block of at least `size` bytes, aligned for any type; throws std::bad_alloc when there is none.
  virtual void* Allocate(std::size_t size) = 0;
  /// Gives back a block of this allocator; a null pointer is ignored.
  virtual void Release(void* block) noexcept = 0;
};

}  // namespace tamb
