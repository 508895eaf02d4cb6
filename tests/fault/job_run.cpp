#include "job_run.hpp"

#include <algorithm>
#include <cstdio>

#include "memory_count.hpp"
#include "schedule.hpp"
#include "support/import_hook.hpp"
#include "support/pipe_ends.hpp"

namespace tallow::test {
namespace {

constexpr int kRefusalsBorne = 3;

std::string toUtf8(const std::wstring& text) {
  std::string utf8(text.size() * 3, '\0');
  utf8.resize(static_cast<std::size_t>(
      WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), utf8.data(),
                          static_cast<int>(utf8.size()), nullptr, nullptr)));
  return utf8;
}

std::string withFolder(std::string options, const std::string& folder) {
  constexpr std::string_view kPlace = "{dir}";
  for (std::size_t at = 0; (at = options.find(kPlace)) != std::string::npos;) {
    options.replace(at, kPlace.size(), folder);
  }
  return options;
}

// Pauses take no time, and the clock advances by a second each time it is read.
void yieldInstead(DWORD) {
  SwitchToThread();
}

std::int64_t nextSecond(std::int64_t* out) {
  static std::int64_t now = 1'700'000'000;
  ++now;
  if (out != nullptr) *out = now;
  return now;
}

int noBox(HWND, const char*, const char*, UINT) {
  return 0;
}

bool isModule(HMODULE library) {
  char path[MAX_PATH] = {};
  GetModuleFileNameA(library, path, MAX_PATH);
  return std::string_view(path).ends_with("tallowin.dll");
}

void prepare(HMODULE library, const Fault* fault) {
  if (!isModule(library)) return;
  installMemoryCount(library);
  replaceImport(library, "Sleep", reinterpret_cast<void*>(&yieldInstead));
  replaceImport(library, "_time64", reinterpret_cast<void*>(&nextSecond));
  replaceImport(library, "MessageBoxA", reinterpret_cast<void*>(&noBox));
  if (fault != nullptr) installFault(library, *fault);
}

}  // namespace

JobRun::JobRun(const JobPlan& plan, const Fault* fault, std::string folder)
    : plan_(plan),
      fault_(fault),
      folder_(std::move(folder)),
      pipeName_(L"\\\\.\\pipe\\" + plan.pipeStem + std::to_wstring(GetCurrentProcessId())),
      pipeNameUtf8_(toUtf8(pipeName_)),
      data_(sampleData(plan.size)) {}

JobRun::~JobRun() {
  unload();
}

bool JobRun::wentAsPlanned() const {
  switch (plan_.outcome) {
    case JobPlan::Outcome::kAllData:
      return wentWell_ && sawEnd_ && position_ == data_.size();
    case JobPlan::Outcome::kPartOfTheData:
      return wentWell_;
    default:
      return !wentWell_;
  }
}

void JobRun::problem(const std::string& text) {
  problems_.push_back(text);
}

void JobRun::judge(const char* request, std::uint32_t code,
                   std::initializer_list<std::uint32_t> allowed) {
  if (code != pmrcSuccess && code != pmrcEOF) wentWell_ = false;
  if (std::find(allowed.begin(), allowed.end(), code) != allowed.end()) return;
  const bool anyMayFail = fault_ != nullptr && fault_->kind == FaultKind::kAny;
  if (anyMayFail && (code == pmrcFailed || code == pmrcReportFailed)) return;
  problem(std::string(request) + " answered " + std::to_string(code));
}

void JobRun::load() {
  const LoadWatch watch([this](HMODULE library) { prepare(library, fault_); });
  try {
    module_.emplace();
    host_.emplace(*module_);
  } catch (const std::runtime_error&) {
    wentWell_ = false;
    if (fault_ == nullptr || fault_->kind != FaultKind::kAny) problem("the module did not load");
  }
}

void JobRun::unload() {
  writer_.end();
  host_.reset();
  module_.reset();
  initialised_ = false;
  open_ = false;
}

void JobRun::init() {
  if (!module_) return;
  const Answer answer =
      host_->init(withFolder(plan_.options, folder_) + " Block_size=" + std::to_string(kJobBlock));
  judge("Init", answer.code, {pmrcSuccess});
  initialised_ = answer.code == pmrcSuccess;
  if (initialised_ && !plan_.charset.empty()) attribute("CHARSET_NAME", plan_.charset);
}

void JobRun::id() {
  if (module_) judge("ID", host_->id().code, {pmrcSuccess});
}

void JobRun::attribute(std::string_view name, std::string_view value) {
  if (initialised_) judge("PutA_A", host_->attribute(name, value).code, {pmrcSuccess});
}

// If a fault made the module take the other end of the pipe, the writer changes ends too.
void JobRun::connectWriter() {
  if (plan_.role == PipeRole::kClient && writer_.isConnected()) return;
  writer_.end();
  if (!writer_.connect(pipeName_)) problem("the module has no end of the pipe open");
}

