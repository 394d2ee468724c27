#pragma once

#include <string>

namespace orvistelle::auth {

// A random (version 4) UUID in its canonical text form, lower case: 8-4-4-4-12 hexadecimal digits.
std::string NewLowercaseUUID();

}  // namespace orvistelle::auth
