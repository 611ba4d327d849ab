// The `capabilities` subcommand: one line telling the application what this machine can do.
#pragma once

#include "answer/model_availability.h"
#include "base/out.h"
#include "cli/gpu_facts.h"

namespace tallowbrook::Capabilities {

// The report object, with all eight members always present. Pure.
Json report(const GpuFacts& gpu, const ModelAvailability& model);

// Probes the GPU and the local model, prints the report and returns. Never fails: a missing
// GPU or model is reported as values. Main thread only.
void run();

}  // namespace tallowbrook::Capabilities
