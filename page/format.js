// Numbers, units and times as text, and the ticks of the time axis.
'use strict';
{
  const UNITS = {
    Seconds: [1, 's'], Milliseconds: [1e-3, 's'], Microseconds: [1e-6, 's'],
    Bytes: [1, 'B'], Kilobytes: [1e3, 'B'], Megabytes: [1e6, 'B'], Gigabytes: [1e9, 'B'],
    Terabytes: [1e12, 'B'],
    Bits: [1, 'bit'], Kilobits: [1e3, 'bit'], Megabits: [1e6, 'bit'], Gigabits: [1e9, 'bit'],
    Terabits: [1e12, 'bit'],
    Percent: [1, '%'], Count: [1, ''],
  };
  const LARGE = [[1e15, 'P'], [1e12, 'T'], [1e9, 'G'], [1e6, 'M'], [1e3, 'k'], [1, '']];
  const SMALL = [[1, ''], [1e-3, 'm'], [1e-6, 'µ'], [1e-9, 'n']];
  const TIMES = [[172800, 86400, 'd'], [7200, 3600, 'h'], [120, 60, 'min']];
  const SPACE = '\u202f';  // narrow, and never broken

  // Up to four digits, without trailing zeros.
  function digits(value) {
    const size = Math.abs(value);
    if (size >= 1e4 || (size < 1e-4 && size > 0)) {
      return value.toExponential(2).replace('e+', 'e');
    }
    return String(Number(value.toPrecision(size >= 1000 ? 4 : 3)));
  }

  function split(unit) {
    const name = unit ?? '';
    const per = name.endsWith('/Second') ? '/s' : '';
    const base = per ? name.slice(0, -'/Second'.length) : name;
    const [factor, symbol] = Object.hasOwn(UNITS, base) ? UNITS[base] : [1, base];
    return {factor, symbol, per};
  }

  function prefixed(value, symbol) {
    const size = Math.abs(value);
    if (symbol === '%' || size === 0) {
      return [value, ''];
    }
    const steps = symbol === 's' && size < 1 ? SMALL : symbol === 's' ? SMALL.slice(0, 1) : LARGE;
    // 999.95 shows as 1000, so it takes the next prefix.
    const [step, prefix] = steps.find(([step]) => size >= step * 0.9995) ??
        (symbol === 's' ? steps.at(-1) : [1, '']);
    return [value / step, prefix];
  }

  // A value for people: "12.3 kB/s".
  function scaled(value, unit) {
    if (Number.isNaN(value)) {
      return '–';
    }
    const {factor, symbol, per} = split(unit);
    if (!Number.isFinite(value)) {
      return value > 0 ? '∞' : '−∞';
    }
    const base = value * factor;
    const long = symbol === 's' && !per && TIMES.find(([least]) => Math.abs(base) >= least);
    const [number, prefix] = long ? [base / long[1], ''] : prefixed(base, symbol);
    const name = (prefix + (long ? long[2] : symbol)) + per;
    return digits(number).replace('-', '−') + (name ? SPACE + name : '');
  }

  // A value to the last digit, in its own unit: "12345.678 Bytes/Second".
  function exact(value, unit) {
    const number = Number.isFinite(value) ? String(value) : scaled(value, null);
    return unit && unit !== 'Count' ? `${number} ${unit}` : number;
  }

  const two = number => String(number).padStart(2, '0');
  const clock = date => `${two(date.getHours())}:${two(date.getMinutes())}`;
  const day = date => `${date.getFullYear()}-${two(date.getMonth() + 1)}-${two(date.getDate())}`;

  // Parts of a second, at most to the microsecond: ".25".
  function fraction(time, places = 6) {
    const part = Math.floor((time - Math.floor(time)) * 1e6 + 0.5);
    return part ? `.${String(Math.min(part, 999999)).padStart(6, '0').slice(0, places)}`
      .replace(/\.?0*$/, '') : '';
  }

  function ofDay(time, places) {
    const date = new Date(Math.floor(time) * 1000);
    return `${clock(date)}:${two(date.getSeconds())}${fraction(time, places)}`;
  }

  // Seconds since the epoch, in the zone of whoever looks: "2023-11-14 22:14:20.25".
  const moment = time => `${day(new Date(Math.floor(time) * 1000))} ${ofDay(time)}`;

  function span(from, to) {
    const sameDay = day(new Date(from * 1000)) === day(new Date(to * 1000));
    return `${moment(from)} – ${sameDay ? ofDay(to) : moment(to)}`;
  }

  const duration = seconds => scaled(seconds, 'Seconds');

  const percent = share => `${digits(share * 100)}${SPACE}%`;

  const STEPS = [1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200, 10800, 21600, 43200,
    86400, 172800, 604800, 1209600, 2592000, 7776000, 31536000];

  function stepFor(least) {
    const below = 10 ** Math.floor(Math.log10(least));
    return least < 1 ? [1, 2, 5, 10].map(n => n * below).find(step => step >= least * 0.999) :
      STEPS.find(step => step >= least) ?? Math.ceil(least / 31536000) * 31536000;
  }

  // Steps of the wall clock begin at the viewer's midnight; on the days on which clocks change,
  // they keep the offset of the first. Its labels end at the microsecond.
  function ticks(from, to, width, wall) {
    const step = Math.max(wall ? 1e-6 : 0, stepFor((to - from) / Math.max(2, width / 90)));
    const offset = wall ? new Date(from * 1000).getTimezoneOffset() * 60 : from;
    const first = Math.ceil((from - offset) / step);
    const last = Math.floor((to - offset) / step);
    const found = [];
    for (let i = 0; i <= last - first; i++) {  // first may be too large to be counted up
      const time = (first + i) * step + offset;
      found.push({time, label: wall ? tickLabel(time, step) : `+${duration((first + i) * step)}`});
    }
    return found;
  }

  function tickLabel(time, step) {
    const date = new Date(Math.round(time * 1000));
    if (step >= 86400 || (step >= 3600 && clock(date) === '00:00')) {
      return day(date);
    }
    if (step >= 60) {
      return clock(date);
    }
    return ofDay(time + 1e-7, step < 1 ? Math.ceil(-Math.log10(step) - 1e-9) : 0);
  }

  window.vek = {...window.vek,
    format: {duration, exact, moment, ofDay, percent, scaled, span, ticks}};
}
