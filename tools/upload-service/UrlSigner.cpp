#include "UrlSigner.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>

#include <array>
#include <charconv>

#include "Digest.h"
#include "DiskFiles.h"
#include "Refusal.h"

namespace quillbeam::service {

namespace {

std::string freshKey() {
  std::array<unsigned char, 32> bytes;
  RAND_bytes(bytes.data(), bytes.size());
  return hexadecimal({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

}  // namespace

UrlSigner::UrlSigner(const std::filesystem::path& keyFile) {
  if (!std::filesystem::exists(keyFile)) replaceFile(keyFile, freshKey());
  key_ = readFile(keyFile);
}

std::string UrlSigner::signature(const std::string& path, const std::string& expires) const {
  const std::string signedText = "PUT\n" + path + "\n" + expires;
  unsigned char value[EVP_MAX_MD_SIZE];
  unsigned int size = 0;
  HMAC(EVP_sha256(), key_.data(), static_cast<int>(key_.size()),
       reinterpret_cast<const unsigned char*>(signedText.data()), signedText.size(), value, &size);
  return hexadecimal({reinterpret_cast<const char*>(value), size});
}

std::string UrlSigner::sign(const std::string& path, Clock::time_point expires) const {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(expires.time_since_epoch());
  const std::string text = std::to_string(seconds.count());
  return path + "?expires=" + text + "&signature=" + signature(path, text);
}

void UrlSigner::check(const std::string& path, const std::string& expires, const std::string& signature) const {
  const std::string expected = this->signature(path, expires);
  if (signature.size() != expected.size() || CRYPTO_memcmp(signature.data(), expected.data(), expected.size()) != 0) {
    throw Refusal(403, "SignatureDoesNotMatch", "The signature does not belong to this request");
  }
  std::int64_t seconds = 0;
  std::from_chars(expires.data(), expires.data() + expires.size(), seconds);
  if (Clock::now() >= Clock::time_point(std::chrono::seconds(seconds))) {
    throw Refusal(403, "AccessDenied", "Request has expired");
  }
}

}  // namespace quillbeam::service
