// Reads the data that the page draws, and appends what a running program sends later. README.md
// describes the format. Unknown values become NaN, so that all arithmetic passes them on.
'use strict';
{
  // What a live page keeps, so that it can stay open: passes, and ranges of a lane.
  const KEPT_PASSES = 10000;
  const KEPT_RANGES = 100000;

  const SPELLED = {inf: Infinity, '-inf': -Infinity};

  // The numbers of an array in JSON, or those that a string holds as doubles, encoded in Base64.
  function numbers(values = []) {
    if (typeof values === 'string') {
      const text = atob(values);
      const bytes = new DataView(new ArrayBuffer(text.length));
      for (let i = 0; i < text.length; i++) {
        bytes.setUint8(i, text.charCodeAt(i));
      }
      const found = [];
      for (let i = 0; i + 8 <= text.length; i += 8) {
        found.push(bytes.getFloat64(i, true));  // four times as fast as Array.from()
      }
      return found;
    }
    return values.map(value => typeof value === 'number' ? value : SPELLED[value] ?? NaN);
  }

  const ranges = flat => {
    const pairs = [];
    for (let i = 0; i + 1 < flat.length; i += 2) {
      pairs.push([flat[i], Math.max(flat[i], flat[i + 1])]);
    }
    return pairs.sort((a, b) => a[0] - b[0]);
  };

  const label = dimensions => dimensions.map(pair => pair.join('=')).join(', ');

  // Identifies a metric in all documents of a program.
  const key = ({name, dimensions, kind, unit}) => JSON.stringify([name, dimensions, kind, unit]);

  function metric(source, axes) {
    const {name, kind} = source;
    const dimensions = source.dimensions ?? [];
    const unit = source.unit ?? null;
    const statistics = source.statistics ??
        (source.kind === 'histogram' || source.kind === 'timer' ? {} : undefined);
    return {
      name,
      dimensions,
      kind,
      unit,
      times: axes[source.times] ?? [],
      lines: statistics ?
          Object.fromEntries(Object.entries(statistics).map(([k, v]) => [k, numbers(v)])) :
          {value: numbers(source.values)},
      key: key({name, dimensions, kind, unit}),
    };
  }

  function timeline(source) {
    const {name} = source;
    const dimensions = source.dimensions ?? [];
    const clock = source.clock ?? 'wall';
    return {
      name,
      dimensions,
      kind: 'timeline',
      unit: null,
      clock,
      lanes: source.lanes.map(lane => ({id: String(lane.id), ranges: ranges(lane.ranges)})),
      key: key({name, dimensions, kind: `timeline ${clock}`}),
    };
  }

  // The model: a document with typed defaults, and every metric with its own times.
  function read(document) {
    const axes = document.times ?? [];
    return {
      title: document.title ?? 'vekmetrics',
      sources: document.sources ?? [],
      pass: document.pass ?? 0,
      start: document.start ?? '',
      whole: document.whole ?? false,  // it replaces what came before
      unread: document.unread ?? {count: 0, first: []},
      passes: axes[document.passes ?? 0] ?? [],
      restarts: document.restarts ?? [],
      metrics: (document.metrics ?? []).map(source => metric(source, axes)),
      timelines: (document.timelines ?? []).map(timeline),
    };
  }

  // Metrics that share an array of times go on to share one, so that it is extended once.
  function extender() {
    const extended = new Map();
    return (old, added) => {
      const by = extended.get(old) ?? extended.set(old, new Map()).get(old);
      return by.get(added) ?? by.set(added, old.concat(added)).get(added);
    };
  }

  function appendMetric(old, added, extend) {
    const size = old.times.length;
    const padded = (values = []) => values.concat(Array(size - values.length).fill(NaN));
    const names = new Set([...Object.keys(old.lines), ...Object.keys(added.lines)]);
    const lines = {};
    for (const name of names) {
      const values = added.lines[name] ?? Array(added.times.length).fill(NaN);
      lines[name] = padded(old.lines[name]).concat(values);
    }
    return {...added, times: extend(old.times, added.times), lines};
  }

  function appendTimeline(old, added) {
    const lanes = new Map(old.lanes.map(lane => [lane.id, lane]));
    for (const {id, ranges} of added.lanes) {
      const all = (lanes.get(id)?.ranges ?? []).concat(ranges).sort((a, b) => a[0] - b[0]);
      lanes.set(id, {id, ranges: all.slice(-KEPT_RANGES)});
    }
    return {...added, lanes: [...lanes.values()]};
  }

  function appendAll(old, added, append) {
    const all = new Map(old.map(metric => [metric.key, metric]));
    for (const metric of added) {
      const known = all.get(metric.key);
      all.set(metric.key, known ? append(known, metric) : metric);
    }
    return [...all.values()];
  }

  // Drops what is before the first pass that is kept. Shared arrays of times stay shared.
  function trim(model) {
    if (model.passes.length <= KEPT_PASSES) {
      return model;
    }
    const first = model.passes.at(-KEPT_PASSES);
    const trimmed = new Map();
    const since = times => trimmed.get(times) ??
      trimmed.set(times, times.filter(time => time >= first)).get(times);
    const trimMetric = metric => {
      const times = since(metric.times);
      const dropped = metric.times.length - times.length;
      const lines = Object.entries(metric.lines).map(([k, values]) => [k, values.slice(dropped)]);
      return {...metric, times, lines: Object.fromEntries(lines)};
    };
    const trimLane = lane => {
      const ranges = lane.ranges.filter(([, end]) => end >= first);
      return ranges.length < lane.ranges.length ? {id: lane.id, ranges} : lane;
    };
    const trimTimeline = timeline => timeline.clock !== 'wall' ? timeline :
      {...timeline, lanes: timeline.lanes.map(trimLane).filter(({ranges}) => ranges.length)};
    return {
      ...model,
      passes: since(model.passes),
      restarts: since(model.restarts),
      metrics: model.metrics.map(trimMetric).filter(({times}) => times.length),
      timelines: model.timelines.map(trimTimeline).filter(({lanes}) => lanes.length),
    };
  }

  // Returns a model with the passes of a later one behind its own. If the program was restarted
  // in between, the later one has no pass of the first. If the clock was set back, the later one is
  // all that is left: times ascend.
  function append(model, later) {
    if (later.passes[0] < model.passes.at(-1)) {
      return later;
    }
    const extend = extender();
    const restarted = later.start !== model.start && later.passes.length > 0;
    return trim({
      ...later,
      passes: extend(model.passes, later.passes),
      restarts: [...new Set([...model.restarts, ...(restarted ? [later.passes[0]] : []),
        ...later.restarts])],
      metrics: appendAll(model.metrics, later.metrics, (a, b) => appendMetric(a, b, extend)),
      timelines: appendAll(model.timelines, later.timelines, appendTimeline),
    });
  }

  // The first and last time of all that shares a clock; null if there is none.
  function span(model, clock) {
    let from = Infinity;
    let to = -Infinity;
    const include = (a, b) => {
      from = Math.min(from, a);
      to = Math.max(to, b);
    };
    const axes = clock === 'wall' ?
        new Set([model.passes, ...model.metrics.map(metric => metric.times)]) : [];
    for (const times of axes) {
      if (times.length) {
        include(times[0], times.at(-1));
      }
    }
    for (const timeline of model.timelines.filter(timeline => timeline.clock === clock)) {
      for (const {ranges} of timeline.lanes) {
        ranges.forEach(([start, end]) => include(start, end));
      }
    }
    if (from > to) {
      return null;
    }
    return from < to ? [from, to] : [from - 0.5, to + 0.5];
  }

  window.vek = {...window.vek, data: {append, label, read, span}};
}
