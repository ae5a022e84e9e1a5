#include "runtime/tamb/BoundedLog.h"

#include <fmt/format.h>

#include <utility>

namespace tamb {

namespace {

constexpr std::uint64_t writtenInFull = 10;

bool isPowerOfTen(std::uint64_t number) {
  while (number >= 10 && number % 10 == 0) number /= 10;
  return number == 1;
}

}  // namespace

BoundedLog::BoundedLog(LogLevel level, std::string kind) : level_(level), kind_(std::move(kind)) {}

BoundedLog::~BoundedLog() {
  const auto count = count_.load();
  if (count > writtenInFull && !isPowerOfTen(count)) WriteCount(count);
}

bool BoundedLog::Count() {
  const auto count = ++count_;
  if (count > writtenInFull && isPowerOfTen(count)) WriteCount(count);
  return count <= writtenInFull;
}

void BoundedLog::WriteCount(std::uint64_t count) const {
  WriteLogRecord(
      level_, fmt::format("{}: {} so far, of which the first {} were logged", kind_, count, writtenInFull));
}

}  // namespace tamb
