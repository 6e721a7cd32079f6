// Follows what a path names, with all that lies below it, through removal and return.
#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "platform/statebase/Tree.h"

namespace Statebase {

// Takes note of changes, by path, and calls `onPending` for each; whoever is told fetches them later, on
// another pass of the loop, so that many changes of one thing become one. Outlived by the tree.
class Watch : private Kel::Watcher {
 public:
  // Throws Refusal when the path cannot name anything.
  Watch(Tree const& tree, std::string_view path, std::function<void()> onPending);
  ~Watch() override;
  Watch(Watch const&) = delete;
  Watch& operator=(Watch const&) = delete;

  std::string const& path() const { return path_; }

  bool hasPending() const { return !pending_.empty(); }
  // The path that changed first and is not fetched yet; what it holds now is the tree's to say.
  std::string takePending();

 private:
  void onChange(Kel::Entity const& entity, std::string_view attribute, std::string_view key) override;
  void attach();
  void detach();

  Tree const& tree_;
  std::string path_;
  std::function<void()> onPending_;
  // Held, so that nothing dangles once it is removed; one entity may be reached at several paths.
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
