#!/usr/bin/python3
"""Tests the lines of docs/scraping.md that set up a server: setup.py LANGUAGE...

Each line becomes part of a program, which asks its own server for the text and prints it.
"""

import os
import pathlib
import re
import sys

from policy import doccheck
from support import tap
from support.servers import free_port

PAGE = pathlib.Path(__file__).resolve().parents[3] / 'docs' / 'scraping.md'
ROWS = {'c': 'C, C++', 'cpp': 'C, C++', 'js': 'JavaScript', 'python': 'Python', 'vala': 'Vala'}

C = '''#include <vekmetrics-web/vekmetrics-web.h>
#include <vekmetrics/vekmetrics.h>

static void on_read(GObject *session, GAsyncResult *result, gpointer loop) {
  GBytes *body = soup_session_send_and_read_finish(SOUP_SESSION(session), result, NULL);
  g_print("%.*s", (int)g_bytes_get_size(body), (const char *)g_bytes_get_data(body, NULL));
  g_main_loop_quit((GMainLoop *)loop);
}

int main(void) {
  GError *error = NULL;
  VekServicePrometheusReporter *reporter = vek_service_prometheus_reporter_new();
  vek_metric_registry_report(vek_metric_registry_get_default(), VEK_METRIC_REPORTER(reporter));
  @LINE@;
  g_assert_no_error(error);
  GMainLoop *loop = g_main_loop_new(NULL, FALSE);
  SoupMessage *message = soup_message_new("GET", "@URI@");
  soup_session_send_and_read_async(soup_session_new(), message, 0, NULL, on_read, loop);
  g_main_loop_run(loop);
}
'''

PROGRAMS = {
    'c': C,
    'cpp': C.replace('message, 0,', 'message, G_PRIORITY_DEFAULT,'),
    'js': '''imports.gi.versions.Soup = '3.0';
const {GLib, Soup, Vek, VekService, VekWeb} = imports.gi;

const reporter = new VekService.PrometheusReporter();
Vek.MetricRegistry.get_default().report(reporter);
@LINE@
const loop = GLib.MainLoop.new(null, false);
const session = new Soup.Session();
session.send_and_read_async(Soup.Message.new('GET', '@URI@'), 0, null, (_, result) => {
  print(imports.byteArray.toString(session.send_and_read_finish(result).get_data()));
  loop.quit();
});
loop.run();
''',
    'python': '''import gi

for name, version in (('Soup', '3.0'), ('Vek', '1.0'), ('VekService', '1.0'), ('VekWeb', '1.0')):
    gi.require_version(name, version)
from gi.repository import GLib, Soup, Vek, VekService, VekWeb


def on_read(session, result):
    print(session.send_and_read_finish(result).get_data().decode())
    loop.quit()


reporter = VekService.PrometheusReporter.new()
Vek.MetricRegistry.get_default().report(reporter)
@LINE@
loop = GLib.MainLoop()
session = Soup.Session()
session.send_and_read_async(Soup.Message.new('GET', '@URI@'), 0, None, on_read)
loop.run()
''',
    'vala': '''async void scrape(MainLoop loop) {
  try {
    var message = new Soup.Message("GET", "@URI@");
    var body = yield new Soup.Session().send_and_read_async(message, Priority.DEFAULT, null);
    print("%s", (string) body.get_data());
  } catch (Error error) {
    GLib.error(error.message);
  }
  loop.quit();
}

void main() {
  var reporter = new VekService.PrometheusReporter();
  Vek.MetricRegistry.get_default().report(reporter);
  try {
    @LINE@
    var loop = new MainLoop();
    scrape.begin(loop);
    loop.run();
  } catch (Error error) {
    GLib.error(error.message);
  }
}
''',
}


def make_test(language):
    def test():
        row = rf'^\| {re.escape(ROWS[language])} +\| `(.*)` +\|$'
        line = re.search(row, PAGE.read_text(encoding='utf-8'), re.MULTILINE)[1]
        assert '9464' in line
        port = str(free_port())
        program = PROGRAMS[language].replace('@LINE@', line.replace('9464', port))
        text = doccheck.run(language,
                            program.replace('@URI@', f'http://127.0.0.1:{port}/metrics'))
        assert '\nvekmetrics_metrics 0\n' in text, text
    test.__name__ = language
    return test


if __name__ == '__main__':
    os.environ['VALAFLAGS'] += ' --pkg=libsoup-3.0'
    tap.run(list(map(make_test, sys.argv[1:])))
