// What the adapter sets on devices and puts back, and the journal of what was there before.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "platform/kel/BootMemory.h"
#include "platform/linux/links/Ports.h"

namespace Linux {

// The values that the adapter found on devices before it changed them, kept in a file so that a host that
// dies leaves enough behind for the next one to put them back.
//
// The file is a log of one line per event, written with one write(2) before the change that it is about: "+
// index item original" when something is about to be changed, "- index item" when it has been put back. It is
// replaced by a compact one when most of its lines have cancelled each other.
// Its first line names the boot and the network namespace: kernel indices mean nothing elsewhere, so a file
// from there is dropped. A last line without its end belongs to a change that was never made.
class UndoJournal {
 public:
  struct Entry {
    Kel::String item;      // one word
    Kel::String original;  // one line
  };
  // By kernel index; those of one device in the order of the changes.
  using Entries = std::map<int, std::vector<Entry>>;

  // Reads what an earlier host left in the file, which need not exist; its directory is created. A file that
  // cannot be read or written is a warning: undoing then works for as long as this process lives.
  explicit UndoJournal(Kel::String path);
  ~UndoJournal();
  UndoJournal(UndoJournal const&) = delete;
  UndoJournal& operator=(UndoJournal const&) = delete;

  Entries const& entries() const { return entries_; }
  // nullptr when the item is as it was found.
  Kel::String const* original(int ifIndex, Kel::String const& item) const;

  // Call before the change. The first original of an item is the one that counts.
  void entryIs(int ifIndex, Kel::String const& item, Kel::String const& original);
  void entryDel(int ifIndex, Kel::String const& item);
  // Forgets everything and removes the file.
  void discard();

 private:
  bool load();
  void read(Kel::String const& line);
  void compact();
  void append(Kel::String const& line);

  Kel::BootMemory memory_;
  int descriptor_ = -1;
  Entries entries_;
  std::size_t count_ = 0;  // of entries
  std::size_t lines_ = 0;  // in the file, the first one not counted
};

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

// What the adapter sets on devices, and puts back.
//
// Each kind of setting is read and written by a DeviceSetting. DeviceSettings knows what is wanted of each
// device, sees to it once, and remembers in the journal what was there before. It does not fight: what
// somebody else changes afterwards stays changed, until something else is wanted.
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
