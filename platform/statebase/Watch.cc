#include "platform/statebase/Watch.h"

#include <algorithm>

#include "platform/kel/Assert.h"
#include "platform/statebase/Json.h"

namespace Statebase {

namespace {

// The deepest location on the way to `path` that can be resolved now. The end of a path may be unknown for a
// time: an attribute of a derived type cannot be resolved while its entity is absent.
Tree::Location closest(Tree const& tree, std::string path) {
  for (;;) {
    try {
      return tree.resolve(path);
    } catch (Refusal const&) {
      path.erase(path.rfind('/'));
    }
  }
}

}  // namespace

Watch::Watch(Tree const& tree, std::string_view path, std::function<void()> onPending)
    : tree_(tree), path_(tree.resolve(path).path), onPending_(std::move(onPending)) {
  attach();
}

Watch::~Watch() { detach(); }

void Watch::attach() {
  auto const add = [this](Kel::Ptr<Kel::Entity> const& entity, std::string const& path) {
    auto& paths = watched_[entity.get()];
    if (paths.entity == nullptr) {
      paths.entity = entity;
      entity->watcherIs(this);
    }
    paths.paths.insert(path);
  };
  // The entities on the way to the path are watched too: they tell when its end comes and goes.
  Tree::Location const at = closest(tree_, path_);
  for (auto const& [entity, path] : at.passed) add(entity, path);
  tree_.visit(at, add);
  outdated_ = false;
}

void Watch::detach() {
  for (auto const& [address, watched] : watched_) watched.entity->watcherDel(this);
  watched_.clear();
}

void Watch::onChange(Kel::Entity const& entity, std::string_view attribute, std::string_view key) {
  auto const kind = entity.entityType()->attribute(attribute)->kind;
  for (std::string const& path : watched_.at(&entity).paths) {
    std::string changed = join(path, attribute);
    if (!key.empty()) changed = join(changed, key);
    if (isWithin(path_, changed)) {
      changed = path_;
    } else if (!isWithin(changed, path_)) {
      continue;
    }
    if (kind == Kel::AttributeKind::entity || kind == Kel::AttributeKind::entities) outdated_ = true;
    if (std::ranges::find(pending_, changed) == pending_.end()) pending_.push_back(std::move(changed));
    onPending_();
  }
}

std::string Watch::takePending() {
  KEL_ASSERT(hasPending(), "hasPending()");
  if (outdated_) {
    detach();
    attach();
  }
  std::string path = std::move(pending_.front());
  pending_.erase(pending_.begin());
  return path;
}

}  // namespace Statebase