void JobRun::open() {
  if (!initialised_) return;
  writer_.end();
  if (plan_.role == PipeRole::kClient) writer_.serve(pipeName_);
  const Answer answer = host_->open(pipeNameUtf8_);
  const bool pipeFails = fault_ != nullptr && fault_->kind != FaultKind::kFile;
  if (pipeFails) {
    judge("Open", answer.code, {pmrcSuccess, pmrcFailed});
  } else {
    judge("Open", answer.code, {pmrcSuccess});
  }
  open_ = answer.code == pmrcSuccess;
  askedToGoBack_ = false;
  inStep_ = true;
  sawEnd_ = false;
  hasLostBytes_ = false;
  refusedReads_ = 0;
  position_ = 0;
  blockNo_ = 0;
  streamAt_ = 0;
  starts_.clear();
  if (open_) {
    connectWriter();
  } else {
    writer_.end();
  }
}

void JobRun::readOne() {
  writer_.give(data_, plan_.chunk);
  const ReadAnswer answer = host_->read();
  if (hasLostBytes_) {
    judge("Read", answer.code, {pmrcDelivery});
  } else if (askedToGoBack_) {
    judge("Read", answer.code, {pmrcSuccess, pmrcEOF, pmrcDelivery, pmrcFailed});
  } else if (fault_ != nullptr && fault_->kind == FaultKind::kReading) {
    judge("Read", answer.code, {pmrcSuccess, pmrcEOF, pmrcFailed});
  } else {
    judge("Read", answer.code, {pmrcSuccess, pmrcEOF});
  }
  if (answer.code == pmrcEOF) {
    if (!answer.data.empty()) problem("data with the end of the data");
    sawEnd_ = true;
    return;
  }
  if (answer.code != pmrcSuccess) {
    ++refusedReads_;
    if (!answer.data.empty()) hasLostBytes_ = true;
    return;
  }
  streamAt_ = ++blockNo_;
  if (!inStep_) return;
  if (data_.compare(position_, answer.data.size(), answer.data) != 0 ||
      position_ + answer.data.size() > data_.size()) {
    problem("block " + std::to_string(blockNo_) + " differs from the data at " +
            std::to_string(position_));
    inStep_ = false;
  }
  starts_[blockNo_] = position_;
  position_ += answer.data.size();
}

void JobRun::read(int blocks) {
  for (int i = 0; i < blocks && open_ && refusedReads_ < kRefusalsBorne; ++i) readOne();
}

void JobRun::readToEnd() {
  constexpr int kMost = 700;  // reads of one byte
  for (int i = 0; i < kMost && open_ && refusedReads_ < kRefusalsBorne; ++i) {
    readOne();
    if (sawEnd_) return;
  }
  if (open_ && refusedReads_ < kRefusalsBorne) problem("the data has no end");
}

void JobRun::getPos() {
  if (!open_) return;
  const PositionAnswer answer = host_->getPos();
  if (askedToGoBack_) {
    judge("GetPos", answer.code, {pmrcSuccess, pmrcFailed, pmrcDelivery});
  } else if (fault_ != nullptr && fault_->kind == FaultKind::kFile) {
    judge("GetPos", answer.code, {pmrcSuccess, pmrcFailed});
  } else {
    judge("GetPos", answer.code, {pmrcSuccess});
  }
  if (answer.code != pmrcSuccess) return;
  if (inStep_ && answer.position != streamAt_) {
    problem("GetPos answered " + std::to_string(answer.position) + " at block " +
            std::to_string(streamAt_));
  }
  noted_ = answer.position;
  notedStarts_ = starts_;
  if (!inStep_) notedStarts_.clear();
}

void JobRun::setPos(std::uint64_t position) {
  if (!open_) return;
  askedToGoBack_ = true;
  // A restart reads whole blocks of what is sent again.
  if (starts_.empty()) writer_.giveAllBeside(data_);
  const Answer answer = host_->setPos(position);
  judge("SetPos", answer.code, {pmrcSuccess, pmrcDelivery, pmrcBadPosition, pmrcFailed});
  if (answer.code != pmrcSuccess) return;
  sawEnd_ = false;
  blockNo_ = position != 0 ? position - 1 : 0;
  // Once something was delivered, position 0 means block 1.
  streamAt_ = position != 0 || starts_.empty() ? position : 1;
  const auto& starts = starts_.empty() ? notedStarts_ : starts_;
  const auto start = starts.find(blockNo_ + 1);
  inStep_ = position == 0 || start != starts.end();
  position_ = position == 0 || !inStep_ ? 0 : start->second;
}

void JobRun::close(std::uint32_t request) {
  if (!open_) return;
  open_ = false;
  judge("Close", (request == pmiPIDMOptClose ? host_->close() : host_->closeR()).code,
        {pmrcSuccess});
  writer_.end();
}

void JobRun::startAgain() {
  unload();
  load();
  init();
  open();
}

bool JobRun::fallbackFileExists() const {
  WIN32_FIND_DATAA found = {};
  const HANDLE search = FindFirstFileA((folder_ + "\\job*.fbf").c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) return false;
  FindClose(search);
  return true;
}

void JobRun::finishInPeace() {
  data_ = sampleData(plan_.size);
  writer_.end();
  if (!module_) load();
  if (!module_) return;
  init();
  open();
  if (noted_ && fallbackFileExists()) {
    setPos(*noted_);
    readToEnd();
  }
  if (!sawEnd_ || !askedToGoBack_) {
    close();
    open();
    readToEnd();
    if (position_ != data_.size()) problem("the next job did not deliver all data");
  }
  if (!sawEnd_) problem("the next job did not come to its end");
  close();
  if (fallbackFileExists()) problem("the next job left its fallback file");
}

}  // namespace tallow::test
