// The fallback file: its bytes, its name, when it is taken over, and when it is deleted.
#include <array>
#include <cstdio>

#include "entry/records.hpp"
#include "support/fallback_test.hpp"
#include "support/system_faults.hpp"

namespace tallow::test {
namespace {

using testing::Not;
using testing::SizeIs;

std::string stemOf(const std::string& pipeName) {
  unsigned sum = 0;
  for (const char character : pipeName) sum += static_cast<unsigned char>(character);  // ASCII
  std::array<char, 8> digits{};
  std::snprintf(digits.data(), digits.size(), "%04x", sum & 0xffff);
  return pipeName.substr(pipeName.rfind('\\') + 1) + digits.data();
}

// Layout

class Layout : public FallbackTest {};

TEST_F(Layout, OfANewFileIsHeaderAndSyncArea) {
  openJob();
  EXPECT_FALSE(exists(path())) << "not before the first checkpoint";
  checkpoint();
  const std::string empty = systemMd5("");
  EXPECT_EQ(file(), header() + syncPoint(0, empty) + syncPoint(0, empty));
}

TEST_F(Layout, OfTheFirstSyncPointHasNoneBeforeIt) {
  openJob();
  deliver(2);
  checkpoint();
  EXPECT_EQ(file(), header() + syncPoint(kNoBlock) + syncPoint(2, signature(2)));
}

TEST_F(Layout, WithoutSignatureCheckHasNoFlagAndNoSignatures) {
  openJob("Signature_check=0");
  deliver(2);
  checkpoint();
  EXPECT_EQ(file(), header(false) + syncPoint(kNoBlock) + syncPoint(2));
}

TEST_F(Layout, OfFullBlocksIsTheirBytesAlone) {
  openJob();
  deliver(2);
  checkpoint();
  deliver(3);
  EXPECT_EQ(file().substr(kDataStart), block(2) + block(3) + block(4));
}

TEST_F(Layout, OfOtherBlocksHasTheirLengthsBeforeThem) {
  data.resize(kBlockSize + 10);
  openJob("Need_Full_Block=no");
  deliver(1);
  checkpoint();
  deliverRest();
  const std::string records = file().substr(kDataStart);
  ASSERT_EQ(records.size(), 2 * (kBlockSize + 4));
  EXPECT_EQ(records.substr(0, 20), bytesOf32(kBlockSize) + block(1));
  EXPECT_EQ(records.substr(20, 14), bytesOf32(10) + block(2));
}

TEST_F(Layout, StartsTheDataAreaAfreshAtEachCheckpoint) {
  openJob();
  deliver(1);
  checkpoint();
  deliver(5);
  checkpoint();
  deliver(2);
  // Blocks 6 and 7 have overwritten 1 and 2; the file never gets shorter.
  EXPECT_EQ(file().substr(kDataStart), block(6) + block(7) + block(3) + block(4) + block(5));
}

TEST_F(Layout, KeepsTwoSyncPoints) {
  openJob();
  for (const int step : {2, 1, 3}) {
    deliver(static_cast<std::uint64_t>(step));
    checkpoint();
  }
  EXPECT_EQ(older(), (SyncPoint{3, signature(3)}));
  EXPECT_EQ(newer(), (SyncPoint{6, signature(6)}));
}

TEST_F(Layout, ASecondCheckpointAtABlockWritesNothing) {
  openJob();
  deliver(2);
  checkpoint();
  const std::string before = file();
  log.newLines();
  checkpoint();
  EXPECT_EQ(file(), before);
  EXPECT_THAT(log.newEntries(), ElementsAre(requestLine("pmiPIDMOptGetPos", 6),
                                            trace(6, "GetPos returns block no. 2.")));
}

TEST_F(Layout, NothingIsWrittenBeforeTheFirstCheckpoint) {
  openJob();
  deliver(5);
  EXPECT_FALSE(exists(path()));
}

// Which file

class Name : public FallbackTest {
 protected:
  std::string defaultName() const { return stemOf(pipeName) + "ffff.fbf"; }
};

TEST_F(Name, IsTheStemWithTheLastNumber) {
  openJob({}, "");
  checkpoint();
  EXPECT_TRUE(exists(files.file(defaultName())));
}

TEST_F(Name, CountsTheBytesOfThePipeNameAsSigned) {
  pipeName += "\xe4";
  int sum = -256;  // as a signed value, the last byte is 256 less
  for (const char byte : pipeName) sum += static_cast<unsigned char>(byte);
  char digits[8];
  std::snprintf(digits, sizeof digits, "%04x", sum & 0xffff);
  openJob({}, "");
  checkpoint();
  const std::string lastPart = pipeName.substr(pipeName.rfind('\\') + 1);
  EXPECT_TRUE(exists(files.file(lastPart + digits + "ffff.fbf")));
}

TEST_F(Name, OfAnAbsentFileGivesNoMessageAtOpen) {
  openJob();
  EXPECT_THAT(log.newEntries(), ElementsAre(requestLine("pmiPIDMOptOpen", 2),
                                            trace(6, "Opened pipe \"" + pipeName + "\".")));
  checkpoint();
  EXPECT_TRUE(exists(path()));
}

// A directory in which a folder takes every numbered name of the pipe except number `missing`.
class CrowdedDirectory {
 public:
  CrowdedDirectory(HMODULE module, std::string stem, unsigned missing)
      : stem_(std::move(stem)),
        missing_(missing),
        first_(module, "FindFirstFileA",
               [this](const char*, WIN32_FIND_DATAA* found) -> HANDLE {
                 number_ = 0;
                 next(*found);
                 return this;
               }),
        next_(module, "FindNextFileA",
              [this](HANDLE, WIN32_FIND_DATAA* found) -> BOOL { return next(*found); }),
        close_(module, "FindClose", [](HANDLE) -> BOOL { return TRUE; }) {}

