// A function-local static whose destructor never runs. A host may exit, or unload the plug-in that loaded this
// library, at any moment, while its threads, our detached tasks and the log writer still run: the object must
// outlive static destruction, so it is leaked on purpose, and the leak checker sees it as reachable.
#pragma once

#include <utility>

namespace orvistelle::platform {

template <class T>
class NoDestructor {
 public:
  template <class... Args>
  explicit NoDestructor(Args&&... args) : object_(new T(std::forward<Args>(args)...)) {}

  T& operator*() const { return *object_; }
  T* operator->() const { return object_; }

 private:
  T* const object_;
};

}  // namespace orvistelle::platform
