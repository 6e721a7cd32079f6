// Callbacks for changes of entities.
//
// Reactor calls a function when an entity changes, so that no class with a hook has to be written for it.
// EntryReactors does so for all entries of a collection. Both watch for as long as they live, and keep the
// entity alive meanwhile. A callback may do anything: change or delete the entity, and destroy or replace the
// very reactor that calls it; once that is done, nothing is called any more. What a callback points to must
// outlive the reactor, which is why a reactor is a member of the object whose function it calls.
#pragma once

#include <functional>
#include <initializer_list>
#include <limits>
#include <map>
#include <memory>
#include <vector>

#include "platform/kel/Entity.h"

namespace Kel {

class Reactor {
 public:
  // One hook of the notifiees of E, as in &Ports::NotifieeConst::onPort.
  template <typename E>
  class Hook {
   public:
    template <typename N, typename... Key>
    requires std::derived_from<typename E::NotifieeConst, N> Hook(void (N::*hook)(Key const&...))
        : id_(NotifieeBase::idOf(hook)) {}

   private:
    friend class Reactor;
    NotifieeBase::HookId id_;
  };

  // Watches nothing.
  Reactor() = default;

  // Calls `call` when the attribute of `hook` changes. For a collection it is given the key if it takes one.
  template <typename E, typename N, typename... Key, typename Call>
  requires std::derived_from<typename E::NotifieeConst, N> Reactor(Ptr<E> const& entity,
                                                                   void (N::*hook)(Key const&...), Call call)
      : notifiee_(makePtr<OneHook<Call, Key...>>(entity, NotifieeBase::idOf(hook), std::move(call))) {}

  // Calls a member function of `owner` in the same way.
  template <typename E, typename N, typename... Key, typename Owner, typename... Argument>
  Reactor(Ptr<E> const& entity, void (N::*hook)(Key const&...), Owner* owner,
          void (Owner::*member)(Argument...))
      : Reactor(entity, hook, std::bind_front(member, owner)) {}

  // Calls `call`, without arguments, when one of the attributes changes.
  template <typename E, typename Call>
  Reactor(Ptr<E> const& entity, std::initializer_list<Hook<std::remove_const_t<E>>> hooks, Call call)
      : notifiee_(makePtr<SomeHooks<Call>>(entity, idsOf(hooks), std::move(call))) {}

  // Calls `call`, without arguments, whatever changes.
  template <typename E, std::invocable<> Call>
  Reactor(Ptr<E> const& entity, Call call) : Reactor(entity, {}, std::move(call)) {}

  Reactor(Reactor&& other) noexcept = default;
  Reactor& operator=(Reactor&& other) noexcept {
    end();
    notifiee_ = std::move(other.notifiee_);
    return *this;
  }
  ~Reactor() { end(); }

  // The entity that is watched; nullptr when there is none.
  Entity const* notifier() const { return notifiee_ ? notifiee_->notifierEntity() : nullptr; }

 private:
  template <typename Call, typename... Key>
  class OneHook : public NotifieeBase {
   public:
    OneHook(Ptr<Entity const> entity, HookId hook, Call call)
        : NotifieeBase(std::move(entity), allHooks), hook_(hook), call_(std::move(call)) {}

   private:
    void onHook(HookId hook, [[maybe_unused]] void const* key) override {
      if (hook != hook_) return;
      if constexpr (std::invocable<Call&, Key const&...>) {
        call_(*static_cast<Key const*>(key)...);
      } else {
        call_();
      }
    }

    HookId hook_;
    Call call_;
  };

  template <typename Call>
  class SomeHooks : public NotifieeBase {
   public:
    SomeHooks(Ptr<Entity const> entity, std::vector<HookId> hooks, Call call)
        : NotifieeBase(std::move(entity), allHooks), hooks_(std::move(hooks)), call_(std::move(call)) {}

   private:
    void onHook(HookId hook, void const*) override {
      if (hooks_.empty() || std::find(hooks_.begin(), hooks_.end(), hook) != hooks_.end()) call_();
    }

    std::vector<HookId> hooks_;  // empty: all
    Call call_;
  };

  template <typename E>
  static std::vector<NotifieeBase::HookId> idsOf(std::initializer_list<Hook<E>> hooks) {
    std::vector<NotifieeBase::HookId> ids;
    for (Hook<E> const& hook : hooks) ids.push_back(hook.id_);
    return ids;
  }

  // A delivery that is under way may hold the notifiee for longer than this object lives.
  void end() {
    if (notifiee_) notifiee_->hasNotificationActiveIs(false);
  }

  Ptr<NotifieeBase> notifiee_;
};

namespace detail {
inline Entity const* watchedBy(Reactor const& reactor) { return reactor.notifier(); }
template <typename Notifiee>
Entity const* watchedBy(Ptr<Notifiee> const& notifiee) {
  return &notifiee->notifier();
}
}  // namespace detail

// Keeps one reactor for each entry of a collection: makes that of the entry `key` with `make(entity)`,
// replaces it when the entry is another entity than before, or drops it when `entity` is null. The reactors
// are Kel::Reactor, or handles of classes with hooks. True when something changed.
template <typename Key, typename R, typename E, typename Make>
bool follow(std::map<Key, R>& reactors, std::type_identity_t<Key> const& key, Ptr<E> const& entity,
            Make&& make) {
  auto const found = reactors.find(key);
  bool const known = found != reactors.end();
  if (known ? detail::watchedBy(found->second) == entity.get() : !entity) return false;
  if (known) reactors.erase(found);
  if (entity) reactors.emplace(key, make(entity));
  return true;
}

// Follows a collection of entities: calls `call(key)` when an entry comes, goes or changes in any attribute,
// and once for each entry that is there already.
//
//   EntryReactors<Wire::IntfId> ports_{dir_, &Dir::intfConfig, &Dir::NotifieeConst::onIntfConfig,
//                                      [this](Wire::IntfId const& id) { look(id); }};
template <typename Key>
class EntryReactors {
 public:
  template <typename E, typename D, typename V, typename N>
  EntryReactors(Ptr<E> const& entity, Collection<Key, Ptr<V>> const& (D::*collection)() const,
                void (N::*hook)(Key const&), std::function<void(Key const&)> call)
      : call_(std::make_shared<std::function<void(Key const&)>>(std::move(call))) {
    auto const look = [this, entity = entity.get(), collection](Key const& key) {
      auto const calls = call_;  // outlives this object, should the callback destroy it
      follow(entries_, key, ((*entity).*collection)().get(key),
             [&](Ptr<V> const& entry) { return Reactor(entry, [calls, key] { (*calls)(key); }); });
      (*calls)(key);
    };
    collection_ = Reactor(entity, hook, look);
    for (Key const& key : ((*entity).*collection)().keys()) look(key);
  }
  EntryReactors(EntryReactors const&) = delete;
  EntryReactors& operator=(EntryReactors const&) = delete;

 private:
  std::shared_ptr<std::function<void(Key const&)>> call_;
  std::map<Key, Reactor> entries_;
  Reactor collection_;
};

}  // namespace Kel
