#include "module/model/job_model.hpp"

#include <algorithm>

#include "support/system_md5.hpp"

namespace tallow::test {
namespace {

const std::string kHeaderText = "Varnholt Fallback File 01.03.00\n";
constexpr std::size_t kSyncAreaSize = kDataStart - kOlderSyncPoint;
constexpr std::uint32_t kEof = 9;
constexpr std::uint32_t kDelivery = 16;
constexpr std::uint32_t kBadPosition = 32;
constexpr std::uint32_t kFailed = 34;

std::string number(std::uint64_t value) {
  return std::to_string(value);
}

std::string quoted(const std::string& text) {
  return '"' + text + '"';
}

std::string baseName(const std::string& name) {
  return name.substr(name.rfind('\\') + 1);
}

std::string hex(std::string_view bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const char byte : bytes) {
    text += kDigits[static_cast<unsigned char>(byte) >> 4];
    text += kDigits[static_cast<unsigned char>(byte) & 15];
  }
  return text;
}

std::string stemOf(const std::string& pipeName) {
  unsigned sum = 0;
  for (const char character : pipeName) sum += static_cast<unsigned>(static_cast<int>(character));
  const std::string two{static_cast<char>((sum >> 8) & 0xff), static_cast<char>(sum & 0xff)};
  return baseName(pipeName) + hex(two);
}

std::string textAt(const std::string& image, std::size_t offset) {
  return image.c_str() + offset;
}

}  // namespace

// Open

std::string JobModel::header() const {
  std::string image = kHeaderText + '\0';
  image += bytesOf32(static_cast<std::uint32_t>(options_.blockSize));
  image += options_.signatureCheck != 0 ? '\1' : '\0';
  image += options_.pipeName;
  image.resize(kHeaderSize);
  return image;
}

JobModel::JobModel(DiskModel& disk, LogModel& log, const ModelOptions& options, PipeScript pipe)
    : disk_(disk), log_(log), options_(options), pipe_(std::move(pipe)), headerImage_(header()) {
  log_.trace("Request Received: pmiPIDMOptOpen (2)");
  log_.trace("Opened pipe " + quoted(options.pipeName) + '.');
  if (options.noFallback) {
    if (options.file) log_.message(1, 99);
    log_.message(1, 100);
    log_.message(1, 101);
  } else {
    prepare();
  }
}

void JobModel::prepare() {
  if (options_.file) {
    name_ = options_.directory + '\\' + *options_.file;
    file_ = *options_.file;
    if (disk_.contains(file_) && !takeOver(file_, true)) log_.message(2, 75, name_);
  } else {
    const std::string found = stemOf(options_.pipeName) + "ffff.fbf";
    name_ = options_.directory + '\\' + found;
    file_ = found;
    if (disk_.contains(found) && options_.inDirectory && !takeOver(found, false)) {
      log_.message(6, 75, name_);
    }
  }
  createPending_ = !isOpen_;
  if (isOpen_) log_.message(4, 88, name_);
}

bool JobModel::takeOver(const std::string& file, bool named) {
  const std::string& bytes = disk_.at(file).bytes();
  if (!named) log_.trace("Validating fallback file " + quoted(file) + '.');
  if (bytes.size() < kHeaderSize || !acceptHeader(bytes.substr(0, kHeaderSize), named)) {
    return false;
  }
  if (bytes.size() < kDataStart) return false;
  if (!named) name_ = file;
  log_.trace("Validated fallback file " + quoted(name_) + " for recovery.");
  isOpen_ = true;
  headerImage_ = bytes.substr(0, kHeaderSize);
  older_ = syncPointAt(bytes, kOlderSyncPoint);
  newer_ = syncPointAt(bytes, kNewerSyncPoint);
  logSyncPoints("Read fallback sync point for block ");
  seek(kDataStart);
  mode_ = Mode::kRestartable;
  return true;
}

