#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "engines/media/OutputFile.h"
#include "tamb/TAMBRuntimeError.h"
#include "tests/engines/EngineTest.h"

namespace qor::engines::test {
namespace {

using qor::test::fileBytes;
using qor::test::readBack;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Ne;
using testing::SizeIs;
using testing::StartsWith;

/// The name of an output during the run, and the files beside it.
class OutputFileTest : public EngineTest {
 protected:
  static void write(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
  }
  static unsigned int modeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0);
    return status.st_mode & 07777U;
  }
};

TEST_F(OutputFileTest, HasANameOfItsOwnUntilItIsComplete) {
  OutputFile one(path("out.mkv"));
  OutputFile other(path("out.mkv"));
  EXPECT_THAT(fileNames(), IsEmpty());
  write(one.create(), "one");
  write(other.create(), "other");
  EXPECT_THAT(fileNames(), ElementsAre(AllOf(StartsWith("out.mkv."), EndsWith(".part")),
                                       AllOf(StartsWith("out.mkv."), EndsWith(".part"))));
  one.complete();
  EXPECT_EQ(fileBytes(path("out.mkv")), "one");
  other.complete();
  EXPECT_EQ(fileBytes(path("out.mkv")), "other");
  EXPECT_THAT(fileNames(), ElementsAre("out.mkv"));
}

TEST_F(OutputFileTest, IsRemovedUnlessItIsComplete) {
  write(path("out.mkv"), "before");
  { write(OutputFile(path("out.mkv")).create(), "half"); }
  EXPECT_THAT(fileNames(), ElementsAre("out.mkv"));
  EXPECT_EQ(fileBytes(path("out.mkv")), "before");
}

TEST_F(OutputFileTest, HasTheRightsThatNewFilesHave) {
  OutputFile file(path("out.mkv"));
  file.create();
  file.complete();
  write(path("usual"), "");
  EXPECT_EQ(std::filesystem::status(path("out.mkv")).permissions(),
            std::filesystem::status(path("usual")).permissions());
}

TEST_F(OutputFileTest, KeepsTheModeOfTheFileThatItReplaces) {
  for (const mode_t mode : {0600U, 0664U, 0777U, 0444U, 04755U}) {
    write(path("out.mkv"), "before");
    ASSERT_EQ(::chmod(path("out.mkv").c_str(), mode), 0);
    OutputFile file(path("out.mkv"));
    write(file.create(), "after");
    file.complete();
    EXPECT_EQ(fileBytes(path("out.mkv")), "after");
    EXPECT_EQ(modeOf(path("out.mkv")), mode & 0777U) << mode;
    std::filesystem::remove(path("out.mkv"));
  }
}

TEST_F(OutputFileTest, IsNotReadableByOthersBeforeItIsComplete) {
  write(path("out.mkv"), "before");
  ASSERT_EQ(::chmod(path("out.mkv").c_str(), 0600), 0);
  OutputFile file(path("out.mkv"));
  EXPECT_EQ(modeOf(file.create()), 0600U);
}

