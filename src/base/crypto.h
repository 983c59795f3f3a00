#pragma once

#include <string>
#include <string_view>

// Cryptographic helpers over OpenSSL; only crypto.cpp includes OpenSSL's headers.
namespace quillora::base {

// Standard base64 (RFC 4648, with padding, no line breaks).
std::string base64Encode(std::string_view bytes);

} // namespace quillora::base