bool JobModel::acceptHeader(const std::string& image, bool named) {
  const int level = named ? 2 : 5;
  const std::string pipeName = textAt(image, 38);
  const std::uint32_t blockSize = numberOf32(image.substr(33));
  if (textAt(image, 0) != kHeaderText) {
    log_.message(level, 83);
    log_.trace("Expected: " + quoted(kHeaderText) + "; got " + quoted(textAt(image, 0)), 5);
  } else if (pipeName != options_.pipeName) {
    log_.message(level, 84);
    log_.trace("Expected: " + quoted(options_.pipeName) + "; got " + quoted(pipeName), 5);
  } else if (blockSize != options_.blockSize) {
    log_.message(level, 85);
    log_.trace("Expected: " + number(options_.blockSize) + "; got " + number(blockSize), 5);
  } else {
    return true;
  }
  return false;
}

// The file

void JobModel::seek(std::size_t offset) {
  log_.trace("Seeking to fallback file offset " + number(offset));
  at_ = offset;
}

void JobModel::put(std::string_view bytes) {
  disk_[file_].write(at_, bytes);
  at_ += bytes.size();
}

bool JobModel::create() {
  if (options_.noFallback) return false;  // there is no name
  log_.trace("Creation of fallback file " + quoted(name_) + " succeeded.");
  disk_[file_] = FileModel();
  isOpen_ = true;
  at_ = 0;
  put(headerImage_);
  fileFirst_ = fileLast_ = kNoBlock;
  log_.message(4, 80, name_);
  return true;
}

bool JobModel::hasSignatures() const {
  return headerImage_[kSignatureFlagOffset] != '\0';
}

std::string JobModel::signatureOf(std::uint64_t block) const {
  const bool hashing = options_.signatureCheck != 0 || hasSignatures();
  std::string all;
  for (std::uint64_t i = 0; hashing && i < block; ++i) {
    if (blocks_[i].hashed) all += blocks_[i].data;
  }
  return systemMd5(all);
}

SyncPoint JobModel::syncPointOf(std::uint64_t block) const {
  SyncPoint point;
  point.block = block;
  if (hasSignatures() && block != kNoBlock) point.signature = signatureOf(block);
  return point;
}

void JobModel::writeSyncPoint(std::uint64_t block) {
  const SyncPoint point = syncPointOf(block);
  if (block == kNoBlock || block == 0) {
    older_ = newer_ = point;
  } else {
    if (block != newer_.block) older_ = newer_;
    newer_ = point;
  }
  logSyncPoints("Writing sync point for block ");
  put(bytesOf64(older_.block) + older_.signature + bytesOf64(newer_.block) + newer_.signature);
}

void JobModel::logSyncPoints(const std::string& what) {
  for (const SyncPoint& point : {older_, newer_}) {
    log_.trace(what + number(point.block) + '.');
    log_.trace("Signature is 0x" + hex(point.signature));
  }
}

std::size_t JobModel::recordSize() const {
  return options_.blockSize + (options_.fullBlocks ? 0 : 4);
}

std::size_t JobModel::offsetOf(std::uint64_t block) const {
  return kDataStart + static_cast<std::size_t>(block - fileFirst_) * recordSize();
}

void JobModel::writePending(Start start) {
  if (!isOpen_ || pending_ == kNoBlock || checkpoint_ == kNoBlock) return;
  if (fileFirst_ != kNoBlock && pending_ != fileLast_ + 1) return;
  const bool afresh = start == Start::kMayStartAfresh && pending_ == checkpoint_;
  if (afresh) {
    seek(kDataStart);
  } else if (fileFirst_ == kNoBlock) {
    at_ = kDataStart;  // where a file's first record always is
  }
  const std::string& data = blocks_[pending_ - 1].data;
  log_.trace("Writing " + number(data.size()) + " data bytes to fallback file as block no. " +
             number(pending_) + '.');
  log_.trace("Current fallback write position: " + number(at_) +
             ", expected fallback write position: " + number(expectedAt_));
  log_.trace("Read block size: " + number(options_.blockSize) +
             ", Bytes read from pipe : " + number(data.size()));
  if (!options_.fullBlocks) {
    log_.trace("Writing partial block size value of " + number(data.size()) +
               " bytes to fallback file.");
    put(bytesOf32(static_cast<std::uint32_t>(data.size())));
  }
  put(data);
  disk_[file_].writeAnything(at_, options_.blockSize - data.size());
  at_ += options_.blockSize - data.size();
  expectedAt_ += recordSize();
  if (afresh || fileFirst_ == kNoBlock) fileFirst_ = pending_;
  fileLast_ = pending_;
  pending_ = kNoBlock;
}

