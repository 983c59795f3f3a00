#include "base/uuid.h"

#include <openssl/rand.h>

#include <array>

#include <fmt/format.h>

#include "base/error.h"

namespace quillora::base {

std::string makeUUID() {
  std::array<unsigned char, 16> bytes{};
  if (RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1) {
    throw Error("The system couldn't supply random numbers for a new id.");
  }
  bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x40);  // version 4
  bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80);  // RFC 4122 variant
  std::string out;
  out.reserve(36);
  for (size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) out.push_back('-');
    out += fmt::format("{:02X}", bytes[i]);
  }
  return out;
}

}  // namespace quillora::base
