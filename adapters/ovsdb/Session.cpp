#include "adapters/ovsdb/Session.h"

#include <algorithm>

namespace Ovsdb {

namespace {

std::string timeText(std::chrono::milliseconds time) {
  auto const count = time.count();
  return count % 1000 == 0 ? std::to_string(count / 1000) + " s" : std::to_string(count) + " ms";
}

std::string shown(Json const& value) {
  std::string text = value.dump(-1, ' ', false, Json::error_handler_t::replace);
  if (text.size() > 200) text.replace(197, std::string::npos, "...");
  return text;
}

}  // namespace

std::string againText(std::chrono::milliseconds pause) { return "; tries again in " + timeText(pause); }

Session::Session(Agent::Loop& loop, Endpoint endpoint, TlsFiles files, Pauses pauses, Handlers handlers)
    : loop_(loop),
      endpoint_(std::move(endpoint)),
      files_(std::move(files)),
      pauses_(pauses),
      handlers_(std::move(handlers)),
      pause_(pauses),
      retry_(loop, [this] { connect(); }),
      silence_(loop, [this] { silent(); }),
      resume_(loop, [this] { deliver(); }) {
  retry_.start({});
}

Session::~Session() = default;

void Session::connect() {
  cutter_ = {};
  probed_ = false;
  try {
    connection_ =
        std::make_unique<Connection>(loop_, endpoint_, files_,
                                     Connection::Handlers{[this] {
                                                            open_ = true;
                                                            handlers_.opened();
                                                          },
                                                          [this](std::string_view piece) { received(piece); },
                                                          [this](std::string const& cause) { fail(cause); }});
  } catch (std::system_error const& error) {
    return fail(error.code().message());
  } catch (std::exception const& error) {
    return fail(error.what());
  }
  silence_.start(pauses_.silence);
}

void Session::fail(std::string const& cause) {
  if (connection_) connection_->shut();  // destroyed later: it may be what calls
  open_ = false;
  held_ = false;
  answers_.clear();
  silence_.cancel();
  resume_.cancel();
  auto const pause = pause_.next();
  retry_.start(pause);
  handlers_.failed(cause, pause);
}

void Session::send(Json const& message) { connection_->send(message.dump()); }

void Session::request(std::string const& method, Json params, Answer answer) {
  if (!open_) return;
  answers_[++lastId_] = std::move(answer);
  send({{"id", lastId_}, {"method", method}, {"params", std::move(params)}});
}

void Session::heldIs(bool on) {
  held_ = on;
  if (!open_) return;
  // This side delays the messages, not the server.
  on ? silence_.cancel() : silence_.start(pauses_.silence);
  connection_->readingIs(!on);
  // Messages that were cut already are delivered in a turn of their own.
  if (!on) resume_.start({});
}

void Session::received(std::string_view piece) {
  probed_ = false;
  if (!held_) silence_.start(pauses_.silence);
  try {
    cutter_.append(piece);
  } catch (MessageError const& error) {
    return fail(error.what());
  }
  deliver();
}

void Session::deliver() {
  if (delivering_) return;
  delivering_ = true;
  while (open_ && !held_) {
    std::optional<Message> message = cutter_.next();
    if (!message) break;
    try {
      take(std::move(*message));
    } catch (Json::exception const& error) {
      fail(std::string("malformed JSON: ") + error.what());
    }
  }
  delivering_ = false;
}

void Session::take(Message&& message) {
  Json const skeleton = Json::parse(message.skeleton);
  auto const id = skeleton.find("id");
  bool const hasId = id != skeleton.end() && !id->is_null();
  if (skeleton.contains("method")) return call(skeleton, std::move(message.tables));
  // With an error the packaged server leaves the result out.
  if (!hasId || !(skeleton.contains("result") || skeleton.contains("error"))) {
    return fail("a message that is neither request nor answer: " + shown(skeleton));
  }
  auto const answer = id->is_number_unsigned() ? answers_.find(id->get<std::uint64_t>()) : answers_.end();
  if (answer == answers_.end()) {
    // The answer to an echo, or to an unknown request.
    if (*id != "echo") fail("an answer that nobody asked for: " + shown(skeleton));
    return;
  }
  Answer const handler = std::move(answer->second);
  answers_.erase(answer);
  handler({skeleton.value("result", Json()), skeleton.value("error", Json()), std::move(message.tables)});
}

void Session::call(Json const& skeleton, std::vector<Message::Table>&& tables) {
  auto const method = skeleton["method"].get<std::string>();
  Json const params = skeleton.value("params", Json::array());
  Json const id = skeleton.value("id", Json());
  if (id.is_null()) return handlers_.notified(method, params, std::move(tables));
  if (method == "echo") return send({{"id", id}, {"result", params}, {"error", nullptr}});
  send({{"id", id}, {"result", nullptr}, {"error", "unknown method"}});
}

void Session::silent() {
  std::string const limit = timeText(pauses_.silence);
  if (!open_) return fail("no connection within " + limit);
  if (!answers_.empty() || probed_) return fail("no answer within " + limit);
  probed_ = true;
  send({{"id", "echo"}, {"method", "echo"}, {"params", Json::array()}});
  silence_.start(pauses_.silence);
}

}  // namespace Ovsdb
