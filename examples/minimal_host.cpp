// A complete host: reads a pipe through the module into a file, takes checkpoints, and goes on
// where it was when it is started again with the same arguments, whenever it was killed before:
//
//   minimal_host PIPE OUTPUT FOLDER [OPTIONS]
//
// FOLDER gets the job's own files, job.note and job.fbf. OPTIONS is the initialisation string.
#include <tallow/tallow.hpp>

#include <cstdio>

namespace {

void run(const std::wstring& pipe, const std::wstring& output, const std::wstring& folder,
         const std::wstring& options) {
  tallow::CheckpointFile job(folder, L"job");
  if (job.done()) return;
  tallow::OutputFile file(output, job.progress());

  const tallow::Library library;
  tallow::Module module(library.entry(), tallow::narrow(options + job.options()), "minimal_host");
  tallow::Instance input = module.open(tallow::narrow(pipe));
  const auto flush = [&file] { file.flush(); };
  job.resume(input);
  while (const auto block = input.read()) {
    job.beforeBlock(input, file.length(), flush);
    file.write(*block);
  }
  job.finish(input, file.length(), flush);
}

}  // namespace

int wmain(int argc, wchar_t** argv) try {
  if (argc != 4 && argc != 5) {
    std::fputs("usage: minimal_host PIPE OUTPUT FOLDER [OPTIONS]\n", stderr);
    return 2;
  }
  run(argv[1], argv[2], argv[3], argc == 5 ? argv[4] : L"");
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "minimal_host: %s\n", error.what());
  return 1;
}
