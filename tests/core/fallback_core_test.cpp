// The layout of the fallback file, its names and the pair of sync points.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "fallback/fallback_format.hpp"
#include "fallback/fallback_name.hpp"
#include "fallback/short_blocks.hpp"

namespace tallow::fallback {
namespace {

constexpr char kPipe[] = "\\\\.\\pipe\\job";

HeaderImage headerOf(const char* pipeName, std::uint64_t blockSize, bool signatures) {
  HeaderImage header = {};
  setPipeName(header, pipeName);
  setJobFields(header, blockSize, signatures);
  return header;
}

std::string bytesOf(const HeaderImage& header) {
  return {reinterpret_cast<const char*>(&header), sizeof header};
}

TEST(Header, HasTextBlockSizeFlagAndPipeName) {
  std::string expected = "Varnholt Fallback File 01.03.00\n";
  expected += '\0';
  expected += std::string("\x04\x03\x02\x01", 4);
  expected += '\1';
  expected += kPipe;
  expected.resize(298);
  EXPECT_EQ(bytesOf(headerOf(kPipe, 0x01020304, true)), expected);
}

TEST(Header, ClearsTheFlagWithoutSignatures) {
  EXPECT_EQ(bytesOf(headerOf(kPipe, 1, false))[37], '\0');
}

TEST(Header, CutsThePipeNameTo259Characters) {
  const HeaderImage header = headerOf(std::string(300, 'x').c_str(), 1, false);
  EXPECT_EQ(std::string(header.pipeName), std::string(259, 'x'));
}

TEST(Header, ForgetsALongerPipeName) {
  HeaderImage header = headerOf(std::string(100, 'x').c_str(), 1, false);
  setPipeName(header, kPipe);
  EXPECT_EQ(bytesOf(header), bytesOf(headerOf(kPipe, 1, false)));
}

TEST(Acceptance, TakesTheJobsOwnHeader) {
  HeaderImage header = headerOf(kPipe, 512, true);
  EXPECT_EQ(judgeHeader(header, kPipe, 512), HeaderVerdict::kAccepted);
}

TEST(Acceptance, DoesNotCompareTheSignatureFlag) {
  HeaderImage header = headerOf(kPipe, 512, false);
  EXPECT_EQ(judgeHeader(header, kPipe, 512), HeaderVerdict::kAccepted);
}

TEST(Acceptance, ComparesTextThenPipeNameThenBlockSize) {
  HeaderImage header = headerOf("\\\\.\\pipe\\other", 1024, true);
  EXPECT_EQ(judgeHeader(header, kPipe, 512), HeaderVerdict::kPipeNameDiffers);
  header.headerText[0] = 'v';
  EXPECT_EQ(judgeHeader(header, kPipe, 512), HeaderVerdict::kTextDiffers);
  header = headerOf(kPipe, 1024, true);
  EXPECT_EQ(judgeHeader(header, kPipe, 512), HeaderVerdict::kBlockSizeDiffers);
}

TEST(Acceptance, RefusesATextWithoutItsNewline) {
  HeaderImage header = headerOf(kPipe, 512, true);
  header.headerText[kHeaderTextLength - 1] = '\0';
  EXPECT_EQ(judgeHeader(header, kPipe, 512), HeaderVerdict::kTextDiffers);
}

TEST(Acceptance, IgnoresTheByteBehindTheText) {
  HeaderImage header = headerOf(kPipe, 512, true);
  header.headerText[kHeaderTextLength] = 'x';
  EXPECT_EQ(judgeHeader(header, kPipe, 512), HeaderVerdict::kAccepted);
}

TEST(Acceptance, ComparesTheFirst259CharactersOfAPipeName) {
  HeaderImage header = headerOf(std::string(259, 'x').c_str(), 512, true);
  header.pipeName[259] = 'x';
  EXPECT_EQ(judgeHeader(header, std::string(259, 'x').c_str(), 512), HeaderVerdict::kAccepted);
}

TEST(Acceptance, ReadsTheWholeBlockSize) {
  HeaderImage header = headerOf(kPipe, 0x00010000, true);
  EXPECT_EQ(judgeHeader(header, kPipe, 0x100010000), HeaderVerdict::kBlockSizeDiffers);
}

TEST(Acceptance, SeesEveryChangedByteThatMatters) {
  const HeaderImage good = headerOf(kPipe, 512, true);
  const std::size_t nameEnd = 38 + std::strlen(kPipe) + 1;
  for (std::size_t i = 0; i < sizeof good; ++i) {
    std::string bytes = bytesOf(good);
    bytes[i] = static_cast<char>(bytes[i] ^ 0x40);
    HeaderImage header;
    std::memcpy(&header, bytes.data(), sizeof header);
    HeaderVerdict expected = HeaderVerdict::kAccepted;
    if (i < 32) expected = HeaderVerdict::kTextDiffers;
    if (i >= 33 && i < 37) expected = HeaderVerdict::kBlockSizeDiffers;
    if (i >= 38 && i < nameEnd) expected = HeaderVerdict::kPipeNameDiffers;
    EXPECT_EQ(judgeHeader(header, kPipe, 512), expected) << "byte " << i;
  }
}

TEST(Records, LieOneBehindTheOtherFromTheFirstOn) {
  constexpr RecordLayout kFull{1000, true};
  constexpr RecordLayout kSized{1000, false};
  EXPECT_EQ(kFull.offsetOf(3, 1), 346u + 2000);
  EXPECT_EQ(kSized.offsetOf(3, 1), 346u + 2008);
  EXPECT_EQ(kSized.offsetOf(7, 7), 346u);
}

TEST(Records, OfNoBlockBeginTheDataArea) {
  EXPECT_EQ((RecordLayout{1000, true}.offsetOf(kNoBlock, 5)), 346u);
}

TEST(Records, MayLieBeyondFourGigabytes) {
  EXPECT_EQ((RecordLayout{0x1000000, true}.offsetOf(1001, 1)), 346u + 1000 * 0x1000000ull);
}

TEST(Records, AreLookedUpFromBlockOneByARestart) {
  EXPECT_EQ((RecordLayout{1000, false}.restartLookupOffset(3)), 346u + 2 * 1004);
}

TEST(FallbackName, SumsSignedCharacters) {
  EXPECT_EQ(nameSum("ab"), 0x61 + 0x62);
  EXPECT_EQ(nameSum("\xff"), 0xffff);
  EXPECT_EQ(nameSum(std::string(600, '\x7f')), (600 * 0x7f) & 0xffff);
}

TEST(FallbackName, IsTheBaseNameAndTheSumOfTheWholeName) {
  // 2 * 92 + 46 + 92 + "pipe" 430 + 92 + "ab" 195
  EXPECT_EQ(nameStem("\\\\.\\pipe\\ab"), "ab040f");
}

TEST(FallbackName, OfANameThatEndsInABackslashIsTheSumAlone) {
  EXPECT_EQ(nameStem("\\\\.\\pipe\\"), "034c");
}

TEST(FallbackName, HasFourLowerCaseDigits) {
  EXPECT_EQ(numberedName("ab040f", 0), "ab040f0000.fbf");
  EXPECT_EQ(numberedName("ab040f", 0xffff), "ab040fffff.fbf");
}

TEST(FallbackName, IsKnownInAnyCase) {
  EXPECT_TRUE(isNumberedName("AB040FFFFF.FBF", "ab040f"));
  EXPECT_FALSE(isNumberedName("ab040ffffg.fbf", "ab040f"));
  EXPECT_FALSE(isNumberedName("ab040ffff.fbf", "ab040f"));
  EXPECT_FALSE(isNumberedName("ab040f0ffff.fbf", "ab040f"));
  EXPECT_FALSE(isNumberedName("ab040fffff.fbx", "ab040f"));
  EXPECT_FALSE(isNumberedName("ac040fffff.fbf", "ab040f"));
}

SyncPoint pointOf(std::uint64_t block, std::uint8_t mark) {
  SyncPoint point = {block, {}};
  point.signature.fill(mark);
  return point;
}

void expectPair(const SyncPoints& points, const SyncPoint& older, const SyncPoint& newer) {
  EXPECT_EQ(points[0].blockNo, older.blockNo);
  EXPECT_EQ(points[0].signature, older.signature);
  EXPECT_EQ(points[1].blockNo, newer.blockNo);
  EXPECT_EQ(points[1].signature, newer.signature);
}

TEST(SyncPoints, PushTheNewerToTheOldersPlace) {
  SyncPoints points = kNoSyncPoints;
  for (std::uint8_t block = 1; block <= 3; ++block) addSyncPoint(points, pointOf(block, block));
  expectPair(points, pointOf(2, 2), pointOf(3, 3));
}

TEST(SyncPoints, KeepTheOlderWhenTheNewerIsTakenAgain) {
  SyncPoints points = kNoSyncPoints;
  addSyncPoint(points, pointOf(1, 1));
  addSyncPoint(points, pointOf(2, 2));
  addSyncPoint(points, pointOf(2, 9));
  expectPair(points, pointOf(1, 1), pointOf(2, 9));
}

TEST(SyncPoints, MayGoBackToTheOlder) {
  SyncPoints points = kNoSyncPoints;
  addSyncPoint(points, pointOf(1, 1));
  addSyncPoint(points, pointOf(2, 2));
  addSyncPoint(points, pointOf(1, 1));
  expectPair(points, pointOf(2, 2), pointOf(1, 1));
}

TEST(SyncPoints, OfNoBlockAndOfTheStartTakeBothPlaces) {
  SyncPoints points = kNoSyncPoints;
  addSyncPoint(points, pointOf(7, 7));
  addSyncPoint(points, pointOf(0, 5));
  expectPair(points, pointOf(0, 5), pointOf(0, 5));
  addSyncPoint(points, pointOf(kNoBlock, 0));
  expectPair(points, pointOf(kNoBlock, 0), pointOf(kNoBlock, 0));
}

TEST(SyncPoints, AreFoundOlderFirst) {
  SyncPoints points = {pointOf(4, 1), pointOf(4, 2)};
  EXPECT_EQ(findSyncPoint(points, 4), &points[0]);
  points[0].blockNo = 3;
  EXPECT_EQ(findSyncPoint(points, 4), &points[1]);
  EXPECT_EQ(findSyncPoint(points, 5), nullptr);
}

TEST(ShortBlocks, HaveTheLengthsThatWereNoted) {
  ShortBlocks blocks;
  for (std::uint32_t number = 3; number <= 30; number += 3) {
    blocks.makeRoom();
    blocks.add(number, number / 3);
  }
  for (std::uint32_t number = 1; number <= 31; ++number) {
    EXPECT_EQ(blocks.lengthOf(number, 16), number % 3 == 0 && number <= 30 ? number / 3 : 16u)
        << number;
  }
}

TEST(ShortBlocks, AreAllFullWhenNoneIsNoted) {
  ShortBlocks blocks;
  EXPECT_EQ(blocks.lengthOf(1, 16), 16u);
  blocks.makeRoom();
  EXPECT_EQ(blocks.lengthOf(0, 16), 16u);
  blocks.add(1, 5);
  blocks.clear();
  EXPECT_EQ(blocks.lengthOf(1, 16), 16u);
}

}  // namespace
}  // namespace tallow::fallback
