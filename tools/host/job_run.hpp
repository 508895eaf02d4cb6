// Runs a job, from the loading of the module to the report at its end, whatever that is.
#pragma once

#include "host/plan.hpp"
#include "host/report.hpp"
#include "host/settings.hpp"

namespace tallow::host {

// Runs the job of a plan. The outcome holds all that printReport() needs. Does not return if the
// process has to end inside a request of the module. In that case it prints the report itself.
void runJob(const Settings& settings, const JobPlan& plan, Outcome& outcome);

}  // namespace tallow::host
