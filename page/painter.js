// Draws the rows that are in view, a few at a time, so that the page keeps scrolling.
'use strict';
{
  // The milliseconds of each frame; the browser needs more to show what was painted.
  const FRAME_BUDGET = 5;

  // A row has an element, paint() and clear().
  class Painter {
    #rows = new Map();      // by element
    #unseen = new Set();    // not yet known whether they are in view
    #visible = new Set();
    #waiting = new Set();   // in view, and to be painted
    #settled = [];          // who waits for all of that
    #frame = 0;
    #observer = new IntersectionObserver(entries => this.#onSeen(entries), {rootMargin: '150px'});

    get visible() {
      return [...this.#visible];
    }

    watch(row) {
      this.#rows.set(row.element, row);
      this.#unseen.add(row);
      this.#observer.observe(row.element);
    }

    unwatch(row) {
      this.#observer.unobserve(row.element);
      this.#rows.delete(row.element);
      this.#hide(row);
      this.#unseen.delete(row);
    }

    // Paints a row again, or all of them, once they are in view.
    repaint(row) {
      for (const each of row ? [row] : this.#visible) {
        if (this.#visible.has(each)) {
          this.#waiting.add(each);
        }
      }
      this.#schedule();
    }

    // Paints all rows at once: what is printed is taken before the next frame.
    paintAll() {
      for (const row of this.#rows.values()) {
        if (row.element.checkVisibility()) {
          this.#paintRow(row);
        }
      }
    }

    // Clears the rows that are not in view.
    clearUnseen() {
      for (const row of this.#rows.values()) {
        if (!this.#visible.has(row)) {
          row.clear();
        }
      }
    }

    // Resolves when everything in view is painted.
    settled() {
      this.#schedule();
      return new Promise(resolve => this.#settled.push(resolve));
    }

    #hide(row) {
      this.#visible.delete(row);
      this.#waiting.delete(row);
      row.clear();
    }

    #onSeen(entries) {
      for (const {target, isIntersecting} of entries) {
        const row = this.#rows.get(target);
        if (!row) {
          continue;
        }
        this.#unseen.delete(row);
        if (!isIntersecting) {
          this.#hide(row);
        } else if (!this.#visible.has(row)) {
          this.#visible.add(row);
          this.#waiting.add(row);
        }
      }
      this.#schedule();
    }

    #schedule() {
      this.#frame ||= requestAnimationFrame(() => this.#paint());
    }

    #paintRow(row) {
      try {
        row.paint();
      } catch (error) {
        reportError(error);  // and the other rows are painted
      }
    }

    #paint() {
      this.#frame = 0;
      const end = performance.now() + FRAME_BUDGET;
      for (const row of this.#waiting) {
        this.#waiting.delete(row);
        this.#paintRow(row);
        if (performance.now() > end) {
          break;
        }
      }
      if (this.#waiting.size) {
        this.#schedule();
      } else if (!this.#unseen.size) {
        this.#settled.splice(0).forEach(resolve => resolve());
      }
    }
  }

  window.vek = {...window.vek, Painter};
}
