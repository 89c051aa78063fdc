"""When the passes were.

A log in JSON has the time of each pass. One in CSV has the times of its lines: that of a histogram,
a timer or a gauge is the time of the pass, and that of a counter or a meter is earlier. So the
latest time of a pass is the nearest to it. Where no line has a later time than the pass before, as
in an idle program with nothing but counters, the passes are spread evenly. All times are in µs.
"""

from array import array
from bisect import bisect_left

PERIOD = 60_000_000  # of a registry that reports by itself
CLOSE = 1000  # between lines of one pass, but not between two passes


def get_period(times):
    """The usual time between two passes."""
    steps = sorted(later - earlier for earlier, later in zip(times, times[1:]) if later > earlier)
    return steps[(len(steps) - 1) // 2] if steps else PERIOD


def find_known(times):
    """The indexes of the passes whose times can be right, which ascend.

    A time that is later than that of the next pass is a mistake, or the clock was put back; one
    that is almost the same comes from a line that was taken for one of the pass before.
    """
    close = min(CLOSE, get_period(times) // 10)
    known = []
    latest = -1
    for index, time in enumerate(times):
        following = times[index + 1] if index + 1 < len(times) else None
        if time > latest and (following is None or time == following or time < following - close):
            known.append(index)
            latest = time
    return known


def settle(times):
    """Times that ascend: those that can be right, and the others spread between them."""
    known = find_known(times)
    if len(known) == len(times):
        return times
    period = get_period([times[index] for index in known])
    settled = array('q', times)
    for index in range(known[0]):
        settled[index] = times[known[0]] - (known[0] - index) * period
    for first, last in zip(known, known[1:]):
        step = (times[last] - times[first]) / (last - first)
        for index in range(first + 1, last):
            settled[index] = times[first] + round((index - first) * step)
    for index in range(known[-1] + 1, len(times)):
        settled[index] = times[known[-1]] + (index - known[-1]) * period
    return settled


def find_pairs(csv_times, json_times):
    """Which pass in CSV is which one in JSON, by index.

    What was measured at a time is in the first pass after it. In both logs a pass is followed by
    the same one, even if nothing was measured between them.
    """
    period = get_period(json_times)
    known = find_known(csv_times)
    csv_of = {}
    for index in known:
        pair = bisect_left(json_times, csv_times[index])
        if pair < len(json_times) and json_times[pair] - csv_times[index] < period:
            csv_of[pair] = index
    pairs = {index: pair for pair, index in csv_of.items()}
    for index in sorted(set(range(len(csv_times))).difference(known)):
        pair = pairs.get(index - 1, len(json_times)) + 1
        if pair < len(json_times) and pair not in csv_of:
            pairs[index] = pair
            csv_of[pair] = index
    return pairs


def unite(csv_times, json_times):
    """The times of the passes of either log, and for each log which of them its own are."""
    json_times = settle(json_times)
    pairs = find_pairs(csv_times, json_times)
    csv_times = settle(array('q', (json_times[pairs[index]] if index in pairs else time
                                   for index, time in enumerate(csv_times))))
    single = set(range(len(json_times))).difference(pairs.values())
    entries = [(time, index, pairs.get(index)) for index, time in enumerate(csv_times)]
    entries += [(json_times[index], None, index) for index in single]
    entries.sort(key=lambda entry: entry[0])

    csv_places, json_places = (array('i', [0]) * len(times) for times in (csv_times, json_times))
    for place, (_, csv_index, json_index) in enumerate(entries):
        if csv_index is not None:
            csv_places[csv_index] = place
        if json_index is not None:
            json_places[json_index] = place
    return array('q', (entry[0] for entry in entries)), csv_places, json_places
