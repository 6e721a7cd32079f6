#include "platform/linux/settings/UndoJournal.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "platform/linux/Place.h"
#include "platform/linux/Warnings.h"
#include "platform/model/values/Grammar.h"

namespace Linux {

namespace {

// A file with fewer superfluous lines than this is not worth compacting.
constexpr std::size_t fewLines = 256;

Kel::String addedLine(int ifIndex, UndoJournal::Entry const& entry) {
  return "+ " + std::to_string(ifIndex) + " " + entry.item + " " + entry.original + "\n";
}

bool writeAll(int descriptor, Kel::String const& text) {
  return descriptor >= 0 && write(descriptor, text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

}  // namespace

UndoJournal::UndoJournal(Kel::String path) : path_(std::move(path)), place_(thisPlace("net") + "\n") {
  std::error_code error;
  std::filesystem::create_directories(std::filesystem::path(path_).parent_path(), error);
  // What was read is written anew: a torn last line must not run into the next one.
  if (load()) compact();
}

UndoJournal::~UndoJournal() {
  if (descriptor_ >= 0) close(descriptor_);
}

Kel::String const* UndoJournal::original(int ifIndex, Kel::String const& item) const {
  auto const device = entries_.find(ifIndex);
  if (device == entries_.end()) return nullptr;
  auto const found = std::ranges::find(device->second, item, &Entry::item);
  return found == device->second.end() ? nullptr : &found->original;
}

void UndoJournal::entryIs(int ifIndex, Kel::String const& item, Kel::String const& original) {
  if (this->original(ifIndex, item) != nullptr) return;
  Entry const entry{item, original};
  entries_[ifIndex].push_back(entry);
  ++count_;
  if (descriptor_ < 0) return compact();
  append(addedLine(ifIndex, entry));
}

void UndoJournal::entryDel(int ifIndex, Kel::String const& item) {
  auto const device = entries_.find(ifIndex);
  if (device == entries_.end()) return;
  auto& ofDevice = device->second;
  auto const found = std::ranges::find(ofDevice, item, &Entry::item);
  if (found == ofDevice.end()) return;
  Kel::String const line = "- " + std::to_string(ifIndex) + " " + found->item + "\n";
  ofDevice.erase(found);
  --count_;
  if (ofDevice.empty()) entries_.erase(device);
  append(line);
}

void UndoJournal::discard() {
  entries_.clear();
  count_ = 0;
  if (descriptor_ >= 0) close(descriptor_);
  descriptor_ = -1;
  if (unlink(path_.c_str()) != 0 && errno != ENOENT) warn("cannot remove it");
}

// Whether there is a file that counts.
bool UndoJournal::load() {
  errno = 0;
  std::ifstream file(path_);
  if (!file) {
    if (errno != ENOENT) warn("cannot read it");
    return false;
  }
  std::stringstream whole;
  whole << file.rdbuf();
  Kel::String line;
  std::getline(whole, line);
  if (line + "\n" != place_) {
    unlink(path_.c_str());
    return false;
  }
  // At the end of the file getline still gives what stands before it; a whole line leaves eof unset.
  while (std::getline(whole, line) && !whole.eof()) read(line);
  return true;
}

void UndoJournal::read(Kel::String const& line) {
  std::istringstream words(line);
  char sign = 0;
  int ifIndex = 0;
  Entry entry;
  words >> sign >> ifIndex >> entry.item;
  words.ignore(1);
  std::getline(words, entry.original);
  if (ifIndex <= 0 || entry.item.empty() || (sign != '+' && sign != '-')) {
    undoJournalFailed.log(path_, "line not understood", Grammar::printable(line));
    return;
  }
  auto& ofDevice = entries_[ifIndex];
  auto const found = std::ranges::find(ofDevice, entry.item, &Entry::item);
  bool const isThere = found != ofDevice.end();
  if (sign == '+' && !isThere) {
    ofDevice.push_back(entry);
    ++count_;
  } else if (sign == '-' && isThere) {
    ofDevice.erase(found);
    --count_;
  }
  if (ofDevice.empty()) entries_.erase(ifIndex);
}

void UndoJournal::compact() {
  Kel::String whole = place_;
  for (auto const& [ifIndex, ofDevice] : entries_) {
    for (Entry const& entry : ofDevice) whole += addedLine(ifIndex, entry);
  }
  Kel::String const aside = path_ + ".new";
  int const descriptor =
      open(aside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (!writeAll(descriptor, whole) || rename(aside.c_str(), path_.c_str()) != 0) {
    warn("cannot write it");
    if (descriptor >= 0) close(descriptor);
    return;
  }
  if (descriptor_ >= 0) close(descriptor_);
  descriptor_ = descriptor;
  lines_ = count_;
}

void UndoJournal::append(Kel::String const& line) {
  if (descriptor_ < 0) return;
  if (!writeAll(descriptor_, line)) {
    warn("cannot write it");
    // Half a line may have been written; the next change starts a whole file.
    close(descriptor_);
    descriptor_ = -1;
    return;
  }
  if (++lines_ > 2 * count_ + fewLines) compact();
}

void UndoJournal::warn(char const* what) const { undoJournalFailed.log(path_, what, std::strerror(errno)); }

}  // namespace Linux
