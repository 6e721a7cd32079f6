// What a rehearsal has found, for people and for programs.
#pragma once

#include "programs/zerotouch/rehearse/Rehearsal.h"

namespace Rehearsal {

struct Findings {
  std::string device;  // "" when nobody was asked
  Wire::EthAddr port;
  Identity const& identity;
  std::optional<Hearing> hearing;
  std::optional<Download> download;
  Verdict verdict;
};

void show(Findings const& findings);
Kel::Value jsonOf(Findings const& findings);

}  // namespace Rehearsal
