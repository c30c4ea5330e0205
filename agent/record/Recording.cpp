#include "agent/record/Recording.h"

#include <algorithm>
#include <fstream>
#include <iostream>
#include <system_error>

namespace Agent {

class Recording::File {
 public:
  explicit File(std::string path) : path_(std::move(path)), stream_(path_) {
    if (!stream_)
      throw std::system_error(errno, std::generic_category(), "cannot open the recording " + path_);
    advance();
    if (!event_ || event_->op != Op::recording)
      throw std::runtime_error(path_ + ": this file is no recording");
  }

  /// When it was begun. This and side() are for a file of which nothing was taken.
  std::pair<double, Seqno32> rank() const { return {event_->time.value_or(0), event_->seq}; }
  Origin side() const { return event_->from; }
  std::string const& path() const { return path_; }
  std::optional<Event> take() {
    std::optional<Event> event = std::move(event_);
    advance();
    return event;
  }
  bool hasBadLines() const { return hasBadLines_; }

 private:
  void advance() {
    event_.reset();
    while (!event_ && std::getline(stream_, line_) && !stream_.eof()) {
      ++number_;
      try {
        event_ = parseEvent(line_);
      } catch (EventError const& error) {
        std::cerr << "qorevpn: " << path_ << ':' << number_ << ": " << error.what() << '\n';
        hasBadLines_ = true;
      }
    }
  }

  std::string path_;
  std::ifstream stream_;
  std::string line_;
  std::uint64_t number_ = 0;
  std::optional<Event> event_;
  bool hasBadLines_ = false;
};

Recording::Recording(std::vector<std::string> const& files) {
  for (std::string const& file : files) files_.push_back(std::make_unique<File>(file));
  for (auto const& file : files_) {
    if (file->side() != files_.front()->side())
      throw std::runtime_error(file->path() + " and " + files_.front()->path() +
                               ": one is an agent's recording, the other an EVPN side's; replay each alone");
  }
  std::ranges::sort(files_, {}, [](auto const& file) { return file->rank(); });
}

Recording::~Recording() = default;

std::optional<Event> Recording::next() {
  for (; at_ < files_.size(); ++at_) {
    if (auto event = files_[at_]->take()) return event;
    hasBadLines_ = hasBadLines_ || files_[at_]->hasBadLines();
  }
  return std::nullopt;
}

}  // namespace Agent
