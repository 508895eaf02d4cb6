// The jobs that the fault sweep runs.
#pragma once

#include <vector>

#include "job_run.hpp"

namespace tallow::test {

const std::vector<JobPlan>& jobPlans();

}  // namespace tallow::test
