// The verification of a boot file that was downloaded.
#pragma once

#include <cstdio>
#include <functional>
#include <memory>

#include "platform/kel/Clock.h"
#include "zerotouch/sm/ZeroTouchSm.h"
#include "zerotouch/trust/Trust.h"

namespace ZeroTouch {

// Where the content of a signed boot file is written while its signature is verified. Once it is believed, it
// takes the place of the download.
inline constexpr char const* verifiedBootFilePath = "/tmp/zt-verified";

// From the end of the download until it is known whether the file is believed. Its end removes what was
// written so far.
struct BootFileCheck {
  explicit BootFileCheck(std::function<void()> work) : next(std::move(work)) {}
  ~BootFileCheck();
  BootFileCheck(BootFileCheck const&) = delete;
  BootFileCheck& operator=(BootFileCheck const&) = delete;

  std::FILE* output = nullptr;
  std::unique_ptr<Verification> verification;
  Kel::Alarm next;  // for the next piece of work
};

}  // namespace ZeroTouch
