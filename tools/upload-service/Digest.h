#pragma once

#include <openssl/evp.h>

#include <memory>
#include <string>
#include <string_view>

namespace quillbeam::service {

/// Small letters, two per byte.
std::string hexadecimal(std::string_view bytes);

/// A digest of bytes that come piece by piece.
class Digest {
 public:
  enum class Kind { sha1, sha256 };

  explicit Digest(Kind kind);
  void update(std::string_view bytes);
  /// Of everything until now, once.
  std::string finish();

 private:
  struct Free {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
  };
  std::unique_ptr<EVP_MD_CTX, Free> context_;
};

}  // namespace quillbeam::service
