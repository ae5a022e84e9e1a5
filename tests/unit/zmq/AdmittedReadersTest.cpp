#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <variant>
#include <vector>

#include "runtime/zmq/AdmittedReaders.h"

namespace qor::socket {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// An open socket that represents the connection to a peer.
base::FileDescriptor openSocket() {
  base::FileDescriptor descriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!descriptor.isOpen()) throw std::system_error(errno, std::generic_category(), "cannot create a socket");
  return descriptor;
}

/// Closes the socket and opens another with the same number.
void replace(base::FileDescriptor& descriptor) {
  const base::FileDescriptor other = openSocket();
  if (::dup3(other.get(), descriptor.get(), O_CLOEXEC) < 0) {
    throw std::system_error(errno, std::generic_category(), "cannot take a number over");
  }
}

/// Simulates libzmq's reports in a given order: a message can be taken only once the preceding ends have
/// been, and a check for ends finds only those that precede the next message.
class ScriptedSubscribers : public Subscribers {
 public:
  void subscribes(int descriptor) {
    script_.emplace_back(Message{.descriptor = descriptor, .isSubscription = true});
  }
  void subscribes(const base::FileDescriptor& peer) { subscribes(peer.get()); }
  void subscriptionEnds() { script_.emplace_back(Message{}); }
  void ends(int descriptor) { script_.emplace_back(End{.descriptor = descriptor, .isLastOfLook = false}); }
  void ends(const base::FileDescriptor& peer) { ends(peer.get()); }
  /// A check for ends finds no further ones.
  void lookEnds() { script_.emplace_back(End{.descriptor = 0, .isLastOfLook = true}); }

  std::optional<Message> takeMessage() override { return take<Message>(); }
  std::optional<int> takeEnd() override {
    const auto end = take<End>();
    return end && !end->isLastOfLook ? std::optional(end->descriptor) : std::nullopt;
  }
  void admitLatest() override { ++admissions; }
  void disconnect(int descriptor) override { disconnected.push_back(descriptor); }
  std::string describe(int descriptor) override { return "peer " + std::to_string(descriptor); }

  int admissions = 0;
  std::vector<int> disconnected;

 private:
  struct End {
    int descriptor;
    bool isLastOfLook;
  };

  template <class Kind>
  std::optional<Kind> take() {
    if (script_.empty() || !std::holds_alternative<Kind>(script_.front())) return std::nullopt;
    const Kind taken = std::get<Kind>(script_.front());
    script_.pop_front();
    return taken;
  }

  std::deque<std::variant<Message, End>> script_;
};

class AdmittedReadersTest : public ::testing::Test {
 protected:
  bool update() { return readers_.update(); }

  ScriptedSubscribers subscribers_;
  AdmittedReaders readers_{subscribers_, 1, {.name = "Publisher", .protocol = Protocol::Publisher}};
};

TEST_F(AdmittedReadersTest, ServesTheFirstAndRefusesTheSecond) {
  const base::FileDescriptor first = openSocket();
  const base::FileDescriptor second = openSocket();
  subscribers_.subscribes(first);
  EXPECT_TRUE(update());
  subscribers_.subscribes(second);
  EXPECT_FALSE(update());
  EXPECT_TRUE(readers_.any());
  EXPECT_EQ(subscribers_.admissions, 1);
  EXPECT_THAT(subscribers_.disconnected, IsEmpty());
  EXPECT_EQ(readers_.refusals().takeLines().size(), 1U);
}

TEST_F(AdmittedReadersTest, AdmitNoPeerWhoseEndWasReportedBeforeItsSubscription) {
  base::FileDescriptor broken = openSocket();
  subscribers_.ends(broken);
  EXPECT_FALSE(update());
  subscribers_.subscribes(broken);
  EXPECT_FALSE(update());
  EXPECT_FALSE(readers_.any());
  EXPECT_EQ(subscribers_.admissions, 0);
  // The next peer is served, even on the same descriptor.
  replace(broken);
  subscribers_.subscriptionEnds();
  update();
  subscribers_.subscribes(broken);
  EXPECT_TRUE(update());
  EXPECT_TRUE(readers_.any());
}

