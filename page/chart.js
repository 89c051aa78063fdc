// Draws curves with dygraphs, and lanes, on canvases.
'use strict';
{
  // The properties of page.css, which change with the colour scheme.
  const styles = new Map();

  function style(name) {
    if (!styles.size) {
      const root = getComputedStyle(document.documentElement);
      for (const property of PROPERTIES) {
        styles.set(property, root.getPropertyValue(property).trim());
      }
    }
    return styles.get(name);
  }

  const PROPERTIES = ['--accent', '--average', '--axis', '--band', '--bar', '--grid', '--mark',
    '--thin'];

  matchMedia('(prefers-color-scheme: dark)').addEventListener('change', () => styles.clear());

  // The space for the labels of a value axis; the lanes and the time axis leave it, too.
  const axisWidth = () => parseFloat(style('--axis'));

  // Its legend sets styles that a content security policy forbids.
  Dygraph.PLUGINS = [Dygraph.Plugins.Axes, Dygraph.Plugins.Grid];

  const TICK = 3;

  // dygraphs reads its labels as HTML, and a unit may be any text.
  const escape = text => text.replace(/[&<>]/g, sign => `&#${sign.charCodeAt()};`);

  const drawable = value => Number.isFinite(value) ? value : null;

  const LINES = {
    min: {color: '--thin', width: 1},
    max: {color: '--thin', width: 1},
    p99: {color: '--accent', width: 1, dash: [2, 2]},
    p10: {color: '--band', width: 1},
    p90: {color: '--band', width: 1},
    avg: {color: '--average', width: 1.25, dash: [5, 3]},
  };
  const MAIN = {color: '--accent', width: 1.5};

  // Calls draw(from, to) for each run of known points.
  function eachRun(count, isKnown, draw) {
    for (let from = 0, to; from < count; from = to + 1) {
      for (to = from; to < count && isKnown(to); to++);
      if (to > from) {
        draw(from, to);
      }
    }
  }

  // Where there is more than a point for each pixel, columns of pixels are drawn: paths of
  // thousands of points take a hundred times as long. Returns their places; neighbours join.
  function columns(from, to, x, top, bottom) {
    const found = [];
    let last = null;
    for (let i = from; i < to; i++) {
      const pixel = Math.floor(x(i));
      if (found.at(-1)?.pixel !== pixel) {
        found.push({pixel, top: last ?? top(i), bottom: last ?? bottom(i)});
      }
      const column = found.at(-1);
      column.top = Math.min(column.top, top(i));
      column.bottom = Math.max(column.bottom, bottom(i));
      last = bottom(i);
    }
    return found;
  }

  // Fills between two lines of the drawing, wherever both are known.
  function fillBand(context, area, dygraph, {times, lines, band, range}) {
    const [low, high] = band.map(name => lines[name]);
    const y = value => dygraph.toDomYCoord(Math.max(range[0], Math.min(range[1], value)));
    const x = i => dygraph.toDomXCoord(times[i]);
    const [top, bottom] = [i => y(high[i]), i => y(low[i])];
    context.fillStyle = style('--band');
    eachRun(times.length, i => !Number.isNaN(low[i] + high[i]), (from, to) => {
      if (times.length > area.w) {
        for (const column of columns(from, to, x, top, bottom)) {
          context.fillRect(column.pixel, column.top, 1, column.bottom - column.top);
        }
        return;
      }
      context.beginPath();
      for (let i = from; i < to; i++) {
        context.lineTo(x(i), top(i));
      }
      for (let i = to - 1; i >= from; i--) {
        context.lineTo(x(i), bottom(i));
      }
      context.fill();
    });
  }

  const FILL = 0.12;  // the opacity below a line

  // Draws a line; the space between it and `base` is filled, unless that is null.
  function drawLine(context, area, points, {color, width, dash = []}, base, isSparse) {
    context.strokeStyle = context.fillStyle = style(color);
    context.lineWidth = width;
    context.lineJoin = 'round';
    context.setLineDash(dash);
    const x = i => points[i].canvasx;
    const y = i => points[i].canvasy;
    const draw = points.length > area.w ? drawColumns : drawPath;
    eachRun(points.length, i => Number.isFinite(points[i].yval), (from, to) => {
      draw(context, from, to, x, y, base);
      for (let i = from; i < to && (isSparse || to === from + 1); i++) {
        context.beginPath();
        context.arc(x(i), y(i), 2, 0, 2 * Math.PI);
        context.fill();
      }
    });
    context.setLineDash([]);
  }

  function drawColumns(context, from, to, x, y, base) {
    const found = columns(from, to, x, y, y);
    if (base !== null) {
      context.globalAlpha = FILL;
      for (const {pixel, top, bottom} of found) {
        const edge = Math.abs(base - top) > Math.abs(base - bottom) ? bottom : top;
        context.fillRect(pixel, edge, 1, base - edge);
      }
      context.globalAlpha = 1;
    }
    for (const {pixel, top, bottom} of found) {
      context.fillRect(pixel, top - 0.5, 1, bottom - top + 1);
    }
  }

  function drawPath(context, from, to, x, y, base) {
    const path = new Path2D();
    for (let i = from; i < to; i++) {
      path.lineTo(x(i), y(i));
    }
    context.stroke(path);
    if (base !== null) {
      path.lineTo(x(to - 1), base);
      path.lineTo(x(from), base);
      context.globalAlpha = FILL;
      context.fill(path);
      context.globalAlpha = 1;
    }
  }

  // Triangles at the edges: full ones for infinities, hollow ones for what is beyond the range.
  function drawMarks(context, area, dygraph, marks) {
    context.fillStyle = context.strokeStyle = style('--mark');
    context.lineWidth = 1;
    const drawn = new Set();
    for (const {time, edge, infinite} of marks) {
      const x = Math.round(dygraph.toDomXCoord(time));
      const place = `${x} ${edge} ${infinite}`;
      if (drawn.has(place)) {
        continue;
      }
      drawn.add(place);
      const [tip, back] = edge === 'top' ?
        [area.y + 1, area.y + 7] : [area.y + area.h - 1, area.y + area.h - 7];
      context.beginPath();
      context.moveTo(x - 4, back);
      context.lineTo(x, tip);
      context.lineTo(x + 4, back);
      context.closePath();
      if (infinite) {
        context.fill();
      } else {
        context.stroke();
      }
    }
  }

  // Returns the dygraph that it makes; destroy it before its element is used again.
  function drawCurve(element, drawing, [from, to], ticks) {
    const {times, lines, main, band, unit, range, marks, logarithmic} = drawing;
    const names = Object.keys(lines).filter(name => name !== main).concat(main);
    const rows = times.map((time, i) => [time, ...names.map(name => drawable(lines[name][i]))]);
    const isSparse = times.length < element.clientWidth / 12;
    return new Dygraph(element, rows.length ? rows : [[from, ...names.map(() => null)]], {
      labels: ['time', ...names],
      dateWindow: [from, to],
      valueRange: range,
      logscale: logarithmic,
      axes: {
        x: {
          drawAxis: false,
          ticker: () => ticks.map(({time}) => ({v: time, label: ''})),
        },
        y: {
          axisLabelFormatter: value => escape(vek.format.scaled(value, unit)),
          axisLabelWidth: axisWidth() - 2 * TICK,
          pixelsPerLabel: 22,
        },
      },
      axisLineColor: 'transparent',
      axisTickSize: TICK,
      gridLineColor: style('--grid'),
      highlightCircleSize: 0,
      interactionModel: {},
      plotter: ({drawingContext, dygraph, plotArea, points, setName}) => {
        const isMain = setName === main;
        const zero = Math.max(range[0], Math.min(range[1], 0));
        const base = isMain && !band && !logarithmic ? dygraph.toDomYCoord(zero) : null;
        drawLine(drawingContext, plotArea, points, isMain ? MAIN : LINES[setName] ?? MAIN, base,
          isMain && isSparse);
      },
      rightGap: 0,
      underlayCallback: (context, area, dygraph) => {
        if (band) {
          fillBand(context, area, dygraph, drawing);
        }
        drawMarks(context, area, dygraph, marks);
      },
    });
  }

  // The height of a sub-lane, with the space below it.
  const sublaneHeight = count => Math.max(3, Math.min(14, Math.floor(96 / count)));

  const laneHeight = count => Math.max(1, count) * sublaneHeight(count);

  // The canvas has the width of the lane, without the space for a value axis.
  function drawLane(canvas, {sublanes}, [from, to]) {
    const width = canvas.clientWidth;
    const height = sublaneHeight(sublanes.length);
    const ratio = window.devicePixelRatio || 1;
    canvas.width = Math.round(width * ratio);
    canvas.height = Math.round(laneHeight(sublanes.length) * ratio);
    const context = canvas.getContext('2d');
    context.scale(ratio, ratio);
    const x = time => (Math.max(from, Math.min(to, time)) - from) / (to - from) * width;
    sublanes.forEach(({bars, shares}, i) => {
      const bar = height > 4 ? height - 2 : height - 1;
      const top = i * height;
      context.fillStyle = style('--bar');
      for (const [pixel, share] of shares) {
        const filled = Math.max(1, share * bar);
        context.fillRect(pixel, top + bar - filled, 1, filled);
      }
      for (const [start, end] of bars) {
        context.fillRect(x(start), top, Math.max(1, x(end) - x(start)), bar);
      }
      // The edges tell adjoining bars apart.
      context.fillStyle = style('--accent');
      for (const [start, end] of bars) {
        if (start >= from && x(end) - x(start) > 2) {
          context.fillRect(x(start), top, 1, bar);
        }
      }
    });
  }

  window.vek = {...window.vek, chart: {axisWidth, drawCurve, drawLane, laneHeight}};
}
