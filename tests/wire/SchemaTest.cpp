// The declarations of the schemas as tables: the order of declaration, the numbers, labels, types and names
// that every peer of this system relies on.

#include <google/protobuf/descriptor.h>
#include <google/protobuf/descriptor.pb.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "CommandAndNotification.pb.h"
#include "ParametersCollection.pb.h"
#include "TcpEngine.pb.h"
#include "qor/proto/ApiService.pb.h"

namespace qor::multiprocess_communication::proto {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::EnumDescriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::FileDescriptor;
using google::protobuf::FileOptions;

/// One field as a line of a table.
struct Field {
  std::string name;
  int number;
  FieldDescriptor::Label label;
  FieldDescriptor::Type type;
  /// Of a message or an enumeration: its name without the package.
  std::string typeName{};

  friend bool operator==(const Field&, const Field&) = default;
  friend std::ostream& operator<<(std::ostream& stream, const Field& field) {
    return stream << field.name << " = " << field.number << " (label " << field.label << ", type "
                  << field.type << ' ' << field.typeName << ')';
  }
};

using EnumValues = std::vector<std::pair<std::string, int>>;

constexpr auto required = FieldDescriptor::LABEL_REQUIRED;
constexpr auto optional = FieldDescriptor::LABEL_OPTIONAL;
constexpr auto repeated = FieldDescriptor::LABEL_REPEATED;
constexpr auto boolType = FieldDescriptor::TYPE_BOOL;
constexpr auto int32Type = FieldDescriptor::TYPE_INT32;
constexpr auto uint32Type = FieldDescriptor::TYPE_UINT32;
constexpr auto int64Type = FieldDescriptor::TYPE_INT64;
constexpr auto uint64Type = FieldDescriptor::TYPE_UINT64;
constexpr auto doubleType = FieldDescriptor::TYPE_DOUBLE;
constexpr auto stringType = FieldDescriptor::TYPE_STRING;
constexpr auto messageType = FieldDescriptor::TYPE_MESSAGE;
constexpr auto enumType = FieldDescriptor::TYPE_ENUM;

std::string withoutPackage(const std::string& fullName, const FileDescriptor& file) {
  return fullName.substr(file.package().size() + 1);
}

Field lineOf(const FieldDescriptor& field) {
  // Encodings depend on these, too.
  EXPECT_FALSE(field.is_packed()) << field.full_name();
  EXPECT_FALSE(field.has_default_value()) << field.full_name();
  EXPECT_EQ(field.containing_oneof(), nullptr) << field.full_name();
  std::string typeName;
  if (const auto* type = field.message_type()) typeName = withoutPackage(type->full_name(), *type->file());
  if (const auto* type = field.enum_type()) typeName = withoutPackage(type->full_name(), *type->file());
  return {field.name(), field.number(), field.label(), field.type(), typeName};
}

/// The fields in the order of their declaration.
std::vector<Field> fieldsOf(const Descriptor* message) {
  std::vector<Field> fields;
  fields.reserve(static_cast<std::size_t>(message->field_count()));
  for (int i = 0; i < message->field_count(); ++i) fields.push_back(lineOf(*message->field(i)));
  return fields;
}

std::vector<std::string> messagesOf(const FileDescriptor* file) {
  std::vector<std::string> names;
  names.reserve(static_cast<std::size_t>(file->message_type_count()));
  for (int i = 0; i < file->message_type_count(); ++i) names.push_back(file->message_type(i)->name());
  return names;
}

std::vector<std::string> nestedMessagesOf(const Descriptor* message) {
  std::vector<std::string> names;
  names.reserve(static_cast<std::size_t>(message->nested_type_count()));
  for (int i = 0; i < message->nested_type_count(); ++i) names.push_back(message->nested_type(i)->name());
  return names;
}

EnumValues valuesOf(const EnumDescriptor* enumeration) {
  EnumValues values;
  for (int i = 0; i < enumeration->value_count(); ++i) {
    values.emplace_back(enumeration->value(i)->name(), enumeration->value(i)->number());
  }
  return values;
}

void expectFile(const FileDescriptor* file, std::string_view name, std::string_view package) {
  EXPECT_EQ(file->name(), name);
  EXPECT_EQ(file->package(), package);
  EXPECT_EQ(file->syntax(), FileDescriptor::SYNTAX_PROTO2);
  EXPECT_TRUE(file->options().has_optimize_for()) << name;
  EXPECT_EQ(file->options().optimize_for(), FileOptions::SPEED);
  EXPECT_EQ(file->dependency_count(), 0);
  EXPECT_EQ(file->enum_type_count(), 0);
  EXPECT_EQ(file->service_count(), 0);
}

constexpr std::string_view package = "qor.multiprocess_communication.proto";

TEST(Schema, CommandAndNotification) {
  const FileDescriptor* file = CommandMessage::descriptor()->file();
  expectFile(file, "CommandAndNotification.proto", package);
  EXPECT_EQ(file->extension_count(), 0);
  EXPECT_EQ(messagesOf(file), (std::vector<std::string>{
                                  "ParametersCollectionCommon",
                                  "ParametersCollectionPrototype",
                                  "ParametersCollectionInstance",
                                  "EditRate",
                                  "MediaTime",
                                  "CommandMessage",
                                  "CommandMessageList",
                                  "NotificationMessage",
                                  "NotificationMessageList",
                              }));
}

TEST(Schema, ParametersCollectionCommon) {
  using Common = ParametersCollectionCommon;
  EXPECT_EQ(nestedMessagesOf(Common::descriptor()), (std::vector<std::string>{
                                                        "BoolKeyValue",
                                                        "Int64KeyValue",
                                                        "Uint64KeyValue",
                                                        "DoubleKeyValue",
                                                        "UTF8StringKeyValue",
                                                        "UTF16StringKeyValue",
                                                    }));
  EXPECT_EQ(
      fieldsOf(Common::descriptor()),
      (std::vector<Field>{
          {"boolParams", 1, repeated, messageType, "ParametersCollectionCommon.BoolKeyValue"},
          {"int64Params", 2, repeated, messageType, "ParametersCollectionCommon.Int64KeyValue"},
          {"uint64Params", 3, repeated, messageType, "ParametersCollectionCommon.Uint64KeyValue"},
          {"doubleParams", 4, repeated, messageType, "ParametersCollectionCommon.DoubleKeyValue"},
          {"utf8StringParams", 5, repeated, messageType, "ParametersCollectionCommon.UTF8StringKeyValue"},
          {"utf16StringParams", 6, repeated, messageType, "ParametersCollectionCommon.UTF16StringKeyValue"},
      }));

  const auto keyAnd = [](FieldDescriptor::Type type) {
    return std::vector<Field>{{"key", 1, required, stringType}, {"value", 2, required, type}};
  };
  EXPECT_EQ(fieldsOf(Common::BoolKeyValue::descriptor()), keyAnd(boolType));
  EXPECT_EQ(fieldsOf(Common::Int64KeyValue::descriptor()), keyAnd(int64Type));
  EXPECT_EQ(fieldsOf(Common::Uint64KeyValue::descriptor()), keyAnd(uint64Type));
  EXPECT_EQ(fieldsOf(Common::DoubleKeyValue::descriptor()), keyAnd(doubleType));
  EXPECT_EQ(fieldsOf(Common::UTF8StringKeyValue::descriptor()), keyAnd(stringType));
  EXPECT_EQ(fieldsOf(Common::UTF16StringKeyValue::descriptor()), keyAnd(stringType));
}

TEST(Schema, ParametersCollectionPrototypeAndInstance) {
  EXPECT_EQ(fieldsOf(ParametersCollectionPrototype::descriptor()),
            (std::vector<Field>{{"data", 1, required, messageType, "ParametersCollectionCommon"}}));
  // Numbered in reverse order of declaration.
  EXPECT_EQ(fieldsOf(ParametersCollectionInstance::descriptor()),
            (std::vector<Field>{
                {"prototype", 2, required, messageType, "ParametersCollectionPrototype"},
                {"data", 1, required, messageType, "ParametersCollectionCommon"},
            }));
}

TEST(Schema, Times) {
  EXPECT_EQ(fieldsOf(EditRate::descriptor()), (std::vector<Field>{
                                                  {"numerator", 1, required, uint32Type},
                                                  {"denominator", 2, required, uint32Type},
                                              }));
  EXPECT_EQ(fieldsOf(MediaTime::descriptor()), (std::vector<Field>{
                                                   {"editRate", 1, required, messageType, "EditRate"},
                                                   {"timeNumber", 2, required, int64Type},
                                               }));
}

TEST(Schema, Commands) {
  EXPECT_EQ(fieldsOf(CommandMessage::descriptor()),
            (std::vector<Field>{
                {"mediaTime", 1, required, messageType, "MediaTime"},
                {"commandName", 2, required, stringType},
                {"commandId", 3, required, uint64Type},
                {"workflowManagerId", 4, required, stringType},
                {"engineId", 5, required, uint64Type},
                {"stepId", 6, required, stringType},
                {"commandArgs", 8, optional, messageType, "ParametersCollectionInstance"},
            }));
  EXPECT_EQ(fieldsOf(CommandMessageList::descriptor()),
            (std::vector<Field>{{"messages", 1, repeated, messageType, "CommandMessage"}}));
}

TEST(Schema, Notifications) {
  EXPECT_EQ(fieldsOf(NotificationMessage::descriptor()),
            (std::vector<Field>{
                {"time", 1, required, messageType, "MediaTime"},
                {"workflowStep", 2, required, stringType},
                {"notificationLine", 3, required, stringType},
                {"id", 4, required, stringType},
                {"commandId", 5, required, uint64Type},
                {"workflowManagerId", 6, required, stringType},
                {"engineId", 7, required, uint64Type},
                {"notificationObject", 8, optional, messageType, "ParametersCollectionInstance"},
            }));
  EXPECT_EQ(fieldsOf(NotificationMessageList::descriptor()),
            (std::vector<Field>{{"messages", 1, repeated, messageType, "NotificationMessage"}}));
}

TEST(Schema, ParametersCollection) {
  const FileDescriptor* file = KeyValue::descriptor()->file();
  expectFile(file, "ParametersCollection.proto", package);
  EXPECT_EQ(file->extension_count(), 0);
  EXPECT_EQ(messagesOf(file), (std::vector<std::string>{"KeyValue"}));
  EXPECT_EQ(fieldsOf(KeyValue::descriptor()), (std::vector<Field>{
                                                  {"key", 1, required, stringType},
                                                  {"value", 2, required, enumType, "KeyValue.TambType"},
                                              }));
  EXPECT_EQ(valuesOf(KeyValue::TambType_descriptor()), (EnumValues{
                                                           {"Undefined", 0},
                                                           {"Bool", 1},
                                                           {"Int8", 2},
                                                           {"Uint8", 3},
                                                           {"Int16", 4},
                                                           {"Uint16", 5},
                                                           {"Int32", 6},
                                                           {"Uint32", 7},
                                                           {"Int64", 8},
                                                           {"Uint64", 9},
                                                           {"Float", 10},
                                                           {"Double", 11},
                                                           {"String", 12},
                                                           {"EditRate", 13},
                                                           {"MediaTime", 14},
                                                           {"TimeLimits", 15},
                                                           {"MediaTimeCode", 16},
                                                           {"GenericParameters", 17},
                                                           {"UTF8String", 18},
                                                           {"UTF16String", 19},
                                                           {"ColorSpace", 20},
                                                           {"FourCC", 21},
                                                           {"VideoChroma", 22},
                                                           {"VCodecFamily", 23},
                                                           {"ACodecFamily", 24},
                                                           {"AncillaryFamily", 25},
                                                           {"MetadataFamily", 26},
                                                           {"WrapperFormat", 27},
                                                           {"ContentType", 28},
                                                           {"ProResCodecVariant", 29},
                                                           {"EndiannessType", 30},
                                                           {"TrackLayout", 31},
                                                           {"QtFileLayout", 32},
                                                           {"ParametersCollectionPrototype", 33},
                                                           {"ParametersCollectionInstance", 34},
                                                           {"VideoAspectRatio", 35},
                                                           {"ElementFactoryType", 36},
                                                           {"StepType", 37},
                                                           {"TambType_end_delimiter", 38},
                                                       }));
}

TEST(Schema, TcpEngine) {
  const FileDescriptor* file = EngineStatus::descriptor()->file();
  expectFile(file, "TcpEngine.proto", package);
  EXPECT_EQ(file->extension_count(), 0);
  EXPECT_EQ(messagesOf(file),
            (std::vector<std::string>{"EngineFrontEndRequest", "EngineBackEndReply", "EngineStatus"}));

  EXPECT_EQ(fieldsOf(EngineFrontEndRequest::descriptor()),
            (std::vector<Field>{
                {"type", 1, required, enumType, "EngineFrontEndRequest.RequestType"},
                {"timeOutMilliseconds", 2, optional, uint32Type},
            }));
  EXPECT_EQ(valuesOf(EngineFrontEndRequest::RequestType_descriptor()), (EnumValues{
                                                                           {"Run", 0},
                                                                           {"Ping", 1},
                                                                           {"RequestStart", 2},
                                                                           {"RequestStop", 3},
                                                                           {"WaitForStop", 4},
                                                                           {"FrontEndTermination", 5},
                                                                           {"HeartBeat", 6},
                                                                       }));
  EXPECT_EQ(fieldsOf(EngineBackEndReply::descriptor()),
            (std::vector<Field>{
                {"type", 1, required, enumType, "EngineBackEndReply.ReplyType"},
                {"errorString", 2, optional, stringType},
                {"replyString", 3, optional, stringType},
            }));
  EXPECT_EQ(valuesOf(EngineBackEndReply::ReplyType_descriptor()),
            (EnumValues{{"Failure", 0}, {"Success", 1}}));
  EXPECT_EQ(fieldsOf(EngineStatus::descriptor()),
            (std::vector<Field>{{"status", 1, required, enumType, "EngineStatus.Status"}}));
  EXPECT_EQ(valuesOf(EngineStatus::Status_descriptor()),
            (EnumValues{{"Undefined", 0}, {"Running", 1}, {"Idle", 2}, {"EndOfLife", 3}}));
}

namespace service = qor::proto::api_service;

void expectExtensionRange(const Descriptor* message) {
  ASSERT_EQ(message->extension_range_count(), 1) << message->name();
  EXPECT_EQ(message->extension_range(0)->start, 100);
  EXPECT_EQ(message->extension_range(0)->end, 200) << "the first number behind the range";
}

TEST(Schema, ApiService) {
  const FileDescriptor* file = service::ApiToServiceRequest::descriptor()->file();
  expectFile(file, "qor/proto/ApiService.proto", "qor.proto.api_service");
  EXPECT_EQ(messagesOf(file), (std::vector<std::string>{"ApiToServiceRequest", "EngineSubmission",
                                                        "ServiceToApiReply", "SubmittedEngine"}));

  EXPECT_EQ(fieldsOf(service::ApiToServiceRequest::descriptor()),
            (std::vector<Field>{{"kind", 1, required, int32Type}}));
  EXPECT_EQ(valuesOf(service::ApiToServiceRequest::Kind_descriptor()),
            (EnumValues{{"ENGINE_SUBMISSION", 4}}));
  expectExtensionRange(service::ApiToServiceRequest::descriptor());
  EXPECT_EQ(fieldsOf(service::EngineSubmission::descriptor()),
            (std::vector<Field>{
                {"workflowManagerId", 1, required, stringType},
                {"description", 2, required, stringType},
                {"engineId", 3, required, int32Type},
                {"version", 4, required, int32Type},
            }));

  EXPECT_EQ(fieldsOf(service::ServiceToApiReply::descriptor()),
            (std::vector<Field>{{"kind", 1, required, int32Type}, {"refusal", 2, optional, stringType}}));
  EXPECT_EQ(valuesOf(service::ServiceToApiReply::Kind_descriptor()),
            (EnumValues{{"ENGINE_SUBMITTED", 3}, {"REFUSED", 5}}));
  expectExtensionRange(service::ServiceToApiReply::descriptor());
  EXPECT_EQ(fieldsOf(service::SubmittedEngine::descriptor()),
            (std::vector<Field>{
                {"requestEndpoint", 1, required, stringType},
                {"statusEndpoint", 2, required, stringType},
                {"commandEndpoint", 3, required, stringType},
                {"notificationEndpoint", 4, required, stringType},
            }));
}

TEST(Schema, ApiServiceExtensions) {
  const FileDescriptor* file = service::ApiToServiceRequest::descriptor()->file();
  ASSERT_EQ(file->extension_count(), 2);
  const FieldDescriptor* request = file->extension(0);
  EXPECT_EQ(request->containing_type(), service::ApiToServiceRequest::descriptor());
  EXPECT_EQ(lineOf(*request),
            (Field{"ApiToServiceRequestEngineSubmission", 100, optional, messageType, "EngineSubmission"}));
  const FieldDescriptor* reply = file->extension(1);
  EXPECT_EQ(reply->containing_type(), service::ServiceToApiReply::descriptor());
  EXPECT_EQ(lineOf(*reply),
            (Field{"ServiceToApiReplyEngineSubmission", 100, optional, messageType, "SubmittedEngine"}));
}

}  // namespace
}  // namespace qor::multiprocess_communication::proto
