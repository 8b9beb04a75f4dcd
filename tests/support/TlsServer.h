#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <thread>

namespace quillbeam {

/// A TLS server for one connection on 127.0.0.1 whose certificate, for "localhost", is signed by nobody but itself.
class TlsServer {
 public:
  TlsServer() {
    listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    EXPECT_EQ(::bind(listener_, reinterpret_cast<sockaddr*>(&address), size), 0);
    EXPECT_EQ(::listen(listener_, 4), 0);
    EXPECT_EQ(::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size), 0);
    port_ = ntohs(address.sin_port);
    context_ = SSL_CTX_new(TLS_server_method());
    useOwnCertificate();
    thread_ = std::thread([this] { serve(); });
  }
  TlsServer(const TlsServer&) = delete;
  TlsServer& operator=(const TlsServer&) = delete;
  ~TlsServer() {
    ::shutdown(listener_, SHUT_RDWR);
    thread_.join();
    ::close(listener_);
    SSL_CTX_free(context_);
  }

  int port() const { return port_; }
  /// Of what was sent to it under its certificate.
  int heardBytes() const { return heardBytes_; }

 private:
  void useOwnCertificate() {
    EVP_PKEY* key = EVP_EC_gen("P-256");
    X509* certificate = X509_new();
    X509_gmtime_adj(X509_getm_notBefore(certificate), -3600);
    X509_gmtime_adj(X509_getm_notAfter(certificate), 3600);
    X509_NAME* name = X509_get_subject_name(certificate);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("localhost"), -1, -1,
                               0);
    X509_set_issuer_name(certificate, name);
    X509_set_pubkey(certificate, key);
    EXPECT_GT(X509_sign(certificate, key, EVP_sha256()), 0);
    EXPECT_EQ(SSL_CTX_use_certificate(context_, certificate), 1);
    EXPECT_EQ(SSL_CTX_use_PrivateKey(context_, key), 1);
    X509_free(certificate);
    EVP_PKEY_free(key);
  }
  void serve() {
    const int socket = ::accept(listener_, nullptr, nullptr);
    if (socket < 0) return;
    SSL* tls = SSL_new(context_);
    SSL_set_fd(tls, socket);
    char buffer[1024];
    if (SSL_accept(tls) == 1) heardBytes_ += std::max(0, SSL_read(tls, buffer, sizeof buffer));
    SSL_free(tls);
    ::close(socket);
  }

  int listener_ = -1;
  int port_ = 0;
  SSL_CTX* context_ = nullptr;
  std::atomic<int> heardBytes_ = 0;
  std::thread thread_;
};

}  // namespace quillbeam