 private:
  BOOL next(WIN32_FIND_DATAA& found) {
    constexpr unsigned kNames = 0x10000;
    if (number_ == missing_) ++number_;
    if (number_ >= kNames) {
      SetLastError(ERROR_NO_MORE_FILES);
      return FALSE;
    }
    found = {};
    found.dwFileAttributes = FILE_ATTRIBUTE_DIRECTORY;
    std::snprintf(found.cFileName, sizeof(found.cFileName), "%s%04x.fbf", stem_.c_str(), number_++);
    return TRUE;
  }

  std::string stem_;
  unsigned missing_;
  unsigned number_ = 0;
  Hook<struct FindFirstTag, HANDLE(const char*, WIN32_FIND_DATAA*)> first_;
  Hook<struct FindNextTag, BOOL(HANDLE, WIN32_FIND_DATAA*)> next_;
  Hook<struct FindCloseTag, BOOL(HANDLE)> close_;
};

TEST_F(Name, WithNoneOfAllNumbersFreeIsNoted) {
  const CrowdedDirectory crowded(module(), stemOf(pipeName), 0x10000);
  openJob({}, "");
  EXPECT_EQ(count(log.newEntries(), message(2, 79)), 1);
  deliver(3);
}

TEST_F(Name, WithOneNumberFreeIsStillTheLast) {
  const CrowdedDirectory crowded(module(), stemOf(pipeName), 0x1234);
  openJob({}, "");
  EXPECT_EQ(count(log.newEntries(), message(2, 79)), 0);
  checkpoint();
  EXPECT_TRUE(exists(files.file(defaultName())));
}

TEST_F(Name, IsInTheDirectoryThatTempNames) {
  host.init("Log_level=0 Block_size=16");
  ASSERT_EQ(host.open(pipeName).code, 0u);
  host.getPos();
  EXPECT_TRUE(exists(scratch.file(defaultName())));
}

TEST_F(Name, IsInWindirsTempWithoutTemp) {
  const ScopedEnvironment noTemp("TEMP", std::nullopt);
  const ScopedEnvironment windir("WINDIR", files.path());
  CreateDirectoryA(files.file("temp").c_str(), nullptr);
  host.init("Block_size=16");
  ASSERT_EQ(host.open(pipeName).code, 0u);
  host.getPos();
  EXPECT_TRUE(exists(files.file("temp") + "\\" + defaultName()));
}

TEST_F(Name, IsOnDriveCWithoutAnyVariable) {
  const ScopedEnvironment noTemp("TEMP", std::nullopt);
  const ScopedEnvironment noWindir("WINDIR", std::nullopt);
  host.init("Log_directory='" + scratch.path() + "' Log_level=6 Block_size=16");
  ASSERT_EQ(host.open(pipeName).code, 0u);
  log.newLines();
  host.getPos();
  const std::string name = "c:\\\\" + defaultName();
  EXPECT_THAT(log.newEntries(),
              Contains(trace(6, "Creation of fallback file \"" + name + "\" succeeded.")));
  EXPECT_TRUE(exists(name));
  host.close();
  DeleteFileA(name.c_str());
}

// Taking over

class Search : public Name {
 protected:
  ScopedCurrentDirectory current{files.path()};

