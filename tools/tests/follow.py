"""Tests of vek-plot --follow: a page that grows with the logs."""

import contextlib
import http.client
import json
import os
import pathlib
import resource
import socket
import struct
import subprocess
import sys
import tempfile
import unittest
from functools import partial

from plot import PROGRAM, T, csv_lines, json_line
from support import tap

from vekplot.arguments import parse
from vekplot.files import Files
from vekplot.follow import PATIENCE, Feed

FIRST = csv_lines((T + 55.5, 'requests', 5), (T + 60.1, 'load', 0.5))
SECOND = csv_lines((T + 119.5, 'requests', 8), (T + 120.1, 'load', 0.25))

SILENCES = 4  # of 15 seconds, that only a failure takes


class Server:
    """A running vek-plot, and a page that listens to its events."""

    def __init__(self, folder, *arguments, **options):
        self.program = subprocess.Popen(
            [sys.executable, PROGRAM, '--follow', *arguments], cwd=folder, text=True,
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, **options)
        self.address = self.program.stdout.readline().strip()
        self.port = int(self.address.removeprefix('http://127.0.0.1:').removesuffix('/'))
        self.events = self.connect()
        self.events.request('GET', '/events')
        self.stream = self.events.getresponse()

    def connect(self):
        return http.client.HTTPConnection('127.0.0.1', self.port, timeout=60)

    def get(self, path, **headers):
        connection = self.connect()
        with contextlib.closing(connection):
            connection.request('GET', path, headers=headers)
            response = connection.getresponse()
            return response.status, response.headers, response.read().decode()

    def get_data(self, path='/vars.json'):
        return json.loads(self.get(path)[2])

    def wait(self):
        """Waits for the next event; returns its data."""
        silences = 0
        while silences < SILENCES:
            line = self.stream.readline().decode()
            if not line:
                raise EOFError
            if line.startswith('data: '):
                return json.loads(line.removeprefix('data: '))
            silences += line.startswith(':')
        raise AssertionError('no event came')

    def wait_for(self, passes):
        """Waits until the data has so many passes; returns it."""
        while True:
            self.wait()
            data = self.get_data()
            if len(data['times'][0]) == passes:
                return data


    def close(self):
        """Returns what the program has said."""
        self.events.close()
        self.stream.close()
        self.program.terminate()
        return self.program.communicate()[1]


def figures(second, value):
    return csv_lines((T + second, 'load', value))


def report(second, value):
    return json_line(second, ('load', {'Value': value}))


def get_values(data):
    """The values of metrics of one name by their files."""
    found = {}
    for metric in data['metrics']:
        (_, file), = metric['dimensions']
        found[file] = [value for value in metric['values'] if value is not None]
    return found


