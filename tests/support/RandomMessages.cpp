#include "tests/support/RandomMessages.h"

#include <array>
#include <bit>
#include <limits>
#include <utility>

#include "runtime/tamb/CommandMessage.h"
#include "runtime/tamb/NotificationMessage.h"

namespace qor::test {

namespace {

constexpr std::size_t mostKeys = 12;
constexpr std::size_t shortCharacters = 16;
constexpr std::size_t longCharacters = 1'000;

class WallClock final : public tamb::IClockInfo {
 public:
  std::string GetClockName() const override { return "wall clock"; }
};

template <class Value>
using Limits = std::numeric_limits<Value>;

void appendUtf8(std::string& text, std::uint32_t character) {
  const auto append = [&text](std::uint32_t byte) { text += static_cast<char>(byte); };
  const auto rest = [character](unsigned int shift) { return 0x80U | ((character >> shift) & 0x3FU); };
  if (character < 0x80U) {
    append(character);
  } else if (character < 0x800U) {
    append(0xC0U | (character >> 6U));
    append(rest(0));
  } else if (character < 0x10000U) {
    append(0xE0U | (character >> 12U));
    append(rest(6));
    append(rest(0));
  } else {
    append(0xF0U | (character >> 18U));
    append(rest(12));
    append(rest(6));
    append(rest(0));
  }
}

}  // namespace

std::size_t RandomMessages::upTo(std::size_t largest) {
  return std::uniform_int_distribution<std::size_t>(0, largest)(random_);
}

std::uint32_t RandomMessages::uint32() {
  constexpr auto extremes = std::to_array<std::uint32_t>(
      {0, 1, 0x7FFF'FFFF, 0x8000'0000, Limits<std::uint32_t>::max() - 1, Limits<std::uint32_t>::max()});
  return boolean() ? extremes[upTo(extremes.size() - 1)] : static_cast<std::uint32_t>(random_());
}

std::uint64_t RandomMessages::uint64() {
  constexpr auto extremes = std::to_array<std::uint64_t>(
      {0, 1, 0x7F, 0x80, 0xFFFF'FFFF, 0x1'0000'0000, 0x7FFF'FFFF'FFFF'FFFF, 0x8000'0000'0000'0000,
       Limits<std::uint64_t>::max() - 1, Limits<std::uint64_t>::max()});
  // Numbers of all lengths are equally frequent, because their encodings differ.
  return boolean() ? extremes[upTo(extremes.size() - 1)] : random_() >> upTo(63);
}

std::int64_t RandomMessages::int64() {
  constexpr auto extremes = std::to_array<std::int64_t>(
      {0, 1, -1, 0x7FFF'FFFF, -0x8000'0000LL, 0xFFFF'FFFF, Limits<std::int64_t>::min(),
       Limits<std::int64_t>::min() + 1, Limits<std::int64_t>::max()});
  if (boolean()) return extremes[upTo(extremes.size() - 1)];
  const auto number = static_cast<std::int64_t>(random_() >> upTo(63));
  return boolean() ? number : ~number;
}

double RandomMessages::real() {
  constexpr auto extremes = std::to_array<double>(
      {0.0, -0.0, 1.0, -1.0, 0.1, Limits<double>::infinity(), -Limits<double>::infinity(),
       Limits<double>::quiet_NaN(), -Limits<double>::quiet_NaN(), Limits<double>::denorm_min(),
       -Limits<double>::denorm_min(), Limits<double>::min(), Limits<double>::max(), Limits<double>::lowest(),
       Limits<double>::epsilon()});
  // Arbitrary bits, including NaNs of every kind.
  return boolean() ? extremes[upTo(extremes.size() - 1)] : std::bit_cast<double>(random_());
}

std::uint32_t RandomMessages::character() {
  struct Range {
    std::uint32_t first;
    std::uint32_t last;
  };
  // Characters of one to four bytes; there are none between the two ranges of three.
  constexpr auto ranges = std::to_array<Range>(
      {{0, 0x7F}, {0x80, 0x7FF}, {0x800, 0xD7FF}, {0xE000, 0xFFFF}, {0x10000, 0x10FFFF}});
  const Range& range = ranges[upTo(ranges.size() - 1)];
  if (oneIn(4)) return boolean() ? range.first : range.last;
  return range.first + static_cast<std::uint32_t>(upTo(range.last - range.first));
}

std::string RandomMessages::shortText() {
  std::string text;
  for (std::size_t left = upTo(shortCharacters); left > 0; --left) appendUtf8(text, character());
  return text;
}

std::string RandomMessages::text() {
  if (hadLongText_ || !oneIn(64)) return oneIn(8) ? std::string() : shortText();
  hadLongText_ = true;
  const std::string pattern = shortText() + 'x';
  std::string text;
  for (std::size_t left = upTo(longCharacters / shortCharacters); left > 0; --left) text += pattern;
  return text;
}

std::shared_ptr<const tamb::IParametersCollectionInstance> RandomMessages::collection() {
  hadLongText_ = false;
  const auto prototype = tamb::CreateParametersCollectionPrototype();
  const std::size_t keys =
      upTo(upTo(mostKeys));  // small ones are cheap, and find errors as well as large ones
  for (std::size_t i = 0; i < keys; ++i) {
    std::string key;
    do {
      key = shortText();
    } while (prototype->HasKey(key));
    const std::string description = boolean() ? "described" : "";
    switch (upTo(4)) {
      case 0:
        prototype->AddBoolKey(key, boolean(), description);
        break;
      case 1:
        prototype->AddInt64Key(key, int64(), description);
        break;
      case 2:
        prototype->AddUint64Key(key, uint64(), description);
        break;
      case 3:
        prototype->AddDoubleKey(key, real(), description);
        break;
      default:
        prototype->AddUTF8StringKey(key, text(), description);
        break;
    }
  }
  auto instance = tamb::CreateParametersCollectionInstance(prototype);
  for (const auto& [key, type] : prototype->GetKeysAndTypes()) {
    if (oneIn(4)) continue;
    if (type == tamb::TambType::Bool) instance->SetBool(key, boolean());
    if (type == tamb::TambType::Int64) instance->SetInt64(key, int64());
    if (type == tamb::TambType::Uint64) instance->SetUint64(key, uint64());
    if (type == tamb::TambType::Double) instance->SetDouble(key, real());
    if (type == tamb::TambType::UTF8String) instance->SetUTF8String(key, text());
  }
  return instance;
}

std::shared_ptr<const tamb::IParametersCollectionInstance> RandomMessages::collectionOrNone() {
  hadLongText_ = false;
  return oneIn(4) ? nullptr : collection();
}

tamb::MediaTime RandomMessages::time() {
  static const auto clock = std::make_shared<const WallClock>();
  const tamb::EditRate editRate(uint32(), uint32());
  const std::int64_t number = int64();
  return {editRate, number, boolean() ? clock : nullptr};
}

std::shared_ptr<const tamb::ICommandMessage> RandomMessages::command(const std::string& workflowManagerId,
                                                                     unsigned int engineId) {
  // One by one, in a fixed order: the order of evaluation of arguments depends on the compiler.
  tamb::CommandFields fields;
  fields.commandArgs = collectionOrNone();
  fields.time = time();
  fields.commandName = text();
  fields.commandId = uint32();
  fields.workflowManagerId = workflowManagerId;
  fields.engineId = engineId;
  fields.stepId = text();
  return std::make_shared<tamb::CommandMessage>(std::move(fields));
}

std::shared_ptr<const tamb::INotificationMessage> RandomMessages::notification(
    const std::string& workflowManagerId, unsigned int engineId) {
  tamb::NotificationFields fields;
  fields.notificationObject = collectionOrNone();
  fields.time = time();
  fields.stepId = text();
  fields.notificationLine = text();
  fields.notificationId = text();
  fields.commandId = uint32();
  fields.workflowManagerId = workflowManagerId;
  fields.engineId = engineId;
  fields.isAnError = boolean();
  return std::make_shared<tamb::NotificationMessage>(std::move(fields));
}

}  // namespace qor::test
