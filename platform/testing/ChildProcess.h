// Runs a program as a child process the way a host or a user would start it, for the tests that must see a whole
// process: its exit, its signals, its output.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

namespace orvistelle::platform::testing {

struct ChildRun {
  int exitCode = -1;  // -1 when it could not start or a signal ended it
  int signal = 0;
  std::string out;
  std::string err;
};

inline std::string ReadWholeFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Runs argv[0] (a path) with exactly the environment given, its output and errors kept in files in `folder`, and
// SIGKILLs it once `limit` has passed.
inline ChildRun RunChild(std::vector<std::string> argv, std::vector<std::string> env,
                         const std::filesystem::path& folder, std::chrono::milliseconds limit) {
  std::vector<char*> args, vars;
  for (std::string& word : argv) args.push_back(word.data());
  for (std::string& variable : env) vars.push_back(variable.data());
  args.push_back(nullptr);
  vars.push_back(nullptr);
  const std::filesystem::path out = folder / "child.out", err = folder / "child.err";
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  pid_t child = 0;
  const int spawned = posix_spawn(&child, args[0], &actions, nullptr, args.data(), vars.data());
  posix_spawn_file_actions_destroy(&actions);
  if (spawned != 0) return {};
  int status = 0;
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (waitpid(child, &status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() >= deadline) kill(child, SIGKILL);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, WIFSIGNALED(status) ? WTERMSIG(status) : 0, ReadWholeFile(out),
          ReadWholeFile(err)};
}

}  // namespace orvistelle::platform::testing
