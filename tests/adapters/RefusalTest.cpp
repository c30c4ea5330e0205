/// A speaker that refuses a route, by a server of the test's own: GoBGP takes whatever the adapter sends.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <nghttp2/nghttp2.h>
#include <sys/socket.h>

#include <map>
#include <set>

#include "Orb/Text.h"
#include "adapters/gobgp/Speaker.h"

namespace Gobgp {

namespace {

using namespace std::chrono_literals;

/// Takes all routes but those of one MAC, and refuses a batch that has one of it.
class RefusingSpeaker {
 public:
  RefusingSpeaker(Agent::Loop& loop, std::string refused)
      : loop_(loop),
        refused_(std::move(refused)),
        listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    EXPECT_EQ(::bind(listener_.get(), reinterpret_cast<sockaddr*>(&address), size), 0);
    ::getsockname(listener_.get(), reinterpret_cast<sockaddr*>(&address), &size);
    endpoint = "127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    ::listen(listener_.get(), 1);
    loop_.watchInput(listener_.get(), [this] { accept(); });
  }
  ~RefusingSpeaker() {
    loop_.unwatch(listener_.get());
    loop_.unwatch(client_.get());
    nghttp2_session_del(session_);
  }

  std::string endpoint;
  std::multiset<std::string> taken;  ///< MACs.
  std::size_t refusals = 0;

 private:
  struct Stream {
    std::string path, body, answer, status = "0";
    bool isOpen = false;  ///< It has no end.
    std::size_t sent = 0;
  };

  void accept() {
    client_ = Agent::Fd(::accept(listener_.get(), nullptr, nullptr));
    nghttp2_session_callbacks* callbacks = nullptr;
    nghttp2_session_callbacks_new(&callbacks);
    nghttp2_session_callbacks_set_on_header_callback(
        callbacks,
        [](nghttp2_session*, nghttp2_frame const* frame, std::uint8_t const* name, std::size_t nameSize,
           std::uint8_t const* value, std::size_t size, std::uint8_t, void* user) {
          if (textOf(name, nameSize) == ":path")
            static_cast<RefusingSpeaker*>(user)->streams_[frame->hd.stream_id].path = textOf(value, size);
          return 0;
        });
    nghttp2_session_callbacks_set_on_data_chunk_recv_callback(
        callbacks, [](nghttp2_session*, std::uint8_t, std::int32_t stream, std::uint8_t const* data,
                      std::size_t size, void* user) {
          static_cast<RefusingSpeaker*>(user)->streams_[stream].body += textOf(data, size);
          return 0;
        });
    nghttp2_session_callbacks_set_on_frame_recv_callback(
        callbacks, [](nghttp2_session*, nghttp2_frame const* frame, void* user) {
          if (frame->hd.type == NGHTTP2_DATA && (frame->hd.flags & NGHTTP2_FLAG_END_STREAM) != 0)
            static_cast<RefusingSpeaker*>(user)->answer(frame->hd.stream_id);
          return 0;
        });
    nghttp2_session_server_new(&session_, callbacks, this);
    nghttp2_session_callbacks_del(callbacks);
    nghttp2_submit_settings(session_, NGHTTP2_FLAG_NONE, nullptr, 0);
    loop_.watchInput(client_.get(), [this] { serve(); });
  }
  void serve() {
    std::array<std::uint8_t, 65536> piece;
    ssize_t const count = ::recv(client_.get(), piece.data(), piece.size(), 0);
    if (count <= 0) return loop_.unwatch(client_.get());
    nghttp2_session_mem_recv(session_, piece.data(), static_cast<std::size_t>(count));
    std::uint8_t const* data = nullptr;
    for (ssize_t size = 0; (size = nghttp2_session_mem_send(session_, &data)) > 0;)
      ::send(client_.get(), data, static_cast<std::size_t>(size), MSG_NOSIGNAL);
  }

