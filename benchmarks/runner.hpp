#pragma once

// The cases of a benchmark program. Each is named "OPERATION/VARIANT"; variants of one operation
// are measured against each other within one run.

#include <benchmark/benchmark.h>

#include <vector>

struct Case {
  const char *name;
  void (*function)(benchmark::State &state);
  int threads = 1;
};

// Each program defines its own.
extern const std::vector<Case> cases;
