#include "platform/linux/settings/DeviceSettings.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sstream>
#include <utility>

#include "platform/kel/Assert.h"
#include "platform/kel/Format.h"
#include "platform/kel/Trace.h"
#include "platform/linux/Warnings.h"

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
  Kel::String failure;
  auto const contents = memory_.contents(&failure);
  if (!failure.empty()) undoJournalFailed.log(failure);
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
    undoJournalFailed.log(memory_.path() +
                          ": line not understood: " + Kel::printable(line, Kel::longestShown));
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

namespace {

Kel::TraceFacility trace("DeviceSettings");

Kel::String kindOf(Kel::String const& item) { return item.substr(0, item.find(':')); }

Kel::String argumentOf(Kel::String const& item) {
  std::size_t const colon = item.find(':');
  return colon == Kel::String::npos ? "" : item.substr(colon + 1);
}

}  // namespace

void DeviceSettings::settingIs(Kel::String const& kind, std::unique_ptr<DeviceSetting> setting) {
  settings_[kind] = std::move(setting);
}

void DeviceSettings::wantedIs(int ifIndex, Kel::String const& item, Kel::String const& value) {
  auto const found = settings_.find(kindOf(item));
  KEL_ASSERT(found != settings_.end(), "a known kind of setting");
  Kel::String& wanted = wanted_[ifIndex][item];
  if (wanted == value) return;
  wanted = value;

  DeviceSetting& setting = *found->second;
  Kel::String const argument = argumentOf(item);
  auto const current = setting.read(ifIndex, argument);
  if (current == value) return;
  Kel::String reason = "there is no such setting";
  bool const changedBefore = journal_.original(ifIndex, item) != nullptr;
  if (current) {
    journal_.entryIs(ifIndex, item, *current);
    reason = setting.write(ifIndex, argument, value);
    KEL_TRACE(trace, 5,
              ports_->describe(ifIndex)
                  << " " << item << ": " << *current << " -> " << value << " " << reason);
    if (reason.empty()) return;
    if (!changedBefore) journal_.entryDel(ifIndex, item);
  }
  // That the device went away meanwhile is no reason for a warning.
  Kel::String const name = ports_->describe(ifIndex);
  if (!name.empty()) portSettingFailed.log(item, name, value, reason);
}

void DeviceSettings::wantedDel(int ifIndex, Kel::String const& item) {
  auto const device = wanted_.find(ifIndex);
  if (device == wanted_.end() || device->second.erase(item) == 0) return;
  if (device->second.empty()) wanted_.erase(device);
  if (Kel::String const* original = journal_.original(ifIndex, item)) putBack(ifIndex, {item, *original});
}

void DeviceSettings::deviceDel(int ifIndex) {
  wanted_.erase(ifIndex);
  putBackDevice(ifIndex);
}

void DeviceSettings::renew(int ifIndex, Kel::String const& item) {
  auto const device = wanted_.find(ifIndex);
  if (device == wanted_.end()) return;
  auto const found = device->second.find(item);
  if (found == device->second.end()) return;
  Kel::String const value = std::exchange(found->second, {});
  wantedIs(ifIndex, item, value);
}

std::map<Kel::String, Kel::String> const& DeviceSettings::wanted(int ifIndex) const {
  static std::map<Kel::String, Kel::String> const none;
  auto const device = wanted_.find(ifIndex);
  return device == wanted_.end() ? none : device->second;
}

void DeviceSettings::forget(int ifIndex) {
  wanted_.erase(ifIndex);
  auto const entries = journal_.entries().find(ifIndex);
  if (entries == journal_.entries().end()) return;
  auto const ofDevice = entries->second;
  for (auto const& entry : ofDevice) journal_.entryDel(ifIndex, entry.item);
}

unsigned DeviceSettings::undo() {
  unsigned count = 0;
  wanted_.clear();
  while (!journal_.entries().empty()) count += putBackDevice(journal_.entries().begin()->first);
  journal_.discard();
  return count;
}

void DeviceSettings::keep() {
  wanted_.clear();
  journal_.discard();
}

unsigned DeviceSettings::putBackDevice(int ifIndex) {
  unsigned count = 0;
  auto const found = journal_.entries().find(ifIndex);
  if (found == journal_.entries().end()) return count;
  auto const entries = found->second;
  for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry)
    count += putBack(ifIndex, *entry) ? 1 : 0;
  return count;
}

// The entry goes also when it fails: there is nothing more that could be done, and a warning has been given.
bool DeviceSettings::putBack(int ifIndex, UndoJournal::Entry const& entry) {
  Kel::String reason = "there is no such setting";
  auto const found = settings_.find(kindOf(entry.item));
  if (found != settings_.end())
    reason = found->second->write(ifIndex, argumentOf(entry.item), entry.original);
  Kel::String const name = ports_->describe(ifIndex);
  KEL_TRACE(trace, 5, name << " " << entry.item << ": back to " << entry.original << " " << reason);
  if (!reason.empty() && !name.empty())
    portSettingFailed.log(Kel::printable(entry.item, Kel::longestShown), name,
                          Kel::printable(entry.original, Kel::longestShown), reason);
  journal_.entryDel(ifIndex, entry.item);
  return reason.empty();
}

}  // namespace Linux
