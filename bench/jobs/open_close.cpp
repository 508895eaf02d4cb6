#include <windows.h>

#include <cstdio>
#include <optional>
#include <stdexcept>

#include "fallback/fallback_name.hpp"
#include "jobs/scenarios.hpp"

namespace tallow::bench {
namespace {

// A folder with this many empty files. The destructor deletes it.
class FilledFolder {
 public:
  FilledFolder(const std::string& scratch, unsigned files, const std::string& stem)
      : path_(scratch + "\\fallback"), files_(files), stem_(stem) {
    CreateDirectoryA(path_.c_str(), nullptr);
    for (unsigned i = 0; i < files_; ++i) {
      std::FILE* file = std::fopen(name(i).c_str(), "wb");
      if (file == nullptr) throw std::runtime_error("cannot make " + name(i));
      std::fclose(file);
    }
  }
  ~FilledFolder() {
    for (unsigned i = 0; i < files_; ++i) std::remove(name(i).c_str());
    RemoveDirectoryA(path_.c_str());
  }
  FilledFolder(const FilledFolder&) = delete;
  FilledFolder& operator=(const FilledFolder&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string name(unsigned number) const {
    return path_ + "\\" + fallback::numberedName(stem_, number);
  }

  std::string path_;
  unsigned files_;
  std::string stem_;
};

double enumerate(const std::string& path) {
  const Stopwatch stopwatch;
  WIN32_FIND_DATAA entry;
  const HANDLE search = FindFirstFileA((path + "\\*").c_str(), &entry);
  if (search == INVALID_HANDLE_VALUE) throw std::runtime_error("cannot list " + path);
  while (FindNextFileA(search, &entry)) {
  }
  FindClose(search);
  return stopwatch.seconds();
}

template <class Action>
double timed(Action&& action) {
  const Stopwatch stopwatch;
  action();
  return stopwatch.seconds();
}

}  // namespace

Json openClose(JobRunner& runner, const Json& request) {
  const std::string name = newPipeName();
  const bool matching = request.at("matching");
  const FilledFolder folder(runner.scratch(), request.at("files"),
                            matching ? fallback::nameStem(name.c_str()) : "other");
  client::Module& module = runner.module();
  void* handle = module.init("Log_level=2 Block_size=4096 Log_directory='" + runner.scratch() +
                                 "' Fallback_Directory='" + folder.path() + "'",
                             "tallow-bench");
  std::vector<std::byte> block(4096);
  const Stream stream(block.size());

  Json result;
  for (int round = 0; round < request.at("rounds"); ++round) {
    result["enumerate"].push_back(enumerate(folder.path()));
    {
      std::optional<client::Instance> job;
      result["open"].push_back(timed([&] { job.emplace(module.open(handle, name)); }));
      result["close"].push_back(timed([&] { job->close(); }));
    }
    // A job that reaches the end of the data, so that Close also removes the fallback file.
    client::Instance job = module.open(handle, name);
    const Feed feed(name, stream, block.size(), 4096);
    job.read(block);
    job.getPos();
    job.read(block);
    result["closeAtEnd"].push_back(timed([&] { job.close(); }));
  }
  return result;
}

}  // namespace tallow::bench
