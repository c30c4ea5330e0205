/// Ovsdb::MessageCutter: cuts a stream of JSON-RPC messages, which follow each other without a separator,
/// into messages, and separates a message's rows, so that the rows of a full table can be parsed a part a
/// turn.
///
/// It knows where a value ends and where rows stand in the messages of RFC 7047:
///
///   {"id":1,"error":null,"result":{"TABLE":{"UUID":ROW,...},...}}
///   {"id":null,"method":"update","params":[ID,{"TABLE":{"UUID":ROW,...},...}]}
///
/// The rest of a message is the skeleton: the same message with `{}` in place of each table's rows. The
/// cutter does not check the text between two brackets or quotes; the parser of the skeleton and of the rows
/// does.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Ovsdb {

/// The stream holds something that is not a message; the text says why.
class MessageError : public std::runtime_error {
 public:
  using runtime_error::runtime_error;
};

struct Message {
  struct Table {
    std::string name;
    std::deque<std::string> rows;  ///< Each a JSON object's member: "UUID":ROW
  };
  std::string skeleton;
  std::vector<Table> tables;
};

class MessageCutter {
 public:
  static constexpr std::size_t lengthLimit = std::size_t{1} << 30;
  static constexpr std::size_t depthLimit = 64;

  /// Takes the next octets, in pieces of any size. Raises MessageError; after that the stream cannot be read
  /// on.
  void append(std::string_view piece);
  /// The next whole message, if there is one.
  std::optional<Message> next();

 private:
  void open(char bracket);
  void close(char bracket);
  void endRow();
  bool isTable(char bracket) const;
  std::string& target() { return rowDepth_ != 0 ? row_ : message_.skeleton; }

  std::deque<Message> whole_;
  Message message_;
  std::string row_;
  std::string brackets_;      ///< Those that are open, outermost first.
  std::string name_;          ///< The string that ended last outside of rows, without its quotes.
  std::string member_;        ///< Which member of the message is being read.
  std::size_t length_ = 0;    ///< Of the message so far.
  std::size_t rowDepth_ = 0;  ///< How many brackets are open where rows stand; 0 outside.
  bool inString_ = false;
  bool escaped_ = false;
};

}  // namespace Ovsdb
