#include "tools/devbackend/Download.h"

#include <cstdio>
#include <string_view>

namespace orvistelle::devbackend {
namespace {

constexpr std::string_view kReadme =
    "This archive comes from the Orvistelle development backend (tools/devbackend).\n"
    "It stands in for the app's download and contains no application.\n";

// One member: a 60-byte header of space-padded text fields, the bytes, and a newline to an even length.
void PutMember(std::string& archive, std::string_view name, std::string_view bytes) {
  char header[61];
  (void)std::snprintf(header, sizeof header, "%-16.16s%-12d%-6d%-6d%-8s%-10zu`\n", std::string(name).c_str(), 0, 0, 0,
                      "100644", bytes.size());
  archive.append(header, 60);
  archive += bytes;
  if (bytes.size() % 2 != 0) archive += '\n';
}

}  // namespace

std::string StandInPackage() {
  std::string archive = "!<arch>\n";
  PutMember(archive, "debian-binary", "2.0\n");
  PutMember(archive, "README.txt", kReadme);
  return archive;
}

}  // namespace orvistelle::devbackend
