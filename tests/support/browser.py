"""Chromium without a window, driven through chromedriver, which speaks HTTP.

A test is skipped where they are not installed; `scripts/install page` installs them.
"""

import base64
import functools
import json
import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest
import urllib.error
import urllib.request

from support.servers import DEADLINE, free_port


class Ended(AssertionError):
    """The browser has ended by itself."""


class Browser:
    """A browser in the time zone UTC. It ends with the program."""

    def __init__(self):
        self.start()

    def start(self):
        # Processes of the browser may outlive it for a moment, and write files until then.
        self.home = tempfile.TemporaryDirectory(ignore_cleanup_errors=True)
        self.http = urllib.request.build_opener(urllib.request.ProxyHandler({}))
        # One that it chose itself might be free for IPv6 alone, and it would end.
        port = free_port()
        self.driver = subprocess.Popen(
            ['chromedriver', f'--port={port}'], stdout=subprocess.PIPE, text=True,
            env={**os.environ, 'HOME': self.home.name, 'TMPDIR': self.home.name, 'TZ': 'UTC'})
        if not any('started successfully' in line for line in self.driver.stdout):
            raise AssertionError('chromedriver does not start')
        self.url = f'http://127.0.0.1:{port}/session'
        arguments = ['--headless=new', '--disable-gpu', '--disable-dev-shm-usage']
        if os.geteuid() == 0:
            arguments.append('--no-sandbox')
        try:
            session = self.call('POST', '', {'capabilities': {'alwaysMatch': {
                'browserName': 'chrome',
                'goog:chromeOptions': {'args': arguments},
                'goog:loggingPrefs': {'browser': 'ALL'},
                'timeouts': {'script': DEADLINE * 1000},
            }}})
        except BaseException:
            self.end()
            raise
        self.url += '/' + session['sessionId']

    def call(self, method, path, body=None):
        request = urllib.request.Request(
            self.url + path, method=method, headers={'Content-Type': 'application/json'},
            data=None if body is None else json.dumps(body).encode())
        try:
            with self.http.open(request, timeout=2 * DEADLINE) as response:
                return json.load(response)['value']
        except urllib.error.HTTPError as error:
            value = json.load(error)['value']
            failure = Ended if value['error'] == 'invalid session id' else AssertionError
            raise failure(value['message']) from None

    def devtools(self, command, **parameters):
        return self.call('POST', '/goog/cdp/execute', {'cmd': command, 'params': parameters})

    def show(self, url, **options):
        """Opens any page.

        Chromium has ended by itself while it did so, once in some 2,000 starts. Another one then
        opens the page; if that one ends as well, the page is at fault.
        """
        try:
            self.navigate(url, **options)
        except Ended as ended:
            print(f'# {ended}'.replace('\n', '\n# '))
            self.end()
            self.start()
            self.navigate(url, **options)

    def navigate(self, url, width=1600, height=900, scheme='light'):
        self.devtools('Emulation.setDeviceMetricsOverride', width=width, height=height,
                      deviceScaleFactor=1, mobile=False)
        self.devtools('Emulation.setEmulatedMedia',
                      features=[{'name': 'prefers-color-scheme', 'value': scheme}])
        if '#' in url:  # else only the fragment may change
            self.call('POST', '/url', {'url': 'about:blank'})
        self.call('POST', '/url', {'url': url})

    def open(self, url, **options):
        """Opens the viewer page, and returns when everything in view is drawn."""
        self.show(url, **options)
        self.settle()

    def run(self, script, *arguments):
        """Runs the body of a function, and returns what it returns."""
        return self.call('POST', '/execute/sync', {'script': script, 'args': arguments})

    def wait(self, script):
        """Waits for what the body of an asynchronous function returns."""
        return self.call('POST', '/execute/async', {
            'script': f'(async () => {{ {script} }})().then(arguments[0])', 'args': []})

    def until(self, condition):
        """Waits for an expression to hold: it is tried before each frame, which is then shown.

        Without a frame, rows that have just changed their places would have no text yet.
        """
        self.wait(f'do await new Promise(requestAnimationFrame); while (!({condition}));')

    def settle(self):
        self.wait('await vekPage.settled();')

    def series(self):
        return self.run('return vekPage.series();')

    def text(self, selector):
        """The text of each element, as people see it."""
        return self.run('return [...document.querySelectorAll(arguments[0])]'
                        '.map(element => element.innerText);', selector)

    def click(self, selector):
        self.run('document.querySelector(arguments[0]).click();', selector)
        self.settle()

    def mouse(self, kind, x, y, clicks=0):
        self.devtools('Input.dispatchMouseEvent', type=f'mouse{kind}', x=x, y=y, button='left',
                      buttons=int(kind != 'Released'), clickCount=clicks)

    def key(self, name, **others):
        text = name if len(name) == 1 else ''
        self.devtools('Input.dispatchKeyEvent', type='keyDown', key=name, text=text, **others)
        self.devtools('Input.dispatchKeyEvent', type='keyUp', key=name, **others)
        self.settle()

    def complaints(self):
        """Takes the errors that the console has got since the last time."""
        log = self.call('POST', '/se/log', {'type': 'browser'})
        return [entry['message'] for entry in log if entry['level'] == 'SEVERE']

    def screenshot(self, name):
        """Keeps a picture in the current folder, which is that of the build."""
        folder = pathlib.Path('screenshots')
        folder.mkdir(exist_ok=True)
        (folder / f'{name}.png').write_bytes(base64.b64decode(self.call('GET', '/screenshot')))

    def close(self):
        self.call('DELETE', '')
        self.end()

    def end(self):
        self.driver.terminate()
        self.driver.wait()
        self.driver.stdout.close()
        self.home.cleanup()


@functools.cache
def shared():
    """The browser of a test program."""
    for program in ('chromedriver', 'chromium'):
        if not shutil.which(program):
            raise unittest.SkipTest(f'there is no {program}')
    browser = Browser()
    unittest.addModuleCleanup(browser.close)
    return browser


class Test(unittest.TestCase):
    """A test with a browser in self.browser, which fails if a page complains."""

    def setUp(self):
        self.browser = shared()
        self.addCleanup(lambda: self.assertEqual(self.browser.complaints(), []))
