// The rows of the page: a chart for each metric, and a lane for each id of a timeline. What a row
// shows is computed when it is painted, so rows out of view cost nothing.
'use strict';
{
  const {format, add, make} = vek;

  const spell = value => Number.isNaN(value) ? null :
    value === Infinity ? 'inf' : value === -Infinity ? '-inf' : value;

  // What all rows have: the names at the left and the plot at the right.
  function build(row, {name, dimensions, kind, unit}) {
    row.element = make('div', `row ${kind}`);
    row.label = add(row.element, 'div', 'label');
    const head = add(row.label, 'div', 'head');
    add(head, 'h3', 'name', name);
    const chips = add(head, 'ul', 'chips');
    for (const pair of dimensions) {
      add(chips, 'li', '', pair.join('='));
    }
    row.plot = add(row.element, 'div', 'plot');
    row.words = [name, ...dimensions.map(pair => pair.join('=')), kind, unit ?? '']
      .join(' ').toLowerCase();
  }

  const SHOWN = {value: '', rate: '', p50: 'median', avg: 'average', samples: 'samples'};

  class MetricRow {
    #total = false;
    #logarithmic = false;
    #curve = null;
    #dygraph = null;

    // onChange(row) is called when a button changes what is drawn.
    constructor(metric, restarts, panel, onChange) {
      this.panel = panel;
      build(this, metric);
      this.parts = [this];
      this.value = add(this.label, 'p', 'value');
      const buttons = add(this.label, 'p', 'buttons');
      this.figures = add(this.label, 'p', 'figures');
      this.plot.setAttribute('role', 'img');
      const toggle = (text, title, flip) => {
        const button = add(buttons, 'button', '', text);
        button.type = 'button';
        button.title = title;
        const show = () => button.setAttribute('aria-pressed', String(flip(false)));
        button.addEventListener('click', () => {
          flip(true);
          show();
          onChange(this);
        });
        show();
      };
      if (metric.kind === 'counter') {
        toggle('total', 'Show the total instead of its rate', isClick => {
          this.#curve = null;
          return this.#total = this.#total !== isClick;
        });
      }
      toggle('log', 'Use a logarithmic scale', isClick =>
        this.#logarithmic = this.#logarithmic !== isClick);
      this.update(metric, restarts);
    }

    update(metric, restarts) {
      this.metric = metric;
      this.restarts = restarts;
      this.constant = vek.curves.constant(metric);
      this.#curve = null;
    }

    get curve() {
      return this.#curve ??= vek.curves.curve(this.metric, this.restarts, this.#total);
    }

    get drawing() {
      return vek.curves.drawing(this.curve, this.panel.window, this.panel.width,
        this.#logarithmic);
    }

    get measure() {
      return vek.curves.measure(this.curve);
    }

    paint() {
      this.clear();
      const {window, ticks} = this.panel;
      this.#dygraph = vek.chart.drawCurve(this.plot, this.drawing, window, ticks);
      this.showAt(this.panel.cursor);
    }

    clear() {
      this.#dygraph?.destroy();
      this.#dygraph = null;
    }

    // Shows the exact values nearest to a time; without one, the last values for people.
    showAt(time) {
      const {times, lines, main, unit} = this.curve;
      const values = lines[main] ?? [];
      let i = values.length - 1;
      if (time === null) {
        i = Math.max(0, values.findLastIndex(value => !Number.isNaN(value)));
      } else {
        i = vek.curves.indexAt(times, time);
        i -= i === times.length || (i > 0 && time - times[i - 1] < times[i] - time) ? 1 : 0;
      }
      const value = values[i] ?? NaN;
      this.value.textContent = format.scaled(value, unit);
      const show = time === null ? format.scaled : format.exact;
      const figures = this.#figuresAt(times[i], lines, i)
        .filter(([name, figure]) => !Number.isNaN(figure) && (time !== null || name !== main))
        .map(([name, figure, of]) => [name, `${SHOWN[name] ?? name} ${show(figure, of)}`.trim()]);
      if (time !== null && times.length) {
        figures.push(['at', Number.isNaN(value) ? `no value at ${format.ofDay(times[i])}` :
          `at ${format.ofDay(times[i])}`]);
      }
      this.figures.replaceChildren();
      for (const [name, text] of figures) {
        add(this.figures, 'span', name === main ? 'main' : name, text);
        this.figures.append(' ');
      }
      if (time === null) {
        this.plot.setAttribute('aria-label', `${this.metric.name}: ${this.value.textContent} ` +
          this.figures.textContent);
      }
    }

    // All that is known at a point of the curve, as name, value and unit.
    #figuresAt(time, lines, i) {
      const {metric, curve: {unit}} = this;
      const found = Object.entries(lines).map(([name, values]) => [name, values[i], unit]);
      const at = vek.curves.indexAt(metric.times, time);
      if (metric.times[at] === time) {
        if (metric.kind === 'counter' && !this.#total) {
          found.push(['total', metric.lines.value[at], metric.unit]);
        } else if (metric.lines.samples) {
          found.push(['samples', metric.lines.samples[at], null]);
        }
      }
      return found;
    }

    // What is drawn, as data.
    get series() {
      const {name, dimensions, kind} = this.metric;
      const {unit, times, lines, main, band, range, marks, logarithmic} = this.drawing;
      const spelled = Object.entries(lines).map(([line, values]) => [line, values.map(spell)]);
      const known = Object.fromEntries(spelled);
      return {
        name, dimensions, kind, unit, times, values: known[main] ?? [], line: main ?? null,
        lines: known, band: band ?? null, range, logarithmic, marks, constant: this.constant,
      };
    }
  }

  // A lane of a timeline.
  class LaneRow {
    constructor(lane, panel) {
      this.panel = panel;
      this.element = make('div', 'row lane');
      this.label = add(this.element, 'div', 'label');
      add(this.label, 'span', 'id', lane.id);
      this.busy = add(this.label, 'span', 'busy');
      this.figures = add(this.label, 'span', 'figures');
      this.plot = add(this.element, 'div', 'plot');
      this.canvas = add(this.plot, 'canvas', '');
      this.canvas.setAttribute('role', 'img');
      this.update(lane);
    }

    update(lane) {
      this.lane = lane;
      lane.sublanes ??= vek.lanes.stack(lane.ranges);
      this.canvas.style.height = `${vek.chart.laneHeight(lane.sublanes.length)}px`;
    }

    get drawing() {
      return vek.lanes.drawing(this.lane, this.panel.window, this.panel.width);
    }

    paint() {
      const {drawing} = this;
      this.busy.textContent = `busy ${format.percent(drawing.busy)}`;
      this.canvas.setAttribute('aria-label', `${this.lane.id}: ${this.busy.textContent}`);
      vek.chart.drawLane(this.canvas, drawing, this.panel.window);
      this.showAt(this.panel.cursor);
    }

    clear() {
      this.canvas.width = 0;
    }

    // Tells the ranges at a time, or nothing.
    showAt(time) {
      const at = time === null ? [] :
        this.lane.ranges.filter(([start, end]) => start <= time && time <= end);
      this.figures.textContent = at.length === 0 ? '' :
        `${describe(at[0], this.panel)}${at.length > 1 ? ` and ${at.length - 1} more` : ''}`;
    }
  }

  const describe = ([start, end], panel) => panel.isWall ?
    `${format.duration(end - start)}, ${format.ofDay(start)} – ${format.ofDay(end)}` :
    `${format.duration(end - start)} at ${panel.describe(start)}`;

  const collator = new Intl.Collator('en', {numeric: true});

  // The head of a timeline: its longest ranges, above its lanes.
  class TimelineRow {
    #lanes = new Map();
    constant = false;

    constructor(timeline, panel) {
      this.panel = panel;
      build(this, timeline);
      this.plot.className = 'longest';
      const details = add(this.plot, 'details', '');
      this.summary = add(details, 'summary', '');
      this.list = add(details, 'ol', '');
      this.update(timeline);
    }

    update(timeline) {
      this.metric = timeline;
      const known = this.#lanes;
      this.#lanes = new Map();
      for (const lane of timeline.lanes) {
        const row = known.get(lane.id);
        row?.update(lane);
        this.#lanes.set(lane.id, row ?? new LaneRow(lane, this.panel));
      }
      const rows = [...this.#lanes.values()];
      this.parts = [this, ...rows.sort((a, b) => collator.compare(a.lane.id, b.lane.id))];
    }

    get longest() {
      return vek.lanes.longest(this.metric.lanes, this.panel.window);
    }

    get measure() {
      const drawings = this.parts.slice(1).map(row => row.drawing.busy);
      return {change: 0, size: drawings.reduce((sum, busy) => sum + busy, 0)};
    }

    paint() {
      const {longest} = this;
      const tell = ({id, start, end}) => `${id}: ${describe([start, end], this.panel)}`;
      this.summary.textContent = longest.length ? `longest: ${tell(longest[0])}` : 'no ranges here';
      this.list.replaceChildren();
      for (const range of longest) {
        const button = add(add(this.list, 'li', ''), 'button', '', tell(range));
        button.type = 'button';
        button.title = 'Zoom to this range';
        button.addEventListener('click', () => this.panel.onZoom([range.start, range.end]));
      }
    }

    clear() {}

    showAt() {}

    get series() {
      const {name, dimensions, kind, unit, clock} = this.metric;
      const lanes = this.parts.slice(1).map(row => row.drawing);
      return {name, dimensions, kind, unit, clock, lanes, longest: this.longest, constant: false};
    }
  }

  window.vek = {...window.vek, MetricRow, TimelineRow};
}
