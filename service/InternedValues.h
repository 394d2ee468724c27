// The strings one service function hands to hosts, as C strings that outlive the call.
#pragma once

#include <algorithm>
#include <cstddef>
#include <list>
#include <mutex>
#include <string>

#include "orvistelle/FcpService.h"

namespace orvistelle::service {

// The last kKept distinct values of one function, most recently returned first. A value returned again keeps its
// pointer and becomes the most recent, so a pointer stays valid until kKept other values have been returned after
// it: for the life of the process in practice, while a value that changes at every pass cannot grow memory.
class InternedValues {
 public:
  static constexpr std::size_t kKept = FCP_SERVICE_KEPT_STRINGS;

  const char* Intern(std::string value) {
    std::lock_guard guard(lock_);
    auto found = std::find(values_.begin(), values_.end(), value);
    if (found != values_.end()) {
      values_.splice(values_.begin(), values_, found);  // list nodes do not move, so the pointer stays valid
    } else {
      values_.push_front(std::move(value));
      if (values_.size() > kKept) values_.pop_back();
    }
    return values_.front().c_str();
  }

 private:
  std::mutex lock_;
  std::list<std::string> values_;
};

}  // namespace orvistelle::service
