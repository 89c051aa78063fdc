// The smallest program that measures itself: it counts, and reports once.

#include <vekmetrics/vekmetrics.hpp>

int main() {
  auto registry = vek::Registry::get_default();
  auto console = vek::ConsoleReporter::create();
  vek::Counter greetings = registry.counter("greetings", "Count");

  greetings.inc();
  greetings.add(2);

  registry.report(console);
}
