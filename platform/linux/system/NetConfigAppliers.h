// The appliers of System::NetConfig: the host name, and the resolver's configuration.
#pragma once

#include <optional>

#include "platform/kel/BootMemory.h"
#include "platform/kel/Clock.h"
#include "platform/kel/Reactor.h"
#include "platform/kel/Types.h"
#include "platform/linux/Entities.h"
#include "platform/linux/Warnings.h"

namespace Linux {

// What the system had before the adapter changed it, kept in a file so that a host that dies leaves enough
// behind for the next one to put it back.
class Original {
 public:
  // Reads what an earlier host left in the file `path`, whose directory exists. `place` is one line that says
  // what this is the original of: a file with another one is passed over. A file that cannot be written is a
  // warning: putting back then works for as long as this process lives.
  Original(Kel::String path, Kel::String about)
      : memory_(std::move(path), std::move(about)), value_(memory_.contents()) {}

  // Nothing when nothing was changed.
  std::optional<Kel::String> const& value() const { return value_; }
  // Call before the change.
  void valueIs(Kel::String const& value);
  // Forgets it and removes the file.
  void discard();

 private:
  Kel::BootMemory memory_;
  std::optional<Kel::String> value_;
};

// Gives the running system the configured host name, and says which one it has.
//
// Only the kernel's name is set. /etc/hostname is left alone: it is what the system is to be called at its
// next boot, and that the configuration which provisioning fetches decides, not a DHCP server.
class HostNameApplier {
 public:
  // The original name is kept in the file hostname.original of `runDirectory`.
  HostNameApplier(Entities const& entities, Kel::String const& runDirectory);
  HostNameApplier(HostNameApplier const&) = delete;
  HostNameApplier& operator=(HostNameApplier const&) = delete;

  // Puts the original name back; false when it was never changed.
  bool undo();
  // It stays as it is for good.
  void keep();

 private:
  void apply();
  bool set(Kel::String const& name);

  Kel::Ptr<System::NetConfig const> config_;
  Kel::Ptr<System::NetStatus> status_;
  Original original_;
  Dropped dropped_;
  Kel::Alarm pass_{[this] { apply(); }};
  Kel::Reactor reactor_;
};

// Writes the configured name servers and domain to resolv.conf(5), as a whole, and says which domain it has.
//
// What was there before comes back when nothing is configured any more, unless somebody else has written the
// file meanwhile.
class ResolvConfApplier {
 public:
  // The original file is kept as resolv.conf.original of `runDirectory`.
  ResolvConfApplier(Entities const& entities, Kel::String path, Kel::String const& runDirectory);
  ResolvConfApplier(ResolvConfApplier const&) = delete;
  ResolvConfApplier& operator=(ResolvConfApplier const&) = delete;

  // Puts the original file back; false when that was not necessary or failed.
  bool undo();
  // It stays as it is for good.
  void keep();

 private:
  void apply();
  void write(Kel::String const& contents);
  Kel::String contents();
  Kel::String domains();
  std::vector<Kel::String> nameServers();
  void updateStatus();

  Kel::Ptr<System::NetConfig const> config_;
  Kel::Ptr<System::NetStatus> status_;
  Kel::String path_;
  Original original_;
  Dropped dropped_;
  Kel::Alarm pass_{[this] { apply(); }};
  Kel::Reactor reactor_;
};

}  // namespace Linux
