#include "Digest.h"

namespace quillbeam::service {

std::string hexadecimal(std::string_view bytes) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  text.reserve(bytes.size() * 2);
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    text += digits[value >> 4];
    text += digits[value & 15];
  }
  return text;
}

Digest::Digest(Kind kind) : context_(EVP_MD_CTX_new()) {
  EVP_DigestInit_ex(context_.get(), kind == Kind::sha1 ? EVP_sha1() : EVP_sha256(), nullptr);
}

void Digest::update(std::string_view bytes) { EVP_DigestUpdate(context_.get(), bytes.data(), bytes.size()); }

std::string Digest::finish() {
  unsigned char value[EVP_MAX_MD_SIZE];
  unsigned int size = 0;
  EVP_DigestFinal_ex(context_.get(), value, &size);
  return hexadecimal({reinterpret_cast<const char*>(value), size});
}

}  // namespace quillbeam::service
