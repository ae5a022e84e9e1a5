#include "bench/compare/GrpcEnds.h"

#include <grpcpp/grpcpp.h>

#include <chrono>
#include <cstdio>
#include <future>
#include <stdexcept>
#include <string_view>
#include <thread>
#include <utility>

#include "bench/compare/Compare.grpc.pb.h"
#include "bench/compare/Conversions.h"

namespace qor::bench {

namespace {

constexpr std::chrono::seconds patience{60};

/// "unix:PATH" or "HOST:PORT", in gRPC's syntax.
std::string addressOf(const Addresses& addresses) {
  const std::string_view address = addresses.request;
  constexpr std::string_view ipc = "ipc://";
  if (address.starts_with(ipc)) return "unix:" + std::string(address.substr(ipc.size()));
  return std::string(address.substr(std::string_view("tcp://").size()));
}

bool isBuffered(const Case& run) {
  return run.library == Library::GrpcBuffered || run.library == Library::GrpcClientBuffered;
}

bool isClientStream(const Case& run) {
  return run.library == Library::GrpcClient || run.library == Library::GrpcClientBuffered;
}

bool isUnaryOnly(const Case& run) {
  return run.measure == Measure::ControlRoundTrip && run.library == Library::Grpc;
}

/// A separate connection: channels to one address otherwise share theirs, and two threads that wait on one
/// connection pass its events to each other. Blocks until it is connected.
std::shared_ptr<grpc::Channel> connect(const std::string& address) {
  grpc::ChannelArguments arguments;
  arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
  // By default a client that finds no server waits a second before it retries.
  arguments.SetInt(GRPC_ARG_INITIAL_RECONNECT_BACKOFF_MS, 100);
  auto channel = grpc::CreateCustomChannel(address, grpc::InsecureChannelCredentials(), arguments);
  if (!channel->WaitForConnected(std::chrono::system_clock::now() + patience)) {
    throw std::runtime_error("gRPC: nobody listens at " + address);
  }
  return channel;
}

grpc::WriteOptions optionsFor(bool mayWait) {
  grpc::WriteOptions options;
  if (mayWait) options.set_buffer_hint();
  return options;
}

void require(bool succeeded) {
  if (!succeeded) throw std::runtime_error("gRPC: the stream has ended");
}

class GrpcHostEnd : public HostEnd {
 public:
  GrpcHostEnd(const Case& run, const Addresses& addresses, Arrived arrived)
      : buffers_(isBuffered(run)), controlStub_(proto::Compare::NewStub(connect(addressOf(addresses)))) {
    // Even on another connection an open stream slows down calls, because the threads of a process share one
    // poller.
    if (isUnaryOnly(run)) return;
    exchangeStub_ = proto::Compare::NewStub(connect(addressOf(addresses)));
    exchange_ = exchangeStub_->Exchange(&exchangeContext_);
    if (isClientStream(run)) {
      commandsStub_ = proto::Compare::NewStub(connect(addressOf(addresses)));
      commands_ = commandsStub_->Commands(&commandsContext_, &nothing_);
    }
    reception_ = std::jthread([this, arrived = std::move(arrived)] {
      for (wire::NotificationMessageList list; exchange_->Read(&list);) read(list, arrived);
    });
  }
  ~GrpcHostEnd() override {
    if (!exchange_) return;
    if (commands_) {
      commands_->WritesDone();
      commands_->Finish();
    }
    exchange_->WritesDone();
    reception_.join();
    const auto status = exchange_->Finish();
    if (!status.ok())
      std::fprintf(stderr, "gRPC: the stream has ended: %s\n", status.error_message().c_str());
  }
  GrpcHostEnd(const GrpcHostEnd&) = delete;
  GrpcHostEnd& operator=(const GrpcHostEnd&) = delete;

