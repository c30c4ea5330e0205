/// Ovsdb::Tls: a client's TLS as a filter of octets, without a socket of its own: received() takes what came
/// from the network, takeOutput() gives what must be sent.
///
/// The server's certificate must be signed by the given authority. Its name is not compared with the host;
/// the database's own tools do not compare it either.
#pragma once

#include <openssl/ssl.h>

#include <memory>
#include <string>
#include <string_view>

namespace Ovsdb {

/// Files in PEM.
struct TlsFiles {
  std::string privateKey;
  std::string certificate;
  std::string caCert;  ///< The authority that signed the server's certificate.
};

class Tls {
 public:
  /// Reads the files. Raises std::runtime_error that names the file and the cause, as do all others here.
  explicit Tls(TlsFiles const& files);

  void received(std::string_view cipherText);
  /// Continues the handshake; true if it is complete.
  bool isOpen();
  /// The next piece of the server's plain text; empty if more octets must come first. Valid until the next
  /// call.
  std::string_view read();
  bool hasEnded() const { return ended_; }
  void write(std::string_view plainText);
  /// Adds what must be sent to `out`.
  void takeOutput(std::string& out);

 private:
  struct Free {
    void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
    void operator()(SSL* ssl) const { SSL_free(ssl); }
  };
  [[noreturn]] void fail(std::string const& what) const;

  std::unique_ptr<SSL_CTX, Free> context_;
  std::unique_ptr<SSL, Free> ssl_;
  std::string piece_;
  bool ended_ = false;
};

}  // namespace Ovsdb
