// Follows what a path names, with all that lies below it, through removal and return.
#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "platform/statebase/Tree.h"

namespace Statebase {

// Remembers which paths have changed, and calls `onPending` for each change. The owner fetches them later, on
// another pass of the loop, so that many changes of one path become one. The tree outlives the watch.
class Watch : private Kel::Watcher {
 public:
  // Throws Refusal when the path cannot name anything.
  Watch(Tree const& tree, std::string_view path, std::function<void()> onPending);
  ~Watch() override;
  Watch(Watch const&) = delete;
  Watch& operator=(Watch const&) = delete;

  std::string const& path() const { return path_; }

  bool hasPending() const { return !pending_.empty(); }
  // The path that changed first of those not fetched yet. Its present value is read from the tree.
  std::string takePending();

 private:
  void onChange(Kel::Entity const& entity, std::string_view attribute, std::string_view key) override;
  void attach();
  void detach();

  Tree const& tree_;
  std::string path_;
  std::function<void()> onPending_;
  // The entity is held, so that it can be let go of after its removal; it may be reached by several paths.
  struct Watched {
    Kel::Ptr<Kel::Entity const> entity;
    std::set<std::string> paths;
  };
  std::map<Kel::Entity const*, Watched> watched_;
  // An entity came or went since attach().
  bool outdated_ = false;
  std::vector<std::string> pending_;
};

}  // namespace Statebase
