/* The smallest program that measures itself: it counts, and reports once. */

void main() {
  var registry = Vek.MetricRegistry.get_default();
  var console = new Vek.MetricConsoleReporter();
  var greetings = registry.counter_new("greetings", "Count", null);

  greetings.inc();
  greetings.add(2);

  registry.report(console);
}
