// Fallback files in the repository: the module writes the same bytes again and continues from them.
// So its writer and its reader cannot both change unnoticed.
#include "support/fallback_test.hpp"

namespace tallow::test {
namespace {

struct Golden {
  const char* name;
  const char* options;
};

class GoldenFile : public FallbackTest, public testing::WithParamInterface<Golden> {
 protected:
  GoldenFile() {
    pipeName = R"(\\.\pipe\tallow-golden)";
    data.resize(kBlockSize * 5 + 9);
    for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i * 7 + 3);
  }
  static std::string golden() {
    return contentOf(programDirectory() + "\\golden\\" + GetParam().name);
  }
};

TEST_P(GoldenFile, IsWhatTheModuleWrites) {
  ASSERT_FALSE(golden().empty());
  openJob(GetParam().options);
  deliver(2);
  checkpoint();
  deliver(1);
  checkpoint();
  deliverRest();
  EXPECT_EQ(file(), golden());
}

TEST_P(GoldenFile, CanBeRestartedFromBothItsSyncPoints) {
  for (std::uint64_t position = 2; position <= 3; ++position) {
    putFile(path(), golden());
    openJob(GetParam().options);
    goTo(position);
    deliverRest();
    reload();
  }
}

TEST_P(GoldenFile, RefusesOtherData) {
  putFile(path(), golden());
  data[7] ^= 1;
  openJob(GetParam().options);
  EXPECT_EQ(host.setPos(3).code, pmrcDelivery);
}

INSTANTIATE_TEST_SUITE_P(Both, GoldenFile,
                         testing::Values(Golden{"full_blocks.fbf", ""},
                                         Golden{"sized_blocks.fbf", "Need_Full_Block=no"}));

}  // namespace
}  // namespace tallow::test
