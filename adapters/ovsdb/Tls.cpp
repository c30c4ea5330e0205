#include "adapters/ovsdb/Tls.h"

#include <openssl/err.h>
#include <openssl/x509v3.h>

#include <stdexcept>
#include <system_error>

namespace Ovsdb {

namespace {

constexpr std::size_t pieceSize = 16384;  // of one record

/// The oldest error in the library's queue; clears the queue.
std::string reason() {
  unsigned long const error = ERR_get_error();
  ERR_clear_error();
  if (ERR_SYSTEM_ERROR(error)) return std::generic_category().message(ERR_GET_REASON(error));
  char const* const text = ERR_reason_error_string(error);
  return text != nullptr ? text : "error " + std::to_string(error);
}

void require(int result, char const* what, std::string const& file) {
  if (result == 1) return;
  throw std::runtime_error(std::string(what) + " '" + file + "': " + reason());
}

}  // namespace

Tls::Tls(TlsFiles const& files) {
  ERR_clear_error();
  context_.reset(SSL_CTX_new(TLS_client_method()));
  if (!context_) fail("TLS");
  SSL_CTX_set_min_proto_version(context_.get(), TLS1_2_VERSION);
  SSL_CTX_set_verify(context_.get(), SSL_VERIFY_PEER, nullptr);
  require(SSL_CTX_load_verify_locations(context_.get(), files.caCert.c_str(), nullptr), "--ca-cert",
          files.caCert);
  require(SSL_CTX_use_certificate_chain_file(context_.get(), files.certificate.c_str()), "--certificate",
          files.certificate);
  require(SSL_CTX_use_PrivateKey_file(context_.get(), files.privateKey.c_str(), SSL_FILETYPE_PEM),
          "--private-key", files.privateKey);

  ssl_.reset(SSL_new(context_.get()));
  BIO* const input = BIO_new(BIO_s_mem());
  BIO* const output = BIO_new(BIO_s_mem());
  if (!ssl_ || input == nullptr || output == nullptr) fail("TLS");
  SSL_set_bio(ssl_.get(), input, output);
  SSL_set_connect_state(ssl_.get());
  piece_.resize(pieceSize);
}

void Tls::fail(std::string const& what) const {
  long const verified = ssl_ ? SSL_get_verify_result(ssl_.get()) : X509_V_OK;
  std::string text = what + ": " + reason();
  if (verified != X509_V_OK) text += std::string(": ") + X509_verify_cert_error_string(verified);
  throw std::runtime_error(text);
}

void Tls::received(std::string_view cipherText) {
  if (BIO_write(SSL_get_rbio(ssl_.get()), cipherText.data(), static_cast<int>(cipherText.size())) < 0)
    fail("TLS");
}

bool Tls::isOpen() {
  if (SSL_is_init_finished(ssl_.get())) return true;
  int const result = SSL_do_handshake(ssl_.get());
  if (result == 1) return true;
  if (SSL_get_error(ssl_.get(), result) != SSL_ERROR_WANT_READ) fail("TLS handshake");
  return false;
}

std::string_view Tls::read() {
  int const count = SSL_read(ssl_.get(), piece_.data(), static_cast<int>(piece_.size()));
  if (count > 0) return {piece_.data(), static_cast<std::size_t>(count)};
  int const error = SSL_get_error(ssl_.get(), count);
  if (error == SSL_ERROR_ZERO_RETURN) {
    ended_ = true;
  } else if (error != SSL_ERROR_WANT_READ) {
    fail("TLS");
  }
  return {};
}

void Tls::write(std::string_view plainText) {
  if (!plainText.empty() && SSL_write(ssl_.get(), plainText.data(), static_cast<int>(plainText.size())) <= 0)
    fail("TLS");
}

void Tls::takeOutput(std::string& out) {
  BIO* const output = SSL_get_wbio(ssl_.get());
  std::size_t const waiting = BIO_ctrl_pending(output);
  std::size_t const before = out.size();
  out.resize(before + waiting);
  if (waiting != 0) BIO_read(output, out.data() + before, static_cast<int>(waiting));
}

}  // namespace Ovsdb
