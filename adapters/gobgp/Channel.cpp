#include "adapters/gobgp/Channel.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <nghttp2/nghttp2.h>
#include <sys/epoll.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <stdexcept>
#include <utility>
#include <vector>

namespace Gobgp {

namespace {

constexpr std::size_t prefixSize = 5;                       // of a message: compressed or not, length
constexpr std::size_t messageLimit = std::size_t{1} << 26;  // far above any message of the interface
constexpr std::size_t sendLimit = std::size_t{1} << 20;
constexpr std::chrono::seconds connectLimit{10};
constexpr std::int32_t windowSize = 1 << 20;

std::string errorText(int error) { return std::generic_category().message(error); }

int numberOf(std::string_view text, int otherwise) {
  int value = otherwise;
  std::from_chars(text.data(), text.data() + text.size(), value);
  return value;
}

/// gRPC's messages have %41 for A.
std::string unescaped(std::string_view text) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    unsigned char byte = 0;
    char const* const digits = text.data() + i + 1;
    if (text[i] == '%' && i + 2 < text.size() &&
        std::from_chars(digits, digits + 2, byte, 16).ptr == digits + 2) {
      result += static_cast<char>(byte);
      i += 2;
    } else {
      result += text[i];
    }
  }
  return result;
}

std::string_view view(std::uint8_t const* data, std::size_t size) {
  return {reinterpret_cast<char const*>(data), size};
}

}  // namespace

/// What the HTTP/2 library calls, with the channel as `user`.
struct Channel::Callbacks {
  static std::shared_ptr<Call> callOf(void* user, std::int32_t stream) {
    auto const& calls = static_cast<Channel*>(user)->calls_;
    auto const found = calls.find(stream);
    return found == calls.end() ? nullptr : found->second;
  }

  static int header(nghttp2_session*, nghttp2_frame const* frame, std::uint8_t const* name,
                    std::size_t nameSize, std::uint8_t const* value, std::size_t valueSize, std::uint8_t,
                    void* user) {
    auto const call = callOf(user, frame->hd.stream_id);
    if (!call) return 0;
    if (view(name, nameSize) == ":status") call->httpStatus = numberOf(view(value, valueSize), 0);
    if (view(name, nameSize) == "grpc-status") call->grpcStatus = numberOf(view(value, valueSize), 2);
    if (view(name, nameSize) == "grpc-message") call->grpcMessage = unescaped(view(value, valueSize));
    return 0;
  }

  static int data(nghttp2_session*, std::uint8_t, std::int32_t stream, std::uint8_t const* data,
                  std::size_t size, void* user) {
    if (auto const call = callOf(user, stream)) {
      static_cast<Channel*>(user)->takeData(call, view(data, size));
    }
    return 0;
  }

  static int close(nghttp2_session*, std::int32_t stream, std::uint32_t error, void* user) {
    auto& self = *static_cast<Channel*>(user);
    auto const found = self.calls_.find(stream);
    if (found == self.calls_.end()) return 0;
    auto const call = std::move(found->second);
    self.calls_.erase(found);
    auto status = std::make_unique<Status>();
    if (call->grpcStatus >= 0) {
      *status = {call->grpcStatus, call->grpcMessage};
    } else if (call->httpStatus != 0 && call->httpStatus != 200) {
      *status = {2, "HTTP status " + std::to_string(call->httpStatus)};
    } else {
      *status = {2, std::string("the call ended with ") + nghttp2_http2_strerror(error)};
    }
    self.told_.push_back({call, {}, std::move(status)});
    return 0;
  }

  static int error(nghttp2_session*, int, char const* text, std::size_t size, void* user) {
    static_cast<Channel*>(user)->broken_ = "the server does not speak HTTP/2: " + std::string(text, size);
    return 0;
  }

  static int invalidFrame(nghttp2_session*, nghttp2_frame const*, int code, void* user) {
    static_cast<Channel*>(user)->broken_ =
        std::string("the server does not speak HTTP/2: ") + nghttp2_strerror(code);
    return 0;
  }

  static ssize_t read(nghttp2_session*, std::int32_t stream, std::uint8_t* buffer, std::size_t size,
                      std::uint32_t* flags, nghttp2_data_source*, void* user) {
    auto const call = callOf(user, stream);
    if (!call) return NGHTTP2_ERR_TEMPORAL_CALLBACK_FAILURE;
    std::size_t const count = call->body.copy(reinterpret_cast<char*>(buffer), size, call->sent);
    call->sent += count;
    if (call->sent == call->body.size()) *flags |= NGHTTP2_DATA_FLAG_EOF;
    return static_cast<ssize_t>(count);
  }
};

