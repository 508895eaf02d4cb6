// Jobs with a fallback file, a scripted pipe and a log, which a test can load as often as it likes.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "module/model/digest_oracle.hpp"
#include "module/model/file_model.hpp"
#include "support/host.hpp"
#include "support/import_hook.hpp"
#include "support/log_reader.hpp"
#include "support/pipe_ends.hpp"
#include "support/scripted_pipe.hpp"
#include "support/surroundings.hpp"

namespace tallow::test {

constexpr std::size_t kHeaderSize = 298;
constexpr std::size_t kDataStart = 346;
constexpr std::size_t kBlockSize = 16;
constexpr std::uint64_t kNoBlock = ~std::uint64_t{0};

class FallbackTest : public testing::Test {
 protected:
  // The module with the script in place of its pipe.
  struct Loaded {
    explicit Loaded(FallbackTest& test) : pipe(module.handle(), test.script) {}

    Module module;
    Host host{module};
    ScriptedPipe pipe;
  };

  ScratchDirectory logs;
  ScratchDirectory files;
  ScopedEnvironment noLogDirectory{"NPLOGDIR", std::nullopt};
  ScopedEnvironment temp{"TEMP", logs.path()};
  LogReader log{logs.path()};
  PipeScript script;
  std::string data = sampleData(kBlockSize * 20);
  std::string pipeName = uniquePipeName();
  // Not an optional: GCC 14 warns that its content may be uninitialized.
  std::unique_ptr<Loaded> loaded = std::make_unique<Loaded>(*this);

  Host& host() { return loaded->host; }
  HMODULE module() { return loaded->module.handle(); }

  // Only Init: level 6, blocks of kBlockSize, files in `files`, then `options`. The file has a
  // fixed name unless `name` is empty.
  void initialise(std::string_view options = {}, const std::string& name = "job.fbf") {
    std::string text = "Log_directory='" + logs.path() + "' Log_level=6 Block_size=16 " +
                       "Fallback_Directory='" + files.path() + "' ";
    if (!name.empty()) text += "Fallback_file='" + name + "' ";
    const Answer answer = host().init(text + std::string(options));
    ASSERT_EQ(answer.code, pmrcSuccess) << answer.text.value_or("");
    log.newLines();
  }

  // Init and Open; the writer sends all of `data`.
  void openJob(std::string_view options = {}, const std::string& name = "job.fbf") {
    initialise(options, name);
    send(data);
    ASSERT_EQ(host().open(pipeName).code, pmrcSuccess);
  }

  void send(std::string_view bytes) {
    script = PipeScript();
    if (!bytes.empty()) script.data(std::string(bytes));
  }

  // The process dies and another one continues.
  void reload() {
    loaded.reset();
    loaded = std::make_unique<Loaded>(*this);
    position_ = 0;
  }

  // Reads `count` blocks, which must be those of the data.
  void deliver(std::uint64_t count = 1) {
    for (; count > 0; --count) {
      const ReadAnswer answer = host().read();
      ASSERT_EQ(answer.code, pmrcSuccess) << answer.text.value_or("");
      ASSERT_EQ(answer.data, block(++position_)) << "block " << position_;
    }
  }
  void expectEnd() {
    const ReadAnswer answer = host().read();
    EXPECT_EQ(answer.code, pmrcEOF);
    EXPECT_EQ(answer.data, "");
  }
  void deliverRest() {
    ASSERT_NO_FATAL_FAILURE(deliver(blocks() - position_));
    expectEnd();
  }
  std::uint64_t checkpoint() {
    const PositionAnswer answer = host().getPos();
    EXPECT_EQ(answer.code, pmrcSuccess);
    return answer.position;
  }
  // A SetPos that must succeed.
  void goTo(std::uint64_t position) {
    const Answer answer = host().setPos(position);
    ASSERT_EQ(answer.code, pmrcSuccess) << answer.text.value_or("");
    position_ = position == 0 ? 0 : position - 1;
  }

  std::uint64_t blocks() const { return (data.size() + kBlockSize - 1) / kBlockSize; }
  std::string block(std::uint64_t number) const {
    return data.substr((number - 1) * kBlockSize, kBlockSize);
  }
  // The signature of all data up to a block.
  std::string signature(std::uint64_t number) const {
    return systemMd5(std::string_view(data).substr(0, number * kBlockSize));
  }

