#pragma once

#include <string>

namespace qor::utils {

/// Prefixes texts with an object's header, so that a log line names its origin. Objects are not owned through
/// this interface. Any thread; does not block.
class IMessageFormatter {
 public:
  virtual std::string messageHeader() const = 0;
  /// "HEADER: text". Any thread.
  std::string formatMessage(const std::string& text) const;

 protected:
  IMessageFormatter() = default;
  IMessageFormatter(const IMessageFormatter&) = default;
  IMessageFormatter& operator=(const IMessageFormatter&) = default;
  ~IMessageFormatter() = default;
};

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
/// The mix-in for classes that log, also usable on its own. The header is fixed at construction. Do not
/// delete derived objects through this class: its destructor is not virtual.
class MessageFormatter : public IMessageFormatter {
 public:
  explicit MessageFormatter(const std::string& header);
  MessageFormatter(const MessageFormatter&) = default;
  MessageFormatter& operator=(const MessageFormatter&) = default;
  ~MessageFormatter() = default;
  std::string messageHeader() const override;

 private:
  std::string header_;
};
#pragma GCC diagnostic pop

}  // namespace qor::utils
