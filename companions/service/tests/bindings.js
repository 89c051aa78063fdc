/* The companion in JavaScript, as TAP. */

imports.gi.versions.Vek = '1.0';
imports.gi.versions.VekService = '1.0';
const {Gio, GLib, Vek, VekService} = imports.gi;
const System = imports.system;

function graphite_reporters_send_lines() {
  const listener = new Gio.SocketListener();
  const reporter = VekService.GraphiteReporter.new('site', '127.0.0.1',
    listener.add_any_inet_port(null));
  reporter.quantiles = new GLib.Variant('ad', [0.5]);
  reporter.tags = true;
  const registry = new Vek.MetricRegistry();
  const counter = registry.counter_new('requests', 'Count', ['host', 'h1']);
  counter.add(3);
  registry.report(reporter);
  while (reporter.is_busy())
    GLib.MainContext.default().iteration(true);
  const [connection] = listener.accept(null);
  const input = new Gio.DataInputStream({base_stream: connection.get_input_stream()});
  const [line] = input.read_line_utf8(null);
  const seconds = Math.floor(counter.get_time() / 1e6);
  const expected = `site.Count.requests;host=h1 3 ${seconds}`;
  if (line !== expected || reporter.sent_lines !== 1 || !reporter.connected)
    throw new Error(`received "${line}", expected "${expected}"`);
}

print('1..1');
try {
  graphite_reporters_send_lines();
  print('ok 1 /service-in-javascript/graphite-reporters-send-lines');
} catch (error) {
  print('not ok 1 /service-in-javascript/graphite-reporters-send-lines');
  print(`# ${error}`);
  System.exit(1);
}
