#include "programs/zerotouch-reporter/Spool.h"

#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <stdexcept>

#include "platform/kel/Format.h"
#include "platform/kel/WholeFile.h"

namespace {

constexpr unsigned onlyOurs = 0600;

Kel::String randomName() {
  std::uint64_t bits = 0;
  if (getrandom(&bits, sizeof bits, 0) != sizeof bits) throw std::runtime_error("no random numbers");
  return Kel::format("%016x", bits);
}

}  // namespace

Spool::Spool(Kel::String folder, std::uint64_t maxBytes) : folder_(std::move(folder)), maxBytes_(maxBytes) {
  std::error_code error;
  std::filesystem::create_directories(folder_, error);
  if (error) throw std::runtime_error(folder_ + ": " + error.message());
  readPosition();
  readEvents();
  if (instance_.empty()) {
    instance_ = randomName();
    writePosition();
  }
  rewriteEvents();
}

Spool::~Spool() {
  if (file_ >= 0) close(file_);
}

void Spool::readPosition() {
  std::istringstream in(Kel::readFile(folder_ + "/position").value_or(""));
  Kel::String instance;
  std::uint64_t next = 0;
  if (!(in >> instance >> next >> delivered_ >> dropped_ >> host_.number >> host_.time)) {
    delivered_ = dropped_ = 0;
    host_ = {};
    return;
  }
  instance_ = instance;
  next_ = next;
}

void Spool::readEvents() {
  Kel::String const text = Kel::readFile(folder_ + "/events").value_or("");
  std::istringstream lines(text.substr(0, text.rfind('\n') + 1));
  for (Kel::String one; std::getline(lines, one);) {
    std::istringstream in(one);
    Entry entry;
    if (!(in >> entry.number >> entry.host.number >> entry.host.time) || in.get() != ' ') continue;
    std::getline(in, entry.event);
    if (entry.number < next_) continue;  // it was done with before the crash
    host_ = entry.host;
    bytes_ += one.size() + 1;
    waiting_.push_back(std::move(entry));
  }
  if (!waiting_.empty()) next_ = waiting_.back().number + 1;
}

Kel::String Spool::add(Kel::String const& event, HostPosition host) {
  Entry entry{.number = next_, .host = host, .event = event};
  Kel::String const text = line(entry);
  ssize_t const written = write(file_, text.data(), text.size());
  if (written != static_cast<ssize_t>(text.size())) {
    Kel::String const reason = written < 0 ? std::strerror(errno) : "no room";
    rewriteEvents();  // without the part that was written
    return folder_ + "/events: " + reason;
  }
  ++next_;
  host_ = host;
  bytes_ += text.size();
  waiting_.push_back(std::move(entry));
  if (bytes_ > maxBytes_) dropOldest();
  return "";
}

// Makes room for more than one event, since the file is written anew.
void Spool::dropOldest() {
  std::uint64_t const wanted = maxBytes_ / 4 * 3;
  std::uint64_t last = 0;
  for (std::uint64_t bytes = bytes_; auto const& entry : waiting_) {
    if (bytes <= wanted) break;
    bytes -= line(entry).size();
    last = entry.number;
  }
  done(last, false);
  rewriteEvents();
}

void Spool::done(std::uint64_t number, bool delivered) {
  while (!waiting_.empty() && waiting_.front().number <= number) {
    bytes_ -= line(waiting_.front()).size();
    waiting_.pop_front();
    ++(delivered ? delivered_ : dropped_);
  }
  writePosition();
  if (waiting_.empty() && ftruncate(file_, 0) != 0) rewriteEvents();
}

// What waits is numbered from its first entry on, so that the file alone tells what is still to be done.
void Spool::writePosition() const {
  std::uint64_t const first = waiting_.empty() ? next_ : waiting_.front().number;
  Kel::String const text =
      Kel::format("%s %d %d %d %d %.9f\n", instance_, first, delivered_, dropped_, host_.number, host_.time);
  Kel::replaceFile(folder_ + "/position", text, onlyOurs, false);
}

void Spool::rewriteEvents() {
  Kel::String text;
  for (auto const& entry : waiting_) text += line(entry);
  Kel::String const path = folder_ + "/events";
  Kel::replaceFile(path, text, onlyOurs, false);
  if (file_ >= 0) close(file_);
  file_ = open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC | O_NOFOLLOW | O_CREAT, onlyOurs);
  if (file_ < 0) throw std::runtime_error(path + ": " + std::strerror(errno));
}

Kel::String Spool::line(Entry const& entry) {
  return Kel::format("%d %d %.9f %s\n", entry.number, entry.host.number, entry.host.time, entry.event);
}