  void ping() override {
    request_.set_type(wire::EngineFrontEndRequest::Ping);
    request_.set_timeoutmilliseconds(1'000);
    grpc::ClientContext context;
    const auto status = controlStub_->Control(&context, request_, &reply_);
    if (!status.ok()) throw std::runtime_error("gRPC: " + status.error_message());
  }
  void push(const CommandList& commands, bool moreFollow) override {
    write(commands, list_);
    const auto options = optionsFor(buffers_ && moreFollow);
    require(commands_ ? commands_->Write(list_, options) : exchange_->Write(list_, options));
  }

 private:
  const bool buffers_;
  wire::EngineFrontEndRequest request_;
  wire::EngineBackEndReply reply_;
  wire::CommandMessageList list_;
  proto::Nothing nothing_;
  grpc::ClientContext exchangeContext_;
  grpc::ClientContext commandsContext_;
  // One thread per engine: it is blocked in the read of the exchange all the time.
  const std::unique_ptr<proto::Compare::Stub> controlStub_;
  std::unique_ptr<proto::Compare::Stub> exchangeStub_;
  std::unique_ptr<proto::Compare::Stub> commandsStub_;
  std::unique_ptr<grpc::ClientReaderWriter<wire::CommandMessageList, wire::NotificationMessageList>>
      exchange_;
  std::unique_ptr<grpc::ClientWriter<wire::CommandMessageList>> commands_;
  std::jthread reception_;
};

class GrpcEngineEnd : public EngineEnd, private proto::Compare::Service {
 public:
  GrpcEngineEnd(const Case& run, const Addresses& addresses, Arrived arrived)
      : buffers_(isBuffered(run)), arrived_(std::move(arrived)) {
    grpc::ServerBuilder builder;
    builder.AddListeningPort(addressOf(addresses), grpc::InsecureServerCredentials());
    builder.RegisterService(this);
    server_ = builder.BuildAndStart();
    if (!server_) throw std::runtime_error("gRPC: cannot listen at " + addressOf(addresses));
  }
  ~GrpcEngineEnd() override { server_->Shutdown(std::chrono::system_clock::now() + std::chrono::seconds(1)); }
  GrpcEngineEnd(const GrpcEngineEnd&) = delete;
  GrpcEngineEnd& operator=(const GrpcEngineEnd&) = delete;

  void push(const NotificationList& notifications, bool moreFollow) override {
    if (!stream_) stream_ = awaitStream();
    write(notifications, list_);
    require(stream_->Write(list_, optionsFor(buffers_ && moreFollow)));
  }

 private:
  using Stream = grpc::ServerReaderWriter<wire::NotificationMessageList, wire::CommandMessageList>;

  grpc::Status Control(grpc::ServerContext* /*context*/, const wire::EngineFrontEndRequest* /*request*/,
                       wire::EngineBackEndReply* reply) override {
    reply->set_type(wire::EngineBackEndReply::Success);
    reply->set_replystring("");
    reply->set_errorstring("");
    return grpc::Status::OK;
  }
  grpc::Status Exchange(grpc::ServerContext* /*context*/, Stream* stream) override {
    // Without this, the first message would wait for a message that must not wait, which waits for the
    // writer.
    stream->SendInitialMetadata();
    opened_.set_value(stream);
    for (wire::CommandMessageList list; stream->Read(&list);) read(list, arrived_);
    return grpc::Status::OK;
  }
  grpc::Status Commands(grpc::ServerContext* /*context*/,
                        grpc::ServerReader<wire::CommandMessageList>* reader,
                        proto::Nothing* /*reply*/) override {
    for (wire::CommandMessageList list; reader->Read(&list);) read(list, arrived_);
    return grpc::Status::OK;
  }

  Stream* awaitStream() {
    auto opened = opened_.get_future();
    if (opened.wait_for(patience) != std::future_status::ready) {
      throw std::runtime_error("gRPC: no stream has been opened");
    }
    return opened.get();
  }

  const bool buffers_;
  const Arrived arrived_;
  std::promise<Stream*> opened_;
  Stream* stream_ = nullptr;  ///< the pusher's
  wire::NotificationMessageList list_;
  std::unique_ptr<grpc::Server> server_;
};

}  // namespace

std::unique_ptr<HostEnd> makeGrpcHostEnd(const Case& run, const Addresses& addresses, Arrived arrived) {
  return std::make_unique<GrpcHostEnd>(run, addresses, std::move(arrived));
}

std::unique_ptr<EngineEnd> makeGrpcEngineEnd(const Case& run, const Addresses& addresses, Arrived arrived) {
  return std::make_unique<GrpcEngineEnd>(run, addresses, std::move(arrived));
}

}  // namespace qor::bench
