// A job from the loading of the module to the words at its end, whatever that is.
#pragma once

#include "host/plan.hpp"
#include "host/report.hpp"
#include "host/settings.hpp"

namespace tallow::host {

/// Runs the job of a plan; the outcome says all that printReport() needs. Does not come back when
/// the process has to end inside of a request of the module: it prints the report itself then.
void runJob(const Settings& settings, const JobPlan& plan, Outcome& outcome);

}  // namespace tallow::host
