/* The companion in Vala. */

void graphite_reporters_send_lines() {
  try {
    var listener = new SocketListener();
    var reporter = new VekService.GraphiteReporter("site", "127.0.0.1",
      listener.add_any_inet_port(null));
    reporter.quantiles = new Variant.parsed("[0.5]");
    reporter.tags = true;
    var registry = (Vek.MetricRegistry) Object.new(typeof(Vek.MetricRegistry));
    var counter = registry.counter_new("requests", "Count", {"host", "h1"});
    counter.add(3);
    registry.report(reporter);
    while (reporter.is_busy())
      MainContext.default().iteration(true);
    var input = new DataInputStream(listener.accept().input_stream);
    assert_cmpstr(input.read_line(), EQ,
      @"site.Count.requests;host=h1 3 $(counter.get_time() / TimeSpan.SECOND)");
    assert_true(reporter.connected && reporter.sent_lines == 1 && reporter.queued_lines == 0);
  } catch (Error error) {
    assert_not_reached();
  }
}

void main(string[] args) {
  Test.init(ref args);
  Test.add_func("/service-in-vala/graphite-reporters-send-lines", graphite_reporters_send_lines);
  Test.run();
}
