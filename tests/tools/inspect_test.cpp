// The inspector's reader, with files that are made here.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <sstream>

#include "inspect/fallback_reader.hpp"
#include "inspect/picture.hpp"
#include "inspect/verification.hpp"

namespace tallow::inspect {
namespace {

using fallback::kDataStartOffset;
using fallback::kNoBlock;
using testing::HasSubstr;
using testing::StartsWith;

constexpr std::uint32_t kBlockSize = 1000;

// Bytes that do not repeat anywhere.
std::string inputOf(std::size_t length) {
  std::string data(length, '\0');
  std::uint32_t state = 12345;
  for (char& byte : data) {
    state = state * 1664525 + 1013904223;
    byte = static_cast<char>(state >> 24);
  }
  return data;
}

fallback::Md5Digest md5Of(const std::string& data) {
  fallback::Md5Context context{};
  fallback::md5Init(context);
  fallback::md5Update(context, data.data(), data.size());
  return fallback::md5Final(context);
}

// A file as the module writes it, put together region by region.
class FileMaker {
 public:
  explicit FileMaker(const std::string& input) : input_(input) {
    fallback::setJobFields(header_, kBlockSize, true);
    fallback::setPipeName(header_, "\\\\.\\pipe\\orders");
  }

  fallback::HeaderImage& header() { return header_; }

  FileMaker& syncPoint(std::size_t which, std::uint64_t block, std::size_t bytesCovered) {
    points_[which] = {block, md5Of(input_.substr(0, bytesCovered))};
    return *this;
  }
  FileMaker& fullBlock(std::uint64_t block) {
    records_ += input_.substr((block - 1) * kBlockSize, kBlockSize);
    records_.resize((records_.size() + kBlockSize - 1) / kBlockSize * kBlockSize, '#');
    return *this;
  }
  FileMaker& record(std::uint32_t length, const std::string& bytes) {
    records_.append(reinterpret_cast<const char*>(&length), sizeof length);
    records_ += bytes + std::string(kBlockSize - bytes.size(), '#');
    return *this;
  }
  std::string make() const {
    std::string file(reinterpret_cast<const char*>(&header_), sizeof header_);
    file.append(reinterpret_cast<const char*>(&points_), sizeof points_);
    return file + records_;
  }

