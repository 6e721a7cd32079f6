// Kel::Ptr, the reference-counted handle through which entities and reactors are held.
//
// The count lives in the object and starts at one, owned by makePtr; so an object may hand out handles to
// itself already in its constructor. Counts are plain additions unless threadSafePointersIs(true) was called,
// before the first second thread: the agent has one thread, a host that shares entities between threads pays
// for atomic updates.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

namespace Kel {

namespace detail {
inline bool threadSafePointers = false;
}

inline bool threadSafePointers() { return detail::threadSafePointers; }
inline void threadSafePointersIs(bool on) { detail::threadSafePointers = on; }

class RefCounted {
 public:
  RefCounted(RefCounted const&) = delete;
  RefCounted& operator=(RefCounted const&) = delete;

  void reference() const {
    if (threadSafePointers()) {
      references_.fetch_add(1, std::memory_order_relaxed);
    } else {
      references_.store(references_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    }
  }

  void release() const {
    std::uint32_t before = 0;
    if (threadSafePointers()) {
      before = references_.fetch_sub(1, std::memory_order_acq_rel);
    } else {
      before = references_.load(std::memory_order_relaxed);
      references_.store(before - 1, std::memory_order_relaxed);
    }
    if (before != 1) return;
    // A destructor may hand out handles to its object again (it clears an attribute, which notifies): giving
    // those back must not delete a second time.
    references_.store(dying, std::memory_order_relaxed);
    delete this;
  }

  std::uint32_t references() const { return references_.load(std::memory_order_relaxed); }

 protected:
  RefCounted() = default;
  virtual ~RefCounted() = default;

  // Whether the destructor runs.
  bool beingDestroyed() const { return references() >= dying; }

 private:
  static constexpr std::uint32_t dying = 1U << 31;

  mutable std::atomic<std::uint32_t> references_{1};
};

template <typename T>
class Ptr {
 public:
  Ptr() = default;
  Ptr(std::nullptr_t) {}
  // Shares `object`, which must already be held by somebody (or be under construction by makePtr).
  explicit Ptr(T* object) : object_(object) { acquire(); }
  Ptr(Ptr const& other) : object_(other.object_) { acquire(); }
  Ptr(Ptr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  template <typename U>
  requires std::is_convertible_v<U*, T*> Ptr(Ptr<U> const& other) : object_(other.get()) { acquire(); }
  ~Ptr() {
    if (object_ != nullptr) object_->release();
  }

  Ptr& operator=(Ptr other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }

  // Takes over the count that a new object is born with.
  static Ptr adopt(T* object) {
    Ptr result;
    result.object_ = object;
    return result;
  }

  T* get() const { return object_; }
  T* operator->() const { return object_; }
  T& operator*() const { return *object_; }
  explicit operator bool() const { return object_ != nullptr; }

  template <typename U>
  bool operator==(Ptr<U> const& other) const {
    return object_ == other.get();
  }
  bool operator==(std::nullptr_t) const { return object_ == nullptr; }

 private:
  void acquire() const {
    if (object_ != nullptr) object_->reference();
  }

  T* object_ = nullptr;
};

template <typename T, typename... Args>
Ptr<T> makePtr(Args&&... args) {
  return Ptr<T>::adopt(new T(std::forward<Args>(args)...));
}

}  // namespace Kel
