// What is drawn of a metric: pure functions from the model to lines, gaps, range and marks.
'use strict';
{
  // A total becomes a rate, over the time since it was last known. It is unknown where the program
  // was restarted in between.
  function rate(times, values, restarts) {
    const rates = Array(values.length).fill(NaN);
    let known = -1;
    let restart = 0;
    for (let i = 0; i < values.length; i++) {
      if (Number.isNaN(values[i])) {
        continue;
      }
      let restarted = false;
      for (; restart < restarts.length && restarts[restart] <= times[i]; restart++) {
        restarted = true;
      }
      if (known >= 0 && !restarted && times[i] > times[known]) {
        rates[i] = (values[i] - values[known]) / (times[i] - times[known]);
      }
      known = i;
    }
    return rates;
  }

  // The distance of passes from which on one of them did not come. Logs with whole seconds put
  // passes of one second up to two apart.
  const pauses = new WeakMap();

  function longestPause(times) {
    if (!pauses.has(times)) {
      pauses.set(times, computePause(times));
    }
    return pauses.get(times);
  }

  function computePause(times) {
    const distances = times.slice(1).map((time, i) => time - times[i]).sort((a, b) => a - b);
    const whole = times.every(Number.isInteger);
    return distances.length ? 1.5 * distances[distances.length >> 1] + (whole ? 1 : 0) : Infinity;
  }

  // Adds a point without values wherever a pass did not come or the program was restarted.
  function withGaps(times, lines, restarts) {
    const pause = longestPause(times);
    const gaps = [];
    let restart = 0;
    for (let i = 0; i < times.length; i++) {
      let restarted = false;
      for (; restart < restarts.length && restarts[restart] <= times[i]; restart++) {
        restarted = true;
      }
      if (i > 0 && (restarted || times[i] - times[i - 1] > pause)) {
        gaps.push(i);
      }
    }
    if (!gaps.length) {
      return {times, lines};
    }
    const insert = (values, missing) => {
      let from = 0;
      const parts = gaps.map(i => [...values.slice(from, from = i), missing(i)]);
      return parts.flat().concat(values.slice(from));
    };
    return {
      times: insert(times, i => (times[i - 1] + times[i]) / 2),
      lines: Object.fromEntries(Object.entries(lines).map(
        ([name, values]) => [name, insert(values, () => NaN)])),
    };
  }

  const BANDS = [['p10', 'p90'], ['p50', 'p90']];

  // The whole curve of a metric. `main` names its line, `band` the two that bound its band, and
  // `thin` those that may leave the chart.
  function curve(metric, restarts, asTotal) {
    const {times, unit} = metric;
    if (metric.kind === 'counter') {
      const lines = asTotal ? metric.lines : {rate: rate(times, metric.lines.value, restarts)};
      return {
        ...withGaps(times, lines, restarts),
        main: asTotal ? 'value' : 'rate',
        thin: [],
        unit: asTotal ? unit : `${unit ?? ''}/Second`,
      };
    }
    const {samples, ...lines} = metric.lines;
    const has = name => name in lines;
    return {
      ...withGaps(times, lines, restarts),
      main: ['value', 'p50', 'avg', ...Object.keys(lines)].find(has),
      band: BANDS.find(names => names.every(has)),
      thin: ['min', 'max', 'p99'].filter(has),
      unit,
    };
  }

  // The first index whose time is not before the given one.
  function indexAt(times, time) {
    let low = 0;
    let high = times.length;
    while (low < high) {
      const middle = (low + high) >> 1;
      if (times[middle] < time) {
        low = middle + 1;
      } else {
        high = middle;
      }
    }
    return low;
  }

  // Of the points from..to, keeps the first and last, and for each line the lowest and highest, a
  // gap, and an infinity of each sign.
  function keep(columns, from, to) {
    const chosen = new Set([from, to - 1]);
    for (const values of columns) {
      let [lowest, highest, gap, least, most] = [-1, -1, -1, -1, -1];
      for (let i = from; i < to; i++) {
        const value = values[i];
        if (value !== value) {
          gap = i;
        } else if (value === Infinity) {
          most = i;
        } else if (value === -Infinity) {
          least = i;
        } else {
          lowest = lowest < 0 || value < values[lowest] ? i : lowest;
          highest = highest < 0 || value > values[highest] ? i : highest;
        }
      }
      [lowest, highest, gap, least, most].forEach(i => chosen.add(i));
    }
    chosen.delete(-1);
    return [...chosen].sort((a, b) => a - b);
  }

  // The part of a curve in a window, and a point on each side. Where a pixel has more than two
  // points, some are left out, never an extreme.
  function thin(whole, [from, to], width) {
    const {times, lines} = whole;
    const first = Math.max(0, indexAt(times, from) - 1);
    const last = Math.min(times.length, indexAt(times, to) + 2);
    const columns = Object.values(lines);
    let picked = index => index.slice(first, last);
    if (last - first > 2 * width) {
      const kept = [];
      for (let i = first, end; i < last; i = end) {
        const pixel = Math.floor((times[i] - from) / (to - from) * width);
        for (end = i + 1; end < last; end++) {
          if (Math.floor((times[end] - from) / (to - from) * width) !== pixel) {
            break;
          }
        }
        kept.push(...keep(columns, i, end));
      }
      picked = values => kept.map(i => values[i]);
    }
    return {
      ...whole,
      times: picked(times),
      lines: Object.fromEntries(Object.entries(lines).map(([k, values]) => [k, picked(values)])),
    };
  }

  function extent(lines, names, accept) {
    let low = Infinity;
    let high = -Infinity;
    for (const value of names.flatMap(name => lines[name])) {
      if (accept(value)) {
        low = Math.min(low, value);
        high = Math.max(high, value);
      }
    }
    return [low, high];
  }

  // How many heights of the other lines the minimum and maximum may add at either side.
  const ROOM = 2;

  // The lower and upper end of the value axis.
  function range({lines, thin: thinned}, logarithmic) {
    const names = Object.keys(lines);
    if (logarithmic) {
      const [low, high] = extent(lines, names, value => value > 0 && value < Infinity);
      return low <= high ? [low / 1.3, high * 1.3] : [0.1, 10];
    }
    let [low, high] = extent(lines, names, Number.isFinite);
    const [inner, outer] = extent(lines, names.filter(k => !thinned.includes(k)), Number.isFinite);
    if (outer > inner) {
      low = Math.max(low, inner - ROOM * (outer - inner));
      high = Math.min(high, outer + ROOM * (outer - inner));
    }
    if (low > high) {
      return [0, 1];
    }
    // Zero is shown if it is not far.
    if (low > 0 && low < 0.75 * high || low === high) {
      low = Math.min(0, low);
      high = Math.max(0, high);
    }
    const margin = (high - low) * 0.08 || 1;
    return [low === 0 ? 0 : low - margin, high === 0 ? 0 : high + margin];
  }

  // Values beyond the range, infinite ones among them: the time, the edge, and the line.
  function marks({times, lines}, [low, high], logarithmic) {
    const found = [];
    for (const [line, values] of Object.entries(lines)) {
      values.forEach((value, i) => {
        if (value > high) {
          found.push({time: times[i], edge: 'top', line, infinite: value === Infinity});
        } else if (value < low && !(logarithmic && value > -Infinity)) {
          found.push({time: times[i], edge: 'bottom', line, infinite: value === -Infinity});
        }
      });
    }
    return found;
  }

  // All that a chart shows in a window.
  function drawing(whole, window, width, logarithmic) {
    const shown = thin(whole, window, width);
    const axis = range(shown, logarithmic);
    return {...shown, logarithmic, range: axis, marks: marks(shown, axis, logarithmic)};
  }

  const constantLine = values => {
    const known = values.filter(value => value === value);
    return known.length !== 1 && known.every(value => value === known[0]);
  };

  // Whether a metric kept one value in all passes. A single value says nothing.
  const constant = metric => Object.values(metric.lines).every(constantLine);

  // How much the main line moves, as a share of its size, and its size.
  function measure(whole) {
    const [low, high] = whole.main ?
      extent(whole.lines, [whole.main], Number.isFinite) : [Infinity, -Infinity];
    const size = low <= high ? Math.max(Math.abs(low), Math.abs(high)) : 0;
    return {change: size ? (high - low) / size : 0, size};
  }

  window.vek = {...window.vek, curves: {constant, curve, drawing, indexAt, measure}};
}