class Follow(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def write(self, name, text):
        with open(self.folder / name, 'a', encoding='utf-8') as file:
            file.write(text)

    def rename(self, old, new):
        os.rename(self.folder / old, self.folder / new)

    def serve(self, *arguments, **options):
        server = Server(self.folder, *arguments or ['.'], **options)
        self.addCleanup(server.close)
        return server

    def feed(self):
        """What a server gives to its page, which looks at the files when the test tells it to."""
        paths = [str(self.folder)]
        feed = Feed(Files(paths), parse(paths))
        feed.look()
        return feed

    def test_the_page_and_its_scripts_are_served_with_a_policy(self):
        self.write('figures.csv', FIRST)
        server = self.serve()
        status, headers, page = server.get('/')
        self.assertEqual((status, headers['Content-Type']), (200, 'text/html; charset=utf-8'))
        self.assertEqual(headers['Content-Security-Policy'],
                         "default-src 'none'; script-src 'self'; style-src 'self'; "
                         "connect-src 'self'; img-src 'self' data:; base-uri 'none'; "
                         "form-action 'none'; frame-ancestors 'none'")
        self.assertIn('<script src="dygraph.min.js"></script>', page)
        for name, kind in (('dygraph.min.js', 'text/javascript'), ('page.js', 'text/javascript'),
                           ('page.css', 'text/css')):
            status, headers, _ = server.get(f'/{name}')
            self.assertEqual((status, headers['Content-Type']), (200, f'{kind}; charset=utf-8'))

    def test_nothing_else_is_served(self):
        self.write('figures.csv', FIRST)
        server = self.serve()
        for path in ('/figures.csv', '/../figures.csv', '/tests', '/page.css/', '/%2e'):
            self.assertEqual(server.get(path)[0], 404, path)

    def test_requests_for_another_host_are_refused(self):
        self.write('figures.csv', FIRST)
        server = self.serve()
        for host in ('example.org', f'example.org:{server.port}', 'localhost.example.org', '',
                     '127.0.0.1.example.org', 'localhost:x'):
            for path in ('/', '/vars.json', '/events'):
                self.assertEqual(server.get(path, Host=host)[0], 403, host)
        for host in ('localhost', f'LOCALHOST:{server.port}', '127.0.0.1', '[::1]:80'):
            self.assertEqual(server.get('/', Host=host)[0], 200, host)

    def test_a_new_pass_is_announced_and_comes_alone(self):
        self.write('figures.csv', FIRST)
        server = self.serve()
        first = server.wait()
        self.assertEqual(first['pass'], 1)
        data = server.get_data()
        self.assertEqual((data['pass'], data['start'], data['whole']), (1, first['start'], True))
        self.assertEqual(data['times'], [[1700000060.1]])

        self.write('figures.csv', SECOND)
        self.assertEqual(server.wait(), {'pass': 2, 'start': first['start']})
        later = server.get_data('/vars.json?after=1')
        self.assertNotIn('whole', later)
        self.assertEqual(later['times'], [[1700000120.1]])
        self.assertEqual([(metric['name'], metric['kind'], metric['values'])
                          for metric in later['metrics']],
                         [('load', 'gauge', [0.25]), ('requests', 'counter', [8])])
        self.assertEqual(server.get_data()['times'], [[1700000060.1, 1700000120.1]])

    def test_what_becomes_another_kind_comes_with_all_that_was(self):
        self.write('figures.csv', FIRST)
        server = self.serve()
        server.wait()
        self.write('figures.csv', csv_lines((T + 119.5, 'requests', 5), (T + 120.1, 'load', 0.25)))
        server.wait()
        later = server.get_data('/vars.json?after=1')
        self.assertEqual((later['whole'], later['times']), (True, [[1700000060.1, 1700000120.1]]))
        self.assertEqual([metric['kind'] for metric in later['metrics']], ['gauge', 'gauge'])

    def test_only_new_ranges_come(self):
        self.write('timeline.csv', 'F,work,1,1700000000000000,1700000001000000\n')
        server = self.serve()
        server.wait()
        self.write('timeline.csv', 'F,work,2,1700000002000000,1700000003000000\n')
        server.wait()
        self.assertEqual(server.get_data('/vars.json?after=1')['timelines'], [
            {'name': 'work', 'dimensions': [], 'clock': 'wall',
             'lanes': [{'id': '2', 'ranges': [1700000002, 1700000003]}]}])

    def test_no_range_is_lost_while_the_files_go_on_growing(self):
        self.write('log.csv', figures(0, 0.5))
        feed = self.feed()
        for second in range(1, PATIENCE + 1):
            start = (T + second) * 1_000_000
            self.write('log.csv', figures(second, 0.5) + f'F,work,{second},{start},{start + 1}\n')
            feed.look()
        shown = json.loads(feed.get(1))
        self.assertEqual(shown['times'], [[T + second for second in range(PATIENCE)]])
        self.assertEqual([int(lane['id']) for lane in shown['timelines'][0]['lanes']],
                         list(range(1, PATIENCE + 1)))
        feed.look()
        shown = json.loads(feed.get(2))
        self.assertEqual((shown['times'], shown['timelines']), ([[T + PATIENCE]], []))

    def test_what_is_read_but_not_shown_yet_does_not_come(self):
        self.write('log.csv', figures(0, 0.5) + 'F,work,1,1700000000000000,1700000000000001\n')
        feed = self.feed()
        first = feed.get(None)
        self.write('log.csv', figures(60, 0.5) + 'F,work,1,1700000001000000,1700000001000001\n')
        feed.look()
        self.assertEqual(feed.get(None), first)
        self.assertEqual(json.loads(feed.get(1))['timelines'], [])
        feed.look()
        self.assertEqual(json.loads(feed.get(1))['timelines'][0]['lanes'],
                         [{'id': '1', 'ranges': [1700000001, 1700000001.000001]}])

    def test_a_line_is_read_when_it_has_ended(self):
        self.write('figures.csv', FIRST)
        server = self.serve()
        server.wait()
        self.write('figures.csv', SECOND[:-8])
        server.wait()
        self.write('figures.csv', SECOND[-8:])
        data = server.wait_for(2)
        self.assertEqual(data['metrics'][0]['values'], [0.5, 0.25])
        self.assertNotIn('unread', data)

    def test_files_may_come_later(self):
        server = self.serve()
        self.assertEqual(server.wait()['pass'], 1)
        self.assertEqual(server.get_data()['metrics'], [])
        self.write('figures.csv', FIRST)
        self.assertEqual(server.wait_for(1)['sources'], ['figures.csv'])

    def test_rotation_loses_nothing(self):
        self.write('figures.json', report(1, 1.5))
        server = self.serve()
        server.wait()
        self.write('figures.json', report(2, 2.5))
        self.rename('figures.json', 'figures.json.1')
        self.write('figures.json', report(3, 3.5))
        self.assertEqual(server.wait_for(3)['metrics'][0]['values'], [1.5, 2.5, 3.5])

        self.write('figures.json', report(4, 4.5))
        self.rename('figures.json.1', 'figures.json.2')
        self.rename('figures.json', 'figures.json.1')
        self.write('figures.json', report(5, 5.5))
        os.remove(self.folder / 'figures.json.2')
        data = server.wait_for(5)
        self.assertEqual(data['metrics'][0]['values'], [1.5, 2.5, 3.5, 4.5, 5.5])
        self.assertEqual(data['sources'], ['figures.json.1', 'figures.json'])

    def test_a_log_that_is_emptied_goes_on(self):
        self.write('figures.csv', FIRST)
        server = self.serve()
        server.wait()
        (self.folder / 'figures.csv').write_text(csv_lines((T + 120, 'load', 0.25)), 'utf-8')
        self.assertEqual(server.wait_for(2)['metrics'][0]['values'], [0.5, 0.25])

    def test_a_log_that_a_newer_copy_replaces_goes_on(self):
        log = report(1, 1.5) + report(2, 2.5)
        self.write('figures.json', log[:-9])
        feed = self.feed()
        self.write('copy', log)
        self.rename('copy', 'figures.json')
        feed.look()
        os.remove(self.folder / 'figures.json')
        feed.look()
        self.write('figures.json', log + '-\n' + report(3, 3.5))
        feed.look()
        feed.look()
        data = json.loads(feed.get(None))
        self.assertEqual(data['metrics'][0]['values'], [1.5, 2.5, 3.5])
        self.assertEqual(data['unread']['first'], ['figures.json:3: not a line of a log'])

    def test_a_log_that_another_one_replaces_is_read_from_its_beginning(self):
        self.write('figures.json', report(1, 1.5))
        feed = self.feed()
        self.write('other', report(2, 2.5) + report(3, 3.5))
        self.rename('other', 'figures.json')
        feed.look()
        feed.look()
        self.assertEqual(json.loads(feed.get(None))['metrics'][0]['values'], [1.5, 2.5, 3.5])

    def test_a_log_may_be_where_a_file_was_that_is_no_log(self):
        self.write('notes', '-\n' * 99999)
        feed = self.feed()
        self.rename('notes', 'figures.csv')
        (self.folder / 'figures.csv').write_text(figures(1, 1.5), 'utf-8')
        feed.look()
        feed.look()
        self.assertEqual(json.loads(feed.get(None))['sources'], ['figures.csv'])

    def test_a_long_log_may_replace_a_file_that_is_no_log(self):
        self.write('figures.csv', '-\n' * 99999)
        feed = self.feed()
        self.write('copy', ''.join(figures(second, 0.5) for second in range(9999)))
        self.rename('copy', 'figures.csv')
        feed.look()
        feed.look()
        self.assertEqual(len(json.loads(feed.get(None))['times'][0]), 9999)

    def test_programs_in_one_folder_grow_and_are_rotated_apart(self):
        self.write('a.csv', figures(1, 1.5) + figures(5, 2.5))
        self.write('a.json', report(1, 1.5) + report(5, 2.5))
        self.write('b.json', report(2, 10.5) + report(6, 20.5))
        server = self.serve()
        server.wait()
        self.assertEqual(get_values(server.get_data()), {'a': [1.5, 2.5], 'b': [10.5, 20.5]})

        self.write('a.csv', figures(7, 3.5))
        self.assertEqual(get_values(server.wait_for(5)),
                         {'a': [1.5, 2.5, 3.5], 'b': [10.5, 20.5]})
        self.write('b.json', report(8, 30.5))
        self.assertEqual(get_values(server.wait_for(6)),
                         {'a': [1.5, 2.5, 3.5], 'b': [10.5, 20.5, 30.5]})

        self.write('b.json', report(9, 40.5))
        self.rename('b.json', 'b.json.1')
        self.write('b.json', report(10, 50.5))
        self.write('a.csv', figures(11, 4.5))
        data = server.wait_for(9)
        self.assertEqual(get_values(data), {'a': [1.5, 2.5, 3.5, 4.5],
                                            'b': [10.5, 20.5, 30.5, 40.5, 50.5]})
        self.assertEqual(sorted(data['sources']), ['a.csv', 'a.json', 'b.json', 'b.json.1'])

    def test_folders_and_files_grow_together(self):
        names = 'one/figures.csv', 'two/figures.json', 'three.csv'
        for folder in 'one', 'two':
            (self.folder / folder).mkdir()
        for second, name in enumerate(names):
            line = report if name.endswith('json') else figures
            self.write(name, line(second, second + 0.5) + line(second + 5, second + 0.25))
        server = self.serve('one', 'two', 'three.csv')
        server.wait()
        before = {'one/figures': [0.5, 0.25], 'two/figures': [1.5, 1.25], 'three': [2.5, 2.25]}
        self.assertEqual(get_values(server.get_data()), before)

        for name, line, passes in zip(names, (figures, report, figures), (7, 8, 9)):
            self.write(name, line(passes + 1, 9.5))
            data = server.wait_for(passes)
            before[os.path.splitext(name)[0]].append(9.5)
            self.assertEqual(get_values(data), before)
        self.rename('two/figures.json', 'two/figures.json.1')
        self.write('two/figures.json', report(11, 10.5))
        before['two/figures'].append(10.5)
        self.assertEqual(get_values(server.wait_for(10)), before)

    def test_many_files_are_followed(self):
        for index in range(50):
            self.write(f'{index}.csv', figures(index, 0.5))
            with open(self.folder / f'{index}.data', 'wb') as file:
                file.truncate(1 << 20)
        for limits in ((30, 200), (80, 80)):
            server = self.serve(
                preexec_fn=partial(resource.setrlimit, resource.RLIMIT_NOFILE, limits))
            self.assertEqual(len(server.get_data()['times'][0]), 50)
            self.assertEqual(server.close(), '')

    def test_a_connection_that_is_broken_off_is_no_error(self):
        self.write('figures.csv', FIRST)
        server = self.serve()
        reset = struct.pack('ii', 1, 0)  # close() sends a reset
        for request in (b'', b'GET /dygraph.min.js HTTP/1.1\r\nHost: localhost\r\n\r\n' * 99):
            with socket.create_connection(('127.0.0.1', server.port)) as connection:
                connection.sendall(request + b'GET / HTTP/1.1\r\n')
                connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, reset)
        self.assertEqual(server.get('/')[0], 200)
        self.assertEqual(server.close(), '')

    def test_what_is_no_serial_number_gets_everything(self):
        self.write('figures.csv', FIRST)
        server = self.serve()
        for serial in '9' * 5000, '-1', 'x', '':
            self.assertTrue(server.get_data(f'/vars.json?after={serial}')['whole'])
        self.assertEqual(server.close(), '')

    def test_a_name_that_no_metric_has_is_said_before_the_address(self):
        self.write('figures.csv', FIRST)
        server = Server(self.folder, '--counter=request', '.')
        self.assertEqual(server.close(), 'vek-plot: --counter request: '
                         'there is no counter or gauge with this name\n')


if __name__ == '__main__':
    tap.run([Follow])
