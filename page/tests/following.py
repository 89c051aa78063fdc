"""Tests of the page of a running program."""

from support import browser, tap

import pages
from pages import START, Program, timeline


class Following(browser.Test):
    def setUp(self):
        super().setUp()
        self.program = Program()
        self.addCleanup(self.program.disconnect)

    def follow(self):
        pages.server().follow(self.browser, self.program)
        self.browser.until('document.getElementById("state").className === "running"')

    def until_drawn(self, values):
        self.browser.until('JSON.stringify(vekPage.series().map(drawn => drawn.values)) === '
                           f"'{values}'")

    def test_all_passes_are_shown(self):
        for i in range(3):
            self.program.add(START + i, requests=10 * i)
        self.follow()
        self.until_drawn('[[null,10,10]]')
        self.assertEqual(self.browser.text('#state'), ['running'])

    def test_a_pass_is_added_when_it_comes(self):
        self.program.add(START, requests=0)
        self.program.add(START + 1, requests=5)
        self.follow()
        self.until_drawn('[[null,5]]')
        self.program.add(START + 2, requests=12)
        self.until_drawn('[[null,5,7]]')
        self.assertEqual(self.program.asked[-1], 'after=2')
        self.assertEqual(self.browser.text('#facts dd')[2], '3 passes')

    def test_a_metric_may_come_later(self):
        self.program.add(START, a=0)
        self.program.add(START + 1, a=1)
        self.follow()
        self.program.add(START + 2, a=3, b=5)
        self.program.add(START + 3, a=3, b=6)
        self.until_drawn('[[null,1,2,0],[null,1]]')

    def test_a_metric_that_begins_to_change_leaves_the_line_of_the_others(self):
        self.program.add(START, a=1)
        self.program.add(START + 1, a=1)
        self.follow()
        self.browser.until('!document.getElementById("constant").hidden')
        self.program.add(START + 2, a=2)
        self.browser.until('document.getElementById("constant").hidden')
        self.assertEqual(self.browser.text('#wall > .rows .name'), ['a'])

    def test_a_program_without_passes_yet_says_so(self):
        self.follow()
        self.assertEqual(self.browser.text('#nothing'), ['There are no metrics yet.'])
        self.program.add(START, a=0)
        self.program.add(START + 1, a=4)
        self.until_drawn('[[null,4]]')

    def test_a_restart_is_a_line_and_keeps_what_was_before(self):
        self.program.add(START, a=0)
        self.program.add(START + 1, a=4)
        self.follow()
        self.until_drawn('[[null,4]]')
        self.program.restart('second')
        self.program.add(START + 2, a=1)
        self.program.add(START + 3, a=3)
        self.until_drawn('[[null,4,null,null,2]]')
        self.assertEqual(
            self.browser.run('return document.querySelectorAll(".restart").length;'), 1)

    def test_a_clock_that_is_set_back_makes_the_page_start_anew(self):
        self.program.add(START + 100, a=0)
        self.program.add(START + 110, a=10)
        self.follow()
        self.until_drawn('[[null,1]]')
        self.program.add(START, a=20)
        self.program.add(START + 10, a=40)
        self.until_drawn('[[null,2]]')
        self.program.restart('second')
        self.program.add(START - 100, a=0)
        self.program.add(START - 90, a=30)
        self.until_drawn('[[null,3]]')
        self.assertEqual(self.browser.text('#facts dd')[1:3],
                         ['2023-11-14 22:11:40 – 22:11:50', '2 passes'])

    def test_a_server_may_replace_all_passes(self):
        self.program.add(START, a=0, b=0)
        self.program.add(START + 1, a=4, b=5)
        self.follow()
        self.until_drawn('[[null,4],[null,5]]')
        self.program.passes = [(START, {'a': 1}), (START + 1, {'a': 2})]
        self.program.is_whole = True
        self.program.add(START + 2, a=5)
        self.until_drawn('[[null,1,3]]')
        self.assertEqual(self.browser.text('#wall > .rows .name'), ['a'])

    def test_10000_passes_are_kept(self):
        for i in range(10000):
            self.program.add(START + i, a=i)
        self.follow()
        self.program.add(START + 10000, a=10000)
        self.browser.until('document.querySelectorAll("#facts dd")[1].innerText === '
                           '"2023-11-14 22:13:21 – 2023-11-15 01:00:00"')
        self.assertEqual(self.browser.text('#facts dd')[2], '10000 passes')

    def test_100000_ranges_of_a_lane_are_kept(self):
        self.follow()
        kept = self.browser.run('''
            const read = ranges =>
              vek.data.read({timelines: [{name: 'work', lanes: [{id: '1', ranges}]}]});
            const before = read(Array.from({length: 200000}, (_, i) => i));
            const [{lanes: [{ranges}]}] =
              vek.data.append(before, read([200000, 200001])).timelines;
            return [ranges.length, ranges[0], ranges.at(-1)];''')
        self.assertEqual(kept, [100000, [2, 3], [200000, 200001]])

    def test_what_is_before_the_passes_that_are_kept_is_dropped(self):
        self.follow()
        appended = self.browser.run("""
            const read = (times, name, timelines = [], restarts = []) => vek.data.read({
              times: [times], restarts, timelines,
              metrics: [name, 'always'].map(name =>
                ({name, kind: 'gauge', times: 0, values: times}))});
            const timeline = (name, clock, ...lanes) => ({name, clock,
              lanes: lanes.map((ranges, i) => ({id: i, ranges}))});
            let model = read([0, 1], 'gone', [timeline('a', 'wall', [0, 1]),
              timeline('b', 'wall', [0, 1], [0, 1, 5, 10002]), timeline('c', 'other', [0, 1])],
              [1, 10002]);
            for (let from = 2; from < 20002; from += 5000) {
              const times = Array.from({length: 5000}, (_, i) => from + i);
              model = vek.data.append(model, read(times, 'live'));
            }
            const {metrics: [{times, lines}], timelines, restarts, passes} = model;
            return [vek.data.span(model, 'wall'), model.metrics.map(metric => metric.name),
              times === passes, times[0], lines.value[0], lines.value.length, restarts,
              timelines.map(({name, lanes}) => [name, lanes.map(lane => lane.ranges)])];""")
        self.assertEqual(appended, [
            [5, 20001], ['always', 'live'], True, 10002, 10002, 10000, [10002],
            [['b', [[[5, 10002]]]], ['c', [[[0, 1]]]]]])

    def test_lanes_come_and_go(self):
        self.program.is_whole = True
        self.program.timelines = [timeline({'1': [START, START + 1]})]
        self.program.add(START, a=0)
        self.follow()
        self.browser.until('document.querySelector(".lane .id")?.innerText === "1"')
        self.program.timelines = [timeline({'2': [START, START + 1]})]
        self.program.add(START + 1, a=4)
        self.browser.until('document.querySelector(".lane .id")?.innerText === "2"')
        self.assertEqual(self.browser.text('.lane .id'), ['2'])

    def test_a_metric_with_another_unit_is_another_metric(self):
        self.follow()
        appended = self.browser.run("""
            const read = (passes, ...series) => vek.data.read({
              times: [passes, ...series.map(([, times]) => times)],
              metrics: series.map(([unit, times], i) =>
                ({name: 'size', kind: 'gauge', unit, times: i + 1, values: times}))});
            const before = read([100, 110, 120, 130],
              ['Bytes', [100, 110, 120]], ['Count', [120, 130]]);
            return vek.data.append(before, read([140], ['Count', [140]])).metrics
              .map(({unit, times, lines}) => [unit, times, lines.value]);""")
        self.assertEqual(appended, [['Bytes', [100, 110, 120], [100, 110, 120]],
                                    ['Count', [120, 130, 140], [120, 130, 140]]])

    def test_the_page_says_when_the_program_has_gone(self):
        self.program.add(START, a=0)
        self.program.add(START + 1, a=4)
        self.follow()
        server = pages.server()
        server.refused.clear()
        server.program = None
        self.program.disconnect()
        self.browser.until('document.getElementById("state").className === "gone"')
        self.assertRegex(self.browser.text('#state')[0],
                         r'^gone since \d\d:\d\d:\d\d; trying again$')
        self.assertEqual(self.browser.series()[0]['values'], [None, 4])

        self.assertTrue(server.refused.wait(browser.DEADLINE))  # a stream, which is then closed
        self.program.add(START + 2, a=5)
        server.program = self.program
        self.until_drawn('[[null,4,1]]')
        self.browser.until('document.getElementById("state").className === "running"')
        self.browser.complaints()  # of the refused connections


if __name__ == '__main__':
    tap.run([Following])
