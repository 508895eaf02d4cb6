#include "job_plans.hpp"

namespace tallow::test {
namespace {

constexpr const char* kNamed = "Fallback_Directory='{dir}' Fallback_file=job.fbf ";
constexpr const char* kPartial =
    "Need_Full_Block=no Fallback_Directory='{dir}' "
    "Fallback_file=job.fbf ";
constexpr const char* kLogged =
    "Log_directory='{dir}' Log_level=6 Fallback_Directory='{dir}' "
    "Fallback_file=job.fbf ";
constexpr std::size_t kUneven = 40;  // bytes in a chunk: no block is full

void begin(JobRun& job) {
  job.load();
  job.init();
  job.open();
}

void live(JobRun& job) {
  job.load();
  job.id();
  job.init();
  job.attribute("WRITE_BOM", "NO");
  job.open();
  job.readToEnd();
  job.read();
  job.close();
}

void checkpoints(JobRun& job) {
  begin(job);
  job.getPos();
  job.read(2);
  job.getPos();
  job.getPos();
  job.read(2);
  job.getPos();
  job.readToEnd();
  job.getPos();
  job.close();
}

void replayInTheRun(JobRun& job) {
  begin(job);
  job.read(2);
  job.getPos();
  job.read(3);
  job.setPos(2);
  job.read(2);
  job.setPos(2);
  job.readToEnd();
  job.setPos(2);
  job.read(2);
  job.getPos();
  job.readToEnd();
  job.close(pmiPIDMOptCloseR);
}

void replayFromTheStart(JobRun& job) {
  begin(job);
  job.getPos();
  job.setPos(0);
  job.read(3);
  job.setPos(0);
  job.readToEnd();
  job.close();
}

// Dies after its second checkpoint.
void firstHalf(JobRun& job) {
  begin(job);
  job.read(2);
  job.getPos();
  job.read(2);
  job.getPos();
  job.read(1);
}

void restart(JobRun& job) {
  firstHalf(job);
  job.startAgain();
  job.setPos(4);
  job.read(1);
  job.getPos();
  job.readToEnd();
  job.close();
}

void restartFromTheOlder(JobRun& job) {
  firstHalf(job);
  job.close();
  job.startAgain();
  job.setPos(2);
  job.readToEnd();
  job.close();
}

// A restart looks up in the file all blocks up to its position.
void restartPartial(JobRun& job) {
  begin(job);
  job.read(2);
  job.getPos();
  job.read(3);
  job.startAgain();
  job.setPos(2);
  job.readToEnd();
  job.close();
}

void restartWithOtherData(JobRun& job) {
  firstHalf(job);
  job.changeResentData();
  job.startAgain();
  job.setPos(4);
  job.read(1);
  job.getPos();
  job.close();
}

void readInsteadOfRestart(JobRun& job) {
  firstHalf(job);
  job.startAgain();
  job.readToEnd();
  job.close();
}

void getPosInsteadOfRestart(JobRun& job) {
  firstHalf(job);
  job.startAgain();
  job.getPos();
  job.read(1);
  job.getPos();
  job.readToEnd();
  job.close();
}

void preserved(JobRun& job) {
  begin(job);
  job.attribute("PRESERVE_RESTART_INFO", "YES");
  job.read(2);
  job.getPos();
  job.readToEnd();
  job.close();
}

void timeOut(JobRun& job) {
  job.load();
  job.init();
  job.attribute("TIMEOUT_SECONDS", "4");
  job.open();
  job.read(1);
  job.getPos();
  job.readToEnd();
  job.close();
}

}  // namespace

const std::vector<JobPlan>& jobPlans() {
  using enum PipeRole;
  static const std::vector<JobPlan> plans = {
      {.name = "LiveAsServer", .options = kNamed, .script = live},
      {.name = "LiveAsClientWithLog", .role = kClient, .options = kLogged, .script = live},
      {.name = "CheckpointsAsClient", .role = kClient, .options = kNamed, .script = checkpoints},
      {.name = "CheckpointsPartial", .options = kPartial, .chunk = kUneven, .script = checkpoints},
      {.name = "ReplayAsServer", .options = kNamed, .script = replayInTheRun},
      {.name = "ReplayPartialAsClient",
       .role = kClient,
       .options = kPartial,
       .chunk = kUneven,
       .script = replayInTheRun},
      {.name = "ReplayFromTheStart", .options = kNamed, .script = replayFromTheStart},
      {.name = "RestartAsServer", .options = kNamed, .script = restart},
      {.name = "RestartWithLog", .options = kLogged, .script = restart},
      {.name = "RestartPartialAsClient",
       .role = kClient,
       .options = kPartial,
       .script = restartPartial},
      {.name = "RestartFoundBySearch",
       .options = "Fallback_Directory='{dir}'",
       .script = restartFromTheOlder},
      {.name = "RestartWithOtherData",
       .options = kNamed,
       .script = restartWithOtherData,
       .outcome = JobPlan::Outcome::kRefusal},
      {.name = "ReadInsteadOfRestart", .options = kNamed, .script = readInsteadOfRestart},
      {.name = "GetPosInsteadOfRestart", .options = kNamed, .script = getPosInsteadOfRestart},
      {.name = "WideNameAsServer",
       .options = kNamed,
       .charset = "UTF8",
       .pipeStem = L"job\u20ac\u03a9",
       .script = checkpoints},
      {.name = "WideNameAsClient",
       .role = kClient,
       .options = "No_FallBack=''",
       .charset = "UTF8",
       .pipeStem = L"job\u20ac\u03a9",
       .script = live},
      {.name = "Preserved", .options = kNamed, .script = preserved},
      {.name = "TimeOut",
       .options = kPartial,
       .chunk = kUneven,
       .script = timeOut,
       .outcome = JobPlan::Outcome::kPartOfTheData},
  };
  return plans;
}

}  // namespace tallow::test
