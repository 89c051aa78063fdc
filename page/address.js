// The address keeps what the page shows: the zoom, the filter and the order.
'use strict';
{
  const NUMBERS = ['from', 'to', 'otherFrom', 'otherTo'];
  const ORDERS = ['name', 'change', 'size'];

  // Takes only what is valid of an address that somebody may have typed.
  function read() {
    const words = new URLSearchParams(location.hash.slice(1));
    const number = name => {
      const value = parseFloat(words.get(name));
      return Number.isFinite(value) ? value : null;
    };
    const [from, to, otherFrom, otherTo] = NUMBERS.map(number);
    const window = (a, b) => a !== null && b !== null && a <= b ? [a, b] : null;
    return {
      wall: window(from, to),
      other: window(otherFrom, otherTo),
      filter: words.get('filter') ?? '',
      sort: ORDERS.includes(words.get('sort')) ? words.get('sort') : 'name',
    };
  }

  // A zoom makes an entry in the history, so that the browser's button leads back.
  function write({wall, other, filter, sort}, isZoom) {
    const words = new URLSearchParams();
    [...(wall ?? [null, null]), ...(other ?? [null, null])].forEach((time, i) => {
      if (time !== null) {
        words.set(NUMBERS[i], String(time));
      }
    });
    if (filter) {
      words.set('filter', filter);
    }
    if (sort !== 'name') {
      words.set('sort', sort);
    }
    const hash = `#${words}`;
    if (hash !== (location.hash || '#')) {
      history[isZoom ? 'pushState' : 'replaceState'](null, '', hash);
    }
  }

  window.vek = {...window.vek, address: {read, write}};
}