void JobModel::dropRecovery(int messageId) {
  log_.message(4, messageId, name_);
  seek(kHeaderSize);
  writeSyncPoint(kNoBlock);
  mode_ = Mode::kLive;
}

// The pipe

JobModel::PipeBlock JobModel::readPipe(bool full, std::uint64_t block) {
  constexpr unsigned kBroken = 109;
  constexpr unsigned kListening = 536;
  PipeBlock result;
  while (result.data.size() < options_.blockSize) {
    PipeScript::Outcome got = pipe_.read(options_.blockSize - result.data.size());
    if (got.error == kBroken) {
      result.end = true;
      result.hashed = false;
      return result;
    }
    if (got.error != 0) {
      const bool isWait = !full || (got.error == kListening && result.data.empty());
      if (isWait) continue;
      result.error = got.error;
      return result;
    }
    log_.trace("Read " + number(got.data.size()) + " bytes from pipe for block no. " +
               number(block) + '.');
    if (got.data.empty()) {
      result.end = true;
      return result;
    }
    result.data += got.data;
    if (!full) return result;
  }
  return result;
}

// Requests

JobModel::Answer JobModel::raise(int messageId, std::uint32_t code) {
  log_.message(2, messageId);
  return {code, {}, 0};
}

JobModel::Answer JobModel::read() {
  log_.trace("Request Received: pmiPIDMOptRead (4)");
  if (lost_ || hole_) return {kDelivery, {}, 0};
  if (mode_ == Mode::kRestartable) dropRecovery(93);
  if (mode_ == Mode::kReplaying) return replay();
  if (pending_ == next_) return deliver(blocks_[next_ - 1]);
  writePending(Start::kMayStartAfresh);
  if (pipeEnded_) return endOfData();
  PipeBlock got = readPipe(options_.fullBlocks, next_);
  if (got.error != 0) {
    log_.message(2, 61, number(got.error));
    hole_ = !got.data.empty();
    return {kFailed, got.data, 0};
  }
  pipeEnded_ = got.end;
  if (got.data.empty()) return endOfData();
  blocks_.push_back({got.data, got.hashed});
  pending_ = next_;
  return deliver(blocks_.back());
}

JobModel::Answer JobModel::endOfData() {
  log_.trace("Returning pmrcEOF to Kelvane.");
  endTold_ = true;
  return {kEof, {}, 0};
}

JobModel::Answer JobModel::deliver(const Block& block) {
  log_.trace("Returning " + number(block.data.size()) +
             " data bytes from pipe to Kelvane as block no. " + number(next_) + '.');
  last_ = next_++;
  return {0, block.data, 0};
}

JobModel::Answer JobModel::replay() {
  const std::string& data = blocks_[next_ - 1].data;
  log_.trace("Returning " + number(data.size()) + " data bytes from fallback file (length " +
             number(disk_.at(file_).size()) + ", position " + number(at_) +
             ") to Kelvane as block no. " + number(next_) + '.');
  at_ += recordSize();
  last_ = next_++;
  if (last_ >= fileLast_) {
    seek(offsetOf(next_));
    mode_ = Mode::kLive;
  }
  return {0, data, 0};
}

JobModel::Answer JobModel::getPos() {
  log_.trace("Request Received: pmiPIDMOptGetPos (6)");
  if (lost_) return {kDelivery, {}, 0};
  if (createPending_) {
    createPending_ = false;
    if (create()) {
      seek(kHeaderSize);
      writeSyncPoint(kNoBlock);
    }
  }
  if (mode_ == Mode::kRestartable) dropRecovery(94);
  if (!isOpen_) {
    create();  // only No_FallBack comes here, and then there is no file
  } else if (syncPointOf(last_) != newer_) {
    const std::size_t before = at_;
    seek(kHeaderSize);
    writeSyncPoint(last_);
    seek(before);
  }
  expectedAt_ = kDataStart;
  checkpoint_ = last_;
  log_.trace("GetPos returns block no. " + number(last_) + '.');
  return {0, {}, last_};
}

