// What is drawn of a timeline: pure functions from ranges to bars, shares and text.
'use strict';
{
  // Deeper overlaps share the last sub-lane.
  const MOST_SUBLANES = 64;

  // Puts overlapping ranges of a lane into sub-lanes: each range into the first one that is free.
  function stack(ranges) {
    const sublanes = [];
    for (const range of ranges) {
      let free = sublanes.findIndex(sublane => sublane.at(-1)[1] <= range[0]);
      if (free < 0) {
        free = Math.min(sublanes.length, MOST_SUBLANES - 1);
        sublanes[free] ??= [];
      }
      sublanes[free].push(range);
    }
    return sublanes;
  }

  // The seconds of a window in which at least one of the ranges ran.
  function busy(ranges, [from, to]) {
    let seconds = 0;
    let reached = from;
    for (const [start, end] of ranges) {
      if (end > reached && start < to) {
        seconds += Math.min(end, to) - Math.max(start, reached);
        reached = Math.min(end, to);
      }
    }
    return seconds;
  }

  // One sub-lane in a window: bars, as start and end, and for the pixels where ranges are narrower
  // than a pixel, the share of busy time. A range of no length has the share 0.
  function sublane(ranges, [from, to], width) {
    const bars = [];
    const shares = new Map();
    const scale = width / (to - from);
    for (const [start, end] of ranges) {
      if (end < from || start > to) {
        continue;
      }
      if ((end - start) * scale >= 1) {
        bars.push([start, end]);
        continue;
      }
      const left = (start - from) * scale;
      const right = (end - from) * scale;
      const pixel = Math.floor(left);
      const inside = Math.min(right, pixel + 1) - left;
      add(shares, pixel, inside, width);
      if (right > pixel + 1) {
        add(shares, pixel + 1, right - pixel - 1, width);
      }
    }
    return {bars, shares: [...shares].sort((a, b) => a[0] - b[0])};
  }

  function add(shares, pixel, share, width) {
    if (pixel >= 0 && pixel < width) {
      shares.set(pixel, Math.min(1, (shares.get(pixel) ?? 0) + share));
    }
  }

  // All that a lane shows in a window.
  function drawing(lane, window, width) {
    lane.sublanes ??= stack(lane.ranges);
    return {
      id: lane.id,
      busy: busy(lane.ranges, window) / (window[1] - window[0]),
      sublanes: lane.sublanes.map(ranges => sublane(ranges, window, width)),
    };
  }

  // The longest ranges of all lanes that touch the window, longest first.
  function longest(lanes, [from, to], count = 10) {
    const found = [];
    for (const {id, ranges} of lanes) {
      for (const [start, end] of ranges) {
        const length = end - start;
        if (end < from || start > to ||
            (found.length === count && length <= found.at(-1).end - found.at(-1).start)) {
          continue;
        }
        const after = found.findIndex(range => range.end - range.start < length);
        found.splice(after < 0 ? found.length : after, 0, {id, start, end});
        found.length = Math.min(found.length, count);
      }
    }
    return found;
  }

  window.vek = {...window.vek, lanes: {drawing, longest, stack}};
}
