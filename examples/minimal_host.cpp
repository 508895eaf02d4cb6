// A complete host: reads a pipe through the module into a file, takes checkpoints, and continues
// after a failure when it is started again with the same arguments:
//   minimal_host PIPE OUTPUT STATE INIT
// STATE keeps the last checkpoint. INIT must name Fallback_file and leave Need_Full_Block on.
#include <tallow/tallow.h>
#include <windows.h>

#include <io.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

constexpr std::uint64_t kBlocksPerCheckpoint = 64;

// What this host must know to continue. The output up to `outputLength` holds the blocks before
// block `position`, but not that block itself, which is the first that the module delivers again.
struct Checkpoint {
  std::uint64_t exists = 0;
  std::uint64_t position = 0;
  std::uint64_t outputLength = 0;
  std::uint64_t done = 0;
};

Checkpoint loadCheckpoint(const std::string& path) {
  Checkpoint checkpoint;
  if (std::FILE* file = std::fopen(path.c_str(), "rb")) {
    if (std::fread(&checkpoint, sizeof checkpoint, 1, file) != 1) checkpoint = {};
    std::fclose(file);
  }
  return checkpoint;
}

// Writes first the data and then the checkpoint that refers to it. Each is on the disk before the
// next step begins.
void saveCheckpoint(const std::string& path, std::FILE* output, const Checkpoint& checkpoint) {
  bool saved = std::fflush(output) == 0 && _commit(_fileno(output)) == 0;
  const std::string draft = path + ".new";
  if (std::FILE* file = std::fopen(draft.c_str(), "wb")) {
    saved = saved && std::fwrite(&checkpoint, sizeof checkpoint, 1, file) == 1;
    saved = std::fclose(file) == 0 && saved;
  }
  saved = saved && MoveFileExA(draft.c_str(), path.c_str(),
                               MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0;
  if (!saved) throw std::runtime_error("cannot write " + path + " or the output");
}

TallowPIDMMain pidmMain = nullptr;
// Sends one request. Returns false at the end of the data; throws for every other failure.
bool send(std::uint32_t code, void* parameters) {
  TallowRequestBlock request{};
  request.requestCode = code;
  pidmMain(&request, parameters);
  if (request.returnCode == pmrcSuccess) return true;
  if (request.returnCode == pmrcEOF) return false;
  const std::string text = request.returnCode == pmrcFailed ? request.messageText : "see the log";
  throw std::runtime_error("return code " + std::to_string(request.returnCode) + ": " + text);
}

void readJob(void* instance, std::uint32_t blockSize, std::FILE* output, const std::string& state,
             Checkpoint checkpoint) {
  TallowPositionBlock position{};
  position.instanceHandle = instance;
  bool due = checkpoint.exists != 0;  // after a restart, take one at the first block again
  if (due) {
    position.positionLength = TALLOW_POSITION_SIZE;
    position.position = &checkpoint.position;
    send(pmiPIDMOptSetPos, &position);
  }
  std::vector<char> buffer(blockSize);
  TallowReadBlock read{};
  read.instanceHandle = instance;
  read.dataBuffer = buffer.data();
  std::uint64_t length = checkpoint.outputLength;
  for (std::uint64_t blocks = 1; send(pmiPIDMOptRead, &read); ++blocks) {
    if (std::fwrite(buffer.data(), 1, read.dataLength, output) != read.dataLength) {
      throw std::runtime_error("cannot write the output");
    }
    if (due || blocks % kBlocksPerCheckpoint == 0) {
      send(pmiPIDMOptGetPos, &position);
      std::memcpy(&checkpoint.position, position.position, TALLOW_POSITION_SIZE);
      checkpoint.outputLength = length;
      checkpoint.exists = 1;
      saveCheckpoint(state, output, checkpoint);
      due = false;
    }
    length += read.dataLength;
  }
  checkpoint = {1, 0, length, 1};  // before Close, which deletes the fallback file
  saveCheckpoint(state, output, checkpoint);
}

void runJob(char** argv) {
  const std::string state = argv[3];
  const Checkpoint checkpoint = loadCheckpoint(state);
  if (checkpoint.done != 0) return;
  const HMODULE module = LoadLibraryA("tallowin.dll");
  if (module == nullptr) throw std::runtime_error("cannot load tallowin.dll");
  pidmMain =
      reinterpret_cast<TallowPIDMMain>(reinterpret_cast<void*>(GetProcAddress(module, "PIDMMain")));

  TallowInitBlock init{};
  init.interfaceLevel1 = TALLOW_INTERFACE_LEVEL_1;
  init.interfaceLevel2 = TALLOW_INTERFACE_LEVEL_2;
  init.moduleNameLength = sizeof "minimal_host" - 1;
  std::strcpy(init.moduleName, "minimal_host");
  init.initString = argv[4];
  init.initStringLength = static_cast<std::uint32_t>(std::strlen(argv[4]));
  send(pmiPIDMOptInit, &init);

  static TallowOpenBlock opening;
  opening.moduleHandle = init.moduleHandle;
  opening.openMode = TALLOW_OPEN_FOR_READING;
  opening.pipeNameLength = static_cast<std::uint16_t>(std::strlen(argv[1]));
  std::memcpy(opening.pipeName, argv[1], opening.pipeNameLength);
  send(pmiPIDMOptOpen, &opening);

  TallowCloseBlock close{};
  close.instanceHandle = opening.instanceHandle;
  std::FILE* output = std::fopen(argv[2], checkpoint.exists != 0 ? "r+b" : "wb");
  try {
    if (output == nullptr ||
        _chsize_s(_fileno(output), static_cast<long long>(checkpoint.outputLength)) != 0 ||
        std::fseek(output, 0, SEEK_END) != 0) {
      throw std::runtime_error("cannot open the output");
    }
    readJob(opening.instanceHandle, opening.blockSize, output, state, checkpoint);
  } catch (...) {
    send(pmiPIDMOptClose, &close);  // keeps the fallback file: the end was not reached
    throw;
  }
  send(pmiPIDMOptClose, &close);
  send(pmiPIDMOptShut, &close);
}

}  // namespace

int main(int argc, char** argv) try {
  if (argc != 5 || std::strlen(argv[1]) >= 260) return 2;
  runJob(argv);
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "minimal_host: %s\n", error.what());
  return 1;
}
