// Writes the configured name servers and domain to resolv.conf(5), as a whole, and says which domain it has.
//
// What was there before comes back when nothing is configured any more, unless somebody else has written the
// file meanwhile.
#pragma once

#include "platform/linux/Entities.h"
#include "platform/linux/Names.h"
#include "platform/linux/Original.h"
#include "platform/linux/Timer.h"

namespace Linux {

class ResolvConfApplier {
 public:
  // The original file is kept as resolv.conf.original of `runDirectory`.
  ResolvConfApplier(Entities const& entities, Kel::String path, Kel::String const& runDirectory);
  ~ResolvConfApplier();
  ResolvConfApplier(ResolvConfApplier const&) = delete;
  ResolvConfApplier& operator=(ResolvConfApplier const&) = delete;

  // Puts the original file back; false when that was not necessary or failed.
  bool undo();
  // It stays as it is for good.
  void keep();

 private:
  class Reactor;

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
  Timer pass_{[this] { apply(); }};
  Kel::Ptr<Reactor> reactor_;
};

}  // namespace Linux
