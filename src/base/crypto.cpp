#include "base/crypto.h"

#include <openssl/evp.h>

namespace quillora::base {

std::string base64Encode(std::string_view bytes) {
  std::string out(4 * ((bytes.size() + 2) / 3), '\0');
  // EVP_EncodeBlock writes a terminating NUL after the text, hence the extra byte.
  out.resize(out.size() + 1);
  int written = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(out.data()),
                                reinterpret_cast<const unsigned char*>(bytes.data()),
                                static_cast<int>(bytes.size()));
  out.resize(static_cast<size_t>(written));
  return out;
}

} // namespace quillora::base
