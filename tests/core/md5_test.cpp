// MD5 compared with the standard's test suite, a plain second form and another library.
#include "fallback/md5.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <string>
#include <string_view>

#include "plain_md5.hpp"
#ifdef TALLOW_WITH_OPENSSL
#include <openssl/evp.h>
#endif

namespace tallow::fallback {
namespace {

Md5Digest digestOf(std::string_view data) {
  Md5Context context;
  md5Init(context);
  md5Update(context, data.data(), data.size());
  return md5Final(context);
}

std::string hex(const Md5Digest& digest) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const std::uint8_t byte : digest) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

// Random data from a seed that a failure names; TALLOW_SEED sets it.
class Random {
 public:
  Random() : seed_(chooseSeed()), engine_(seed_) {}

  std::uint32_t seed() const { return seed_; }
  std::size_t number(std::size_t largest) {
    return std::uniform_int_distribution<std::size_t>(0, largest)(engine_);
  }
  std::string bytes(std::size_t size) {
    std::string data(size, '\0');
    for (char& byte : data) byte = static_cast<char>(engine_());
    return data;
  }

 private:
  static std::uint32_t chooseSeed() {
    const char* given = std::getenv("TALLOW_SEED");
    return given != nullptr ? static_cast<std::uint32_t>(std::strtoul(given, nullptr, 10))
                            : std::random_device()();
  }

  std::uint32_t seed_;
  std::mt19937 engine_;
};

TEST(Md5, GivesTheDigestsOfTheStandardsTestSuite) {
  EXPECT_EQ(hex(digestOf("")), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(hex(digestOf("a")), "0cc175b9c0f1b6a831c399e269772661");
  EXPECT_EQ(hex(digestOf("abc")), "900150983cd24fb0d6963f7d28e17f72");
  EXPECT_EQ(hex(digestOf("message digest")), "f96b697d7cb7938d525a2f31aaf161d0");
  EXPECT_EQ(hex(digestOf("abcdefghijklmnopqrstuvwxyz")), "c3fcd3d76192e4007dfb496cca67e13b");
  EXPECT_EQ(hex(digestOf("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789")),
            "d174ab98d277d9f5a5611c2c9f419d9f");
  EXPECT_EQ(hex(digestOf("1234567890123456789012345678901234567890"
                         "1234567890123456789012345678901234567890")),
            "57edf4a22be3c955ac49da2e2107b67a");
}

TEST(Md5, AgreesWithThePlainFormAtEveryLengthUpToThreeBlocks) {
  Random random;
  SCOPED_TRACE("TALLOW_SEED=" + std::to_string(random.seed()));
  for (std::size_t length = 0; length <= 192; ++length) {
    const std::string data = random.bytes(length);
    ASSERT_EQ(digestOf(data), test::plainMd5(data)) << length;
  }
}

TEST(Md5, AgreesWithThePlainFormHoweverTheDataIsSplit) {
  Random random;
  SCOPED_TRACE("TALLOW_SEED=" + std::to_string(random.seed()));
  for (int round = 0; round < 200; ++round) {
    const std::string data = random.bytes(random.number(5000));
    const std::size_t longest = 1 + random.number(300);
    Md5Context context;
    md5Init(context);
    for (std::size_t done = 0; done < data.size();) {
      const std::size_t part = std::min(random.number(longest), data.size() - done);
      md5Update(context, data.data() + done, part);
      done += part;
    }
    ASSERT_EQ(md5Final(context), test::plainMd5(data)) << data.size() << " bytes";
  }
}

#ifdef TALLOW_WITH_OPENSSL
TEST(Md5, AgreesWithAnotherLibraryOnLongData) {
  Random random;
  SCOPED_TRACE("TALLOW_SEED=" + std::to_string(random.seed()));
  for (int round = 0; round < 20; ++round) {
    const std::string data = random.bytes(random.number(1 << 20));
    Md5Digest expected = {};
    ASSERT_EQ(EVP_Digest(data.data(), data.size(), expected.data(), nullptr, EVP_md5(), nullptr),
              1);
    ASSERT_EQ(digestOf(data), expected) << data.size() << " bytes";
  }
}
#endif

TEST(Md5, CarriesTheBitCountIntoItsSecondWord) {
  constexpr std::uint64_t kPreceding = (std::uint64_t{1} << 29) - 64;  // bytes
  const std::string data(100, 'x');
  Md5Context context;
  md5Init(context);
  context.bitCount[0] = static_cast<std::uint32_t>(8 * kPreceding);
  md5Update(context, data.data(), data.size());
  EXPECT_EQ(context.bitCount[0], 8u * (100 - 64));
  EXPECT_EQ(context.bitCount[1], 1u);
  EXPECT_EQ(md5Final(context), test::plainMd5(data, kPreceding));
}

TEST(Md5, FinalisesACopyAndGoesOn) {
  Md5Context context;
  md5Init(context);
  md5Update(context, "message ", 8);
  EXPECT_EQ(md5OfCopy(context), digestOf("message "));
  md5Update(context, "digest", 6);
  EXPECT_EQ(md5OfCopy(context), digestOf("message digest"));
  EXPECT_EQ(md5Final(context), digestOf("message digest"));
}

TEST(Md5, TakesNoData) {
  Md5Context context;
  md5Init(context);
  md5Update(context, nullptr, 0);
  EXPECT_EQ(md5Final(context), digestOf(""));
}

}  // namespace
}  // namespace tallow::fallback
