// Libraries opened when they are first needed rather than when the program loads: a process that never needs them
// pays neither for mapping them nor for their set-up.
#pragma once

#include <dlfcn.h>

namespace orvistelle::platform {

// Points `function` at the library's symbol `name`, with the type the caller declared for it; false when the
// library (null when it could not be opened) has no such symbol.
template <class Function>
bool FindFunction(void* library, const char* name, Function& function) {
  function = library != nullptr ? reinterpret_cast<Function>(dlsym(library, name)) : nullptr;
  return function != nullptr;
}

}  // namespace orvistelle::platform
