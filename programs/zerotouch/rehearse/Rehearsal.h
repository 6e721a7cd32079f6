// A rehearsal: what the servers of a link would make of a switch that is not there yet, found out step by
// step.
#pragma once

#include <functional>

#include "platform/kel/EntityType.h"
#include "platform/linux/packets/FramePort.h"
#include "programs/zerotouch/rehearse/Messages.h"
#include "programs/zerotouchd/config/HostConfig.h"
#include "zerotouch/fetch/BootFile.h"

namespace Rehearsal {

// The switch that is played.
struct Identity {
  Wire::EthAddr systemMacAddr;
  Kel::Ptr<EntityMib::Fru> chassis = Kel::makePtr<EntityMib::Fru>();
};

// Says on standard error what is waited for.
using Tell = std::function<void(std::string const&)>;

// A router that has advertised itself.
struct Router {
  std::string address;
  bool managed = false;
};

// What a server has offered, and what a switch makes of it.
struct Offered {
  ZeroTouch::AnswerFamily family = ZeroTouch::AnswerFamily::dhcpv4;
  std::string from;  // the sender's address
  double after = 0;  // seconds since the question
  Answer answer;
  Kel::Ptr<ZeroTouch::IntfDhcpStatus const>
      result;                           // as the switch's hook reports it; null when it is ignored
  std::vector<std::string> complaints;  // the hook's
  ZeroTouch::BootFile file;
  bool counts = true;  // whether a switch asks that way on this link
  bool chosen = false;
  std::string because;  // why it is not chosen
};

struct Hearing {
  std::vector<ZeroTouch::AnswerFamily> asked;
  double seconds = 0;
  std::vector<Router> routers;
  std::vector<Offered> offers;
};

// Asks and listens for that long. Throws BadConfiguration, and std::system_error when the port cannot be
// used.
Hearing ask(Linux::FramePort const& port, Identity const& identity,
            std::vector<ZeroTouch::AnswerFamily> const& families, double seconds, Tell const& tell);

// Decides about the offers as a switch would, with the code that decides there. Returns the chosen one, or
// null.
Offered const* choose(Hearing& hearing, std::string const& device);

// What came of the boot file.
struct Download {
  std::string url;  // without a password, like all that follows
  bool received = false;
  std::string here;  // what this machine lacks to fetch it as a switch would, as a sentence; "" for nothing
  std::string outcome;  // of the server: "HTTP 200 OK", "10.0.1.1 refuses the connection"
  ZeroTouch::Problem problem = ZeroTouch::Problem::none;
  std::string refused;     // why the file, which was received, would not do; "" when it would
  bool installed = false;  // nevertheless: it can hardly be meant, but a switch does not know
  std::uint64_t bytes = 0;
  double seconds = 0;
  bool isScript = false;
  std::string firstLine;       // of a script
  std::string serverVerified;  // by which authorities; "" when it is not verified
  std::string signer;          // "" when no signature is asked for
};

// Fetches it as a switch would, into a folder that is gone afterwards.
Download fetch(ZeroTouch::BootFile const& file, Identity const& identity, HostConfig const& config,
               Tell const& tell);

// What is said at the end.
enum class Outcome { provisions, noOffer, noUsableOffer, downloadFailed, fileRefused };
struct Verdict {
  Outcome outcome = Outcome::provisions;
  std::string sentence;
  std::vector<std::string> toMend;
};
// `hearing` is null when nobody was asked.
Verdict judge(Hearing const* hearing, Download const* download, std::string const& device);

char const* name(ZeroTouch::AnswerFamily family);
char const* name(Outcome outcome);

}  // namespace Rehearsal
