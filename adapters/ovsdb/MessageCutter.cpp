#include "adapters/ovsdb/MessageCutter.h"

#include <utility>

namespace Ovsdb {

namespace {

bool isSpace(char c) { return c == ' ' || c == '\n' || c == '\r' || c == '\t'; }

}  // namespace

void MessageCutter::append(std::string_view piece) {
  // Octets are copied in runs: from `begin` to the next octet with a meaning.
  std::size_t begin = 0;
  auto const copy = [&](std::size_t end) {
    target().append(piece, begin, end - begin);
    begin = end;
  };
  for (std::size_t i = 0; i < piece.size(); ++i) {
    char const c = piece[i];
    if (inString_) {
      if (escaped_) {
        escaped_ = false;
      } else if (c == '\\') {
        escaped_ = true;
      } else if (c == '"') {
        inString_ = false;
        if (rowDepth_ == 0) {
          copy(i);
          name_ = message_.skeleton.substr(message_.skeleton.rfind('"') + 1);
        }
      }
      continue;
    }
    if (brackets_.empty()) {
      if (isSpace(c)) {
        begin = i + 1;
        continue;
      }
      if (c != '{') throw MessageError(std::string("malformed JSON: '") + c + "' in the place of a message");
    }
    switch (c) {
      case '"': inString_ = true; break;
      case '{':
      case '[':
        copy(i + 1);
        open(c);
        break;
      case '}':
      case ']':
        copy(i);
        close(c);
        if (brackets_.empty()) {
          copy(i + 1);
          whole_.push_back(std::exchange(message_, {}));
          length_ = 0;
        }
        break;
      case ',':
        if (rowDepth_ != 0 && brackets_.size() == rowDepth_) {
          copy(i);
          begin = i + 1;
          endRow();
        }
        break;
      default: break;
    }
  }
  if (!brackets_.empty()) copy(piece.size());
  length_ += piece.size();
  if (length_ > lengthLimit) {
    throw MessageError("a message longer than " + std::to_string(lengthLimit) + " bytes");
  }
}

bool MessageCutter::isTable(char bracket) const {
  if (bracket != '{') return false;
  return (member_ == "result" && brackets_ == "{{") || (member_ == "params" && brackets_ == "{[{");
}

void MessageCutter::open(char bracket) {
  if (brackets_.size() == depthLimit) throw MessageError("malformed JSON: nested too deeply");
  if (rowDepth_ == 0) {
    if (brackets_.size() == 1) member_ = name_;
    if (isTable(bracket)) {
      message_.tables.push_back({name_, {}});
      rowDepth_ = brackets_.size() + 1;
    }
  }
  brackets_ += bracket;
}

void MessageCutter::close(char bracket) {
  if (brackets_.empty() || brackets_.back() != (bracket == '}' ? '{' : '[')) {
    throw MessageError(std::string("malformed JSON: '") + bracket + "' closes nothing");
  }
  if (brackets_.size() == rowDepth_) {
    endRow();
    rowDepth_ = 0;
  }
  brackets_.pop_back();
}

void MessageCutter::endRow() {
  // An empty table has no row, only space.
  if (row_.find_first_not_of(" \n\r\t") != std::string::npos) {
    message_.tables.back().rows.push_back(std::move(row_));
  }
  row_.clear();
}

std::optional<Message> MessageCutter::next() {
  if (whole_.empty()) return std::nullopt;
  std::optional<Message> result(std::move(whole_.front()));
  whole_.pop_front();
  return result;
}

}  // namespace Ovsdb
