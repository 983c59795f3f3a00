#include "crash/identifier.h"

#include <cstdint>
#include <random>

namespace quillora::crash {

Identifier newIdentifier() {
  // Identity for lists, not security: a seeded per-thread generator is plenty and far cheaper
  // than asking the kernel for every frame of a 2 MB trace.
  thread_local std::mt19937_64 generator{std::random_device{}()};
  uint64_t high = generator();
  uint64_t low = generator();
  high = (high & 0xFFFFFFFFFFFF0FFFull) | 0x0000000000004000ull;  // version 4
  low = (low & 0x3FFFFFFFFFFFFFFFull) | 0x8000000000000000ull;    // RFC 4122 variant
  static constexpr char kHex[] = "0123456789abcdef";
  Identifier out;
  size_t at = 0;
  auto put = [&](uint64_t value, int fromNibble, int toNibble) {
    for (int i = fromNibble; i > toNibble; --i) out.text[at++] = kHex[(value >> ((i - 1) * 4)) & 0xF];
  };
  put(high, 16, 8);
  out.text[at++] = '-';
  put(high, 8, 4);
  out.text[at++] = '-';
  put(high, 4, 0);
  out.text[at++] = '-';
  put(low, 16, 12);
  out.text[at++] = '-';
  put(low, 12, 0);
  return out;
}

}  // namespace quillora::crash
