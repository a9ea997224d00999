// AES-256-GCM through OpenSSL's EVP interface, with the library's own key
// (Linux; Windows uses the system's CNG, aes_win32.cpp).
#include <vxcore/aes.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>

#include <openssl/evp.h>
#include <openssl/rand.h>
#include <openssl/sha.h>

#include <vxbase/es.h>

namespace vxcore {

namespace {

constexpr const char* location = "lib/vxcore/aes";

using key_bytes = std::array<unsigned char, 32>;

// The built-in key. It keeps the data files from being read or edited
// casually; it is not a secret from someone who has the program.
constexpr key_bytes builtin_key = {0x5c, 0x1e, 0x93, 0x27, 0xa4, 0x08, 0xd1, 0x6b, 0x3f, 0xe2, 0x71,
                                   0x90, 0x4d, 0xb8, 0x0a, 0xc5, 0x62, 0x9e, 0x17, 0xf3, 0x28, 0x84,
                                   0xdb, 0x45, 0xae, 0x36, 0x7c, 0xe9, 0x10, 0x5f, 0xc2, 0x8b};

// A pass phrase becomes a key through SHA-256; the empty one is the
// built-in key.
key_bytes key_for(std::string_view phrase) {
  if (phrase.empty()) return builtin_key;
  key_bytes key{};
  SHA256(reinterpret_cast<const unsigned char*>(phrase.data()), phrase.size(), key.data());
  return key;
}

struct ctx_free {
  void operator()(EVP_CIPHER_CTX* c) const noexcept { EVP_CIPHER_CTX_free(c); }
};
using ctx_ptr = std::unique_ptr<EVP_CIPHER_CTX, ctx_free>;

const unsigned char* bytes(std::string_view s) {
  return reinterpret_cast<const unsigned char*>(s.data());
}

// EVP lengths are int; a buffer beyond that is refused rather than cut.
int checked_length(std::size_t n) {
  if (n > static_cast<std::size_t>(INT32_MAX) - 64)
    vxbase::es::call_raise(location, __LINE__, "buffer too large for AES (%zu bytes)", n);
  return static_cast<int>(n);
}

}  // namespace

void encrypt_AES(std::string_view phrase, std::string_view in, std::string& out) {
  const key_bytes key = key_for(phrase);
  std::array<unsigned char, aes_nonce_size> nonce{};
  if (RAND_bytes(nonce.data(), static_cast<int>(nonce.size())) != 1)
    vxbase::es::call_raise(location, __LINE__, "no random nonce available");

  ctx_ptr ctx(EVP_CIPHER_CTX_new());
  std::string result(aes_header_size + in.size(), '\0');
  auto* dst = reinterpret_cast<unsigned char*>(result.data());
  int n = 0;
  int tail = 0;
  const bool ok =
      ctx && EVP_EncryptInit_ex(ctx.get(), EVP_aes_256_gcm(), nullptr, nullptr, nullptr) == 1 &&
      EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_SET_IVLEN, aes_nonce_size, nullptr) == 1 &&
      EVP_EncryptInit_ex(ctx.get(), nullptr, nullptr, key.data(), nonce.data()) == 1 &&
      EVP_EncryptUpdate(ctx.get(), nullptr, &n, bytes(aes_magic),
                        static_cast<int>(aes_magic.size())) == 1 &&
      EVP_EncryptUpdate(ctx.get(), dst + aes_header_size, &n, bytes(in),
                        checked_length(in.size())) == 1 &&
      EVP_EncryptFinal_ex(ctx.get(), dst + aes_header_size + n, &tail) == 1 &&
      EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_GET_TAG, aes_tag_size,
                          dst + aes_magic.size() + aes_nonce_size) == 1;
  if (!ok) vxbase::es::call_raise(location, __LINE__, "AES encryption failed");
  std::copy(aes_magic.begin(), aes_magic.end(), result.begin());
  std::copy(nonce.begin(), nonce.end(), dst + aes_magic.size());
  out = std::move(result);
}

void decrypt_AES(std::string_view phrase, std::string_view in, std::string& out) {
  out.clear();
  if (in.size() < aes_header_size || in.substr(0, aes_magic.size()) != aes_magic)
    vxbase::es::call_raise(location, __LINE__, "not an encrypted buffer (%zu bytes)", in.size());
  const key_bytes key = key_for(phrase);
  const unsigned char* nonce = bytes(in) + aes_magic.size();
  // The tag is only read by OpenSSL, but its interface takes a writable pointer.
  std::array<unsigned char, aes_tag_size> tag{};
  std::copy_n(nonce + aes_nonce_size, aes_tag_size, tag.begin());
  const std::string_view cipher = in.substr(aes_header_size);

  ctx_ptr ctx(EVP_CIPHER_CTX_new());
  std::string result(cipher.size(), '\0');
  auto* dst = reinterpret_cast<unsigned char*>(result.data());
  int n = 0;
  int tail = 0;
  const bool ok =
      ctx && EVP_DecryptInit_ex(ctx.get(), EVP_aes_256_gcm(), nullptr, nullptr, nullptr) == 1 &&
      EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_SET_IVLEN, aes_nonce_size, nullptr) == 1 &&
      EVP_DecryptInit_ex(ctx.get(), nullptr, nullptr, key.data(), nonce) == 1 &&
      EVP_DecryptUpdate(ctx.get(), nullptr, &n, bytes(aes_magic),
                        static_cast<int>(aes_magic.size())) == 1 &&
      EVP_DecryptUpdate(ctx.get(), dst, &n, bytes(cipher), checked_length(cipher.size())) == 1 &&
      EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_SET_TAG, aes_tag_size, tag.data()) == 1 &&
      EVP_DecryptFinal_ex(ctx.get(), dst + n, &tail) == 1;
  if (!ok)
    vxbase::es::call_raise(location, __LINE__,
                           "decryption failed: the buffer is damaged or the key is wrong");
  out = std::move(result);
}

}  // namespace vxcore
