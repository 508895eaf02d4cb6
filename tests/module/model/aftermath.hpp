// What must hold for a job after a call that the module made has failed. A model cannot say which
// of its steps the module could still take. But its answer must be one that the request has, what
// it delivers must be the data at the stream's place, and a restart must be able to rely on what is
// in the file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "module/model/job_model.hpp"

namespace tallow::test {

// What one request read from the pipe.
struct PipeTake {
  std::string data;
  bool asked = false;   // ReadFile was called
  bool ended = false;   // by the writer's end or an empty write
  bool broken = false;  // the writer's end came as an error: the block is not hashed
};

class Aftermath {
 public:
  // `before` is the job before the request in which the call failed.
  Aftermath(const JobModel& before, const std::optional<std::string>& fileBefore);

  // What is wrong with an answer; empty if nothing is. `struck`: a call failed in this very
  // request, perhaps before it looked at its state.
  std::string read(std::uint32_t code, const std::string& data, const PipeTake& take, bool struck);
  std::string getPos(std::uint32_t code, std::uint64_t position, bool struck);
  std::string setPos(std::uint32_t code, std::uint64_t position, const PipeTake& take, bool struck);
  std::string close(std::uint32_t code, bool struck);
  // What is wrong with the file after the latest request.
  std::string file(const std::optional<std::string>& bytes);

  std::uint64_t lastBlockNo() const { return places_.back().last; }

 private:
  // A place where the stream may be.
  struct Place {
    std::uint64_t last;
    std::uint64_t next;
  };

  std::string deliver(const std::string& data, const PipeTake& take);
  std::string accept(std::uint64_t position, const PipeTake& take);
  std::string noFile() const;
  std::string content(const std::string& bytes) const;
  std::string record(std::string_view slot) const;
  std::string syncPoint(std::string_view bytes) const;
  std::string signatureOf(std::uint64_t block) const;

  ModelOptions options_;
  std::string header_;
  bool hasSignatures_;
  std::optional<std::string> before_;  // the file
  std::vector<JobModel::Block> blocks_;
  std::vector<Place> places_;
  bool lost_;
  bool hole_;
  bool ended_;  // the pipe has, since the last SetPos
  bool endTold_;
  bool isClosed_ = false;
  bool hadFile_;                             // before the latest request
  std::optional<std::uint64_t> checkpoint_;  // of the previous request, if that succeeded
};

}  // namespace tallow::test
