// A file descriptor that closes itself.
#pragma once

#include <unistd.h>

#include <utility>

namespace orvistelle::platform {

class UniqueFd {
 public:
  explicit UniqueFd(int fd = -1) : fd_(fd) {}
  ~UniqueFd() {
    if (fd_ >= 0) ::close(fd_);
  }
  UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;
  int get() const { return fd_; }
  // Closes now, so that a failure to write back can be reported: false, with errno set, when close fails.
  bool Close() { return ::close(std::exchange(fd_, -1)) == 0; }

 private:
  int fd_;
};

}  // namespace orvistelle::platform