  // A file that this pipe's next job can restart from.
  std::string restartable(std::uint32_t blockSize = kBlockSize) const {
    return header(true, blockSize) + syncPoint(kNoBlock) + syncPoint(2, signature(2)) + block(2);
  }
  std::vector<LogEntry> openAndReadLog() {
    openJob({}, "");
    std::vector<LogEntry> entries = log.newEntries();
    entries.erase(entries.begin(), entries.begin() + 2);
    return entries;
  }
  LogEntry validating(const std::string& name) const {
    return trace(6, "Validating fallback file \"" + name + "\".");
  }
};

TEST_F(Search, TakesTheFileOfAnEarlierRun) {
  openJob({}, "");
  deliver(2);
  checkpoint();
  deliver(1);
  reload();
  const std::string name = defaultName();
  std::string digits;
  for (const char c : signature(2)) {
    std::array<char, 4> two{};
    std::snprintf(two.data(), two.size(), "%02x", static_cast<unsigned char>(c));
    digits += two.data();
  }
  EXPECT_THAT(openAndReadLog(),
              ElementsAre(validating(name),
                          trace(6, "Validated fallback file \"" + name + "\" for recovery."),
                          trace(6, "Read fallback sync point for block 18446744073709551615."),
                          trace(6, "Signature is 0x00000000000000000000000000000000"),
                          trace(6, "Read fallback sync point for block 2."),
                          trace(6, "Signature is 0x" + digits),
                          trace(6, "Seeking to fallback file offset 346"), message(4, 88)));
  goTo(2);
  deliver(3);
}

TEST_F(Search, DoesNotOpenAFileOutsideTheWorkingDirectory) {
  putFile(defaultName(), restartable());
  const ScopedCurrentDirectory elsewhere(scratch.path());
  EXPECT_THAT(openAndReadLog(), IsEmpty());
}

TEST_F(Search, SkipsDirectories) {
  const std::string name = stemOf(pipeName) + "0000.fbf";
  CreateDirectoryA(name.c_str(), nullptr);
  putFile(stemOf(pipeName) + "0001.fbf", restartable());
  const std::vector<LogEntry> entries = openAndReadLog();
  EXPECT_THAT(entries, Not(Contains(validating(name))));
  EXPECT_EQ(count(entries, message(4, 88)), 1);
}

TEST_F(Search, PassesOverFilesOfOthersAndStopsAtTheFirstOfItsOwn) {
  const std::string stem = stemOf(pipeName);
  std::string foreign = restartable();
  foreign[kPipeNameOffset + 2] = 'P';
  putFile(stem + "0000.fbf", foreign);
  putFile(stem + "0001.fbf", restartable(kBlockSize * 2));
  putFile(stem + "0002.fbf", "no fallback file, but long enough to have a header block " +
                                 std::string(kHeaderSize, '.'));
  putFile(stem + "0003.fbf", restartable());
  putFile(stem + "0004.fbf", restartable());
  std::vector<LogEntry> entries = openAndReadLog();
  std::erase_if(entries, [](const LogEntry& entry) { return entry.level == 6 && entry.id != 75; });
  std::erase_if(entries, [](const LogEntry& entry) { return entry.trace.starts_with("Expected"); });
  EXPECT_THAT(entries, testing::UnorderedElementsAre(message(5, 84), message(6, 75), message(5, 85),
                                                     message(6, 75), message(5, 83), message(6, 75),
                                                     message(4, 88)));
}

// The directory searches of an Open, in the order of their beginnings and ends.
class SearchHandles {
 public:
  explicit SearchHandles(HMODULE module)
      : begin_(module, "FindFirstFileA",
               [this](const char* pattern, WIN32_FIND_DATAA* found) {
                 const HANDLE handle = begin_.original(pattern, found);
                 if (handle != INVALID_HANDLE_VALUE) begun.push_back(handle);
                 return handle;
               }),
        end_(module, "FindClose", [this](HANDLE handle) {
          ended.push_back(handle);
          return end_.original(handle);
        }) {}

