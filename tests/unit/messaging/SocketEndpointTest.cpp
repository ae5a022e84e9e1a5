#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "qor/socket/SocketEndpoint.h"

namespace qor::socket {
namespace {

using ::testing::AllOf;
using ::testing::Each;
using ::testing::Gt;
using ::testing::HasSubstr;
using ::testing::Ne;
using ::testing::ThrowsMessage;
using Transport = SocketEndpoint::Transport;

SocketEndpoint parsed(const std::string& text) { return SocketEndpoint::FromString(text); }

struct Parts {
  std::string text;
  Transport transport;
  std::string host;
  std::uint16_t port;
  std::uint16_t readers = 0;
};

const std::vector<Parts> texts{
    {"tcp://127.0.0.1:5555", Transport::Tcp, "127.0.0.1", 5555},
    {"tcp://localhost:1", Transport::Tcp, "localhost", 1},
    {"tcp://engine-7.some_rack.example:65535", Transport::Tcp, "engine-7.some_rack.example", 65535},
    {"tcp://0.0.0.0:0", Transport::Tcp, "0.0.0.0", 0},
    {"tcp://[::1]:80", Transport::Tcp, "::1", 80},
    {"tcp://[2001:db8::7]:80", Transport::Tcp, "2001:db8::7", 80},
    {"ipc:///run/engine/request", Transport::Ipc, "/run/engine/request", 0},
    {"ipc://relative path:1", Transport::Ipc, "relative path:1", 0},
    {"ipc://@abstract", Transport::Ipc, "@abstract", 0},
    {"inproc://some name", Transport::Inproc, "some name", 0},
    {"inproc://tcp://127.0.0.1:1", Transport::Inproc, "tcp://127.0.0.1:1", 0},
    {"ipc:///tmp/100%25&more=1", Transport::Ipc, "/tmp/100%25&more=1", 0},
    {"tcp://127.0.0.1:5555?readers=1", Transport::Tcp, "127.0.0.1", 5555, 1},
    {"tcp://[::1]:80?readers=2", Transport::Tcp, "::1", 80, 2},
    {"ipc:///run/engine/status?readers=1", Transport::Ipc, "/run/engine/status", 0, 1},
    {"ipc://@abstract?readers=65535", Transport::Ipc, "@abstract", 0, 65535},
    {"inproc://name?readers=7", Transport::Inproc, "name", 0, 7},
};

TEST(SocketEndpoint, IsReadIntoItsParts) {
  for (const Parts& parts : texts) {
    SCOPED_TRACE(parts.text);
    const SocketEndpoint endpoint = parsed(parts.text);
    EXPECT_EQ(endpoint.transport(), parts.transport);
    EXPECT_EQ(endpoint.host(), parts.host);
    EXPECT_EQ(endpoint.port(), parts.port);
    EXPECT_EQ(endpoint.readers(), parts.readers);
    EXPECT_EQ(endpoint.address(), parts.text.substr(0, parts.text.find('?')));
  }
}

TEST(SocketEndpoint, IsWrittenAsItWasReadAndReadBackAsTheSameEndpoint) {
  for (const Parts& parts : texts) {
    const SocketEndpoint endpoint = parsed(parts.text);
    EXPECT_EQ(endpoint.toString(Protocol::Plain), parts.text);
    EXPECT_TRUE(parsed(endpoint.toString(Protocol::Plain)) == endpoint) << parts.text;
  }
}

TEST(SocketEndpoint, IsFollowedByTheRequestedRole) {
  for (const Parts& parts : texts) {
    const SocketEndpoint endpoint = parsed(parts.text);
    EXPECT_EQ(endpoint.toString(Protocol::Publisher), parts.text + " as Publisher");
    EXPECT_EQ(endpoint.toString(Protocol::Requester), parts.text + " as Requester");
  }
}

TEST(SocketEndpoint, HasOneSpelling) {
  EXPECT_EQ(parsed("tcp://[0:0:0:0:0:0:0:1]:80").toString(Protocol::Plain), "tcp://[::1]:80");
  EXPECT_EQ(parsed("tcp://[2001:DB8::7]:80").toString(Protocol::Plain), "tcp://[2001:db8::7]:80");
  EXPECT_EQ(parsed("tcp://localhost:0080").toString(Protocol::Plain), "tcp://localhost:80");
  EXPECT_TRUE(parsed("tcp://[0::1]:80") == parsed("tcp://[::1]:80"));
  EXPECT_EQ(parsed("tcp://a:1?readers=001").toString(Protocol::Plain), "tcp://a:1?readers=1");
}

TEST(SocketEndpoint, DiffersInTransportHostPortAndParameters) {
  EXPECT_FALSE(parsed("tcp://a:1") == parsed("tcp://a:2"));
  EXPECT_FALSE(parsed("tcp://a:1") == parsed("tcp://b:1"));
  EXPECT_FALSE(parsed("ipc://a") == parsed("inproc://a"));
  EXPECT_FALSE(parsed("ipc://a") == parsed("ipc://a?readers=1"));
  EXPECT_FALSE(parsed("ipc://a?readers=2") == parsed("ipc://a?readers=1"));
}

TEST(SocketEndpoint, IsAValue) {
  SocketEndpoint endpoint = parsed("tcp://a:1");
  const SocketEndpoint copy = endpoint;
  endpoint = parsed("inproc://other");
  EXPECT_EQ(copy.toString(Protocol::Plain), "tcp://a:1");
  EXPECT_EQ(endpoint.toString(Protocol::Plain), "inproc://other");
}

struct Refused {
  std::string text;
  std::string reason;
};

const std::vector<Refused> refused{
    {"", "transport"},
    {"tcp", "transport"},
    {"TCP://a:1", "transport"},
    {"udp://a:1", "transport"},
    {" tcp://a:1", "transport"},
    {"127.0.0.1:5555", "transport"},
    {"tcp://", "the port is missing"},
    {"tcp://a", "the port is missing"},
    {"tcp://[::1]", "the port is missing"},
    {"tcp://a:", "port"},
    {"tcp://a:b", "port"},
    {"tcp://a:1 ", "port"},
    {"tcp://a:1/", "port"},
    {"tcp://a:+1", "port"},
    {"tcp://a:-1", "port"},
    {"tcp://a:65536", "port"},
    {"tcp://a:99999999999999999999", "port"},
    {"tcp://:1", "host"},
    {"tcp://a b:1", "host"},
    {"tcp://-a:1", "host"},
    {"tcp://.a:1", "host"},
    {"tcp://*:1", "host"},
    {"tcp://a/b:1", "host"},
    {"tcp://::1:80", "host"},
    {"tcp://ä:1", "host"},
    {"tcp://[::1:1", "host"},
    {"tcp://256.0.0.1:1", "IPv4"},
    {"tcp://1.2.3:1", "IPv4"},
    {"tcp://1.2.3.4.5:1", "IPv4"},
    {"tcp://[]:1", "IPv6"},
    {"tcp://[::g]:1", "IPv6"},
    {"tcp://[1.2.3.4]:1", "IPv6"},
    {"ipc://", "the path is empty"},
    {"ipc://@", "the path is empty"},
    {"ipc://" + std::string(108, 'p'), "107"},
    {"inproc://", "the name is empty"},
    {"inproc://" + std::string(65, 'n'), "64"},
    {"ipc://?readers=1", "the path is empty"},
    {"tcp://a?readers=1", "the port is missing"},
    {"tcp://a:1?", "not a list of parameters"},
    {"ipc:///what?/now", "not a list of parameters"},
    {"tcp://a:1?readers", "not a list of parameters"},
    {"tcp://a:1?readers=1&", "not a list of parameters"},
    {"tcp://a:1?&readers=1", "not a list of parameters"},
    {"tcp://a:1?reader=1", "unknown parameter"},
    {"tcp://a:1?Readers=1", "unknown parameter"},
    {"tcp://a:1?=1", "unknown parameter"},
    {"tcp://a:1?readers=1&other=2", "unknown parameter"},
    {"tcp://a:1?readers=1&readers=1", "given twice"},
    {"tcp://a:1?readers=", "readers is not a number from 1 to 65535"},
    {"tcp://a:1?readers=0", "readers is not a number from 1 to 65535"},
    {"tcp://a:1?readers=-1", "readers is not a number from 1 to 65535"},
    {"tcp://a:1?readers=65536", "readers is not a number from 1 to 65535"},
    {"tcp://a:1?readers=1?readers=1", "readers is not a number from 1 to 65535"},
    {"tcp://a:1?readers=one", "readers is not a number from 1 to 65535"},
};

TEST(NoSocketEndpoint, IsQuotedWithTheReasonAndTheExpectedForm) {
  for (const Refused& text : refused) {
    EXPECT_THAT([&] { parsed(text.text); },
                ThrowsMessage<std::runtime_error>(AllOf(
                    HasSubstr('"' + text.text + '"'), HasSubstr(text.reason), HasSubstr("tcp://HOST:PORT"),
                    HasSubstr("ipc://PATH"), HasSubstr("inproc://NAME"), HasSubstr("?readers=NUMBER"))));
  }
}

TEST(NoSocketEndpoint, IsQuotedOnOneLine) {
  for (const std::string& text :
       {std::string("tcp://a\nb:1"), std::string("ipc://a\x7f/b"), std::string("inproc://a\0b", 12)}) {
    EXPECT_THAT([&] { parsed(text); }, ThrowsMessage<std::runtime_error>(
                                           AllOf(HasSubstr("a\\"), Each(AllOf(Gt('\x1f'), Ne('\x7f'))))));
  }
}

TEST(NoSocketEndpoint, IsQuotedInUtf8) {
  const auto quotes = [](const std::string& quotation) {
    return ThrowsMessage<std::runtime_error>(HasSubstr(quotation));
  };
  EXPECT_THAT([] { parsed("tcp://\xff:1"); }, quotes(R"("tcp://\xff:1")"));
  // Cut before the character of two bytes that does not fit.
  const std::string filler(199, 'x');
  EXPECT_THAT([&] { parsed(filler + "\u00e9"); }, quotes('"' + filler + R"("…)"));
}

TEST(NoSocketEndpoint, IsQuotedInPartWhenItIsLong) {
  EXPECT_THAT([] { parsed(std::string(100'000, 'x')); },
              ThrowsMessage<std::runtime_error>(::testing::SizeIs(::testing::Le(500))));
}

TEST(SocketEndpoint, MayHaveAPathAsLongAsTheKernelTakes) {
  const std::string longest = "ipc://" + std::string(107, 'p');
  EXPECT_EQ(parsed(longest).toString(Protocol::Plain), longest);
  const std::string longestName = "inproc://" + std::string(64, 'n');
  EXPECT_EQ(parsed(longestName).toString(Protocol::Plain), longestName);
}

}  // namespace
}  // namespace qor::socket
