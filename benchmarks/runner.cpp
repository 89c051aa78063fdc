#include "runner.hpp"

#include <cstdlib>
#include <cstring>

// Besides Google Benchmark's own options, --iterations=N runs every case that often and no more,
// so that instructions can be counted.
int main(int argc, char **argv) {
  long iterations = 0;
  static const char option[] = "--iterations=";
  if (argc > 1 && std::strncmp(argv[1], option, sizeof option - 1) == 0) {
    iterations = std::atol(argv[1] + sizeof option - 1);
    argv[1] = argv[0];
    argc--;
    argv++;
  }

  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv))
    return 2;
  for (const Case &one : cases) {
    auto *registered = benchmark::RegisterBenchmark(one.name, one.function);
    if (one.threads > 1)
      registered->Threads(one.threads)->UseRealTime();
    if (iterations > 0)
      registered->Iterations(iterations);
  }
  return benchmark::RunSpecifiedBenchmarks() > 0 ? 0 : 1;
}
