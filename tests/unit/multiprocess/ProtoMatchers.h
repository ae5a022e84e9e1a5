#pragma once

#include <gmock/gmock.h>
#include <google/protobuf/text_format.h>
#include <google/protobuf/util/message_differencer.h>

#include <string>
#include <type_traits>

namespace qor::multiprocess_communication {

/// Whether a message has exactly the fields that a text in the text format says; it may lack required ones.
/// What is present and empty differs from what is absent.
MATCHER_P(Says, text, "") {
  std::decay_t<arg_type> expected;
  google::protobuf::TextFormat::Parser parser;
  parser.AllowPartialMessage(true);
  if (!parser.ParseFromString(text, &expected)) {
    *result_listener << "the expectation cannot be read";
    return false;
  }
  google::protobuf::util::MessageDifferencer differencer;
  std::string difference;
  differencer.ReportDifferencesToString(&difference);
  const bool isEqual = differencer.Compare(expected, arg);
  *result_listener << difference;
  return isEqual;
}

}  // namespace qor::multiprocess_communication
