// Puts the page together: what it shows of the data is decided here, and drawn by the rows.
'use strict';
{
  const {MetricRow, TimelineRow, Panel, Painter, address, data, format, add} = vek;
  const find = id => document.getElementById(id);

  const painter = new Painter();
  const rows = new Map();  // by the key of the metric
  let view = address.read();
  let model = null;

  const panelFor = name => new Panel(find(name), name === 'wall',
    window => change({[name]: window}, true),
    time => painter.visible.forEach(row => row.panel === panels[name] && row.showAt(time)));
  const panels = {};
  panels.wall = panelFor('wall');
  panels.other = panelFor('other');

  const plural = (count, word) => `${count} ${word}${count === 1 ? '' : 's'}`;

  function showFacts() {
    const {title, sources, passes, restarts, unread} = model;
    document.title = title;
    find('title').textContent = title;
    const facts = [
      [sources.length === 1 ? 'source' : 'sources', sources.join(', ')],
      ['time', panels.wall.whole && passes.length ? format.span(passes[0], passes.at(-1)) : ''],
      ['', plural(passes.length, 'pass').replace('passs', 'passes')],
      ['', plural(model.metrics.length + model.timelines.length, 'metric')],
      ['', restarts.length ? plural(restarts.length, 'restart') : ''],
    ];
    const list = find('facts');
    list.replaceChildren();
    for (const [name, text] of facts.filter(([, text]) => text)) {
      const fact = add(list, 'div', '');
      add(fact, 'dt', '', name);
      add(fact, 'dd', '', text);
    }
    const lines = find('unread');
    lines.hidden = unread.count === 0;
    lines.querySelector('summary').textContent = `${plural(unread.count, 'line')} not read`;
    lines.querySelector('ul').replaceChildren();
    unread.first.forEach(line => add(lines.querySelector('ul'), 'li', '', line));
  }

  // Brings the rows up to date with the model.
  function updateRows() {
    const metrics = [...model.metrics, ...model.timelines];
    const keys = new Set(metrics.map(metric => metric.key));
    for (const key of [...rows.keys()].filter(key => !keys.has(key))) {
      rows.delete(key);
    }
    for (const metric of metrics) {
      const row = rows.get(metric.key);
      if (row) {
        row.update(metric, model.restarts);
      } else if (metric.kind === 'timeline') {
        rows.set(metric.key, new TimelineRow(metric, panels[metric.clock] ?? panels.other));
      } else {
        rows.set(metric.key,
          new MetricRow(metric, model.restarts, panels.wall, row => painter.repaint(row)));
      }
    }
  }

  const matching = () => {
    const words = view.filter.toLowerCase().split(/\s+/);
    return [...rows.values()].filter(row => words.every(word => row.words.includes(word)));
  };

  const collator = new Intl.Collator('en', {numeric: true});

  // Sorts rows within groups of one name, and the groups by their first row.
  function grouped(found) {
    const byName = (a, b) => collator.compare(a.metric.name, b.metric.name) ||
      collator.compare(data.label(a.metric.dimensions), data.label(b.metric.dimensions));
    let order = byName;
    if (view.sort !== 'name') {
      const measures = new Map(found.map(row => [row, row.measure[view.sort]]));
      order = (a, b) => measures.get(b) - measures.get(a) || byName(a, b);
    }
    const groups = new Map();
    for (const row of found.sort(order)) {
      const {name} = row.metric;
      groups.get(name)?.push(row) ?? groups.set(name, [row]);
    }
    return [...groups.values()];
  }

  function fill(element, found) {
    element.replaceChildren();
    for (const group of grouped(found)) {
      const parts = group.flatMap(row => row.parts);
      add(element, 'section', 'group').append(...parts.map(part => part.element));
    }
  }

  let watched = new Set();
  let arranged = '';

  // Puts the rows in place. They keep their places while a program runs, so that nothing moves
  // below the reader's eyes, unless rows are added or begin to change.
  function arrange(isNew) {
    const found = matching();
    const present = JSON.stringify([...rows].map(([key, row]) =>
      [key, row.constant, row.parts.map(({lane}) => lane?.id)]));
    if (!isNew && present === arranged) {
      return;
    }
    arranged = present;
    const constant = found.filter(row => row.constant);
    for (const [name, panel] of Object.entries(panels)) {
      fill(find(name).querySelector('.rows'),
        found.filter(row => row.panel === panel && !row.constant));
    }
    const line = find('constant');
    line.hidden = constant.length === 0;
    fill(line.querySelector('.rows'), constant);
    line.querySelector('summary').textContent =
      `${plural(constant.length, 'metric')} never changed: ` + constant.map(describe).join(', ');
    const nothing = find('nothing');
    nothing.hidden = found.length > 0;
    nothing.textContent = rows.size ? 'No metric matches the filter.' : 'There are no metrics yet.';

    const parts = new Set(found.flatMap(row => row.parts));
    [...watched].filter(part => !parts.has(part)).forEach(part => painter.unwatch(part));
    [...parts].filter(part => !watched.has(part)).forEach(part => painter.watch(part));
    watched = parts;
  }

  function describe({metric}) {
    const of = metric.dimensions.length ? ` (${data.label(metric.dimensions)})` : '';
    const line = metric.lines.value ?? metric.lines.p50 ?? metric.lines.avg ?? [];
    const value = line.find(each => !Number.isNaN(each)) ?? NaN;
    return `${metric.name}${of} ${format.scaled(value, metric.unit)}`;
  }

  function paintPanels() {
    for (const [name, panel] of Object.entries(panels)) {
      panel.whole = model && data.span(model, name);
      panel.zoom = view[name];
      panel.paint(name === 'wall' && model ? model.restarts : []);
    }
    // The tools stay, even if nothing has a time.
    find('wall').hidden = !model;
  }

  function show(newModel) {
    const isFirst = !model;
    model = newModel;
    paintPanels();
    showFacts();
    updateRows();
    arrange(isFirst);
    painter.repaint();
  }

  // Changes the view: the zoom, the filter or the order.
  function change(changes, isZoom = false) {
    view = {...view, ...changes};
    address.write(view, isZoom);
    showView(!isZoom);
  }

  function showView(isNew) {
    find('filter').value = view.filter;
    find('sort').value = view.sort;
    if (model) {
      paintPanels();
      if (isNew) {
        arrange(true);
      }
      painter.repaint();
    }
  }

  function showState(isRunning) {
    const state = find('state');
    const wasRunning = state.className === 'running';
    state.hidden = false;
    if (isRunning) {
      state.className = 'running';
      state.textContent = 'running';
    } else if (wasRunning || !state.className) {
      state.className = 'gone';
      state.textContent = `gone since ${format.ofDay(Math.floor(Date.now() / 1000))}; trying again`;
    }
  }

  const STEPS = {ArrowLeft: -1, ArrowRight: 1};

  // Moves the cursor to the next pass, or the one before.
  function moveCursor(step) {
    const {wall} = panels;
    const [from, to] = wall.window;
    const shown = model.passes.filter(time => time >= from && time <= to);
    const next = step > 0 ? shown.find(time => wall.cursor === null || time > wall.cursor) :
      shown.findLast(time => wall.cursor === null || time < wall.cursor);
    wall.setCursor(next ?? wall.cursor);
  }

  function onKey(event) {
    const filter = find('filter');
    if (event.ctrlKey || event.altKey || event.metaKey || !model) {
      return;
    }
    if (event.key === 'Escape') {
      event.preventDefault();
      if (view.filter) {
        change({filter: ''});
      } else {
        change({wall: null, other: null}, true);
      }
      filter.blur();
    } else if (event.target.closest('input, select') || !panels.wall.whole) {
      return;
    } else if (event.key === '/') {
      event.preventDefault();
      filter.focus();
    } else if (event.key in STEPS) {
      event.preventDefault();
      if (event.shiftKey) {
        panels.wall.moveBy(STEPS[event.key] / 4);
      } else {
        moveCursor(STEPS[event.key]);
      }
    } else if (event.key === '+' || event.key === '=') {
      panels.wall.zoomBy(0.5);
    } else if (event.key === '-') {
      panels.wall.zoomBy(2);
    } else if (event.key === '0') {
      change({wall: null, other: null}, true);
    }
  }

  // The printed page has everything in view.
  function onPrint(isBefore) {
    document.body.classList.toggle('printed', isBefore);
    showView(false);
    if (isBefore) {
      painter.paintAll();
    } else {
      painter.clearUnseen();
    }
  }

  function listen() {
    window.addEventListener('beforeprint', () => onPrint(true));
    window.addEventListener('afterprint', () => onPrint(false));
    document.addEventListener('keydown', onKey);
    find('filter').addEventListener('input', ({target}) => change({filter: target.value}));
    find('sort').addEventListener('change', ({target}) => change({sort: target.value}));
    find('tools').addEventListener('submit', event => event.preventDefault());
    const onAddress = () => {
      view = address.read();
      showView(true);
    };
    window.addEventListener('popstate', onAddress);
    window.addEventListener('hashchange', onAddress);
    let width = 0;
    new ResizeObserver(([{contentRect}]) => {
      if (contentRect.width !== width) {
        width = contentRect.width;
        showView(false);
      }
    }).observe(find('main'));
    matchMedia('(prefers-color-scheme: dark)').addEventListener('change', () => painter.repaint());
  }

  // What is drawn, as data: README.md describes it.
  window.vekPage = {
    series: () => model ? grouped(matching()).flat().map(row => row.series) : [],
    settled: () => painter.settled(),
  };

  showView(false);
  listen();
  const embedded = find('data').textContent.trim();
  if (embedded) {
    show(data.read(JSON.parse(embedded)));
  } else {
    new vek.Live(show, showState);
  }
}