TEST_F(AdmittedReadersTest, AdmitNoPeerWhoseConnectionIsClosed) {
  int number = -1;
  {
    const base::FileDescriptor closed = openSocket();
    number = closed.get();
  }
  subscribers_.subscribes(number);
  EXPECT_FALSE(update());
  EXPECT_FALSE(readers_.any());
  EXPECT_EQ(subscribers_.admissions, 0);
}

TEST_F(AdmittedReadersTest, DoNotTakeASuccessorForWhoSubscribedBefore) {
  base::FileDescriptor broken = openSocket();
  subscribers_.ends(broken);
  update();
  // The subscription belongs to the first connection; a second one has the descriptor by now.
  replace(broken);
  subscribers_.subscribes(broken);
  EXPECT_FALSE(update());
  EXPECT_EQ(subscribers_.admissions, 0);
  EXPECT_THAT(subscribers_.disconnected, ElementsAre(broken.get()));
  // The second one tries again.
  subscribers_.ends(broken);
  update();
  replace(broken);
  update();
  subscribers_.subscribes(broken);
  EXPECT_TRUE(update());
}

TEST_F(AdmittedReadersTest, ForgetAReaderWhoseEndWasMissed) {
  std::optional<base::FileDescriptor> broken(openSocket());
  subscribers_.subscribes(*broken);
  EXPECT_TRUE(update());
  const base::FileDescriptor waiting = openSocket();
  subscribers_.subscribes(waiting);
  EXPECT_FALSE(update());
  broken.reset();
  subscribers_.subscriptionEnds();
  update();
  EXPECT_FALSE(readers_.any());
  EXPECT_THAT(subscribers_.disconnected, ElementsAre(waiting.get()));
}

TEST_F(AdmittedReadersTest, KeepAReaderWhenASubscriptionOfAnotherEnds) {
  const base::FileDescriptor reader = openSocket();
  subscribers_.subscribes(reader);
  update();
  subscribers_.subscriptionEnds();
  update();
  EXPECT_TRUE(readers_.any());
}

TEST_F(AdmittedReadersTest, DisconnectAReaderThatSubscribesAgain) {
  base::FileDescriptor reader = openSocket();
  subscribers_.subscribes(reader);
  update();
  subscribers_.subscribes(reader);
  EXPECT_FALSE(update());
  EXPECT_THAT(subscribers_.disconnected, ElementsAre(reader.get()));
}

TEST_F(AdmittedReadersTest, AdmitNoPeerWhileEndsArriveWithoutPause) {
  const base::FileDescriptor reader = openSocket();
  // Each of ten checks finds ends; the next one would find the end of the peer that had the reader's
  // descriptor.
  for (int look = 0; look < 10; ++look) {
    subscribers_.ends(1000 + look);
    subscribers_.lookEnds();
  }
  subscribers_.subscribes(reader);
  subscribers_.ends(reader);
  EXPECT_FALSE(update());
  EXPECT_EQ(subscribers_.admissions, 0);
  EXPECT_THAT(subscribers_.disconnected, ElementsAre(reader.get()));
  EXPECT_FALSE(update());
  EXPECT_FALSE(readers_.any());
}

TEST_F(AdmittedReadersTest, TakeEveryEndInBeforeTheyAdmit) {
  const base::FileDescriptor reader = openSocket();
  subscribers_.subscribes(reader);
  for (int look = 0; look < 9; ++look) {
    subscribers_.ends(1000 + look);
    subscribers_.lookEnds();
  }
  EXPECT_TRUE(update());
  EXPECT_TRUE(readers_.any());
}

}  // namespace
}  // namespace qor::socket
