#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>

#include <utility>

#include "runtime/base/FileDescriptor.h"

namespace qor::base {
namespace {

bool isOpen(int descriptor) { return ::fcntl(descriptor, F_GETFD) != -1; }

FileDescriptor anyDescriptor() { return FileDescriptor(::eventfd(0, EFD_CLOEXEC)); }

TEST(AFileDescriptor, IsClosedWithItsOwner) {
  int number = -1;
  {
    const FileDescriptor descriptor = anyDescriptor();
    ASSERT_TRUE(descriptor.isOpen());
    number = descriptor.get();
    EXPECT_TRUE(isOpen(number));
  }
  EXPECT_FALSE(isOpen(number));
}

TEST(AFileDescriptor, IsNotOpenAfterAFailedSystemCall) {
  EXPECT_FALSE(FileDescriptor().isOpen());
  EXPECT_FALSE(FileDescriptor(-1).isOpen());
}

TEST(AFileDescriptor, HasOneOwner) {
  FileDescriptor first = anyDescriptor();
  const int number = first.get();
  FileDescriptor second = std::move(first);
  EXPECT_FALSE(first.isOpen());  // NOLINT(bugprone-use-after-move): what a move leaves behind
  EXPECT_EQ(second.get(), number);
  EXPECT_EQ(second.release(), number);
  EXPECT_FALSE(second.isOpen());
  EXPECT_TRUE(isOpen(number));
  const FileDescriptor last(number);
}

TEST(AFileDescriptor, ClosesTheOldOneWhenItGetsAnother) {
  FileDescriptor first = anyDescriptor();
  FileDescriptor second = anyDescriptor();
  const int old = first.get();
  const int kept = second.get();
  first = std::move(second);
  // Immediately, not when the other owner ends.
  EXPECT_FALSE(isOpen(old));
  EXPECT_EQ(first.get(), kept);
  EXPECT_TRUE(isOpen(kept));
}

TEST(AFileDescriptor, IsClosedOnce) {
  FileDescriptor descriptor = anyDescriptor();
  const int number = descriptor.get();
  descriptor.close();
  EXPECT_FALSE(isOpen(number));
  const FileDescriptor other = anyDescriptor();  // has the number again
  descriptor.close();
  EXPECT_TRUE(isOpen(other.get()));
}

}  // namespace
}  // namespace qor::base
