#include "tests/unit/multiprocess/RemoteEngineTest.h"

namespace qor::utils {

/// In the place of the utilities' own: how texts are decorated is theirs to choose.
std::string IMessageFormatter::formatMessage(const std::string& text) const {
  return "<" + text + " (" + messageHeader() + ")>";
}

}  // namespace qor::utils

namespace qor::multiprocess_communication {
namespace {

using testing::ThrowsMessage;

using Decoration = RemoteEngineTest;

TEST_F(Decoration, OfARefusedSubmissionEndsBeforeTheRefusalWhateverItIs) {
  Reply reply;
  reply.set_kind(5);
  startService(reply);
  engine_->SetInitConfig(config());
  EXPECT_THAT(
      [&] { engine_->AddEngineDescription(description()); },
      ThrowsMessage<tamb::TAMBRuntimeError>("[<Unexpected reply from service:  (Remote engine front end)>" +
                                            reply.DebugString() + "] [ Condition is not true ]"));
}

}  // namespace
}  // namespace qor::multiprocess_communication
