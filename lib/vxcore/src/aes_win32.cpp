// AES-256-GCM through Windows CNG (bcrypt.dll), with the library's own key:
// the same buffer layout and key derivation as the OpenSSL build, so files
// encrypted on one system decrypt on the other.
#include <vxcore/aes.h>

#include <windows.h>
// bcrypt.h needs the types of windows.h first.
#include <bcrypt.h>

#include <algorithm>
#include <array>
#include <cstdint>

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

bool ok(NTSTATUS status) { return status >= 0; }

// CNG lengths are ULONG; a buffer beyond that is refused rather than cut.
ULONG checked_length(std::size_t n) {
  if (n > 0xffffffffu - 64)
    vxbase::es::call_raise(location, __LINE__, "buffer too large for AES (%zu bytes)", n);
  return static_cast<ULONG>(n);
}

// An open algorithm provider, closed with its scope.
class provider {
 public:
  provider(LPCWSTR algorithm) {
    if (!ok(BCryptOpenAlgorithmProvider(&handle_, algorithm, nullptr, 0))) handle_ = nullptr;
  }
  ~provider() {
    if (handle_) BCryptCloseAlgorithmProvider(handle_, 0);
  }
  provider(const provider&) = delete;
  provider& operator=(const provider&) = delete;
  BCRYPT_ALG_HANDLE get() const { return handle_; }

 private:
  BCRYPT_ALG_HANDLE handle_ = nullptr;
};

// A pass phrase becomes a key through SHA-256; the empty one is the
// built-in key.
key_bytes key_for(std::string_view phrase) {
  if (phrase.empty()) return builtin_key;
  key_bytes key{};
  provider sha(BCRYPT_SHA256_ALGORITHM);
  auto* text = reinterpret_cast<PUCHAR>(const_cast<char*>(phrase.data()));
  if (!sha.get() || !ok(BCryptHash(sha.get(), nullptr, 0, text, checked_length(phrase.size()),
                                   key.data(), static_cast<ULONG>(key.size()))))
    vxbase::es::call_raise(location, __LINE__, "SHA-256 is not available");
  return key;
}

PUCHAR writable(std::string_view s) {
  return reinterpret_cast<PUCHAR>(const_cast<char*>(s.data()));
}

// One GCM pass: encrypts (or decrypts) in into out with the magic as the
// authenticated data; tag is written (or checked). False when CNG refuses,
// which for decryption means the tag does not match.
bool gcm(bool encrypt, const key_bytes& key, PUCHAR nonce, PUCHAR tag, std::string_view in,
         unsigned char* out) {
  provider aes(BCRYPT_AES_ALGORITHM);
  if (!aes.get()) return false;
  const wchar_t mode[] = BCRYPT_CHAIN_MODE_GCM;
  if (!ok(BCryptSetProperty(aes.get(), BCRYPT_CHAINING_MODE, (PUCHAR)mode, sizeof mode, 0)))
    return false;
  BCRYPT_KEY_HANDLE handle = nullptr;
  if (!ok(BCryptGenerateSymmetricKey(aes.get(), &handle, nullptr, 0, const_cast<PUCHAR>(key.data()),
                                     static_cast<ULONG>(key.size()), 0)))
    return false;
  BCRYPT_AUTHENTICATED_CIPHER_MODE_INFO info;
  BCRYPT_INIT_AUTH_MODE_INFO(info);
  info.pbNonce = nonce;
  info.cbNonce = aes_nonce_size;
  info.pbAuthData = writable(aes_magic);
  info.cbAuthData = static_cast<ULONG>(aes_magic.size());
  info.pbTag = tag;
  info.cbTag = aes_tag_size;
  ULONG written = 0;
  const ULONG length = checked_length(in.size());
  // CNG wants a non-null buffer even for an empty text.
  unsigned char empty = 0;
  PUCHAR src = in.empty() ? &empty : writable(in);
  PUCHAR dst = in.empty() ? &empty : out;
  const NTSTATUS status =
      encrypt ? BCryptEncrypt(handle, src, length, &info, nullptr, 0, dst, length, &written, 0)
              : BCryptDecrypt(handle, src, length, &info, nullptr, 0, dst, length, &written, 0);
  BCryptDestroyKey(handle);
  return ok(status) && written == length;
}

}  // namespace

void encrypt_AES(std::string_view phrase, std::string_view in, std::string& out) {
  const key_bytes key = key_for(phrase);
  std::array<unsigned char, aes_nonce_size> nonce{};
  if (!ok(BCryptGenRandom(nullptr, nonce.data(), static_cast<ULONG>(nonce.size()),
                          BCRYPT_USE_SYSTEM_PREFERRED_RNG)))
    vxbase::es::call_raise(location, __LINE__, "no random nonce available");
  std::string result(aes_header_size + in.size(), '\0');
  auto* dst = reinterpret_cast<unsigned char*>(result.data());
  std::array<unsigned char, aes_tag_size> tag{};
  if (!gcm(true, key, nonce.data(), tag.data(), in, dst + aes_header_size))
    vxbase::es::call_raise(location, __LINE__, "AES encryption failed");
  std::copy(aes_magic.begin(), aes_magic.end(), result.begin());
  std::copy(nonce.begin(), nonce.end(), dst + aes_magic.size());
  std::copy(tag.begin(), tag.end(), dst + aes_magic.size() + aes_nonce_size);
  out = std::move(result);
}

void decrypt_AES(std::string_view phrase, std::string_view in, std::string& out) {
  out.clear();
  if (in.size() < aes_header_size || in.substr(0, aes_magic.size()) != aes_magic)
    vxbase::es::call_raise(location, __LINE__, "not an encrypted buffer (%zu bytes)", in.size());
  const key_bytes key = key_for(phrase);
  std::array<unsigned char, aes_nonce_size> nonce{};
  std::array<unsigned char, aes_tag_size> tag{};
  const auto* header = reinterpret_cast<const unsigned char*>(in.data()) + aes_magic.size();
  std::copy_n(header, aes_nonce_size, nonce.begin());
  std::copy_n(header + aes_nonce_size, aes_tag_size, tag.begin());
  const std::string_view cipher = in.substr(aes_header_size);
  std::string result(cipher.size(), '\0');
  if (!gcm(false, key, nonce.data(), tag.data(), cipher,
           reinterpret_cast<unsigned char*>(result.data())))
    vxbase::es::call_raise(location, __LINE__,
                           "decryption failed: the buffer is damaged or the key is wrong");
  out = std::move(result);
}

}  // namespace vxcore
