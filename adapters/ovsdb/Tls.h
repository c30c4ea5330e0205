/// Ovsdb::Tls: TLS of a client as a filter of octets, with no socket of its own: what came from the network
/// goes in, what is to be sent comes out.
///
/// The server's certificate must be signed by the given authority; its name is not compared with the host, as
/// the database's own tools do not either.
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
  /// Whether the handshake is over; goes on with it.
  bool isOpen();
  /// The next piece of what the server said, empty where more must come first. Good until the next call.
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
