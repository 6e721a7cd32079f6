#include "platform/linux/Original.h"

#include "platform/linux/Warnings.h"
#include "platform/linux/WholeFile.h"

namespace Linux {

Original::Original(Kel::String path, Kel::String place)
    : path_(std::move(path)), place_(std::move(place) + "\n") {
  auto const file = readWhole(path_);
  if (file && file->starts_with(place_)) value_ = file->substr(place_.size());
}

void Original::valueIs(Kel::String const& value) {
  value_ = value;
  Kel::String const reason = replaceWhole(path_, place_ + value, 0600);
  if (!reason.empty()) undoJournalFailed.log(path_, "cannot write it", reason);
}

void Original::discard() {
  if (!value_) return;
  value_.reset();
  Kel::String const reason = replaceWhole(path_, std::nullopt);
  if (!reason.empty()) undoJournalFailed.log(path_, "cannot remove it", reason);
}

}  // namespace Linux
