#pragma once

#include <string>
#include <thread>

namespace qor::engines::test {

/// Answers each request at a port of 127.0.0.1 with the same body, one after the other, and closes the
/// connection. Ends, and joins its thread, with the test.
class HttpServer {
 public:
  /// Announces a body of `announced` bytes, of which it sends those given.
  HttpServer(std::string body, std::size_t announced);
  ~HttpServer();
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;

  std::string url(const std::string& name) const;

 private:
  void serve() const;
  void answer(int connection) const;

  const std::string answer_;
  int listener_ = -1;
  int port_ = 0;
  std::thread thread_;
};

}  // namespace qor::engines::test