JobModel::Answer JobModel::setPos(std::uint64_t position, std::uint32_t length) {
  log_.trace("Request Received: pmiPIDMOptSetPos (7)");
  if (lost_ || hole_) return {kDelivery, {}, 0};
  endTold_ = pipeEnded_ = false;
  if (!isOpen_) return raise(52);
  if (length != 8) return raise(23);
  log_.trace("SetPos to block no. " + number(position) + '.');
  if (position == kNoBlock) return raise(32, kBadPosition);
  return mode_ == Mode::kRestartable ? restart(position) : goBack(position);
}

bool JobModel::canServe(std::uint64_t block) const {
  if (fileFirst_ != kNoBlock && fileFirst_ <= block && block <= fileLast_) return true;
  return mode_ == Mode::kLive && pending_ == block &&
         (fileFirst_ == kNoBlock || pending_ == fileLast_ + 1);
}

JobModel::Answer JobModel::goBack(std::uint64_t position) {
  if (last_ == 0) {
    if (position != 0) return raise(32, kBadPosition);
    checkpoint_ = 0;
    next_ = 1;
    return {};
  }
  const bool known = position == 0 ? fileFirst_ == kNoBlock || fileFirst_ == 1 || checkpoint_ == 1
                                   : position == checkpoint_ || position == fileFirst_;
  const std::uint64_t block = position == 0 ? 1 : position;
  if (!known || !canServe(block)) return raise(32, kBadPosition);
  if (position == 0) checkpoint_ = 1;
  if (mode_ == Mode::kLive) {
    writePending(block == fileFirst_ ? Start::kAppend : Start::kMayStartAfresh);
    mode_ = Mode::kReplaying;
  }
  seek(offsetOf(block));
  last_ = next_ = block;
  return {};
}

JobModel::Answer JobModel::restart(std::uint64_t position) {
  if (position != older_.block && position != newer_.block) return raise(32, kBadPosition);
  const std::string& expected = position == older_.block ? older_.signature : newer_.signature;
  blocks_.clear();
  if (position != 0) {
    switch (skipTo(position)) {
      case Skipped::kDone:
        break;
      case Skipped::kRefused:
        return raise(32, kBadPosition);
      case Skipped::kLost:
        return {kFailed, {}, 0};
    }
  }
  if (options_.signatureCheck != 0 && (!hasSignatures() || signatureOf(position) != expected)) {
    log_.message(options_.signatureCheck == 2 ? 2 : 3, 16);
    if (options_.signatureCheck == 2) {
      lost_ = position != 0;
      at_ = kHeaderSize;
      return {kDelivery, {}, 0};
    }
  }
  mode_ = Mode::kLive;
  checkpoint_ = last_ = position;
  next_ = position == 0 ? 1 : position;
  pending_ = position == 0 ? kNoBlock : position;
  fileFirst_ = fileLast_ = kNoBlock;
  log_.message(4, 95);
  return {};
}

JobModel::Skipped JobModel::skipTo(std::uint64_t position) {
  for (std::uint64_t block = 1; block <= position; ++block) {
    if (!options_.fullBlocks) {
      const std::size_t offset = kDataStart + static_cast<std::size_t>(block - 1) * recordSize();
      log_.trace("Seeking to fallback file offset on checkpoint/restart " + number(offset));
      const std::size_t size = disk_.at(file_).size();
      if (size < offset + 4) {
        at_ = std::max(offset, size);
        log_.message(2, 105);
        return Skipped::kLost;
      }
    }
    lost_ = true;  // until the restart is accepted
    PipeBlock got = readPipe(true, block);
    if (got.error != 0) {
      log_.message(2, 61, number(got.error));
      return Skipped::kLost;
    }
    pipeEnded_ = got.end;
    const bool isShort = got.data.size() < options_.blockSize;
    blocks_.push_back({got.data, got.hashed});
    const bool isWanted =
        block == position && !got.data.empty() && (options_.fullBlocks || !isShort);
    if (got.end && !isWanted) return Skipped::kRefused;
  }
  lost_ = false;
  return Skipped::kDone;
}

JobModel::Answer JobModel::close(bool closeR) {
  log_.trace(closeR ? "Request Received: pmiPIDMOptCloseR (10)"
                    : "Request Received: pmiPIDMOptClose (3)");
  const bool removes = endTold_ && !options_.preserve && !options_.noFallback;
  if (removes && disk_.erase(file_) != 0) log_.message(4, 86, name_);
  return {};
}

}  // namespace tallow::test
