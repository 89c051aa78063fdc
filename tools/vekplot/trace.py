"""Ranges as Chrome trace events, which Perfetto shows.

A timeline is a process there, and a lane of it a thread. Events of one thread must nest, so ranges
of a lane that overlap are on several threads.
"""

import heapq
import json


def split_lane(ranges):
    """Sorted ranges as lists in which none overlap."""
    rows = []
    ends = []  # a heap of pairs: the end of a row, and its index
    for start, end in ranges:
        if ends and ends[0][0] <= start:
            index = ends[0][1]
            rows[index].append((start, end))
            heapq.heapreplace(ends, (end, index))
        else:
            heapq.heappush(ends, (end, len(rows)))
            rows.append([(start, end)])
    return rows


def make_events(timelines):
    for process, timeline in enumerate(timelines, 1):
        yield {'ph': 'M', 'pid': process, 'name': 'process_name', 'args': {'name': timeline.name}}
        thread = 0
        for lane, ranges in timeline.lanes.items():
            for number, row in enumerate(split_lane(ranges), 1):
                thread += 1
                place = {'pid': process, 'tid': thread}
                name = f'{lane}' if number == 1 else f'{lane} ({number})'
                yield {'ph': 'M', **place, 'name': 'thread_name', 'args': {'name': name}}
                yield {'ph': 'M', **place, 'name': 'thread_sort_index',
                       'args': {'sort_index': thread}}
                for start, end in row:
                    yield {'ph': 'X', **place, 'name': timeline.name, 'cat': 'range', 'ts': start,
                           'dur': end - start, 'args': {'id': lane}}


def write_trace(document, write):
    """Writes a trace of the timelines; its times are in µs."""
    separator = '{"traceEvents":[\n'
    for event in make_events(document.timelines):
        write(separator + json.dumps(event))
        separator = ',\n'
    write('\n]}\n')