Channel::Channel(Agent::Loop& loop, Agent::HostPort const& address,
                 std::function<void(std::string const&)> failed)
    : loop_(loop),
      failed_(std::move(failed)),
      socket_(Agent::checked(
          ::socket(address.socket.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0), "socket")),
      authority_(address.text),
      connectDeadline_(Clock::now() + connectLimit),
      timer_(loop, [this] { checkLimits(); }) {
  int const on = 1;
  setsockopt(socket_.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  nghttp2_session_callbacks* callbacks = nullptr;
  if (nghttp2_session_callbacks_new(&callbacks) != 0) throw std::bad_alloc();
  nghttp2_session_callbacks_set_on_header_callback(callbacks, Callbacks::header);
  nghttp2_session_callbacks_set_on_data_chunk_recv_callback(callbacks, Callbacks::data);
  nghttp2_session_callbacks_set_on_stream_close_callback(callbacks, Callbacks::close);
  nghttp2_session_callbacks_set_on_invalid_frame_recv_callback(callbacks, Callbacks::invalidFrame);
  nghttp2_session_callbacks_set_error_callback2(callbacks, Callbacks::error);
  int const made = nghttp2_session_client_new(&session_, callbacks, this);
  nghttp2_session_callbacks_del(callbacks);
  if (made != 0) throw std::bad_alloc();
  std::array<nghttp2_settings_entry, 2> const settings{
      {{NGHTTP2_SETTINGS_ENABLE_PUSH, 0}, {NGHTTP2_SETTINGS_INITIAL_WINDOW_SIZE, windowSize}}};
  nghttp2_submit_settings(session_, NGHTTP2_FLAG_NONE, settings.data(), settings.size());
  nghttp2_session_set_local_window_size(session_, NGHTTP2_FLAG_NONE, 0, 4 * windowSize);

  // An immediate refusal is reported from the loop too: the socket is ready then, with its error. The error
  // of a call that leaves none in the socket is kept.
  auto const* const peer = reinterpret_cast<sockaddr const*>(&address.socket);
  if (connect(socket_.get(), peer, address.length) < 0 && errno != EINPROGRESS) broken_ = errorText(errno);
  loop_.watch(
      socket_.get(), [this] { ready(); }, EPOLLIN | EPOLLOUT);
  watchesOutput_ = true;
  startTimer();
}

Channel::~Channel() {
  loop_.unwatch(socket_.get());
  nghttp2_session_del(session_);
}

void Channel::call(std::string method, std::string_view request, CallHandlers handlers,
                   std::chrono::nanoseconds limit) {
  auto const call = std::make_shared<Call>();
  call->method = std::move(method);
  call->handlers = std::move(handlers);
  call->limit = limit;
  call->deadline = Clock::now() + limit;
  call->body.push_back('\0');
  for (unsigned shift = 32; shift != 0; shift -= 8) {
    call->body.push_back(static_cast<char>(request.size() >> (shift - 8) & 0xFF));
  }
  call->body += request;

  std::array<std::pair<std::string_view, std::string_view>, 6> const headers{
      {{":method", "POST"},
       {":scheme", "http"},
       {":path", call->method},
       {":authority", authority_},
       {"content-type", "application/grpc"},
       {"te", "trailers"}}};
  std::vector<nghttp2_nv> fields;
  auto const octets = [](std::string_view text) {
    // The library copies them, and takes no pointer to constants all the same.
    return const_cast<std::uint8_t*>(reinterpret_cast<std::uint8_t const*>(text.data()));
  };
  for (auto const& [name, value] : headers) {
    fields.push_back({octets(name), octets(value), name.size(), value.size(), NGHTTP2_NV_FLAG_NONE});
  }
  nghttp2_data_provider provider{};
  provider.read_callback = Callbacks::read;
  std::int32_t const stream =
      nghttp2_submit_request(session_, nullptr, fields.data(), fields.size(), &provider, nullptr);
  if (stream < 0) {
    broken_ = nghttp2_strerror(stream);
  } else {
    calls_.emplace(stream, call);
  }
  // The loop sends it, so that no failure is reported from within call().
  watch(true);
  startTimer();
}

void Channel::ready() {
  std::weak_ptr<void> const self = self_;
  if (!isConnected_) finishConnect();
  if (has(self) && isConnected_) receive();
  if (has(self) && isConnected_) send();
}

void Channel::finishConnect() {
  int error = 0;
  socklen_t size = sizeof error;
  getsockopt(socket_.get(), SOL_SOCKET, SO_ERROR, &error, &size);
  if (error != 0) broken_ = errorText(error);
  if (!broken_.empty()) return fail(broken_);
  isConnected_ = true;
}

void Channel::receive() {
  std::array<std::uint8_t, 65536> buffer;
  ssize_t const count = read(socket_.get(), buffer.data(), buffer.size());
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
  if (count < 0) return fail(errorText(errno));
  ssize_t const taken =
      count == 0 ? 0 : nghttp2_session_mem_recv(session_, buffer.data(), static_cast<std::size_t>(count));
  std::weak_ptr<void> const self = self_;
  deliver();
  if (!has(self)) return;
  if (count == 0) return fail("the server closed the connection");
  if (taken < 0) {
    return fail(std::string("the server does not speak HTTP/2: ") +
                nghttp2_strerror(static_cast<int>(taken)));
  }
  if (!broken_.empty()) return fail(broken_);
}

/// Calls the handlers after the library has returned: a handler may call, and may destroy the channel.
void Channel::deliver() {
  std::weak_ptr<void> const self = self_;
  while (has(self) && !told_.empty()) {
    Told const told = std::move(told_.front());
    told_.pop_front();
    if (told.status) {
      told.call->handlers.end(*told.status);
    } else {
      told.call->handlers.message(told.message);
    }
  }
}

void Channel::takeData(std::shared_ptr<Call> const& call, std::string_view data) {
  call->deadline = Clock::now() + call->limit;
  call->received += data;
  std::size_t begin = 0;
  while (call->received.size() - begin >= prefixSize) {
    std::size_t size = 0;
    for (std::size_t i = 1; i < prefixSize; ++i) {
      size = size << 8 | static_cast<unsigned char>(call->received[begin + i]);
    }
    if (call->received[begin] != '\0' || size > messageLimit) {
      broken_ = "an answer to " + call->method + " is compressed or too long";
      break;
    }
    if (call->received.size() - begin - prefixSize < size) break;
    told_.push_back({call, call->received.substr(begin + prefixSize, size), nullptr});
    begin += prefixSize + size;
  }
  call->received.erase(0, begin);
}

void Channel::send() {
  for (;;) {
    while (out_.size() < sendLimit) {
      std::uint8_t const* data = nullptr;
      ssize_t const count = nghttp2_session_mem_send(session_, &data);
      if (count < 0) return fail(nghttp2_strerror(static_cast<int>(count)));
      if (count == 0) break;
      out_ += view(data, static_cast<std::size_t>(count));
    }
    if (out_.empty()) break;
    ssize_t const written = ::send(socket_.get(), out_.data(), out_.size(), MSG_NOSIGNAL);
    if (written < 0 && (errno == EAGAIN || errno == EINTR)) return watch(true);
    if (written < 0) return fail(errorText(errno));
    out_.erase(0, static_cast<std::size_t>(written));
  }
  watch(false);
  if (nghttp2_session_want_read(session_) == 0) fail("the server ended the connection");
}

void Channel::watch(bool forOutput) {
  if (forOutput == watchesOutput_) return;
  watchesOutput_ = forOutput;
  loop_.watch(
      socket_.get(), [this] { ready(); }, forOutput ? EPOLLIN | EPOLLOUT : EPOLLIN);
}

void Channel::startTimer() {
  auto next = isConnected_ ? Clock::time_point::max() : connectDeadline_;
  for (auto const& [stream, call] : calls_) {
    if (call->limit.count() != 0) next = std::min(next, call->deadline);
  }
  if (next != Clock::time_point::max()) timer_.start(next - Clock::now());
}

void Channel::checkLimits() {
  auto const now = Clock::now();
  if (!isConnected_ && now >= connectDeadline_) return fail("no connection within 10 s");
  for (auto const& [stream, call] : calls_) {
    if (call->limit.count() == 0 || now < call->deadline) continue;
    auto const seconds = std::chrono::duration_cast<std::chrono::seconds>(call->limit).count();
    auto const name = call->method.substr(call->method.rfind('/') + 1);
    return fail("no answer to " + name + " within " + std::to_string(seconds) + " s");
  }
  startTimer();
}

void Channel::fail(std::string cause) {
  loop_.unwatch(socket_.get());
  timer_.cancel();
  calls_.clear();
  told_.clear();
  auto const failed = std::exchange(failed_, nullptr);
  if (failed) failed(cause);
}

}  // namespace Gobgp
