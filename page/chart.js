// Draws curves with dygraphs, and lanes, on canvases.
'use strict';
{
  const style = name => getComputedStyle(document.documentElement).getPropertyValue(name).trim();

  // The space for the labels of a value axis; the lanes and the time axis leave it, too.
  const axisWidth = () => parseFloat(style('--axis'));

  const LINES = {
    min: {color: '--thin', width: 1},
    max: {color: '--thin', width: 1},
    p99: {color: '--accent', width: 1, dash: [2, 2]},
    p10: {color: '--band', width: 1},
    p90: {color: '--band', width: 1},
    avg: {color: '--average', width: 1.25, dash: [5, 3]},
  };
  const MAIN = {color: '--accent', width: 1.5};

  const TICK = 3;

  // dygraphs reads its labels as HTML, and a unit may be any text.
  const escape = text => text.replace(/[&<>]/g, sign => `&#${sign.charCodeAt()};`);

  const drawable = value => Number.isFinite(value) ? value : null;

  // Fills between two lines of the drawing, wherever both are known.
  function fillBand(context, dygraph, {times, lines, band, range}) {
    const [low, high] = band.map(name => lines[name]);
    const y = value => dygraph.toDomYCoord(Math.max(range[0], Math.min(range[1], value)));
    context.fillStyle = style('--band');
    for (let from = 0, to; from < times.length; from = to + 1) {
      for (to = from; to < times.length && !Number.isNaN(low[to] + high[to]); to++);
      context.beginPath();
      for (let i = from; i < to; i++) {
        context.lineTo(dygraph.toDomXCoord(times[i]), y(high[i]));
      }
      for (let i = to - 1; i >= from; i--) {
        context.lineTo(dygraph.toDomXCoord(times[i]), y(low[i]));
      }
      context.fill();
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
    const sparse = times.length < element.clientWidth / 12;
    const series = names.map(name => {
      const {color, width, dash} = name === main ? MAIN : LINES[name] ?? MAIN;
      return [name, {
        color: style(color),
        strokeWidth: width,
        strokePattern: dash ?? null,
        drawPoints: sparse && name === main,
        fillGraph: name === main && !band && !logarithmic,
      }];
    });
    return new Dygraph(element, rows.length ? rows : [[from, ...names.map(() => null)]], {
      labels: ['time', ...names],
      series: Object.fromEntries(series),
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
      axisTickSize: TICK,
      axisLineColor: 'transparent',
      gridLineColor: style('--grid'),
      fillAlpha: 0.12,
      highlightCircleSize: 0,
      interactionModel: {},
      legend: 'never',
      pointSize: 2,
      rightGap: 0,
      showLabelsOnHighlight: false,
      underlayCallback: (context, area, dygraph) => {
        if (band) {
          fillBand(context, dygraph, drawing);
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
      context.fillStyle = style('--accent');
      for (const [pixel, share] of shares) {
        const filled = Math.max(1, share * bar);
        context.fillRect(pixel, top + bar - filled, 1, filled);
      }
      context.fillStyle = style('--bar');
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
