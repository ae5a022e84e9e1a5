#pragma once

#include <string>

namespace qor::utils {

/// Gives the texts of an object the object's own header, so that a log line tells who wrote it. Nobody owns
/// an object by this interface.
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

/// The mix-in for classes that log: the header is fixed at construction.
class MessageFormatter : public IMessageFormatter {
 public:
  explicit MessageFormatter(const std::string& header);
  std::string messageHeader() const override;

 protected:
  MessageFormatter(const MessageFormatter&) = default;
  MessageFormatter& operator=(const MessageFormatter&) = default;
  ~MessageFormatter() = default;

 private:
  std::string header_;
};

}  // namespace qor::utils