  std::vector<HANDLE> begun;
  std::vector<HANDLE> ended;

 private:
  Hook<struct BeginTag, HANDLE(const char*, WIN32_FIND_DATAA*)> begin_;
  Hook<struct EndTag, BOOL(HANDLE)> end_;
};

TEST_F(Search, IsEndedOnceWhenAFileIsTakenOver) {
  putFile(defaultName(), restartable());
  SearchHandles handles(module());
  EXPECT_EQ(count(openAndReadLog(), message(4, 88)), 1);
  EXPECT_THAT(handles.begun, SizeIs(1));
  EXPECT_EQ(handles.ended, handles.begun);
}

TEST_F(Search, IsEndedOnceWhenNoFileIsTakenOver) {
  putFile(defaultName(), restartable(99));
  SearchHandles handles(module());
  EXPECT_EQ(count(openAndReadLog(), message(4, 88)), 0);
  EXPECT_THAT(handles.begun, SizeIs(1));
  EXPECT_EQ(handles.ended, handles.begun);
}

TEST_F(Search, ThatFindsNothingEndsNothing) {
  SearchHandles handles(module());
  openAndReadLog();
  EXPECT_THAT(handles.begun, IsEmpty());
  EXPECT_THAT(handles.ended, IsEmpty());
}

TEST_F(Search, LogsWhatWasExpectedAfterARefusal) {
  std::string foreign = restartable();
  foreign[kPipeNameOffset + 2] = 'P';
  putFile(defaultName(), foreign);
  std::string found = pipeName;
  found[2] = 'P';
  EXPECT_THAT(openAndReadLog(),
              ElementsAre(validating(defaultName()), message(5, 84),
                          trace(5, "Expected: \"" + pipeName + "\"; got \"" + found + "\""),
                          message(6, 75)));
}

TEST_F(Search, LogsTheBlockSizesOfARefusal) {
  putFile(defaultName(), restartable(99));
  EXPECT_THAT(openAndReadLog(), ElementsAre(validating(defaultName()), message(5, 85),
                                            trace(5, "Expected: 16; got 99"), message(6, 75)));
}

class ExplicitFile : public FallbackTest {
 protected:
  std::string good() const {
    return header() + syncPoint(1, signature(1)) + syncPoint(2, signature(2)) + block(2);
  }
  // The lines of Open after those of the request and the pipe.
  std::vector<LogEntry> openWith(const std::string& bytes) {
    putFile(path(), bytes);
    send(data);
    EXPECT_EQ(host.open(pipeName).code, 0u);
    std::vector<LogEntry> entries = log.newEntries();
    entries.erase(entries.begin(), entries.begin() + 2);
    return entries;
  }
};

TEST_F(ExplicitFile, OfAnotherPipeIsRefusedAndWrittenOver) {
  initialise();
  std::string foreign = good();
  foreign[kPipeNameOffset + 2] = 'P';
  std::vector<LogEntry> entries = openWith(foreign);
  ASSERT_EQ(entries.size(), 3u);
  EXPECT_EQ(entries[0], message(2, 84));
  EXPECT_EQ(entries[1].level, 5);
  EXPECT_EQ(entries[2], message(2, 75));
  EXPECT_EQ(file(), foreign) << "until the first checkpoint";
  checkpoint();
  EXPECT_EQ(file().substr(0, kHeaderSize), header());
  EXPECT_EQ(file().size(), kDataStart);
}

TEST_F(ExplicitFile, WithAnotherBlockSizeIsRefused) {
  initialise();
  std::string other = good();
  other.replace(kBlockSizeOffset, 4, bytesOf32(17));
  EXPECT_THAT(openWith(other),
              ElementsAre(message(2, 85), trace(5, "Expected: 16; got 17"), message(2, 75)));
}

TEST_F(ExplicitFile, WithAnotherTextIsRefused) {
  initialise();
  std::string other = good();
  other[0] = 'v';
  const std::string text = "Varnholt Fallback File 01.03.00\n";
  EXPECT_THAT(openWith(other),
              ElementsAre(message(2, 83),
                          trace(5, "Expected: \"" + text + "\"; got \"v" + text.substr(1) + "\""),
                          message(2, 75)));
}

TEST_F(ExplicitFile, IsRefusedAtEveryLengthShortOfItsDataArea) {
  initialise();
  for (std::size_t length = 0; length < kDataStart; ++length) {
    SCOPED_TRACE(length);
    DeleteFileA(scratch.file("namedpipes.log").c_str());
    putFile(path(), good().substr(0, length));
    ASSERT_EQ(host.open(pipeName).code, 0u);
    const std::vector<LogEntry> entries = entriesOf(readLog(scratch.path()));
    ASSERT_EQ(count(entries, message(2, 75)), 1);
    ASSERT_EQ(count(entries, message(4, 88)), 0);
    ASSERT_EQ(host.setPos(2).code, pmrcFailed);  // there is no file
    ASSERT_EQ(host.close().code, 0u);
  }
}

TEST_F(ExplicitFile, IsTakenOverAtEveryLengthOfItsDataArea) {
  initialise();
  for (std::size_t length = kDataStart; length <= kDataStart + kBlockSize; ++length) {
    send(data);
    putFile(path(), good().substr(0, length));
    ASSERT_EQ(host.open(pipeName).code, 0u);
    ASSERT_EQ(host.setPos(2).code, 0u) << length;
    ASSERT_EQ(host.read().data, block(2));
    ASSERT_EQ(host.close().code, 0u);
  }
}

TEST_F(ExplicitFile, WithAChangedByteNeverBringsWrongData) {
  initialise();
  const std::size_t nameEnd = kPipeNameOffset + pipeName.size() + 1;
  for (std::size_t i = 0; i < kDataStart; ++i) {
    SCOPED_TRACE(i);
    std::string bytes = good();
    bytes[i] = static_cast<char>(bytes[i] ^ 0x20);
    putFile(path(), bytes);
    send(data);
    ASSERT_EQ(host.open(pipeName).code, 0u);
    std::uint32_t expected = pmrcSuccess;
    const bool isText = i < kBlockSizeOffset - 1;  // without its end
    const bool isBlockSize = i >= kBlockSizeOffset && i < kSignatureFlagOffset;
    const bool isPipeName = i >= kPipeNameOffset && i < nameEnd;
    if (isText || isBlockSize || isPipeName) expected = pmrcFailed;
    if (i == kSignatureFlagOffset) expected = pmrcSuccess;  // any flag except 0 counts as 1
    if (i >= kNewerSyncPoint) expected = pmrcBadPosition;
    if (i >= kNewerSyncPoint + kSignatureOffset) expected = pmrcDelivery;
    const Answer answer = host.setPos(2);
    ASSERT_EQ(answer.code, expected);
    if (expected == pmrcSuccess) {
      ASSERT_EQ(host.read().data, block(2));
    }
    ASSERT_EQ(host.close().code, 0u);
  }
}

TEST_F(ExplicitFile, WithTheFlagSetMakesAJobWithoutSignatureCheckComputeThem) {
  initialise("Signature_check=0");
  EXPECT_THAT(openWith(good()), Contains(message(4, 88)));
  deliver(3);
  checkpoint();
  EXPECT_EQ(newer(), (SyncPoint{3, signature(3)}));
}

TEST_F(ExplicitFile, WithoutTheFlagNeverMeetsSignatureCheck) {
  std::string unsignedFile = good();
  unsignedFile[kSignatureFlagOffset] = '\0';
  initialise();
  openWith(unsignedFile);
  EXPECT_EQ(host.setPos(2).code, pmrcDelivery);
  EXPECT_EQ(count(log.newEntries(), message(2, 16)), 1);
  host.close();
  initialise("Signature_check=1");
  openWith(unsignedFile);
  EXPECT_EQ(host.setPos(2).code, 0u);
  EXPECT_EQ(count(log.newEntries(), message(3, 16)), 1);
}

TEST_F(ExplicitFile, IsRestartedFromItsOlderSyncPoint) {
  initialise();
  openWith(good());
  goTo(1);
  deliver(4);
}

TEST_F(ExplicitFile, ThatIsReadWithoutARestartLosesItsSyncPoints) {
  initialise();
  openWith(good());
  deliver(1);
  const std::vector<LogEntry> entries = log.newEntries();
  EXPECT_EQ(count(entries, message(4, 93)), 1);
  EXPECT_EQ(older(), (SyncPoint{kNoBlock, std::string(16, '\0')}));
  EXPECT_EQ(newer(), (SyncPoint{kNoBlock, std::string(16, '\0')}));
}

TEST_F(ExplicitFile, ThatIsCheckpointedWithoutARestartStartsOver) {
  initialise();
  openWith(good());
  EXPECT_EQ(checkpoint(), 0u);
  EXPECT_EQ(count(log.newEntries(), message(4, 94)), 1);
  EXPECT_EQ(newer(), (SyncPoint{0, systemMd5("")}));
  deliver(2);
}

TEST_F(ExplicitFile, ComparesLongPipeNamesInTheirFirst259Characters) {
  pipeName += std::string(259 - pipeName.size(), 'x');
  initialise();
  std::string longer = good();
  longer[kHeaderSize - 1] = 'x';
  if (host.open(pipeName).code != 0) GTEST_SKIP() << "the system refuses so long a name";
  host.close();
  log.newLines();
  EXPECT_THAT(openWith(longer), Contains(message(4, 88)));
}

// Trouble

// Whatever happens to the file, the job gets its data and ends like any other.
class Trouble : public FallbackTest {
 protected:
  void expectWholeJob() {
    deliver(2);
    EXPECT_EQ(host.getPos().position, 2u);
    deliver(3);
    EXPECT_EQ(host.getPos().position, 5u);
    deliverRest();
    EXPECT_EQ(host.close().code, 0u);
  }
  int noted(int level, int id) { return count(entries_, message(level, id)); }
  void readLogNow() { entries_ = log.newEntries(); }

