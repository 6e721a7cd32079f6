#include "platform/linux/settings/UndoJournal.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sstream>

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

UndoJournal::UndoJournal(Kel::String path) : memory_(std::move(path), Kel::BootMemory::inNamespace("net")) {
  // What was read is written anew, so that a torn last line does not run into the next one.
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
  if (auto const failure = memory_.forget(); !failure.empty()) undoJournalFailed.log(failure);
}

// Whether there is a file that counts.
bool UndoJournal::load() {
  auto const contents = memory_.contents();
  std::istringstream whole(contents.value_or(""));
  // A last line without its end leaves eof set.
  for (Kel::String line; std::getline(whole, line) && !whole.eof();) read(line);
  return contents.has_value();
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
    undoJournalFailed.log(memory_.path() + ": line not understood: " + Grammar::printable(line));
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
  Kel::String whole;
  for (auto const& [ifIndex, ofDevice] : entries_) {
    for (Entry const& entry : ofDevice) whole += addedLine(ifIndex, entry);
  }
  if (descriptor_ >= 0) close(descriptor_);
  descriptor_ = -1;
  if (auto const failure = memory_.keep(whole); !failure.empty()) {
    undoJournalFailed.log(failure);
    return;
  }
  descriptor_ = open(memory_.path().c_str(), O_WRONLY | O_APPEND | O_CLOEXEC | O_NOFOLLOW);
  lines_ = count_;
}

void UndoJournal::append(Kel::String const& line) {
  if (descriptor_ < 0) return;
  if (!writeAll(descriptor_, line)) {
    undoJournalFailed.log("cannot write " + memory_.path() + ": " + std::strerror(errno));
    // Half a line may have been written; the next change starts a whole file.
    close(descriptor_);
    descriptor_ = -1;
    return;
  }
  if (++lines_ > 2 * count_ + fewLines) compact();
}

}  // namespace Linux
