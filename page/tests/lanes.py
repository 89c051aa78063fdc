"""Tests of what the page draws of timelines: known ranges in, the drawn bars out."""

from support import browser, tap

import pages
from pages import START, document, metric, minutes, timeline


class Lanes(browser.Test):
    def draw(self, lanes, **members):
        data = document(timelines=[timeline(lanes)], times=[START, START + 100], **members)
        pages.server().show(self.browser, data)
        [drawn] = self.browser.series()
        return drawn

    def test_each_id_has_a_lane_and_each_range_a_bar(self):
        drawn = self.draw({'2': [START + 50, START + 60], '10': [START, START + 25],
                           '1': [START, START + 10, START + 20, START + 30]})
        self.assertEqual(drawn['kind'], 'timeline')
        self.assertEqual([lane['id'] for lane in drawn['lanes']], ['1', '2', '10'])
        self.assertEqual([lane['busy'] for lane in drawn['lanes']], [0.2, 0.1, 0.25])
        self.assertEqual(drawn['lanes'][0]['sublanes'], [
            {'bars': [[START, START + 10], [START + 20, START + 30]], 'shares': []}])
        self.assertEqual([text.replace('\u202f', ' ') for text in self.browser.text('.busy')],
                         ['busy 20 %', 'busy 10 %', 'busy 25 %'])

    def test_overlapping_ranges_have_sub_lanes(self):
        [lane] = self.draw({'1': [START, START + 40, START + 10, START + 50, START + 20, START + 30,
                                  START + 40, START + 60]})['lanes']
        self.assertEqual([sublane['bars'] for sublane in lane['sublanes']], [
            [[START, START + 40], [START + 40, START + 60]],
            [[START + 10, START + 50]],
            [[START + 20, START + 30]]])
        self.assertEqual(lane['busy'], 0.6)  # overlaps count once

    def test_overlaps_of_more_than_64_ranges_share_the_last_sub_lane(self):
        [lane] = self.draw({'1': [START, START + 50] * 70})['lanes']
        self.assertEqual([len(sublane['bars']) for sublane in lane['sublanes']], [1] * 63 + [7])

    def test_ranges_narrower_than_a_pixel_are_shares_of_it(self):
        self.draw({'1': [START, START + 100]})
        width = self.browser.run('return document.querySelector("#wall .ticks").clientWidth;')
        pixel = 100 / width
        # Half of pixel 10 in two ranges, a range of no length in pixel 20, and one in two pixels.
        ranges = [10, 10.25, 10.5, 10.75, 20.5, 20.5, 30.75, 31.5]
        [lane] = self.draw({'1': [START + place * pixel for place in ranges]})['lanes']
        [sublane] = lane['sublanes']
        self.assertEqual(sublane['bars'], [])
        self.assertEqual([(place, round(share, 2)) for place, share in sublane['shares']],
                         [(10, 0.5), (20, 0), (30, 0.25), (31, 0.5)])

    def test_the_ten_longest_ranges_are_text(self):
        ranges = [place for i in range(12) for place in (START + 8 * i, START + 8 * i + i / 2)]
        drawn = self.draw({'a': ranges})
        self.assertEqual([round(one['end'] - one['start'], 3) for one in drawn['longest']],
                         [5.5, 5, 4.5, 4, 3.5, 3, 2.5, 2, 1.5, 1])
        self.browser.click('.longest summary')
        found = [text.replace('\u202f', ' ') for text in self.browser.text('.longest li')]
        self.assertEqual(len(found), 10)
        self.assertEqual(found[0], 'a: 5.5 s, 22:14:48 – 22:14:53.5')

    def test_a_lane_is_drawn_where_its_ranges_are(self):
        self.draw({'1': [START + 25, START + 50]})
        inked = self.browser.run('''
            const canvas = document.querySelector('.lane canvas');
            const alpha = share => canvas.getContext('2d')
              .getImageData(Math.round(share * canvas.width), 2, 1, 1).data[3];
            return [0.2, 0.3, 0.45, 0.55].map(alpha);''')
        self.assertEqual(inked, [0, 255, 255, 0])

    def test_ranges_of_another_clock_have_an_axis_of_their_own(self):
        data = document([metric('gauge', [1, 2, 3, 4])],
                        [timeline({'1': [5, 15]}, 'boot', 'other'),
                         timeline({'1': [START, START + 90]})], minutes(4))
        pages.server().show(self.browser, data)
        boot, figure, work = self.browser.series()
        self.assertEqual(boot['clock'], 'other')
        self.assertEqual(boot['lanes'][0]['busy'], 1)
        self.assertEqual(figure['times'], minutes(4))
        self.assertEqual(work['lanes'][0]['busy'], 0.5)
        self.assertEqual(self.browser.text('#other .tick')[0].replace('\u202f', ' '), '+0 s')


if __name__ == '__main__':
    tap.run([Lanes])
