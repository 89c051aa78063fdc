#!/usr/bin/python3
"""Runs the textfile example and checks its file, also by promtool: textfile.py PROGRAM"""

import pathlib
import shutil
import subprocess
import sys
import tempfile

EXPECTED = r'''# HELP http_requests_total http.requests, in Count
# TYPE http_requests_total counter
http_requests_total{host="\"h2\\"} 7
http_requests_total{host="h1"} 42
# HELP load load, in no unit
# TYPE load gauge
load 0.25
# HELP response_average response, in Seconds
# TYPE response_average gauge
response_average{host="h1"} 0.625
# HELP response_max response, in Seconds
# TYPE response_max gauge
response_max{host="h1"} 1
# HELP response_min response, in Seconds
# TYPE response_min gauge
response_min{host="h1"} 0.25
# HELP response_p50 response, in Seconds
# TYPE response_p50 gauge
response_p50{host="h1"} 0.625
# HELP response_p90 response, in Seconds
# TYPE response_p90 gauge
response_p90{host="h1"} 0.92500000000000004
# HELP response_p99 response, in Seconds
# TYPE response_p99 gauge
response_p99{host="h1"} 0.99249999999999994
# HELP response_samples response, in Seconds
# TYPE response_samples gauge
response_samples{host="h1"} 4
'''


def main(program):
    print('1..3')
    with tempfile.TemporaryDirectory() as folder:
        path = pathlib.Path(folder, 'example.prom')
        subprocess.run([program, path], check=True)
        text = path.read_text()
        print('ok 1 - the file is as it should be' if text == EXPECTED else
              f'not ok 1 - the file is\n{text}')
        left = [entry.name for entry in path.parent.iterdir()]
        print('ok 2 - nothing else is left in the folder' if left == ['example.prom'] else
              f'not ok 2 - the folder holds {left}')
        if not shutil.which('promtool'):
            print('ok 3 - promtool finds no fault # SKIP there is no promtool')
            return
        check = subprocess.run(['promtool', 'check', 'metrics'], input=text, text=True,
                               capture_output=True)
        output = (check.stdout + check.stderr).replace('\n', '; ')
        print('ok 3 - promtool finds no fault' if check.returncode == 0 and not output else
              f'not ok 3 - promtool says: {output}')


if __name__ == '__main__':
    main(sys.argv[1])
