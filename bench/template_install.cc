// One template install exactly as the set-up action performs it, as a program of its own so that it is timed the
// same way as `cp -a`: from the outside, start-up included.
#include <cstdio>

#include "app/TemplateInstall.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s SOURCE-FOLDER DESTINATION\n", argv[0]);
    return 2;
  }
  orvistelle::shell::InstallError error;
  if (!orvistelle::shell::ReplaceWithCopy(argv[1], argv[2], &error)) {
    std::fprintf(stderr, "template install failed: %s\n", error.description.c_str());
    return 1;
  }
  return 0;
}