  std::string path() const { return files.file("job.fbf"); }
  static bool exists(const std::string& name) {
    return GetFileAttributesA(name.c_str()) != INVALID_FILE_ATTRIBUTES;
  }
  static std::string contentOf(const std::string& name) {
    std::ifstream file(name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  std::string file() const { return contentOf(path()); }
  static void putFile(const std::string& name, std::string_view bytes) {
    std::ofstream file(name, std::ios::binary);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    ASSERT_TRUE(file.good()) << name;
  }

  struct SyncPoint {
    std::uint64_t block;
    std::string signature;
    bool operator==(const SyncPoint&) const = default;
  };
  SyncPoint older() const { return syncPointAt(kHeaderSize); }
  SyncPoint newer() const { return syncPointAt(kHeaderSize + 24); }

  // The header block that a job writes for this pipe.
  std::string header(bool signatures = true, std::uint32_t blockSize = kBlockSize) const {
    std::string image = "Varnholt Fallback File 01.03.00\n";
    image += '\0';
    image += bytesOf32(blockSize) + (signatures ? '\1' : '\0') + pipeName;
    image.resize(kHeaderSize);
    return image;
  }
  static std::string syncPoint(std::uint64_t block, std::string signature = {}) {
    signature.resize(16);
    return bytesOf64(block) + signature;
  }

  // A job that took a checkpoint at `n` and died `behind` blocks later.
  void leaveFile(std::uint64_t n, std::uint64_t behind = 1, std::string_view options = {}) {
    ASSERT_NO_FATAL_FAILURE(openJob(options));
    ASSERT_NO_FATAL_FAILURE(deliver(n));
    ASSERT_EQ(checkpoint(), n);
    ASSERT_NO_FATAL_FAILURE(deliver(behind));
    reload();
  }
  // How often a message was logged since the last read of the log.
  static int count(const std::vector<LogEntry>& entries, const LogEntry& wanted) {
    return static_cast<int>(std::count(entries.begin(), entries.end(), wanted));
  }

 private:
  SyncPoint syncPointAt(std::size_t offset) const {
    const std::string bytes = file();
    if (bytes.size() < offset + 24) return {kNoBlock - 1, "no sync area"};
    return {numberOf64(bytes.substr(offset)), bytes.substr(offset + 8, 16)};
  }

  std::uint64_t position_ = 0;  // of the host
};

// Makes the module's calls to the streams of its fallback file fail, but not those to the log's
// streams, which it opens with fopen for each line.
class StreamFaults {
 public:
  explicit StreamFaults(HMODULE module)
      : openLog_(module, "fopen",
                 [this](const char* name, const char* mode) {
                   return log_ = openLog_.original(name, mode);
                 }),
        open_(module, "_fsopen",
              [this](const char* name, const char* mode, int share) -> std::FILE* {
                if (opensFail) {
                  SetLastError(ERROR_ACCESS_DENIED);
                  return nullptr;
                }
                return open_.original(name, mode, share);
              }),
        write_(module, "fwrite",
               [this](const void* bytes, std::size_t size, std::size_t items, std::FILE* stream) {
                 const bool fails = stream != log_ && shortWrites && --writesBefore < 0;
                 return fails ? items / 2 : write_.original(bytes, size, items, stream);
               }),
        flush_(module, "fflush",
               [this](std::FILE* stream) {
                 if (stream != log_ && flushesFail) return EOF;
                 return flush_.original(stream);
               }),
        read_(module, "fread",
              [this](void* buffer, std::size_t size, std::size_t items, std::FILE* stream) {
                const std::size_t got = read_.original(buffer, size, items, stream);
                return onRead ? onRead(buffer, size * items, got) : got;
              }),
        setPosition_(module, "fsetpos",
                     [this](std::FILE* stream, const fpos_t* position) {
                       if (seeksFail && --seeksBefore < 0) return -1;
                       return setPosition_.original(stream, position);
                     }),
        getPosition_(module, "fgetpos", [this](std::FILE* stream, fpos_t* position) {
          return tellsFail ? -1 : getPosition_.original(stream, position);
        }) {}

  bool opensFail = false;
  bool shortWrites = false;
  int writesBefore = 0;  // that still succeed
  bool seeksFail = false;
  int seeksBefore = 0;
  bool tellsFail = false;
  bool flushesFail = false;
  // Gets the buffer, its size and the number of bytes read; returns what the module gets.
  std::function<std::size_t(void*, std::size_t, std::size_t)> onRead;

 private:
  std::FILE* log_ = nullptr;
  Hook<struct LogOpenTag, std::FILE*(const char*, const char*)> openLog_;
  Hook<struct OpenTag, std::FILE*(const char*, const char*, int)> open_;
  Hook<struct WriteTag, std::size_t(const void*, std::size_t, std::size_t, std::FILE*)> write_;
  Hook<struct FlushTag, int(std::FILE*)> flush_;
  Hook<struct FreadTag, std::size_t(void*, std::size_t, std::size_t, std::FILE*)> read_;
  Hook<struct SetPositionTag, int(std::FILE*, const fpos_t*)> setPosition_;
  Hook<struct GetPositionTag, int(std::FILE*, fpos_t*)> getPosition_;
};

}  // namespace tallow::test
