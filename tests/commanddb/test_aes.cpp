// Encrypted data files: round trips, tampering, truncation, wrong keys.
#include <gtest/gtest.h>

#include <string>

#include <vxbase/es.h>
#include <vxcore/aes.h>

namespace {

std::string sealed(const std::string& plain, const std::string& key = "") {
  std::string out;
  vxcore::encrypt_AES(key, plain, out);
  return out;
}

TEST(Aes, RoundTripWithTheBuiltInKey) {
  const std::string plain =
      "<commands>\n  <command name=\"proxy.general.version\"/>\n</commands>\n";
  std::string out;
  vxcore::decrypt_AES("", sealed(plain), out);
  EXPECT_EQ(out, plain);
}

TEST(Aes, RoundTripOfEmptyAndBinaryContent) {
  std::string out = "stale";
  vxcore::decrypt_AES("", sealed(""), out);
  EXPECT_EQ(out, "");
  std::string binary;
  for (int i = 0; i < 256; ++i) binary += static_cast<char>(i);
  vxcore::decrypt_AES("", sealed(binary), out);
  EXPECT_EQ(out, binary);
}

TEST(Aes, LayoutIsMagicNonceTagCiphertext) {
  const std::string s = sealed("hello");
  EXPECT_EQ(s.size(), vxcore::aes_header_size + 5);
  EXPECT_EQ(s.substr(0, vxcore::aes_magic.size()), vxcore::aes_magic);
  EXPECT_EQ(s.find("hello"), std::string::npos);
}

TEST(Aes, EachEncryptionUsesAFreshNonce) { EXPECT_NE(sealed("same"), sealed("same")); }

TEST(Aes, AnyFlippedByteFailsToDecrypt) {
  const std::string good = sealed("priority 0..10");
  for (std::size_t i = 0; i < good.size(); ++i) {
    std::string bad = good;
    bad[i] = static_cast<char>(bad[i] ^ 0x01);
    std::string out = "untouched";
    EXPECT_THROW(vxcore::decrypt_AES("", bad, out), vxbase::es::call_error) << "byte " << i;
    EXPECT_TRUE(out.empty()) << "byte " << i;
  }
}

TEST(Aes, TruncatedOrExtendedBufferFails) {
  const std::string good = sealed("some command file text");
  std::string out;
  for (std::size_t n = 0; n < good.size(); ++n) {
    EXPECT_THROW(vxcore::decrypt_AES("", good.substr(0, n), out), vxbase::es::call_error)
        << "length " << n;
  }
  EXPECT_THROW(vxcore::decrypt_AES("", good + "x", out), vxbase::es::call_error);
}

TEST(Aes, PlainTextIsRefused) {
  std::string out;
  EXPECT_THROW(vxcore::decrypt_AES("", "<commands/>", out), vxbase::es::call_error);
}

TEST(Aes, WrongKeyFails) {
  std::string out;
  EXPECT_THROW(vxcore::decrypt_AES("", sealed("x", "other key"), out), vxbase::es::call_error);
  EXPECT_THROW(vxcore::decrypt_AES("other key", sealed("x"), out), vxbase::es::call_error);
  vxcore::decrypt_AES("other key", sealed("x", "other key"), out);
  EXPECT_EQ(out, "x");
}

}  // namespace