  void answer(std::int32_t id) {
    Stream& stream = streams_[id];
    if (stream.path.ends_with("GetBgp")) {
      apipb::GetBgpResponse answer;
      answer.mutable_global()->set_asn(65001);
      stream.answer = framed(answer);
    } else if (stream.path.ends_with("WatchEvent")) {
      apipb::WatchEventResponse answer;
      answer.mutable_peer()->set_type(2);
      stream.answer = framed(answer);
      stream.isOpen = true;
    } else if (stream.path.ends_with("AddPathStream")) {
      add(stream);
    }
    nghttp2_data_provider provider{};
    provider.source.ptr = &stream;
    provider.read_callback = [](nghttp2_session* session, std::int32_t number, std::uint8_t* buffer,
                                std::size_t size, std::uint32_t* flags, nghttp2_data_source* source, void*) {
      Stream& of = *static_cast<Stream*>(source->ptr);
      std::size_t const count = of.answer.copy(reinterpret_cast<char*>(buffer), size, of.sent);
      of.sent += count;
      if (count == 0 && of.isOpen) return static_cast<ssize_t>(NGHTTP2_ERR_DEFERRED);
      if (of.sent == of.answer.size() && !of.isOpen) {
        *flags |= NGHTTP2_DATA_FLAG_EOF | NGHTTP2_DATA_FLAG_NO_END_STREAM;
        nghttp2_nv const trailer = field("grpc-status", of.status);
        nghttp2_submit_trailer(session, number, &trailer, 1);
      }
      return static_cast<ssize_t>(count);
    };
    nghttp2_nv const status = field(":status", "200");
    nghttp2_submit_response(session_, id, &status, 1, &provider);
  }
  void add(Stream& stream) {
    apipb::AddPathStreamRequest request;
    EXPECT_TRUE(request.ParseFromString(stream.body.substr(5)));
    std::multiset<std::string> macs;
    for (apipb::Path const& path : request.paths()) {
      // RD, segment, tag and a length stand before the address.
      std::string text;
      for (std::size_t i = 0; i < 6; ++i) {
        std::array<char, 4> digits;
        std::snprintf(digits.data(), digits.size(), "%02x:",
                      static_cast<unsigned char>(path.nlri_binary()[path.nlri_binary().size() - 10 + i]));
        text += digits.data();
      }
      macs.insert(text.substr(0, 17));
    }
    if (macs.contains(refused_)) {
      ++refusals;
      stream.status = "3";
    } else {
      taken.merge(macs);
    }
  }

  static std::string textOf(std::uint8_t const* data, std::size_t size) {
    return {reinterpret_cast<char const*>(data), size};
  }
  static nghttp2_nv field(std::string_view name, std::string_view value) {
    auto const octets = [](std::string_view text) {
      return const_cast<std::uint8_t*>(reinterpret_cast<std::uint8_t const*>(text.data()));
    };
    return {octets(name), octets(value), name.size(), value.size(), NGHTTP2_NV_FLAG_NONE};
  }
  static std::string framed(google::protobuf::MessageLite const& message) {
    std::string const text = message.SerializeAsString();
    return std::string(4, '\0') + static_cast<char>(text.size()) + text;
  }

  Agent::Loop& loop_;
  std::string refused_;
  Agent::Fd listener_, client_;
  nghttp2_session* session_ = nullptr;
  std::map<std::int32_t, Stream> streams_;
};

TEST(RefusalTest, ARouteThatTheSpeakerRefusesHoldsUpNoOther) {
  Agent::Loop loop;
  std::string const refused = "02:00:00:00:00:05";
  RefusingSpeaker server(loop, refused);
  std::vector<std::string> lines;
  Speaker speaker(loop, {.endpoint = server.endpoint, .identity = {65001, Wirix::IpAddr("10.99.0.1")}},
                  {[](Agent::Event const&) {}, [](Agent::SourceState, std::string const&) {},
                   [&](std::string const& line) { lines.push_back(line); }});
  std::multiset<std::string> expected;
  for (unsigned i = 1; i <= 9; ++i) {
    Wirix::EthAddr const mac = Wirix::EthAddr::ofValue(0x020000000000 + i);
    QorEvpn::Host row{QorEvpn::MacVniPair(mac, Vxlan::Vni(5000))};
    row.vtepAddrIs(Wirix::IpAddr("10.99.0.11"));
    speaker.hostIs(row);
    if (Orb::toText(mac) != refused) expected.insert(Orb::toText(mac));
  }
  speaker.beginSending();
  Agent::Timer patience(loop, [&] { loop.stop(); });
  patience.start(60s);
  loop.turnEndIs([&] {
    if (speaker.show()["refusedRoutes"] == 1 && speaker.show()["waiting"] == 0) loop.stop();
  });
  loop.run();
  EXPECT_EQ(server.taken, expected);
  EXPECT_EQ(server.refusals, 2U);  // of the batch, of the route
  EXPECT_THAT(lines,
              testing::ElementsAre(testing::HasSubstr("route of VNI 5000 MAC " + refused + " is refused")));
}

}  // namespace

}  // namespace Gobgp
