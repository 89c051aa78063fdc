"""Tests of whole documents: what the page says of them, and that none breaks it."""

import pathlib
import random
import string

from support import browser, tap

import pages
from pages import START, document, metric, minutes, timeline


def strange(number):
    """A document of odd names, values, times and ranges."""
    values = [0, 1, -1, 0.5, 1e300, -1e300, 5e-324, 2 ** 62, None, 'inf', '-inf']

    def text():
        return ''.join(number.choices(string.printable + 'äß漢\u202e\u0000<>&', k=4))

    def line(size):
        choices = values if number.random() < 0.6 else [number.choice(values)]
        return number.choices(choices, k=size)

    sizes = [number.choice((0, 1, 2, 3, 50)) for _ in range(3)]
    times = [sorted(number.choice((0, START, START + i, START + i / 7, 1e10)) for i in range(size))
             for size in sizes]
    metrics = []
    for _ in range(number.randrange(6)):
        axis = number.randrange(3)
        kind = number.choice(('counter', 'gauge', 'meter', 'histogram', 'timer'))
        one = {'name': text(), 'dimensions': [[text(), text()]] * number.randrange(3),
               'kind': kind, 'unit': number.choice((None, '', text(), 'Bytes/Second')),
               'times': axis}
        if kind in ('histogram', 'timer'):
            names = ('samples', 'avg', 'min', 'max', 'p10', 'p50', 'p90', 'p99')
            one['statistics'] = {name: line(sizes[axis])
                                 for name in number.sample(names, number.randrange(9))}
        else:
            one['values'] = line(sizes[axis])
        metrics.append(one)
    timelines = []
    for _ in range(number.randrange(3)):
        lanes = {text(): sorted(number.choice((0, START, START + i, -5)) for i in range(8))
                 for _ in range(number.randrange(3))}
        timelines.append(timeline(lanes, text(), number.choice(('wall', 'other'))))
    return {'version': 1, 'title': text(), 'sources': [text()], 'times': times, 'passes': 0,
            'restarts': times[1][:2], 'metrics': metrics, 'timelines': timelines}


class Documents(browser.Test):
    def test_names_are_text(self):
        evil = '</script><img src=x onerror="window.evil = 1">&amp;'
        data = document([metric('gauge', [1, 2, 3, 4], evil, evil, [[evil, evil]])],
                        [timeline({evil: [START, START + 30]}, evil)], minutes(4), title=evil,
                        sources=[evil], unread={'count': 1, 'first': [evil]})
        for page in (pages.embedded(data), pages.one_file(data)):
            self.assertNotIn('</script><img', page)
        pages.server().show(self.browser, data)
        self.assertEqual(self.browser.series()[0]['name'], evil)
        self.assertIn(evil, self.browser.text('.name'))
        self.assertEqual(self.browser.text('.chips li'), [f'{evil}={evil}'])
        self.assertEqual(self.browser.text('h1'), [evil])
        self.assertEqual(self.browser.run(
            'return [document.images.length, window.evil ?? null, document.title];'),
            [0, None, evil])

    def test_names_of_inherited_properties_are_text(self):
        for name in ('constructor', 'toString', '__proto__'):
            data = document([metric('gauge', [1, 2, 3, 4], name, name, [[name, name]]),
                             metric('counter', [0, 60, 120, 240], f'{name} 2', name)],
                            [timeline({name: [START, START + 30]}, f'{name} 3')], minutes(4))
            pages.server().show(self.browser, data)
            self.assertEqual([drawn.get('values') for drawn in self.browser.series()],
                             [[1, 2, 3, 4], [None, 1, 1, 2], None])
            values = [text.replace('\u202f', ' ') for text in self.browser.text('.value')]
            self.assertEqual(values, [f'4 {name}', f'2 {name}/s'])
            self.assertEqual(self.browser.text('.lane .id'), [name])

    def test_the_header_tells_what_is_shown(self):
        first = [f'known.csv:{i}: not a line of figures' for i in range(20)]
        pages.server().show(self.browser, document(
            [metric('gauge', [1, 2, 3, 4])], times=minutes(4), restarts=[START + 60],
            unread={'count': 30, 'first': first}, sources=['a.csv', 'b.json']))
        self.assertEqual(self.browser.text('#facts dd'), [
            'a.csv, b.json', '2023-11-14 22:13:20 – 22:16:20', '4 passes', '1 metric',
            '1 restart'])
        self.assertEqual(self.browser.text('#unread summary'), ['30 lines not read'])
        self.browser.click('#unread summary')
        self.assertEqual(self.browser.text('#unread li'), first)

    def test_a_page_in_one_file_draws_the_same(self):
        data = document([metric('gauge', [1, 2, 3, 4])], times=minutes(4))
        running = pages.server()
        running.show(self.browser, data)
        served = self.browser.series()
        file = pathlib.Path('one-file.html').resolve()
        file.write_text(pages.one_file(data), encoding='utf-8')
        self.browser.open(file.as_uri())
        self.assertEqual(self.browser.series(), served)

    def test_no_data_makes_the_page_complain(self):
        number = random.Random(7)
        for _ in range(40):
            pages.server().show(self.browser, strange(number))
            self.browser.series()
            self.assertEqual(self.browser.complaints(), [])


if __name__ == '__main__':
    tap.run([Documents])
