#include "support/fallback_test.hpp"

#include <algorithm>

namespace tallow::test {

FallbackTest::~FallbackTest() {
  pipe.reset();
  loaded.reset();
}

void FallbackTest::send(std::string_view bytes) {
  script() = PipeScript();
  if (!bytes.empty()) script().data(std::string(bytes));
}

void FallbackTest::initialise(std::string_view options, const std::string& name) {
  std::string text =
      "Block_size=" + std::to_string(kBlockSize) + " Fallback_Directory='" + files.path() + "' ";
  if (!name.empty()) text += "Fallback_file='" + name + "' ";
  initialiseWith(text + std::string(options));
}

void FallbackTest::openJob(std::string_view options, const std::string& name) {
  initialise(options, name);
  send(data);
  ASSERT_EQ(host.open(pipeName).code, pmrcSuccess);
}

void FallbackTest::reload() {
  pipe.reset();
  ModuleTest::reload();
  pipe = std::make_unique<ScriptedPipe>(module());
  position_ = 0;
}

void FallbackTest::leaveFile(std::uint64_t n, std::uint64_t more, std::string_view options) {
  ASSERT_NO_FATAL_FAILURE(openJob(options));
  ASSERT_NO_FATAL_FAILURE(deliver(n));
  ASSERT_EQ(checkpoint(), n);
  ASSERT_NO_FATAL_FAILURE(deliver(more));
  reload();
}

void FallbackTest::deliver(std::uint64_t count) {
  for (; count > 0; --count) {
    const ReadAnswer answer = host.read();
    ASSERT_EQ(answer.code, pmrcSuccess) << answer.text.value_or("");
    ASSERT_EQ(answer.data, block(++position_)) << "block " << position_;
  }
}

void FallbackTest::expectEnd() {
  const ReadAnswer answer = host.read();
  EXPECT_EQ(answer.code, pmrcEOF);
  EXPECT_EQ(answer.data, "");
}

void FallbackTest::deliverRest() {
  ASSERT_NO_FATAL_FAILURE(deliver(blocks() - position_));
  expectEnd();
}

std::uint64_t FallbackTest::checkpoint() {
  const PositionAnswer answer = host.getPos();
  EXPECT_EQ(answer.code, pmrcSuccess);
  return answer.position;
}

void FallbackTest::goTo(std::uint64_t position) {
  const Answer answer = host.setPos(position);
  ASSERT_EQ(answer.code, pmrcSuccess) << answer.text.value_or("");
  position_ = position == 0 ? 0 : position - 1;
}

std::string FallbackTest::header(bool signatures, std::uint32_t blockSize) const {
  std::string image = "Varnholt Fallback File 01.03.00\n";
  image += '\0';
  image += bytesOf32(blockSize) + (signatures ? '\1' : '\0') + pipeName;
  image.resize(kHeaderSize);
  return image;
}

std::string FallbackTest::syncPoint(std::uint64_t block, std::string signature) {
  signature.resize(kSignatureSize);
  return bytesOf64(block) + signature;
}

int FallbackTest::count(const std::vector<LogEntry>& entries, const LogEntry& wanted) {
  return static_cast<int>(std::count(entries.begin(), entries.end(), wanted));
}

}  // namespace tallow::test
