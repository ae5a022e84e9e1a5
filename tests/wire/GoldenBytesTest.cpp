// What each message looks like on the wire, byte by byte. The encodings are written by hand: a byte group
// opens with its tag, which is the field's number times 8 plus its wire type (0 varint, 1 eight bytes, 2 a
// length and that many bytes), and a varint holds 7 bits a byte, the lowest first, with 80 set in all bytes
// but the last.

#include <google/protobuf/message.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

#include "CommandAndNotification.pb.h"
#include "ParametersCollection.pb.h"
#include "TcpEngine.pb.h"
#include "qor/proto/ApiService.pb.h"
#include "tests/wire/Hexadecimal.h"

namespace qor::multiprocess_communication::proto {
namespace {

using namespace std::string_literals;
using test::fromHex;
using test::toHex;

/// Parses the bytes; the message has to be complete and without unknown fields.
template <class Message>
Message decoded(const std::string& digits) {
  const std::string bytes = fromHex(digits);
  Message message;
  EXPECT_TRUE(message.ParseFromString(bytes)) << digits;
  // Unknown fields would otherwise be kept and written again.
  message.DiscardUnknownFields();
  EXPECT_EQ(toHex(message.SerializeAsString()), toHex(bytes));
  EXPECT_EQ(message.ByteSizeLong(), bytes.size());
  return message;
}

/// The same group `count` times.
std::string repeated(std::string_view group, int count) {
  std::string digits;
  for (int i = 0; i < count; ++i) digits += group;
  return digits;
}

TEST(GoldenBytes, BoolKeyValue) {
  const auto on = decoded<ParametersCollectionCommon::BoolKeyValue>(
      "0A 04 66 6C 61 67 "  // key (1) = "flag"
      "10 01");             // value (2) = true
  EXPECT_EQ(on.key(), "flag");
  EXPECT_TRUE(on.value());

  // Required fields are written whatever their values.
  const auto off = decoded<ParametersCollectionCommon::BoolKeyValue>(
      "0A 00 "   // key (1) = ""
      "10 00");  // value (2) = false
  EXPECT_TRUE(off.has_key());
  EXPECT_EQ(off.key(), "");
  EXPECT_TRUE(off.has_value());
  EXPECT_FALSE(off.value());
}

TEST(GoldenBytes, Int64KeyValue) {
  // Negative numbers take ten bytes.
  const auto negative = decoded<ParametersCollectionCommon::Int64KeyValue>(
      "0A 06 6F 66 66 73 65 74 "            // key (1) = "offset"
      "10 FE FF FF FF FF FF FF FF FF 01");  // value (2) = -2
  EXPECT_EQ(negative.key(), "offset");
  EXPECT_EQ(negative.value(), -2);

  const auto least = decoded<ParametersCollectionCommon::Int64KeyValue>(
      "0A 03 6D 69 6E "                     // key (1) = "min"
      "10 80 80 80 80 80 80 80 80 80 01");  // value (2) = -2^63
  EXPECT_EQ(least.key(), "min");
  EXPECT_EQ(least.value(), std::numeric_limits<std::int64_t>::min());

  const auto greatest = decoded<ParametersCollectionCommon::Int64KeyValue>(
      "0A 03 6D 61 78 "                  // key (1) = "max"
      "10 FF FF FF FF FF FF FF FF 7F");  // value (2) = 2^63 - 1
  EXPECT_EQ(greatest.key(), "max");
  EXPECT_EQ(greatest.value(), std::numeric_limits<std::int64_t>::max());
}

TEST(GoldenBytes, Uint64KeyValue) {
  const auto small = decoded<ParametersCollectionCommon::Uint64KeyValue>(
      "0A 05 74 6F 74 61 6C "  // key (1) = "total"
      "10 AC 02");             // value (2) = 300
  EXPECT_EQ(small.key(), "total");
  EXPECT_EQ(small.value(), 300U);

  const auto greatest = decoded<ParametersCollectionCommon::Uint64KeyValue>(
      "0A 05 74 6F 74 61 6C "               // key (1) = "total"
      "10 FF FF FF FF FF FF FF FF FF 01");  // value (2) = 2^64 - 1
  EXPECT_EQ(greatest.value(), std::numeric_limits<std::uint64_t>::max());
}

TEST(GoldenBytes, DoubleKeyValue) {
  const auto exact = decoded<ParametersCollectionCommon::DoubleKeyValue>(
      "0A 04 67 61 69 6E "            // key (1) = "gain"
      "11 00 00 00 00 00 00 1A C0");  // value (2) = -6.5 = -1.625 * 2^2: C01A000000000000
  EXPECT_EQ(exact.key(), "gain");
  EXPECT_EQ(exact.value(), -6.5);

  const auto rounded = decoded<ParametersCollectionCommon::DoubleKeyValue>(
      "0A 04 67 61 69 6E "            // key (1) = "gain"
      "11 9A 99 99 99 99 99 B9 3F");  // value (2) = the double next to 0.1: 3FB999999999999A
  EXPECT_EQ(rounded.value(), 0.1);
}

TEST(GoldenBytes, UTF8StringKeyValue) {
  const auto text = decoded<ParametersCollectionCommon::UTF8StringKeyValue>(
      "0A 05 74 69 74 6C 65 "         // key (1) = "title"
      "12 07 47 72 C3 B6 C3 9F 65");  // value (2) = "Größe", whose ö and ß take two bytes each
  EXPECT_EQ(text.key(), "title");
  EXPECT_EQ(text.value(),
            "Gr\xC3\xB6\xC3\x9F"
            "e");

  // Keys and texts are byte strings.
  const auto bytes = decoded<ParametersCollectionCommon::UTF8StringKeyValue>(
      "0A 03 6B 00 FF "   // key (1) = "k", a zero byte, a byte that no UTF-8 text holds
      "12 03 61 00 62");  // value (2) = "a", a zero byte, "b"
  EXPECT_EQ(bytes.key(), "k\0\xFF"s);
  EXPECT_EQ(bytes.value(), "a\0b"s);
}

TEST(GoldenBytes, UTF16StringKeyValue) {
  const auto text = decoded<ParametersCollectionCommon::UTF16StringKeyValue>(
      "0A 04 6E 61 6D 65 "   // key (1) = "name"
      "12 04 41 00 42 00");  // value (2) = "A", a zero byte, "B", a zero byte
  EXPECT_EQ(text.key(), "name");
  EXPECT_EQ(text.value(), "A\0B\0"s);
}

TEST(GoldenBytes, ParametersCollectionCommon) {
  const auto common = decoded<ParametersCollectionCommon>(
      "0A 06 "                                // boolParams (1), 6 bytes
      "   0A 02 6F 6E "                       //   key (1) = "on"
      "   10 01 "                             //   value (2) = true
      "0A 04 "                                // boolParams (1), 4 bytes
      "   0A 00 "                             //   key (1) = ""
      "   10 00 "                             //   value (2) = false
      "12 0F "                                // int64Params (2), 15 bytes
      "   0A 02 69 6E "                       //   key (1) = "in"
      "   10 FF FF FF FF FF FF FF FF FF 01 "  //   value (2) = -1
      "1A 0A "                                // uint64Params (3), 10 bytes
      "   0A 02 69 64 "                       //   key (1) = "id"
      "   10 80 80 80 80 10 "                 //   value (2) = 2^32
      "22 0D "                                // doubleParams (4), 13 bytes
      "   0A 02 64 62 "                       //   key (1) = "db"
      "   11 9A 99 99 99 99 99 B9 3F "        //   value (2) = 0.1
      "2A 08 "                                // utf8StringParams (5), 8 bytes
      "   0A 01 74 "                          //   key (1) = "t"
      "   12 03 61 00 62 "                    //   value (2) = "a", a zero byte, "b"
      "32 07 "                                // utf16StringParams (6), 7 bytes
      "   0A 01 77 "                          //   key (1) = "w"
      "   12 02 41 00");                      //   value (2) = "A", a zero byte
  ASSERT_EQ(common.boolparams_size(), 2);
  EXPECT_EQ(common.boolparams(0).key(), "on");
  EXPECT_TRUE(common.boolparams(0).value());
  EXPECT_EQ(common.boolparams(1).key(), "");
  EXPECT_FALSE(common.boolparams(1).value());
  ASSERT_EQ(common.int64params_size(), 1);
  EXPECT_EQ(common.int64params(0).key(), "in");
  EXPECT_EQ(common.int64params(0).value(), -1);
  ASSERT_EQ(common.uint64params_size(), 1);
  EXPECT_EQ(common.uint64params(0).key(), "id");
  EXPECT_EQ(common.uint64params(0).value(), 4'294'967'296U);
  ASSERT_EQ(common.doubleparams_size(), 1);
  EXPECT_EQ(common.doubleparams(0).key(), "db");
  EXPECT_EQ(common.doubleparams(0).value(), 0.1);
  ASSERT_EQ(common.utf8stringparams_size(), 1);
  EXPECT_EQ(common.utf8stringparams(0).key(), "t");
  EXPECT_EQ(common.utf8stringparams(0).value(), "a\0b"s);
  ASSERT_EQ(common.utf16stringparams_size(), 1);
  EXPECT_EQ(common.utf16stringparams(0).key(), "w");
  EXPECT_EQ(common.utf16stringparams(0).value(), "A\0"s);

  const auto empty = decoded<ParametersCollectionCommon>("");
  EXPECT_EQ(empty.boolparams_size(), 0);
}

TEST(GoldenBytes, ParametersCollectionPrototype) {
  const auto prototype = decoded<ParametersCollectionPrototype>(
      "0A 08 "              // data (1), 8 bytes
      "   0A 06 "           //   boolParams (1), 6 bytes
      "      0A 02 6F 6E "  //     key (1) = "on"
      "      10 01");       //     value (2) = true
  ASSERT_EQ(prototype.data().boolparams_size(), 1);
  EXPECT_EQ(prototype.data().boolparams(0).key(), "on");
  EXPECT_TRUE(prototype.data().boolparams(0).value());

  const auto empty = decoded<ParametersCollectionPrototype>("0A 00");  // data (1), no bytes
  EXPECT_TRUE(empty.has_data());
  EXPECT_EQ(empty.data().ByteSizeLong(), 0U);
}

/// An instance of 23 bytes, wherever one is carried.
const std::string instanceDigits =
    "0A 09 "                 // data (1), 9 bytes
    "   12 07 "              //   int64Params (2), 7 bytes
    "      0A 02 69 6E "     //     key (1) = "in"
    "      10 AC 02 "        //     value (2) = 300
    "12 0A "                 // prototype (2), 10 bytes
    "   0A 08 "              //   data (1), 8 bytes
    "      12 06 "           //     int64Params (2), 6 bytes
    "         0A 02 69 6E "  //       key (1) = "in"
    "         10 00 ";       //       value (2) = 0

void expectInstance(const ParametersCollectionInstance& instance) {
  ASSERT_EQ(instance.data().int64params_size(), 1);
  EXPECT_EQ(instance.data().int64params(0).key(), "in");
  EXPECT_EQ(instance.data().int64params(0).value(), 300);
  ASSERT_EQ(instance.prototype().data().int64params_size(), 1);
  EXPECT_EQ(instance.prototype().data().int64params(0).key(), "in");
  EXPECT_EQ(instance.prototype().data().int64params(0).value(), 0);
}

TEST(GoldenBytes, ParametersCollectionInstanceWritesItsDataAheadOfItsPrototype) {
  expectInstance(decoded<ParametersCollectionInstance>(instanceDigits));
}

TEST(GoldenBytes, ParametersCollectionInstanceIsReadInAnyOrder) {
  ParametersCollectionInstance instance;
  ASSERT_TRUE(
      instance.ParseFromString(fromHex("12 0A 0A 08 12 06 0A 02 69 6E 10 00 "  // prototype (2)
                                       "0A 09 12 07 0A 02 69 6E 10 AC 02")));  // data (1)
  expectInstance(instance);
}

TEST(GoldenBytes, EditRate) {
  const auto rate = decoded<EditRate>(
      "08 B0 EA 01 "  // numerator (1) = 30000 = 48 + 106 * 2^7 + 1 * 2^14
      "10 E9 07");    // denominator (2) = 1001 = 105 + 7 * 2^7
  EXPECT_EQ(rate.numerator(), 30'000U);
  EXPECT_EQ(rate.denominator(), 1'001U);

  const auto extremes = decoded<EditRate>(
      "08 FF FF FF FF 0F "  // numerator (1) = 2^32 - 1
      "10 00");             // denominator (2) = 0
  EXPECT_EQ(extremes.numerator(), std::numeric_limits<std::uint32_t>::max());
  EXPECT_TRUE(extremes.has_denominator());
  EXPECT_EQ(extremes.denominator(), 0U);
}

TEST(GoldenBytes, MediaTime) {
  const auto time = decoded<MediaTime>(
      "0A 04 "                              // editRate (1), 4 bytes
      "   08 19 "                           //   numerator (1) = 25
      "   10 01 "                           //   denominator (2) = 1
      "10 A0 B9 A4 FF FF FF FF FF FF 01");  // timeNumber (2) = 2^64 - 1500000, which is read as -1500000
  EXPECT_EQ(time.editrate().numerator(), 25U);
  EXPECT_EQ(time.editrate().denominator(), 1U);
  EXPECT_EQ(time.timenumber(), -1'500'000);
}

TEST(GoldenBytes, CommandMessage) {
  const auto command = decoded<CommandMessage>(
      "0A 09 "              // mediaTime (1), 9 bytes
      "   0A 04 "           //   editRate (1), 4 bytes
      "      08 19 10 01 "  //     25, 1
      "   10 FA 01 "        //   timeNumber (2) = 250
      "12 03 43 75 74 "     // commandName (2) = "Cut"
      "18 FF FF FF FF 0F "  // commandId (3) = 2^32 - 1
      "22 04 77 6D 00 FF "  // workflowManagerId (4) = "wm", a zero byte, a byte that no UTF-8 text holds
      "28 87 80 80 80 10 "  // engineId (5) = 2^32 + 7
      "32 00 "              // stepId (6) = ""
      "42 17 " +            // commandArgs (8: 7 is not used), 23 bytes
      instanceDigits);
  EXPECT_EQ(command.mediatime().editrate().numerator(), 25U);
  EXPECT_EQ(command.mediatime().editrate().denominator(), 1U);
  EXPECT_EQ(command.mediatime().timenumber(), 250);
  EXPECT_EQ(command.commandname(), "Cut");
  EXPECT_EQ(command.commandid(), 4'294'967'295U);
  EXPECT_EQ(command.workflowmanagerid(), "wm\0\xFF"s);
  EXPECT_EQ(command.engineid(), 4'294'967'303U);
  EXPECT_TRUE(command.has_stepid());
  EXPECT_EQ(command.stepid(), "");
  ASSERT_TRUE(command.has_commandargs());
  expectInstance(command.commandargs());
}

/// A command of 26 bytes without arguments.
const std::string shortCommandDigits =
    "0A 09 0A 04 08 19 10 01 10 FA 01 "  // mediaTime (1): 25, 1; 250
    "12 03 43 75 74 "                    // commandName (2) = "Cut"
    "18 01 "                             // commandId (3) = 1
    "22 01 77 "                          // workflowManagerId (4) = "w"
    "28 02 "                             // engineId (5) = 2
    "32 01 73 ";                         // stepId (6) = "s"

TEST(GoldenBytes, CommandMessageWithoutArguments) {
  const auto command = decoded<CommandMessage>(shortCommandDigits);
  EXPECT_EQ(command.mediatime().timenumber(), 250);
  EXPECT_EQ(command.commandname(), "Cut");
  EXPECT_EQ(command.commandid(), 1U);
  EXPECT_EQ(command.workflowmanagerid(), "w");
  EXPECT_EQ(command.engineid(), 2U);
  EXPECT_EQ(command.stepid(), "s");
  EXPECT_FALSE(command.has_commandargs());
}

TEST(GoldenBytes, CommandMessageList) {
  const auto list =
      decoded<CommandMessageList>("0A 1A " +            // messages (1), 26 bytes
                                  shortCommandDigits +  //
                                  "0A E0 01 "           // messages (1), 224 = 96 + 1 * 2^7 bytes
                                  "   0A 09 0A 04 08 19 10 01 10 FA 01 "  //   mediaTime (1): 25, 1; 250
                                  "   12 C8 01 " +
                                  repeated("6E ", 200) +  //   commandName (2) = 200 = 72 + 1 * 2^7 times "n"
                                  "   18 02 "             //   commandId (3) = 2
                                  "   22 01 77 "          //   workflowManagerId (4) = "w"
                                  "   28 02 "             //   engineId (5) = 2
                                  "   32 01 73");         //   stepId (6) = "s"
  ASSERT_EQ(list.messages_size(), 2);
  EXPECT_EQ(list.messages(0).commandname(), "Cut");
  EXPECT_EQ(list.messages(0).commandid(), 1U);
  EXPECT_EQ(list.messages(1).mediatime().editrate().numerator(), 25U);
  EXPECT_EQ(list.messages(1).commandname(), std::string(200, 'n'));
  EXPECT_EQ(list.messages(1).commandid(), 2U);
  EXPECT_EQ(list.messages(1).workflowmanagerid(), "w");
  EXPECT_EQ(list.messages(1).engineid(), 2U);
  EXPECT_EQ(list.messages(1).stepid(), "s");
}

TEST(GoldenBytes, AnEmptyListIsNoBytes) {
  EXPECT_EQ(decoded<CommandMessageList>("").messages_size(), 0);
  EXPECT_EQ(decoded<NotificationMessageList>("").messages_size(), 0);
}

TEST(GoldenBytes, NotificationMessage) {
  const auto notification = decoded<NotificationMessage>(
      "0A 11 "                                // time (1), 17 bytes
      "   0A 04 "                             //   editRate (1), 4 bytes
      "      08 19 10 01 "                    //     25, 1
      "   10 FF FF FF FF FF FF FF FF FF 01 "  //   timeNumber (2) = -1
      "12 03 6D 69 78 "                       // workflowStep (2) = "mix"
      "1A 08 50 72 6F 67 72 65 73 73 "        // notificationLine (3) = "Progress"
      "22 04 44 6F 6E 65 "                    // id (4) = "Done"
      "28 AC 02 "                             // commandId (5) = 300
      "32 03 77 00 31 "                       // workflowManagerId (6) = "w", a zero byte, "1"
      "38 FF FF FF FF FF FF FF FF FF 01 "     // engineId (7) = 2^64 - 1
      "42 17 " +                              // notificationObject (8), 23 bytes
      instanceDigits);
  EXPECT_EQ(notification.time().editrate().numerator(), 25U);
  EXPECT_EQ(notification.time().editrate().denominator(), 1U);
  EXPECT_EQ(notification.time().timenumber(), -1);
  EXPECT_EQ(notification.workflowstep(), "mix");
  EXPECT_EQ(notification.notificationline(), "Progress");
  EXPECT_EQ(notification.id(), "Done");
  EXPECT_EQ(notification.commandid(), 300U);
  EXPECT_EQ(notification.workflowmanagerid(),
            "w\0"
            "1"s);
  EXPECT_EQ(notification.engineid(), std::numeric_limits<std::uint64_t>::max());
  ASSERT_TRUE(notification.has_notificationobject());
  expectInstance(notification.notificationobject());
}

TEST(GoldenBytes, NotificationMessageList) {
  const auto list = decoded<NotificationMessageList>(
      "0A 1D "                                // messages (1), 29 bytes
      "   0A 09 0A 04 08 01 10 19 10 E8 07 "  //   time (1): 1, 25; 1000 = 104 + 7 * 2^7
      "   12 01 73 "                          //   workflowStep (2) = "s"
      "   1A 01 6C "                          //   notificationLine (3) = "l"
      "   22 01 69 "                          //   id (4) = "i"
      "   28 00 "                             //   commandId (5) = 0
      "   32 03 77 66 6D "                    //   workflowManagerId (6) = "wfm"
      "   38 00");                            //   engineId (7) = 0
  ASSERT_EQ(list.messages_size(), 1);
  const NotificationMessage& notification = list.messages(0);
  EXPECT_EQ(notification.time().editrate().numerator(), 1U);
  EXPECT_EQ(notification.time().editrate().denominator(), 25U);
  EXPECT_EQ(notification.time().timenumber(), 1'000);
  EXPECT_EQ(notification.workflowstep(), "s");
  EXPECT_EQ(notification.notificationline(), "l");
  EXPECT_EQ(notification.id(), "i");
  EXPECT_EQ(notification.commandid(), 0U);
  EXPECT_EQ(notification.workflowmanagerid(), "wfm");
  EXPECT_EQ(notification.engineid(), 0U);
  EXPECT_FALSE(notification.has_notificationobject());
}

TEST(GoldenBytes, KeyValue) {
  const auto utf8 = decoded<KeyValue>(
      "0A 01 61 "  // key (1) = "a"
      "10 12");    // value (2) = UTF8String = 18
  EXPECT_EQ(utf8.key(), "a");
  EXPECT_EQ(utf8.value(), KeyValue::UTF8String);

  EXPECT_EQ(decoded<KeyValue>("0A 01 61 10 00").value(), KeyValue::Undefined);
  EXPECT_EQ(decoded<KeyValue>("0A 01 61 10 13").value(), KeyValue::UTF16String);             // 19
  EXPECT_EQ(decoded<KeyValue>("0A 01 61 10 26").value(), KeyValue::TambType_end_delimiter);  // 38
}

TEST(GoldenBytes, EngineFrontEndRequest) {
  const auto timed = decoded<EngineFrontEndRequest>(
      "08 04 "         // type (1) = WaitForStop
      "10 B0 EA 01");  // timeOutMilliseconds (2) = 30000 = 48 + 106 * 2^7 + 1 * 2^14
  EXPECT_EQ(timed.type(), EngineFrontEndRequest::WaitForStop);
  EXPECT_EQ(timed.timeoutmilliseconds(), 30'000U);

  const auto run = decoded<EngineFrontEndRequest>("08 00");  // type (1) = Run
  EXPECT_TRUE(run.has_type());
  EXPECT_EQ(run.type(), EngineFrontEndRequest::Run);
  EXPECT_FALSE(run.has_timeoutmilliseconds());

  EXPECT_EQ(decoded<EngineFrontEndRequest>("08 01").type(), EngineFrontEndRequest::Ping);
  EXPECT_EQ(decoded<EngineFrontEndRequest>("08 02").type(), EngineFrontEndRequest::RequestStart);
  EXPECT_EQ(decoded<EngineFrontEndRequest>("08 03").type(), EngineFrontEndRequest::RequestStop);
  EXPECT_EQ(decoded<EngineFrontEndRequest>("08 05").type(), EngineFrontEndRequest::FrontEndTermination);
  EXPECT_EQ(decoded<EngineFrontEndRequest>("08 06").type(), EngineFrontEndRequest::HeartBeat);
}

TEST(GoldenBytes, EngineBackEndReply) {
  const auto failure = decoded<EngineBackEndReply>(
      "08 00 "              // type (1) = Failure
      "12 04 64 65 61 64 "  // errorString (2) = "dead"
      "1A 03 6F 00 6B");    // replyString (3) = "o", a zero byte, "k"
  EXPECT_EQ(failure.type(), EngineBackEndReply::Failure);
  EXPECT_EQ(failure.errorstring(), "dead");
  EXPECT_EQ(failure.replystring(), "o\0k"s);

  const auto success = decoded<EngineBackEndReply>("08 01");  // type (1) = Success
  EXPECT_EQ(success.type(), EngineBackEndReply::Success);
  EXPECT_FALSE(success.has_errorstring());
  EXPECT_FALSE(success.has_replystring());

  // A text that is there and empty is not one that is absent.
  const auto empty = decoded<EngineBackEndReply>(
      "08 01 "   // type (1) = Success
      "1A 00");  // replyString (3) = ""
  EXPECT_FALSE(empty.has_errorstring());
  EXPECT_TRUE(empty.has_replystring());
}

TEST(GoldenBytes, EngineStatus) {
  EXPECT_EQ(decoded<EngineStatus>("08 00").status(), EngineStatus::Undefined);
  EXPECT_EQ(decoded<EngineStatus>("08 01").status(), EngineStatus::Running);
  EXPECT_EQ(decoded<EngineStatus>("08 02").status(), EngineStatus::Idle);
  EXPECT_EQ(decoded<EngineStatus>("08 03").status(), EngineStatus::EndOfLife);
}

TEST(GoldenBytes, AnUnknownEnumValueLeavesTheFieldAbsent) {
  EngineStatus status;
  EXPECT_TRUE(status.ParsePartialFromString(fromHex("08 04")));
  EXPECT_FALSE(status.has_status());
  EXPECT_FALSE(status.IsInitialized());

  EngineFrontEndRequest request;
  EXPECT_TRUE(request.ParsePartialFromString(fromHex("08 07")));
  EXPECT_FALSE(request.has_type());
  EXPECT_FALSE(request.IsInitialized());

  EngineBackEndReply reply;
  EXPECT_TRUE(reply.ParsePartialFromString(fromHex("08 02")));
  EXPECT_FALSE(reply.has_type());
  EXPECT_FALSE(reply.IsInitialized());

  KeyValue keyValue;
  EXPECT_TRUE(keyValue.ParsePartialFromString(fromHex("0A 01 61 10 27")));
  EXPECT_FALSE(keyValue.has_value());
  EXPECT_FALSE(keyValue.IsInitialized());
}

TEST(GoldenBytes, AMessageWithoutARequiredFieldIsIncomplete) {
  CommandMessage command;
  EXPECT_TRUE(command.ParsePartialFromString(fromHex("12 03 43 75 74")));
  EXPECT_EQ(command.InitializationErrorString(), "mediaTime, commandId, workflowManagerId, engineId, stepId");

  MediaTime time;
  EXPECT_TRUE(time.ParsePartialFromString(fromHex("0A 02 08 19 10 00")));
  EXPECT_EQ(time.InitializationErrorString(), "editRate.denominator");
}

namespace service = qor::proto::api_service;

TEST(GoldenBytes, EngineSubmission) {
  const auto submission = decoded<service::EngineSubmission>(
      "0A 03 77 00 6D "                    // workflowManagerId (1) = "w", a zero byte, "m"
      "12 02 7B 7D "                       // description (2) = "{}"
      "18 FF FF FF FF FF FF FF FF FF 01 "  // engineId (3) = -1, ten bytes although it has 32 bits
      "20 01");                            // version (4) = 1
  EXPECT_EQ(submission.workflowmanagerid(), "w\0m"s);
  EXPECT_EQ(submission.description(), "{}");
  EXPECT_EQ(submission.engineid(), -1);
  EXPECT_EQ(submission.version(), 1);
}

TEST(GoldenBytes, ApiToServiceRequest) {
  const auto request = decoded<service::ApiToServiceRequest>(
      "08 04 "           // kind (1) = ENGINE_SUBMISSION
      "A2 06 0E "        // ApiToServiceRequestEngineSubmission (100: 802 = 34 + 6 * 2^7), 14 bytes
      "   0A 02 77 6D "  //   workflowManagerId (1) = "wm"
      "   12 02 7B 7D "  //   description (2) = "{}"
      "   18 AC 02 "     //   engineId (3) = 300
      "   20 96 01");    //   version (4) = 150
  EXPECT_EQ(request.kind(), service::ApiToServiceRequest::ENGINE_SUBMISSION);
  ASSERT_TRUE(request.HasExtension(service::ApiToServiceRequestEngineSubmission));
  const auto& submission = request.GetExtension(service::ApiToServiceRequestEngineSubmission);
  EXPECT_EQ(submission.workflowmanagerid(), "wm");
  EXPECT_EQ(submission.description(), "{}");
  EXPECT_EQ(submission.engineid(), 300);
  EXPECT_EQ(submission.version(), 150);

  // An unknown kind can be read.
  const auto other =
      decoded<service::ApiToServiceRequest>("08 F9 FF FF FF FF FF FF FF FF 01");  // kind (1) = -7
  EXPECT_EQ(other.kind(), -7);
  EXPECT_FALSE(other.HasExtension(service::ApiToServiceRequestEngineSubmission));
}

TEST(GoldenBytes, SubmittedEngine) {
  const auto engine = decoded<service::SubmittedEngine>(
      "0A 09 74 63 70 3A 2F 2F 68 3A 31 "   // requestEndpoint (1) = "tcp://h:1"
      "12 09 74 63 70 3A 2F 2F 68 3A 32 "   // statusEndpoint (2) = "tcp://h:2"
      "1A 09 74 63 70 3A 2F 2F 68 3A 33 "   // commandEndpoint (3) = "tcp://h:3"
      "22 09 74 63 70 3A 2F 2F 68 3A 34");  // notificationEndpoint (4) = "tcp://h:4"
  EXPECT_EQ(engine.requestendpoint(), "tcp://h:1");
  EXPECT_EQ(engine.statusendpoint(), "tcp://h:2");
  EXPECT_EQ(engine.commandendpoint(), "tcp://h:3");
  EXPECT_EQ(engine.notificationendpoint(), "tcp://h:4");
}

TEST(GoldenBytes, ServiceToApiReply) {
  const auto submitted = decoded<service::ServiceToApiReply>(
      "08 03 "         // kind (1) = ENGINE_SUBMITTED
      "A2 06 0C "      // ServiceToApiReplyEngineSubmission (100), 12 bytes
      "   0A 01 72 "   //   requestEndpoint (1) = "r"
      "   12 01 73 "   //   statusEndpoint (2) = "s"
      "   1A 01 63 "   //   commandEndpoint (3) = "c"
      "   22 01 6E");  //   notificationEndpoint (4) = "n"
  EXPECT_EQ(submitted.kind(), service::ServiceToApiReply::ENGINE_SUBMITTED);
  EXPECT_FALSE(submitted.has_refusal());
  ASSERT_TRUE(submitted.HasExtension(service::ServiceToApiReplyEngineSubmission));
  const auto& engine = submitted.GetExtension(service::ServiceToApiReplyEngineSubmission);
  EXPECT_EQ(engine.requestendpoint(), "r");
  EXPECT_EQ(engine.statusendpoint(), "s");
  EXPECT_EQ(engine.commandendpoint(), "c");
  EXPECT_EQ(engine.notificationendpoint(), "n");

  const auto refused = decoded<service::ServiceToApiReply>(
      "08 05 "               // kind (1) = REFUSED
      "12 04 66 75 6C 6C");  // refusal (2) = "full"
  EXPECT_EQ(refused.kind(), service::ServiceToApiReply::REFUSED);
  EXPECT_EQ(refused.refusal(), "full");
  EXPECT_FALSE(refused.HasExtension(service::ServiceToApiReplyEngineSubmission));
}

}  // namespace
}  // namespace qor::multiprocess_communication::proto
