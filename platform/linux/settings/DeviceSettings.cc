#include "platform/linux/settings/DeviceSettings.h"

#include <utility>

#include "platform/kel/Assert.h"
#include "platform/kel/Trace.h"
#include "platform/linux/Warnings.h"
#include "platform/model/values/Grammar.h"

namespace Linux {

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
    portSettingFailed.log(Grammar::printable(entry.item), name, Grammar::printable(entry.original), reason);
  journal_.entryDel(ifIndex, entry.item);
  return reason.empty();
}

}  // namespace Linux
