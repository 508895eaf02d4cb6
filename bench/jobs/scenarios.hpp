// What tallow-bench can measure. Each function takes its request and returns the raw samples; the
// caller of tallow-bench makes ratios and medians of them.
#pragma once

#include <nlohmann/json.hpp>

#include "jobs/module_job.hpp"

namespace tallow::bench {

using Json = nlohmann::json;

// {pairs, a: shape, b: shape}: the two jobs in turn. {a: [timing], b: [timing]}
Json compare(JobRunner& runner, const Json& request);

// {shape, sampleEvery: bytes}: one job, each block compared with what was sent.
// {timing, processorTime, samples: [{bytes, seconds, processorTime, workingSet, handles}]}
Json watch(JobRunner& runner, const Json& request);

// {blocks, pairs}: the file's blocks through SetPos and Read, and by fread and MD5 alone.
// {module: [seconds], floor: [seconds], bytes}
Json replay(JobRunner& runner, const Json& request);

// {files, rounds, matching}: Open and Close with this many files in the fallback directory (if
// matching, all are named as the job names its own), and one enumeration of the directory.
// {open: [seconds], close, closeAtEnd, enumerate}
Json openClose(JobRunner& runner, const Json& request);

// {blockSize, blocks}: GetPos after every block. {getPos: [seconds]}
Json positions(JobRunner& runner, const Json& request);

// {shape}: calls into the system per block, from the difference to a job of twice the length.
// {calls: {name: number}, seconds: {name: number}}
Json calls(JobRunner& runner, const Json& request);

}  // namespace tallow::bench
