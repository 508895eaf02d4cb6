// Which positions SetPos can go back to within a run.
#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "delivery/restart_points.hpp"

namespace tallow::delivery {
namespace {

constexpr std::uint64_t kNone = fallback::kNoBlock;
constexpr std::optional<std::uint64_t> kRefused = std::nullopt;

// A state of the job, and the only positions that it can go back to: each with the block that the
// next Read delivers.
struct Case {
  std::string name;
  RestartPoints points;
  std::vector<std::pair<std::uint64_t, std::uint64_t>> accepted;
};

void PrintTo(const Case& state, std::ostream* out) {
  *out << state.name;
}

class RestartPointsTest : public testing::TestWithParam<Case> {
 protected:
  std::optional<std::uint64_t> wanted(std::uint64_t position) const {
    for (const auto& [from, block] : GetParam().accepted) {
      if (from == position) return block;
    }
    return kRefused;
  }
};

TEST_P(RestartPointsTest, AcceptsThesePositionsAndNoOthers) {
  for (std::uint64_t position = 0; position <= 12; ++position) {
    EXPECT_EQ(blockToRestartAt(GetParam().points, position), wanted(position)) << position;
  }
  EXPECT_EQ(blockToRestartAt(GetParam().points, kNone), kRefused);
  EXPECT_EQ(blockToRestartAt(GetParam().points, kNone - 1), kRefused);
}

// The fields are the block delivered last, the checkpoint, the file's first and last block, and the
// pending block.
const std::vector<Case> kCases = {
    {"NothingHasHappened", {0, kNone, kNone, kNone, kNone}, {{0, 0}}},
    {"ACheckpointBeforeAnyDelivery", {0, 0, kNone, kNone, kNone}, {{0, 0}}},
    {"NothingDeliveredAndAFileFromBlock1", {0, kNone, 1, 3, kNone}, {{0, 0}, {1, 1}}},
    {"NothingDeliveredAndAFileFromALaterBlock", {0, kNone, 5, 7, kNone}, {{5, 5}}},
    {"NothingDeliveredAndALaterFileButBlock1IsTheCheckpoint",
     {0, 1, 5, 7, kNone},
     {{0, 0}, {5, 5}}},

    {"Block1IsPendingAndNoFileYet", {1, kNone, kNone, kNone, 1}, {{0, 1}}},
    {"Block1IsPendingAfterACheckpointAt0", {1, 0, kNone, kNone, 1}, {{0, 1}}},
    {"Block1IsPendingAndTheCheckpoint", {1, 1, kNone, kNone, 1}, {{0, 1}, {1, 1}}},
    {"ALaterBlockIsPendingAndTheCheckpoint", {4, 4, kNone, kNone, 4}, {{4, 4}}},
    {"ALaterBlockIsPendingAndTheCheckpointIsBeforeIt", {5, 4, kNone, kNone, 5}, {}},
    {"Block1IsGoneAndNoFile", {2, 1, kNone, kNone, 2}, {}},
    {"Block1IsTheCheckpointButNowhere", {1, 1, kNone, kNone, kNone}, {}},

    {"TheFileBeginsWithBlock1", {4, 0, 1, 3, 4}, {{0, 1}, {1, 1}}},
    {"TheFileBeginsWithTheCheckpoint", {8, 5, 5, 7, 8}, {{5, 5}}},
    {"TheCheckpointIsInTheMiddleOfTheFile", {8, 6, 5, 7, 8}, {{5, 5}, {6, 6}}},
    {"TheCheckpointIsTheFilesLastBlock", {8, 7, 5, 7, 8}, {{5, 5}, {7, 7}}},
    {"TheCheckpointIsPendingAndTheNextToBeAppended", {8, 8, 5, 7, 8}, {{5, 5}, {8, 8}}},
    {"TheCheckpointIsPendingButDoesNotFollow", {9, 9, 5, 7, 9}, {{5, 5}}},
    {"TheCheckpointIsNeitherInTheFileNorPending", {9, 9, 5, 7, kNone}, {{5, 5}}},
    {"TheCheckpointIsBeforeTheFile", {8, 4, 5, 7, 8}, {{5, 5}}},
    {"Block1IsTheCheckpointAndTheFileBeginsLater", {8, 1, 5, 7, 8}, {{5, 5}}},
    {"NoCheckpointAndAFileFromALaterBlock", {8, kNone, 5, 7, 8}, {{5, 5}}},
    {"TheFileHasOneBlock", {2, 1, 1, 1, 2}, {{0, 1}, {1, 1}}},
    {"ReplayingFromBlock1", {2, 1, 1, 6, kNone}, {{0, 1}, {1, 1}}},
    {"ReplayingFromALaterBlock", {6, 6, 5, 9, kNone}, {{5, 5}, {6, 6}}},
};

INSTANTIATE_TEST_SUITE_P(States, RestartPointsTest, testing::ValuesIn(kCases),
                         [](const auto& state) { return state.param.name; });

}  // namespace
}  // namespace tallow::delivery