  std::vector<LogEntry> entries_;
};

TEST_F(Trouble, WithAReadOnlyFileIsNoted) {
  putFile(path(), "not ours");
  SetFileAttributesA(path().c_str(), FILE_ATTRIBUTE_READONLY);
  const HANDLE probe =
      CreateFileA(path().c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  if (probe != INVALID_HANDLE_VALUE) {
    CloseHandle(probe);
    SetFileAttributesA(path().c_str(), FILE_ATTRIBUTE_NORMAL);
    GTEST_SKIP() << "this user may write to read-only files";
  }
  openJob();
  expectWholeJob();
  readLogNow();
  EXPECT_EQ(noted(2, 79), 2);
  SetFileAttributesA(path().c_str(), FILE_ATTRIBUTE_NORMAL);
}

TEST_F(Trouble, WithAFileThatCannotBeOpenedIsNoted) {
  openJob();
  {
    StreamFaults faults(module(), StreamCall::kOpen);
    expectWholeJob();
  }
  readLogNow();
  EXPECT_EQ(noted(2, 79), 2);
  EXPECT_THAT(entries_, Contains(trace(5, "Creation of fallback file \"" + path() + "\" failed.")));
}

TEST_F(Trouble, WithALockedFileIsNoted) {
  putFile(path(), header() + syncPoint(kNoBlock) + syncPoint(2, signature(2)));
  const HANDLE lock =
      CreateFileA(path().c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(lock, INVALID_HANDLE_VALUE);
  openJob();
  expectWholeJob();
  readLogNow();
  EXPECT_EQ(noted(4, 88), 0);
  EXPECT_EQ(noted(2, 79), 2);
  CloseHandle(lock);
}

TEST_F(Trouble, WithADirectoryThatHasGoneIsNoted) {
  initialise();
  send(data);
  ASSERT_TRUE(RemoveDirectoryA(files.path().c_str()));
  ASSERT_EQ(host.open(pipeName).code, 0u);
  expectWholeJob();
  readLogNow();
  EXPECT_EQ(noted(2, 79), 2);
  CreateDirectoryA(files.path().c_str(), nullptr);
}

TEST_F(Trouble, WithAWriteDeletesTheFile) {
  // The writes are the header, the sync area and its point, the records, and the next checkpoint's
  // point.
  for (int good = 0; good < 10; ++good) {
    SCOPED_TRACE(good);
    openJob(good % 2 != 0 ? "Need_Full_Block=no" : "");
    {
      StreamFaults faults(module(), StreamCall::kWrite, good);
      expectWholeJob();
    }
    readLogNow();
    EXPECT_GE(noted(2, 51), 1);
    EXPECT_FALSE(exists(path()));
    reload();
  }
}

TEST_F(Trouble, WithAFlushDeletesTheFile) {
  openJob();
  deliver(2);
  {
    StreamFaults faults(module(), StreamCall::kFlush);
    EXPECT_EQ(checkpoint(), 2u);
  }
  readLogNow();
  EXPECT_EQ(noted(2, 51), 2);  // the file that Open left to the checkpoint, and another one at once
  EXPECT_FALSE(exists(path()));
  deliverRest();
}

TEST_F(Trouble, WithAWriteEndsRestartability) {
  openJob();
  deliver(2);
  checkpoint();
  StreamFaults faults(module(), StreamCall::kWrite);
  deliver(2);
  log.newLines();
  EXPECT_EQ(host.setPos(2).code, pmrcFailed);
  EXPECT_EQ(count(log.newEntries(), message(2, 52)), 1);
}

TEST_F(Trouble, WithASeekLeavesTheJobAlone) {
  for (int good = 0; good < 6; ++good) {
    SCOPED_TRACE(good);
    openJob();
    {
      StreamFaults faults(module(), StreamCall::kSeek, good);
      expectWholeJob();
    }
    reload();
    DeleteFileA(path().c_str());
  }
}

TEST_F(Trouble, WithTheSeekOfAReplayIsReportedWithMessage75) {
  openJob();
  deliver(2);
  checkpoint();
  deliver(2);
  StreamFaults faults(module(), StreamCall::kSeek);
  log.newLines();
  EXPECT_EQ(host.setPos(2).code, pmrcFailed);
  EXPECT_EQ(count(log.newEntries(), message(2, 75)), 1);
  const ReadAnswer read = host.read();
  EXPECT_EQ(read.code, pmrcDelivery);
  EXPECT_EQ(read.data, "");
}

TEST_F(Trouble, WithThePositionAtACheckpointIsReportedWithMessage104) {
  openJob();
  deliver(2);
  checkpoint();
  deliver(2);
  StreamFaults faults(module(), StreamCall::kTell);
  log.newLines();
  EXPECT_EQ(host.getPos().code, pmrcFailed);
  EXPECT_EQ(count(log.newEntries(), message(2, 104)), 1);
}

TEST_F(Trouble, WithThePositionInAReplayIsReportedWithMessage104) {
  openJob();
  deliver(2);
  checkpoint();
  deliver(2);
  goTo(2);
  log.newLines();
  {
    StreamFaults faults(module(), StreamCall::kTell);
    const ReadAnswer read = host.read();
    EXPECT_EQ(read.code, pmrcFailed);
    EXPECT_EQ(read.data, "");
  }
  EXPECT_EQ(count(log.newEntries(), message(2, 104)), 1);
  deliver(4);
}

TEST_F(Trouble, WithTheSeekBackInAReplayIsReportedWithMessage103) {
  openJob();
  deliver(2);
  checkpoint();
  deliver(2);
  goTo(2);
  log.newLines();
  {
    StreamFaults faults(module(), StreamCall::kSeek, 1);  // the seek to the end
    EXPECT_EQ(host.read().code, pmrcFailed);
  }
  EXPECT_EQ(count(log.newEntries(), message(2, 103)), 1);
}

// Close

class Closing : public FallbackTest {
 protected:
  void runToTheEnd(std::string_view options = {}) {
    openJob(options);
    deliver(2);
    checkpoint();
    deliverRest();
    log.newLines();
  }
  config::OptionsRecord& record() {
    return static_cast<entry::ModuleRecord*>(host.moduleHandle)->options;
  }
};

TEST_F(Closing, AfterTheEndDeletesTheFile) {
  runToTheEnd();
  EXPECT_EQ(host.close().code, 0u);
  EXPECT_FALSE(exists(path()));
  EXPECT_THAT(log.newEntries(), ElementsAre(requestLine("pmiPIDMOptClose", 3), message(4, 86)));
}

TEST_F(Closing, ReportsTheSizeInMillionsOfBytes) {
  data = sampleData(400 * kBlockSize);
  runToTheEnd();
  const std::size_t size = file().size();
  ASSERT_GT(size, 6000u);
  host.close();
  const std::vector<LogLine> lines = log.newLines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_NE(lines[1].text.find("(0.0 MB)"), std::string::npos) << lines[1].text;
}

TEST_F(Closing, BeforeTheEndKeepsTheFile) {
  for (const bool withR : {false, true}) {
    openJob();
    deliver(2);
    checkpoint();
    EXPECT_EQ((withR ? host.closeR() : host.close()).code, 0u);
    EXPECT_TRUE(exists(path()));
    reload();
    DeleteFileA(path().c_str());
  }
}

TEST_F(Closing, AfterTheEndKeepsTheFileWhenAsked) {
  runToTheEnd();
  host.attribute("PRESERVE_RESTART_INFO", "YES");
  EXPECT_EQ(host.closeR().code, 0u);
  EXPECT_TRUE(exists(path()));
}

TEST_F(Closing, AfterAReplayWasAskedForKeepsTheFile) {
  runToTheEnd();
  goTo(2);
  host.close();
  EXPECT_TRUE(exists(path()));
}

TEST_F(Closing, AsksWhenTheFlagIsSet) {
  for (const int answer : {IDYES, IDNO}) {
    runToTheEnd();
    record().confirmFallbackDeletion = true;
    {
      MessageBoxes boxes(module(), answer);
      EXPECT_EQ(host.close().code, 0u);
      ASSERT_EQ(boxes.shown.size(), 2u);
      EXPECT_THAT(boxes.shown[0].text, HasSubstr(pipeName));
      EXPECT_THAT(boxes.shown[0].text, HasSubstr(path()));
      EXPECT_EQ(boxes.shown[0].buttons, unsigned{MB_YESNO});
      EXPECT_EQ(boxes.shown[1].text, messageText(answer == IDYES ? 56 : 55));
      EXPECT_EQ(boxes.shown[1].buttons, unsigned{MB_OK});
    }
    EXPECT_EQ(exists(path()), answer == IDNO);
    reload();
    DeleteFileA(path().c_str());
  }
}

TEST_F(Closing, WithRNeverAsks) {
  runToTheEnd();
  record().confirmFallbackDeletion = true;
  MessageBoxes boxes(module());
  host.closeR();
  EXPECT_THAT(boxes.shown, IsEmpty());
  EXPECT_FALSE(exists(path()));
}

TEST_F(Closing, AsksEvenWhenTheFileIsToBePreserved) {
  runToTheEnd();
  record().confirmFallbackDeletion = true;
  host.attribute("PRESERVE_RESTART_INFO", "YES");
  MessageBoxes boxes(module(), IDYES);
  host.close();
  EXPECT_THAT(boxes.shown, SizeIs(2));
  EXPECT_FALSE(exists(path()));
}

TEST_F(Closing, DoesNotAskWithoutAFile) {
  openJob();
  deliverRest();
  record().confirmFallbackDeletion = true;
  MessageBoxes boxes(module());
  EXPECT_EQ(host.close().code, 0u);
  EXPECT_THAT(boxes.shown, IsEmpty());
}

TEST_F(Closing, ByUnloadKeepsTheFile) {
  runToTheEnd();
  reload();
  EXPECT_TRUE(exists(path()));
}

// Without a file

class NoFallback : public FallbackTest {};

TEST_F(NoFallback, GivesPositionsAndSaysNothing) {
  initialise("No_FallBack=''", "");
  send(data);
  ASSERT_EQ(host.open(pipeName).code, 0u);
  deliver(2);
  log.newLines();
  EXPECT_EQ(checkpoint(), 2u);
  EXPECT_THAT(log.newEntries(), ElementsAre(requestLine("pmiPIDMOptGetPos", 6),
                                            trace(6, "GetPos returns block no. 2.")));
}

TEST_F(NoFallback, RefusesEverySetPos) {
  initialise("No_FallBack=''");
  send(data);
  ASSERT_EQ(host.open(pipeName).code, 0u);
  deliver(2);
  checkpoint();
  log.newLines();
  EXPECT_EQ(host.setPos(2).code, pmrcFailed);
  EXPECT_THAT(log.newEntries(), ElementsAre(requestLine("pmiPIDMOptSetPos", 7), message(2, 52)));
}

TEST_F(NoFallback, SaysWhichOptionsItMakesUseless) {
  initialise("No_FallBack=''");
  ASSERT_EQ(host.open(pipeName).code, 0u);
  const std::vector<LogEntry> entries = log.newEntries();
  EXPECT_THAT(entries, ElementsAre(requestLine("pmiPIDMOptOpen", 2),
                                   trace(6, "Opened pipe \"" + pipeName + "\"."), message(1, 99),
                                   message(1, 100), message(1, 101)));
}

}  // namespace
}  // namespace tallow::test
