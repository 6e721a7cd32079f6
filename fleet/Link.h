// The link of a server, which all downloads share equally.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <set>
#include <utility>

namespace Fleet {

// What counts is how many bytes a download that was there from the beginning would have got: each one ends
// when that number has grown by its size, however many share the link meanwhile. So nothing has to be
// computed anew for all of them when one comes or goes.
class Link {
 public:
  using Owner = std::uint32_t;

  explicit Link(double bytesPerSecond) : rate_(bytesPerSecond) {}

  // Returns the mark by which the download is ended or given up.
  double begin(double now, Owner owner, double bytes) {
    moveTo(now);
    downloads_.emplace(each_ + bytes, owner);
    return each_ + bytes;
  }
  // Returns how many bytes were still missing.
  double end(double now, Owner owner, double mark) {
    moveTo(now);
    downloads_.erase({mark, owner});
    return std::max(mark - each_, 0.0);
  }

  // The download that is complete next, if no other begins or ends before, and when.
  bool busy() const { return !downloads_.empty(); }
  Owner nextOwner() const { return downloads_.begin()->second; }
  double nextTime() const {
    if (!busy()) return std::numeric_limits<double>::infinity();
    double const missing = std::max(downloads_.begin()->first - each_, 0.0);
    return time_ + missing * static_cast<double>(downloads_.size()) / rate_;
  }

  // All bytes so far, those of downloads that were given up among them.
  double sent() const { return sent_; }
  std::size_t most() const { return most_; }  // downloads at once

 private:
  void moveTo(double now) {
    double const passed = std::max(now - time_, 0.0);
    time_ = std::max(now, time_);
    most_ = std::max(most_, downloads_.size());
    if (!busy()) return;
    each_ += passed * rate_ / static_cast<double>(downloads_.size());
    sent_ += passed * rate_;
  }

  double rate_;
  double time_ = 0;
  double each_ = 0;  // bytes that one which was always there would have
  double sent_ = 0;
  std::size_t most_ = 0;
  std::set<std::pair<double, Owner>> downloads_;
};

}  // namespace Fleet
