// Rows that share a time axis, a cursor and a zoom.
'use strict';
{
  const LEAST_DRAG = 4;  // pixels; less is a click

  // The length of the shortest window: some 50 times the distance of the doubles there.
  const leastLength = time => Math.max(1e-9, Math.abs(time) * 1e-14);

  const make = (name, className, text = '') => {
    const element = document.createElement(name);
    element.className = className;
    element.textContent = text;
    return element;
  };

  const add = (parent, ...how) => parent.appendChild(make(...how));

  class Panel {
    whole = null;      // the first and last time of the data
    zoom = null;       // the part that is shown, or null for all of it
    cursor = null;     // a time
    #ticks;
    #overlay;
    #line = make('i', 'cursor');
    #tag = make('span', 'tag');
    #selection = make('i', 'selection');
    #restarts = [];

    // onZoom(window) and onCursor(time) are called with null for all and for none.
    constructor(element, isWall, onZoom, onCursor) {
      this.element = element;
      this.isWall = isWall;
      this.onZoom = onZoom;
      this.onCursor = onCursor;
      this.#ticks = element.querySelector('.ticks');
      this.#overlay = element.querySelector('.overlay');
      this.#overlay.append(this.#line, this.#selection);
      this.#line.hidden = this.#tag.hidden = this.#selection.hidden = true;
      element.addEventListener('pointermove', event => this.#onMove(event));
      element.addEventListener('pointerleave', () => this.setCursor(null));
      element.addEventListener('pointerdown', event => this.#onPress(event));
      element.addEventListener('dblclick', event => {
        if (this.#isPlot(event)) {
          this.onZoom(null);
        }
      });
    }

    // What is shown: shorter ranges are in the middle of the shortest window.
    get window() {
      const [from, to] = this.zoom ?? this.whole ?? [0, 1];
      const more = Math.max(0, leastLength(to) - (to - from)) / 2;
      return [from - more, to + more];
    }

    get width() {
      return Math.max(1, this.#ticks.clientWidth);
    }

    // The ticks of what is shown.
    get ticks() {
      return vek.format.ticks(...this.window, this.width, this.isWall);
    }

    // The text for a time: of another clock, only distances mean something.
    describe(time) {
      return this.isWall ? vek.format.moment(time) :
        `+${vek.format.duration(time - this.whole[0])}`;
    }

    // A restart ends what was before it, so it is drawn at the first pass after it.
    paint(restarts) {
      this.element.hidden = !this.whole;
      if (!this.whole) {
        return;
      }
      const ticks = this.ticks.map(({time, label}) => {
        const tick = make('span', 'tick', label);
        tick.style.left = `${this.#x(time)}px`;
        return tick;
      });
      this.#ticks.replaceChildren(...ticks, this.#tag);
      const last = ticks.at(-1);
      if (last && last.offsetLeft + last.offsetWidth > this.width) {
        last.textContent = '';
      }
      this.#restarts.forEach(line => line.remove());
      const [from, to] = this.window;
      this.#restarts = restarts.filter(time => time >= from && time <= to).map(time => {
        const line = make('i', 'restart');
        line.title = `restart ${this.describe(time)}`;
        line.style.left = `${this.#left() + this.#x(time)}px`;
        return line;
      });
      this.#overlay.append(...this.#restarts);
      this.setCursor(this.cursor);
    }

    setCursor(time) {
      const [from, to] = this.window;
      this.cursor = time === null ? null : Math.max(from, Math.min(to, time));
      this.#line.hidden = this.#tag.hidden = this.cursor === null;
      if (this.cursor !== null) {
        const x = this.#x(this.cursor);
        this.#line.style.left = `${this.#left() + x}px`;
        this.#tag.textContent = this.describe(this.cursor);
        this.#tag.style.left = `${x}px`;
        this.#tag.style.transform = `translateX(${-100 * x / this.width}%)`;
      }
      this.onCursor(this.cursor);
    }

    // Zooms by a factor, at the cursor or the middle.
    zoomBy(factor) {
      const [from, to] = this.window;
      const at = this.cursor ?? (from + to) / 2;
      this.#zoomTo(at - (at - from) * factor, at + (to - at) * factor);
    }

    // Moves the zoomed part by a share of its length.
    moveBy(share) {
      const [from, to] = this.window;
      const step = Math.max(this.whole[0] - from,
        Math.min(this.whole[1] - to, share * (to - from)));
      this.#zoomTo(from + step, to + step);
    }

    #zoomTo(from, to) {
      const window = [Math.max(from, this.whole[0]), Math.min(to, this.whole[1])];
      const isAll = window[0] === this.whole[0] && window[1] === this.whole[1];
      if (isAll || window[1] - window[0] > leastLength(window[1])) {
        this.onZoom(isAll ? null : window);
      }
    }

    #left() {
      return this.#ticks.getBoundingClientRect().left - this.element.getBoundingClientRect().left;
    }

    #x(time) {
      const [from, to] = this.window;
      return (time - from) / (to - from) * this.width;
    }

    #time(event) {
      const [from, to] = this.window;
      const x = event.clientX - this.#ticks.getBoundingClientRect().left;
      return from + Math.max(0, Math.min(1, x / this.width)) * (to - from);
    }

    #isPlot(event) {
      return event.target.closest('.plot, .ticks') !== null;
    }

    #onMove(event) {
      if (this.#isPlot(event)) {
        this.setCursor(this.#time(event));
      }
    }

    // The pointer is captured, so that a drag may leave the panel.
    #onPress(event) {
      if (!this.#isPlot(event) || event.button !== 0) {
        return;
      }
      const first = {x: event.clientX, time: this.#time(event)};
      const moves = new AbortController();
      const select = ({clientX}) => Math.abs(clientX - first.x) >= LEAST_DRAG;
      const listen = (name, action) =>
        this.element.addEventListener(name, action, {signal: moves.signal});
      listen('pointermove', move => {
        this.element.setPointerCapture(event.pointerId);
        const [from, to] = [first.time, this.#time(move)].sort((a, b) => a - b);
        this.#selection.hidden = !select(move);
        this.#selection.style.left = `${this.#left() + this.#x(from)}px`;
        this.#selection.style.width = `${this.#x(to) - this.#x(from)}px`;
        this.setCursor(this.#time(move));
      });
      const end = () => {
        moves.abort();
        this.#selection.hidden = true;
      };
      listen('pointercancel', end);
      listen('pointerup', up => {
        end();
        if (select(up)) {
          this.#zoomTo(...[first.time, this.#time(up)].sort((a, b) => a - b));
        }
      });
      event.preventDefault();
    }
  }

  window.vek = {...window.vek, Panel, add, make};
}
