#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

#include "runtime/processes/Pipe.h"

namespace qor::processes {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// Reads from a pipe that the test writes to.
class ALineReader : public ::testing::Test {
 protected:
  void write(const std::string& bytes) const {
    ASSERT_EQ(::write(pipe_.write.get(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }
  /// All complete lines, after another read from the pipe.
  std::vector<std::string> read() {
    reader_.readSome();
    std::vector<std::string> lines;
    for (std::string line; reader_.takeLine(line);) lines.push_back(line);
    return lines;
  }
  void end() { pipe_.write.close(); }

  Pipe pipe_;
  LineReader reader_{std::move(pipe_.read)};
};

TEST_F(ALineReader, GivesEachLineWithoutItsEnd) {
  write("one\n\ntwo\n");
  EXPECT_THAT(read(), ElementsAre("one", "", "two"));
}

TEST_F(ALineReader, PutsALineTogetherThatComesInPieces) {
  write("hal");
  EXPECT_THAT(read(), IsEmpty());
  write("f\nthe next");
  EXPECT_THAT(read(), ElementsAre("half"));
}

TEST_F(ALineReader, ReturnsTheLastLineWithoutALineEnd) {
  write("whole\nnot whole");
  end();
  EXPECT_THAT(read(), ElementsAre("whole"));
  EXPECT_TRUE(reader_.isOpen());
  EXPECT_THAT(read(), ElementsAre("not whole"));
  EXPECT_FALSE(reader_.isOpen());
}

TEST_F(ALineReader, GivesALineThatIsTooLongInPieces) {
  const std::string longest(LineReader::longestLine, 'x');
  std::vector<std::string> lines;
  const auto writeAndRead = [&](std::string bytes) {
    // A pipe accepts, and a read returns, at least 4 096 bytes at once.
    for (; !bytes.empty(); bytes.erase(0, 4'096)) {
      write(bytes.substr(0, 4'096));
      for (const auto& line : read()) lines.push_back(line);
    }
  };
  writeAndRead(longest.substr(1) + "\n");
  writeAndRead(longest + "\n");
  writeAndRead(longest + "more\n");
  EXPECT_THAT(lines, ElementsAre(longest.substr(1), longest, "", longest, "more"));
}

}  // namespace
}  // namespace qor::processes
