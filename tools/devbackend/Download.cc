#include "tools/devbackend/Download.h"

#include <cstdint>
#include <string_view>

namespace orvistelle::devbackend {
namespace {

constexpr std::string_view kEntryName = "README.txt";
constexpr std::string_view kEntryText =
    "This archive comes from the Orvistelle development backend (tools/devbackend).\n"
    "It stands in for the app's download and contains no application.\n";

uint32_t Crc32(std::string_view bytes) {
  uint32_t crc = 0xFFFFFFFFu;
  for (unsigned char byte : bytes) {
    crc ^= byte;
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
  }
  return ~crc;
}

void Put16(std::string& out, uint32_t value) {
  out += static_cast<char>(value & 0xFF);
  out += static_cast<char>((value >> 8) & 0xFF);
}

void Put32(std::string& out, uint32_t value) {
  Put16(out, value & 0xFFFF);
  Put16(out, value >> 16);
}

// The fields a local header and a central directory entry share, from "version needed" to the name's length.
void PutEntryFields(std::string& out, uint32_t crc, uint32_t size) {
  constexpr uint32_t kDosDate1980 = (1 << 5) | 1;
  Put16(out, 10);  // version needed: stored entries only
  Put16(out, 0);   // flags
  Put16(out, 0);   // method: stored
  Put16(out, 0);   // time
  Put16(out, kDosDate1980);
  Put32(out, crc);
  Put32(out, size);
  Put32(out, size);
  Put16(out, static_cast<uint32_t>(kEntryName.size()));
  Put16(out, 0);  // extra field length
}

}  // namespace

std::string StandInDownloadZip() {
  const uint32_t crc = Crc32(kEntryText);
  const auto size = static_cast<uint32_t>(kEntryText.size());
  std::string zip;
  Put32(zip, 0x04034b50);
  PutEntryFields(zip, crc, size);
  zip += kEntryName;
  zip += kEntryText;

  const auto directoryOffset = static_cast<uint32_t>(zip.size());
  Put32(zip, 0x02014b50);
  Put16(zip, 20);  // made by
  PutEntryFields(zip, crc, size);
  Put16(zip, 0);  // comment length
  Put16(zip, 0);  // disk
  Put16(zip, 0);  // internal attributes
  Put32(zip, 0);  // external attributes
  Put32(zip, 0);  // offset of the local header
  zip += kEntryName;
  const auto directorySize = static_cast<uint32_t>(zip.size()) - directoryOffset;

  Put32(zip, 0x06054b50);
  Put16(zip, 0);
  Put16(zip, 0);
  Put16(zip, 1);
  Put16(zip, 1);
  Put32(zip, directorySize);
  Put32(zip, directoryOffset);
  Put16(zip, 0);  // comment length
  return zip;
}

}  // namespace orvistelle::devbackend
