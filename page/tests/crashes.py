"""Tests of what the tests themselves do when the browser crashes."""

import unittest
from unittest import mock

from support import browser, tap


class Crashes(unittest.TestCase):
    def setUp(self):
        self.browser = browser.shared()

    def test_another_browser_opens_the_page(self):
        with self.assertRaises(browser.Ended):
            self.browser.devtools('Browser.crash')
        self.browser.show('data:text/html,shown', width=400)
        self.assertEqual(self.browser.text('body'), ['shown'])
        self.assertEqual(self.browser.run('return innerWidth;'), 400)

    def test_page_that_crashes_each_browser_fails(self):
        def crash(_):
            self.browser.devtools('Browser.crash')
        with mock.patch.object(self.browser, 'navigate', crash), \
                self.assertRaises(browser.Ended):
            self.browser.show('')


if __name__ == '__main__':
    tap.run([Crashes])