 private:
  std::string input_;
  fallback::HeaderImage header_{};
  fallback::SyncPoints points_ = {fallback::SyncPoint{kNoBlock, {}},
                                  fallback::SyncPoint{kNoBlock, {}}};
  std::string records_;
};

// Checkpoints at blocks 3 and 6. Blocks 6 to 8 were written since; the record of block 5 is left
// over.
FileMaker killedJob(const std::string& input) {
  FileMaker maker(input);
  maker.syncPoint(0, 3, 3000).syncPoint(1, 6, 6000);
  maker.fullBlock(6).fullBlock(7).fullBlock(8).fullBlock(5);
  return maker;
}

FileImage read(const std::string& bytes, const Hints& hints = {}) {
  std::istringstream stream(bytes);
  return readFallbackFile(stream, hints);
}

Verification verified(const std::string& bytes, const std::string& input, const Hints& hints = {}) {
  std::istringstream stream(bytes);
  std::istringstream data(input);
  const FileImage file = readFallbackFile(stream, hints);
  return verify(stream, file, data);
}

TEST(ReadFallbackFile, ReadsHeaderAndSyncPoints) {
  const FileImage file = read(killedJob(inputOf(9500)).make());
  EXPECT_EQ(file.state, FileState::kValid);
  EXPECT_EQ(file.finding, "");
  EXPECT_EQ(file.header->blockSize, kBlockSize);
  EXPECT_EQ(file.header->pipeName, "\\\\.\\pipe\\orders");
  EXPECT_EQ((*file.syncPoints)[0].blockNo, 3U);
  EXPECT_EQ((*file.syncPoints)[1].blockNo, 6U);
  EXPECT_EQ(file.slotCount, 4U);
  EXPECT_EQ(file.tailBytes, 0U);
}

TEST(ReadFallbackFile, GuessesFullBlocksAndTheFirstBlock) {
  const FileImage file = read(killedJob(inputOf(9500)).make());
  EXPECT_TRUE(file.shape.fullBlocks);
  EXPECT_EQ(file.shape.certainty, Certainty::kGuess);
  EXPECT_EQ(file.first.blockNo, 6U);
  EXPECT_EQ(file.first.certainty, Certainty::kGuess);
}

TEST(ReadFallbackFile, GuessesRecordsWithLengths) {
  const std::string input = inputOf(3000);
  FileMaker maker(input);
  maker.record(700, input.substr(0, 700)).record(10, input.substr(700, 10));
  const FileImage file = read(maker.make());
  EXPECT_FALSE(file.shape.fullBlocks);
  EXPECT_EQ(file.slotCount, 2U);
}

TEST(ReadFallbackFile, TakesTheUsersWordForBoth) {
  const FileImage file = read(killedJob(inputOf(9500)).make(), {false, 4});
  EXPECT_FALSE(file.shape.fullBlocks);
  EXPECT_EQ(file.shape.certainty, Certainty::kGiven);
  EXPECT_EQ(file.first.blockNo, 4U);
  EXPECT_EQ(file.first.certainty, Certainty::kGiven);
}

TEST(ReadFallbackFile, ReportsWhatIsMissingForEveryTruncation) {
  const std::string whole = killedJob(inputOf(9500)).make();
  for (std::size_t length = 0; length < whole.size(); ++length) {
    const FileImage file = read(whole.substr(0, length));
    ASSERT_EQ(file.size, length);
    if (length < kDataStartOffset) {
      ASSERT_EQ(file.state, FileState::kTruncated) << length;
      ASSERT_NE(file.finding, "") << length;
    } else {
      ASSERT_EQ(file.state, FileState::kValid) << length;
      ASSERT_EQ(file.slotCount * file.layout().recordSize() + file.tailBytes,
                length - kDataStartOffset);
      ASSERT_THAT(drawLine(file, std::nullopt, Colour::kNo), StartsWith("[head][sync: 3 6]["));
    }
  }
}

TEST(ReadFallbackFile, SurvivesEveryFlippedByte) {
  const std::string input = inputOf(9500);
  const std::string whole = killedJob(input).make();
  for (std::size_t at = 0; at < kDataStartOffset; ++at) {
    std::string damaged = whole;
    damaged[at] = static_cast<char>(damaged[at] ^ 0x40);
    std::istringstream stream(damaged);
    const FileImage file = readFallbackFile(stream, {});
    if (at < fallback::kHeaderTextLength) {
      ASSERT_EQ(file.state, FileState::kForeign) << at;
    }
    if (file.state != FileState::kValid) continue;
    std::istringstream data(input);
    const Verification verification = verify(stream, file, data);
    ASSERT_FALSE(drawLine(file, verification, Colour::kYes).empty());
  }
}

TEST(ReadFallbackFile, CallsOtherFilesForeign) {
  EXPECT_EQ(read("hello").state, FileState::kForeign);
  EXPECT_EQ(read(std::string(5000, '\0')).state, FileState::kForeign);
}

TEST(ReadFallbackFile, RefusesABlockSizeThatCannotBe) {
  for (const std::uint32_t size : {0U, 16777217U, ~0U}) {
    FileMaker maker("");
    maker.header().blockSize = size;
    EXPECT_EQ(read(maker.make()).state, FileState::kBadHeader) << size;
  }
}

TEST(ReadFallbackFile, EndsThePipeNameInsideItsField) {
  FileMaker maker("");
  std::memset(maker.header().pipeName, 'x', sizeof maker.header().pipeName);
  EXPECT_EQ(read(maker.make()).header->pipeName, std::string(259, 'x'));
}

TEST(ReadFallbackFile, HasNoFirstBlockWithoutASyncPoint) {
  EXPECT_EQ(read(FileMaker("").make()).first.blockNo, kNoBlock);
}

TEST(ReadFallbackFile, StartsAtBlockOneAfterTheBeginning) {
  EXPECT_EQ(read(FileMaker("").syncPoint(0, 0, 0).syncPoint(1, 0, 0).make()).first.blockNo, 1U);
}

TEST(ReadFallbackFile, NotesSignaturesWithoutTheFlag) {
  FileMaker maker = killedJob(inputOf(9500));
  maker.header().signatureFlag = 0;
  EXPECT_EQ(read(maker.make()).oddities.size(), 1U);
}

TEST(ReadFallbackFile, SaysWhatIsWrongWithABlockSizeWithoutRepeatingTheState) {
  FileMaker maker("");
  maker.header().blockSize = 0;
  EXPECT_THAT(read(maker.make()).finding, StartsWith("the header names a block size of 0 bytes"));
}

TEST(ReadFallbackFile, NotesSyncPointsInReverseOrder) {
  const std::string input = inputOf(9500);
  FileMaker maker(input);
  maker.syncPoint(0, 6, 6000).syncPoint(1, 3, 3000).fullBlock(3);
  const FileImage file = read(maker.make());
  ASSERT_EQ(file.oddities.size(), 1U);
  EXPECT_THAT(file.oddities[0], HasSubstr("block 6"));
  EXPECT_THAT(file.oddities[0], HasSubstr("block 3"));
}

TEST(ReadFallbackFile, NotesSyncPointsThatNoRunWrites) {
  const std::string input = inputOf(9500);
  const auto oddities = [&](std::uint64_t older, std::uint64_t newer) {
    FileMaker maker(input);
    maker.syncPoint(0, older, 100).syncPoint(1, newer, 100).fullBlock(1);
    return read(maker.make()).oddities.size();
  };
  EXPECT_EQ(oddities(3, kNoBlock), 1U) << "an older one alone";
  EXPECT_EQ(oddities(3, 0), 1U) << "position 0 takes both places";
  EXPECT_EQ(oddities(3, 3), 1U) << "the same block twice";
  EXPECT_EQ(oddities(3, std::uint64_t{1} << 62), 1U) << "more data than there can be";
  EXPECT_EQ(oddities(kNoBlock - 1, 3), 1U) << "more data than there can be";
  EXPECT_EQ(oddities(kNoBlock, kNoBlock), 0U);
  EXPECT_EQ(oddities(kNoBlock, 3), 0U);
  EXPECT_EQ(oddities(0, 0), 0U);
  EXPECT_EQ(oddities(0, 3), 0U);
  EXPECT_EQ(oddities(3, 6), 0U);
}

TEST(ReadFallbackFile, SupposesNoFirstBlockFromAnAbsurdSyncPoint) {
  FileMaker maker(inputOf(9500));
  maker.syncPoint(0, 3, 3000).syncPoint(1, kNoBlock - 1, 6000).fullBlock(3);
  EXPECT_EQ(read(maker.make()).first.blockNo, kNoBlock);
}

TEST(ReadFallbackFile, CountsLengthsThatCannotBeRight) {
  const std::string input = inputOf(4000);
  FileMaker maker(input);
  maker.syncPoint(1, 1, 700).record(700, input.substr(0, 700)).record(~0U, "x");
  EXPECT_EQ(read(maker.make(), {false, std::nullopt}).damagedLengths, 1U);
  EXPECT_EQ(read(killedJob(input + input + input).make()).damagedLengths, 0U);
}

TEST(Verify, ProvesSignaturesAndBlocks) {
  const std::string input = inputOf(9500);
  const Verification result = verified(killedJob(input).make(), input);
  EXPECT_EQ(result.syncPoints[0].signature, SignatureProof::kMatches);
  EXPECT_EQ(result.syncPoints[1].signature, SignatureProof::kMatches);
  ASSERT_EQ(result.slots.size(), 4U);
  EXPECT_EQ(result.slots[0]->blockNo, 6U);
  EXPECT_EQ(result.slots[2]->blockNo, 8U);
  EXPECT_EQ(result.slots[3]->blockNo, 5U);
  EXPECT_EQ(result.freshSlots, 3U);
}

TEST(Verify, DisprovesSignaturesOfOtherData) {
  const std::string input = inputOf(9500);
  std::string other = input;
  other[4000] = static_cast<char>(other[4000] ^ 1);
  const Verification result = verified(killedJob(input).make(), other);
  EXPECT_EQ(result.syncPoints[0].signature, SignatureProof::kMatches);
  EXPECT_EQ(result.syncPoints[1].signature, SignatureProof::kDiffers);
  EXPECT_FALSE(result.slots[3].has_value());
}

TEST(Verify, DisprovesACheckpointAfterTheData) {
  const std::string input = inputOf(9500);
  const Verification result = verified(killedJob(input).make(), input.substr(0, 4000));
  EXPECT_EQ(result.syncPoints[1].signature, SignatureProof::kDiffers);
}

TEST(Verify, KnowsTheLastBlockByItsValidBytes) {
  const std::string input = inputOf(9500);
  FileMaker maker(input);
  maker.syncPoint(1, 9, 9000).fullBlock(9).fullBlock(10);
  const Verification result = verified(maker.make(), input);
  ASSERT_TRUE(result.slots[1].has_value());
  EXPECT_EQ(result.slots[1]->blockNo, 10U);
  EXPECT_EQ(result.slots[1]->length, 500U);
}

TEST(Verify, TellsBlocksThatAreAlikeApartByTheirPlace) {
  const std::string input(8000, 'z');
  FileMaker maker(input);
  maker.syncPoint(0, 2, 2000).syncPoint(1, 4, 4000).fullBlock(4).fullBlock(5).fullBlock(6);
  const Verification result = verified(maker.make(), input, {true, std::nullopt});
  EXPECT_EQ(result.slots[0]->blockNo, 4U);
  EXPECT_EQ(result.slots[2]->blockNo, 6U);
  EXPECT_EQ(result.freshSlots, 3U);
}

TEST(Verify, FindsADamagedRecordAndKeepsTheLaterOnesFresh) {
  const std::string input = inputOf(9500);
  std::string bytes = killedJob(input).make();
  bytes[kDataStartOffset + kBlockSize + 17] ^= 1;
  const Verification result = verified(bytes, input);
  EXPECT_EQ(result.freshSlots, 3U);
  EXPECT_EQ(result.damagedSlots, 1U);
  EXPECT_TRUE(result.isDamaged(1));
  EXPECT_FALSE(result.isDamaged(2));
  EXPECT_FALSE(result.isDamaged(3)) << "left over, not damaged";
  EXPECT_EQ(drawLine(read(bytes), result, Colour::kNo), "[head][sync: 3 6][N!=~]");
}

TEST(Verify, FindsDamageInTheFirstRecord) {
  const std::string input = inputOf(9500);
  std::string bytes = killedJob(input).make();
  bytes[kDataStartOffset] ^= 1;
  const Verification result = verified(bytes, input);
  EXPECT_EQ(result.firstBlock, 6U);
  EXPECT_EQ(result.freshSlots, 3U);
  EXPECT_TRUE(result.isDamaged(0));
  EXPECT_EQ(result.damagedSlots, 1U);
}

TEST(Verify, FindsARecordInAnothersPlace) {
  const std::string input = inputOf(9500);
  FileMaker maker(input);
  maker.syncPoint(0, 3, 3000).syncPoint(1, 6, 6000).fullBlock(6).fullBlock(2).fullBlock(8);
  const Verification result = verified(maker.make(), input);
  EXPECT_EQ(result.freshSlots, 3U);
  EXPECT_TRUE(result.isDamaged(1));
}

TEST(Verify, DoesNotBlameOtherDataAtTheEnd) {
  // The file of a job that started over still has what an earlier job wrote, with other data.
  const std::string input = inputOf(9500);
  FileMaker maker(input);
  maker.syncPoint(1, 6, 6000).fullBlock(6).fullBlock(7);
  const std::string bytes = maker.make() + std::string(kBlockSize, 'y');
  const Verification result = verified(bytes, input);
  EXPECT_EQ(result.damagedSlots, 0U);
  EXPECT_EQ(result.freshSlots, 2U);
  EXPECT_EQ(result.unknownSlots(), 1U);
}

TEST(Verify, TellsManyEqualBlocksApart) {
  // Quadratic work would take minutes here.
  constexpr std::size_t kBlocks = 200'000;
  FileMaker maker("");
  maker.header().blockSize = 16;
  const std::string input(kBlocks * 16, 'z');
  maker.header().signatureFlag = 0;
  const Verification result = verified(maker.make() + input, input, {true, 1});
  EXPECT_EQ(result.freshSlots, kBlocks);
  EXPECT_EQ(result.slots.back()->blockNo, kBlocks);
}

TEST(Verify, FindsRecordsWithLengthsAfterTheirSyncPoint) {
  const std::string input = inputOf(4000);
  FileMaker maker(input);
  maker.syncPoint(1, 2, 1500);
  maker.record(800, input.substr(700, 800)).record(30, input.substr(1500, 30));
  maker.record(200, inputOf(900).substr(300, 200));
  const Verification result = verified(maker.make(), input);
  EXPECT_EQ(result.syncPoints[1].signature, SignatureProof::kMatches);
  EXPECT_EQ(result.slots[0]->blockNo, 2U);
  EXPECT_EQ(result.slots[1]->blockNo, 3U);
  EXPECT_EQ(result.slots[1]->length, 30U);
  EXPECT_FALSE(result.slots[2].has_value());
  EXPECT_EQ(result.freshSlots, 2U);
}

TEST(Verify, CannotPlaceRecordsWithoutASignature) {
  const std::string input = inputOf(4000);
  FileMaker maker(input);
  maker.header().signatureFlag = 0;
  maker.record(800, input.substr(700, 800));
  const Verification result = verified(maker.make(), input);
  EXPECT_FALSE(result.slots[0].has_value());
  EXPECT_NE(result.limit, "");
}

TEST(Verify, LeavesADamagedLengthAlone) {
  const std::string input = inputOf(4000);
  FileMaker maker(input);
  maker.syncPoint(1, 1, 700).record(700, input.substr(0, 700)).record(~0U, "x");
  const Verification result = verified(maker.make(), input, {false, std::nullopt});
  EXPECT_TRUE(result.slots[0].has_value());
  EXPECT_FALSE(result.slots[1].has_value());
}

TEST(Verify, FindsADamagedRecordWithALength) {
  const std::string input = inputOf(4000);
  FileMaker maker(input);
  maker.syncPoint(1, 2, 1500);
  maker.record(800, input.substr(700, 800)).record(30, input.substr(1501, 30));
  maker.record(200, input.substr(1530, 200)).record(300, inputOf(900).substr(500, 300));
  const Verification result = verified(maker.make(), input);
  EXPECT_EQ(result.freshSlots, 3U);
  EXPECT_TRUE(result.isDamaged(1));
  EXPECT_FALSE(result.isDamaged(3));
  EXPECT_EQ(result.damagedSlots, 1U);
}

TEST(Verify, DoesNotTakeChanceForProof) {
  // Records without bytes, or with very few, fit in many places.
  const std::string input = inputOf(4000);
  FileMaker maker(input);
  maker.syncPoint(1, 2, 1500);
  maker.record(800, input.substr(700, 800)).record(30, inputOf(900).substr(500, 30));
  maker.record(0, "").record(1, input.substr(1530, 1));
  const Verification result = verified(maker.make(), input);
  EXPECT_EQ(result.freshSlots, 1U);
  EXPECT_EQ(result.damagedSlots, 0U);
}

TEST(Verify, SearchesAlikeDataInOnePass) {
  constexpr std::size_t kBytes = 400'000;
  const std::string input(kBytes, 'z');
  FileMaker maker(input);
  maker.header().blockSize = 100'000;
  maker.syncPoint(1, 9, kBytes - 10);
  const std::uint32_t length = 100'000;
  const std::string bytes = maker.make() +
                            std::string(reinterpret_cast<const char*>(&length), sizeof length) +
                            input.substr(0, length);
  const Verification result = verified(bytes, input, {false, std::nullopt});
  EXPECT_EQ(result.syncPoints[1].signature, SignatureProof::kMatches);
  EXPECT_EQ(result.freshSlots, 1U);
}

TEST(Picture, ShowsSyncPointsAndLeftOvers) {
  const std::string input = inputOf(9500);
  const std::string bytes = killedJob(input).make();
  EXPECT_EQ(drawLine(read(bytes), std::nullopt, Colour::kNo), "[head][sync: 3 6][N===]");
  EXPECT_EQ(drawLine(read(bytes), verified(bytes, input), Colour::kNo), "[head][sync: 3 6][N==~]");
}

TEST(Picture, ShowsACutRecord) {
  EXPECT_EQ(drawLine(read(killedJob(inputOf(9500)).make() + "abc"), std::nullopt, Colour::kNo),
            "[head][sync: 3 6][N===+]");
}

TEST(Picture, StaysOneLineForAFileOfAnyLength) {
  FileImage file = read(killedJob(inputOf(9500)).make());
  file.slotCount = ~std::uint64_t{0} / kBlockSize;
  const std::string line = drawLine(file, std::nullopt, Colour::kNo);
  EXPECT_LT(line.size(), 80U);
  EXPECT_THAT(line, HasSubstr("N="));
}

TEST(Picture, UsesColourOnlyWhenAsked) {
  const FileImage file = read(killedJob(inputOf(9500)).make());
  EXPECT_THAT(drawLine(file, std::nullopt, Colour::kYes), HasSubstr("\x1b["));
  EXPECT_THAT(drawLine(file, std::nullopt, Colour::kNo), testing::Not(HasSubstr("\x1b")));
}

}  // namespace
}  // namespace tallow::inspect
