// The values that the adapter found on devices before it changed them, kept in a file so that a host that
// dies leaves enough behind for the next one to put them back.
//
// The file is a log of one line per event, written with one write(2) before the change that it is about: "+
// index item original" when something is about to be changed, "- index item" when it has been put back. It is
// replaced by a compact one when most of its lines have cancelled each other.
// Its first line names the boot and the network namespace: kernel indices mean nothing elsewhere, so a file
// from there is dropped. A last line without its end belongs to a change that was never made.
#pragma once

#include <map>
#include <vector>

#include "platform/kel/BootMemory.h"

namespace Linux {

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

}  // namespace Linux
