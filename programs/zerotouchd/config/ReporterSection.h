// [reporter] of platform.toml: where zerotouch-reporter posts the events of this switch. The host itself does
// not know it.
#pragma once

#include <cstdint>

#include "programs/zerotouchd/config/Toml.h"

struct ReporterConfig {
  Kel::String url;                      // url: of the collector; "": nothing is posted
  Kel::String spool;                    // spool: a folder; by default beside the run directory
  std::uint32_t spoolSize = 1U << 20U;  // spool_size: bytes

  bool operator==(ReporterConfig const&) const = default;
};

// It writes to `config`, which must outlive the reading.
Section reporterSection(ReporterConfig& config);
