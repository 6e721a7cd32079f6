// What the adapter sets on devices, and puts back.
//
// Each kind of setting is read and written by a DeviceSetting. DeviceSettings knows what is wanted of each
// device, sees to it once, and remembers in the journal what was there before. It does not fight: what
// somebody else changes afterwards stays changed, until something else is wanted.
#pragma once

#include <map>
#include <memory>
#include <optional>

#include "platform/linux/links/Ports.h"
#include "platform/linux/settings/UndoJournal.h"

namespace Linux {

// One kind of setting. Values are lines of text, as the journal keeps them. `argument` tells settings of one
// kind apart, as addresses; most kinds have none.
class DeviceSetting {
 public:
  virtual ~DeviceSetting() = default;
  // Nothing when the device is gone or has no such thing.
  virtual std::optional<Kel::String> read(int ifIndex, Kel::String const& argument) = 0;
  // "" or why it could not be done.
  virtual Kel::String write(int ifIndex, Kel::String const& argument, Kel::String const& value) = 0;
};

class DeviceSettings {
 public:
  // `ports` gives the names for messages.
  DeviceSettings(Kel::String const& journalPath, Kel::Ptr<Ports const> ports)
      : ports_(std::move(ports)), journal_(journalPath) {}

  // `kind` is one word without a colon.
  void settingIs(Kel::String const& kind, std::unique_ptr<DeviceSetting> setting);

  // An `item` is a kind, or a kind, a colon and an argument. A setting that fails is a warning, once.
  void wantedIs(int ifIndex, Kel::String const& item, Kel::String const& value);
  // Puts back what was found; nothing happens when nothing was changed.
  void wantedDel(int ifIndex, Kel::String const& item);
  void deviceDel(int ifIndex);
  // What is wanted and was set, but has to be set again: the kernel dropped it.
  void renew(int ifIndex, Kel::String const& item);
  // The wanted items of a device.
  std::map<Kel::String, Kel::String> const& wanted(int ifIndex) const;
  // The device is gone, and what was changed on it too.
  void forget(int ifIndex);

  // Puts everything back: what this process changed, and what an earlier one left. Returns how many settings
  // that were.
  unsigned undo();
  // What was changed stays for good.
  void keep();

 private:
  bool putBack(int ifIndex, UndoJournal::Entry const& entry);
  unsigned putBackDevice(int ifIndex);

  Kel::Ptr<Ports const> ports_;
  std::map<Kel::String, std::unique_ptr<DeviceSetting>> settings_;
  std::map<int, std::map<Kel::String, Kel::String>> wanted_;
  UndoJournal journal_;
};

}  // namespace Linux