/// During its lifetime, the process is another user than root, with the same groups.
class OtherUser {
 public:
  OtherUser() { EXPECT_EQ(::seteuid(65'534), 0); }
  ~OtherUser() { EXPECT_EQ(::seteuid(0), 0); }
  OtherUser(const OtherUser&) = delete;
  OtherUser& operator=(const OtherUser&) = delete;
};

TEST_F(OutputFileTest, IsReadableForNoGroupBeforeItIsComplete) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root may give files away";
  write(path("out.mkv"), "before");
  ASSERT_EQ(::chown(path("out.mkv").c_str(), 0, 12'345), 0);
  ASSERT_EQ(::chmod(path("out.mkv").c_str(), 0640), 0);
  OutputFile file(path("out.mkv"));
  EXPECT_EQ(modeOf(file.create()), 0600U);
  file.complete();
  EXPECT_EQ(modeOf(path("out.mkv")), 0640U);
  struct stat status {};
  ASSERT_EQ(::stat(path("out.mkv").c_str(), &status), 0);
  EXPECT_EQ(status.st_gid, 12'345U);
}

TEST_F(OutputFileTest, IsReadableForNoGroupUnlessItCanHaveTheSameOne) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root may give files away";
  write(path("out.mkv"), "before");
  ASSERT_EQ(::chown(path("out.mkv").c_str(), 0, 12'345), 0);
  ASSERT_EQ(::chmod(path("out.mkv").c_str(), 0664), 0);
  ASSERT_EQ(::chmod(path("").c_str(), 0777), 0);
  {
    const OtherUser user;
    OutputFile file(path("out.mkv"));
    write(file.create(), "after");
    file.complete();
  }
  EXPECT_EQ(fileBytes(path("out.mkv")), "after");
  EXPECT_EQ(modeOf(path("out.mkv")), 0604U);
}

TEST_F(OutputFileTest, KeepsItsTemporaryNameWhenItIsCompleteAndCannotBeRenamed) {
  std::string written;
  std::string reason;
  {
    OutputFile file(path("out.mkv"));
    written = file.create();
    write(written, "complete");
    std::filesystem::create_directory(path("out.mkv"));
    try {
      file.complete();
    } catch (const tamb::TAMBRuntimeError& error) {
      reason = error.what();
    }
  }
  EXPECT_THAT(reason, AllOf(HasSubstr(written), HasSubstr("the complete file stays there")));
  EXPECT_EQ(fileBytes(written), "complete");
}

TEST_F(OutputFileTest, IsOnTheDiskBeforeItHasItsName) {
  std::vector<std::string> synced;
  OutputFile file(path("out.mkv"), [&](int descriptor) {
    const auto link = "/proc/self/fd/" + std::to_string(descriptor);
    synced.push_back(std::filesystem::read_symlink(link).filename().string());
    return ::fsync(descriptor);
  });
  write(file.create(), "after");
  int beats = 0;
  file.complete([&] { ++beats; });
  const auto folder = std::filesystem::path(path("")).parent_path().filename().string();
  EXPECT_THAT(synced, ElementsAre(AllOf(StartsWith("out.mkv."), EndsWith(".part")), folder));
  EXPECT_GE(beats, 1);
}

TEST_F(OutputFileTest, LeavesTheEarlierFileWhenTheDiskFails) {
  write(path("out.mkv"), "before");
  std::string reason;
  {
    OutputFile file(path("out.mkv"), [](int) {
      errno = EIO;
      return -1;
    });
    write(file.create(), "after");
    try {
      file.complete();
    } catch (const tamb::TAMBRuntimeError& error) {
      reason = error.what();
    }
  }
  EXPECT_THAT(reason, AllOf(HasSubstr("out.mkv"), HasSubstr("Input/output error")));
  EXPECT_EQ(fileBytes(path("out.mkv")), "before");
  EXPECT_THAT(fileNames(), ElementsAre("out.mkv"));
}

TEST_F(OutputFileTest, NeedsNoFileSystemThatSyncs) {
  OutputFile file(path("out.mkv"), [](int) {
    errno = EINVAL;
    return -1;
  });
  write(file.create(), "after");
  file.complete();
  EXPECT_EQ(fileBytes(path("out.mkv")), "after");
}

TEST_F(OutputFileTest, IsMadeWhereALinkPointsToNothing) {
  std::filesystem::create_directory(path("folder"));
  std::filesystem::create_symlink("folder/second", path("out.mkv"));
  std::filesystem::create_symlink(path("target"), path("folder/second"));
  OutputFile file(path("out.mkv"));
  write(file.create(), "after");
  file.complete();
  EXPECT_TRUE(std::filesystem::is_symlink(path("out.mkv")));
  EXPECT_TRUE(std::filesystem::is_symlink(path("folder/second")));
  EXPECT_FALSE(std::filesystem::is_symlink(path("target")));
  EXPECT_EQ(fileBytes(path("target")), "after");
}

TEST_F(OutputFileTest, KeepsTheModeOfTheFileThatALinkNames) {
  write(path("target"), "before");
  ASSERT_EQ(::chmod(path("target").c_str(), 0640), 0);
  std::filesystem::create_symlink("target", path("out.mkv"));
  OutputFile file(path("out.mkv"));
  file.create();
  file.complete();
  EXPECT_EQ(modeOf(path("target")), 0640U);
  EXPECT_TRUE(std::filesystem::is_symlink(path("out.mkv")));
}

TEST_F(OutputFileTest, MayHaveTheLongestName) {
  const auto name = std::string(251, 'n') + ".mkv";
  OutputFile file(path(name));
  file.create();
  file.complete();
  EXPECT_THAT(fileNames(), ElementsAre(name));
}

TEST_F(OutputFileTest, ReportsWhyItCannotBeCreated) {
  EXPECT_THROW(OutputFile(path("nowhere/out.mkv")).create(), tamb::TAMBRuntimeError);
}

TEST_F(OutputFileTest, LeavesAFileAloneThatOnlyLooksUnfinished) {
  write(path("out.mkv.part"), "valuable");
  run(media({{"input", quoted(sharedClip())}, {"output", quoted(path("out.mkv"))}}));
  EXPECT_TRUE(heard_->only("Finished")) << failure();
  EXPECT_EQ(fileBytes(path("out.mkv.part")), "valuable");
  run(media({{"input", quoted(sharedClip())},
             {"output", quoted(path("out.mkv"))},
             {"videoFilter", R"("scale=w='if(gt(n,20),32,64)':h=48:eval=frame")"}}));
  EXPECT_TRUE(heard_->only("Failed"));
  EXPECT_EQ(fileBytes(path("out.mkv.part")), "valuable");
  EXPECT_THAT(fileNames(), ElementsAre("out.mkv", "out.mkv.part"));
}

TEST_F(OutputFileTest, IsReadFromAFileThatOnlyLooksUnfinished) {
  std::filesystem::copy_file(sharedClip(), path("out.mkv.part"));
  run(media({{"input", quoted(path("out.mkv.part"))}, {"output", quoted(path("out.mkv"))}}));
  EXPECT_TRUE(heard_->only("Finished")) << failure();
  EXPECT_EQ(fileBytes(path("out.mkv.part")), fileBytes(sharedClip()));
  EXPECT_THAT(readBack(path("out.mkv")).pictures, SizeIs(50));
}

TEST_F(OutputFileTest, MayBeNamedByItsScheme) {
  run(media({{"input", quoted("file:" + sharedClip())}, {"output", quoted("file:" + path("a:b.mkv"))}}));
  EXPECT_TRUE(heard_->only("Finished")) << failure();
  EXPECT_THAT(fileNames(), ElementsAre("a:b.mkv"));
}

TEST_F(OutputFileTest, MayBeNamedByItsSchemeFromTheCurrentFolder) {
  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(path("."));
  run(media({{"input", quoted(sharedClip())}, {"output", quoted("file:x:y.wav")}}));
  std::filesystem::current_path(before);
  EXPECT_TRUE(heard_->only("Finished")) << failure();
  EXPECT_THAT(fileNames(), ElementsAre("x:y.wav"));
}

}  // namespace
}  // namespace qor::engines::test
