// Authenticated AES-256-GCM encryption of whole files: the compiled
// constraint database and the command file are stored this way.
#pragma once

#include <string>
#include <string_view>

namespace vxcore {

// Layout of an encrypted buffer (all sizes in bytes):
//   magic "VXAES\x01" (6) | nonce (12) | tag (16) | ciphertext (as long as
//   the plain text).
// The tag covers the magic and the ciphertext, so any change, cut or
// addition makes decryption fail instead of yielding garbage.
inline constexpr std::string_view aes_magic{"VXAES\x01", 6};
inline constexpr std::size_t aes_nonce_size = 12;  // GCM's native nonce length
inline constexpr std::size_t aes_tag_size = 16;    // full-length GCM tag
inline constexpr std::size_t aes_header_size = aes_magic.size() + aes_nonce_size + aes_tag_size;

// Decrypts in into out. key is a pass phrase; the empty text selects the
// key built into the library (the one the build encrypts the data files
// with). Raises vxbase::es::call_error, leaving out empty, when in is not
// an encrypted buffer, was cut short or altered, or the key is wrong.
void decrypt_AES(std::string_view key, std::string_view in, std::string& out);

// Encrypts in into out with a fresh random nonce; key as for decrypt_AES.
// Raises vxbase::es::call_error when the crypto library fails.
void encrypt_AES(std::string_view key, std::string_view in, std::string& out);

}  // namespace vxcore
