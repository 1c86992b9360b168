// The sensors' plots: one time axis, zoomed and panned together.
//
// An x is in milliseconds: since 1970 in the device's local time (kept as if it were UTC) where the
// report tells when the device booted, else from the newest record. Reports that are compared are
// aligned at their newest records.
'use strict';
(() => {
    const area = document.querySelector('#plots');

    const kLeastSpan = 0.01;  // ms
    const figures = [...area?.querySelectorAll('figure') ?? []].map(element => ({
        element,
        shape: element.dataset.shape,
        readout: element.querySelector('.readout'),
        name: element.querySelector('h3').firstChild.data.trim(),
        sets: [...element.querySelectorAll('script')].map(readRecords),
    })).filter(figure => figure.sets.length > 0);
    if (figures.length === 0) return;
    const compared = Number(area.dataset.reports) > 1;
    const boots = document.querySelector('main').dataset.boots;
    const boot = compared || boots === '-' ? null : 1000 * Number(boots);

    // --- x of a time ---------------------------------------------------------------------------

    const newestOf = ({first, times}) => first + BigInt(Math.round(times[times.length - 1]));
    const newest = [];  // by report; what was worn is told later than the rest and doesn't count
    for (const figure of figures) {
        for (const set of figure.sets) {
            if (figure.shape === 'wear' && figures.some(one => one.shape !== 'wear')) continue;
            const time = newestOf(set);
            if (newest[set.report] === undefined || time > newest[set.report]) newest[set.report] = time;
        }
    }
    for (const figure of figures) {
        for (const set of figure.sets) {
            const zero = newest[set.report] ?? newestOf(set);
            set.start = boot === null ? Number(set.first - zero) / 1e6 : boot + Number(set.first) / 1e6;
        }
    }
    const xOf = (set, i) => set.start + set.times[i] / 1e6;
    // Of milliseconds since the report's boot; null when its records don't tell.
    const xOfBoot = (report, time) => boot !== null ? boot + time
        : newest[report] === undefined ? null : time - Number(newest[report]) / 1e6;
    const timeOf = (set, x) => (x - set.start) * 1e6;
    // Where the i-th period of the on-wrist sensor ends.
    const endOf = (set, i) => xOf(set, i) + 1000 * set.columns[0][i];

    const two = number => String(number).padStart(2, '0');
    function label(x, precision) {  // precision: what a step is worth, in ms
        // When the device booted is known to a second or so: what is finer counts from there.
        if (boot === null || precision < 1000) {
            const seconds = (x - (boot ?? 0)) / 1000;
            return `${seconds.toFixed(precision < 1 ? 6 : precision < 1000 ? 3 : 0)} s`;
        }
        const time = new Date(x);
        if (Number.isNaN(time.getTime())) return '';
        const clock = `${two(time.getUTCHours())}:${two(time.getUTCMinutes())}`;
        if (precision >= 86400e3) return time.toISOString().slice(0, 10);
        if (precision >= 60e3) return clock;
        return `${clock}:${two(time.getUTCSeconds())}`;
    }

    // A time in words, with what it counts from.
    function tellTime(x) {
        if (boot === null) {
            return compared ? `${((x) / 1000).toFixed(3)} s from each report’s newest record`
                : `${(x / 1000).toFixed(3)} s from the newest record`;
        }
        const day = new Date(x).toISOString();
        return `${day.slice(0, 10)} ${day.slice(11, 19)}, ${((x - boot) / 1000).toFixed(3)} s after boot`;
    }

    // --- what is seen --------------------------------------------------------------------------

    const extent = of => {
        let from = Infinity, to = -Infinity;
        for (const figure of of) {
            for (const set of figure.sets) {
                from = Math.min(from, xOf(set, 0));
                to = Math.max(to, xOf(set, set.times.length - 1));
                if (figure.shape === 'wear') to = Math.max(to, endOf(set, set.times.length - 1));
            }
        }
        const margin = Math.max((to - from) * 0.01, 1);
        return [from - margin, to + margin];
    };
    const lines = figures.filter(({shape}) => shape === 'vector' || shape === 'scalar');
    const everything = extent(figures);
    // Wear goes back for hours, where what is measured all the time covers minutes.
    const home = lines.length > 0 ? extent(lines) : everything;
    let view = home;
    let showing = false;  // what is drawn follows the view, and not the other way round
    let cursor = null;
    let marked = null;  // the x of the time that was chosen
    let hidden = new Set();  // reports

    // --- colours -------------------------------------------------------------------------------

    let colour = {};
    function readColours() {
        const style = getComputedStyle(document.documentElement);
        const value = name => style.getPropertyValue(name).trim();
        colour = {
            lines: Array.from({length: 12}, (_, i) => value(`--line-${i + 1}`)),
            grid: value('--grid'), axis: value('--rule'), mark: value('--mark'),
            trouble: value('--failed'), chosen: value('--link'),
        };
    }
    const colourOf = i => colour.lines[i % colour.lines.length];

    // --- plots ---------------------------------------------------------------------------------

    // A plot's lines are the columns of its sets: of one report, or one column of several.
    const plots = [];
    const plotOf = new Map();  // by element
    const wear = figures.filter(({shape}) => shape === 'wear').flatMap(({sets}) => sets);
    const gestures = figures.filter(({shape}) => shape === 'event');
    const shown = set => !hidden.has(set.report);
    for (const figure of figures) {
        figure.troubles = figure.sets.map(set => troublesOf(set, xOf, xOfBoot(set.report, Number(newest[set.report] ?? 0n) / 1e6)));
    }
    const axes = ['x', 'y', 'z'];

    function linesOf(sets, column) {
        if (column !== null) {
            return sets.map(set => ({
                set, columns: [column], names: [reportName(set.report)], colours: [set.report],
            }));
        }
        return sets.map(set => ({
            set,
            columns: set.columns.map((_, i) => i),
            names: set.columns.length === 3 ? axes : ['value'],
            colours: set.columns.map((_, i) => i),
        }));
    }
    const reportName = report => `[${report}]`;

    function rowsOf(plot) {
        const [from, to] = view;
        const pixels = Math.max(100, Math.floor(plot.element.clientWidth - kAxisWidth));
        const width = plot.lines.reduce((sum, {columns}) => sum + columns.length, 0);
        const rows = [];
        let before = 1;
        for (const {set, columns} of plot.lines) {
            if (!shown(set)) {
                before += columns.length;
                continue;
            }
            const some = {times: set.times, gap: set.gap, columns: columns.map(i => set.columns[i])};
            for (const [time, ...values] of thin(some, timeOf(set, from), timeOf(set, to), pixels)) {
                const row = new Array(1 + width).fill(null);
                row[0] = set.start + time / 1e6;
                values.forEach((value, i) => { row[before + i] = value; });
                if (plot.lane) row[before] = plot.lines.length - plot.lines.findIndex(one => one.set === set);
                rows.push(row);
            }
            before += columns.length;
        }
        if (plot.lines.length > 1) rows.sort((a, b) => a[0] - b[0]);
        return rows.length > 0 ? rows : [[from, ...new Array(width).fill(null)]];
    }

    const kAxisWidth = 56;
    function appearance(plot) {
        return {
            colors: plot.lines.flatMap(({colours}) => colours).map(colourOf),
            gridLineColor: colour.grid,
            axisLineColor: colour.axis,
        };
    }

    // Whole seconds need less room than the rest, and a narrow page has no more.
    const secondsTicker = (from, to, pixels, options, graph) => Dygraph.numericTicks(from, to, pixels,
        name => name === 'pixelsPerLabel' && stepFor(view) >= 1000 ? 50 : options(name), graph);

    // A plot has its height from the first, and is drawn when it comes into sight.
    function add(figure, lines, height = '') {
        const element = document.createElement('div');
        element.className = `plot ${figure.shape} ${height}`;
        element.setAttribute('role', 'img');
        element.setAttribute('aria-label', `Plot of ${figure.name}; its figures are under Numbers`);
        figure.element.querySelector('.plots').append(element);
        const lane = figure.shape === 'event' || figure.shape === 'wear';
        plots.push({figure, element, lines, lane, graph: null, seen: false, stale: true});
    }
    function draw(plot) {
        if (!plot.stale) return;
        plot.stale = false;
        if (plot.graph) {
            plot.graph.updateOptions({file: rowsOf(plot), dateWindow: view, ...appearance(plot)});
        } else {
            begin(plot);
        }
    }
    function begin(plot) {
        const {figure, element, lines, lane} = plot;
        plot.graph = new Dygraph(element, rowsOf(plot), {
            ...appearance(plot),
            labels: ['time', ...lines.flatMap(({names}) => names)],
            series: compared && !lane ? widths(lines) : {},
            dateWindow: view,
            plugins: [],
            legend: 'never',
            connectSeparatedPoints: true,
            strokeWidth: lane ? 0 : 1.2,
            drawPoints: figure.shape === 'event',
            pointSize: 6,
            drawPointCallback: (graph, name, canvas, x, y, colour, size) =>
                drawGesture(canvas, gestures.indexOf(figure), x, y, size, colour),
            highlightCircleSize: lane ? 0 : 3,
            axisLabelFontSize: 11,
            labelsUTC: true,
            xAxisHeight: 20,
            axes: {
                x: {
                    ticker: boot === null ? secondsTicker : Dygraph.dateTicker,
                    axisLabelFormatter: x => label(Number(x), stepFor(view)),
                    axisLabelWidth: 84,
                    pixelsPerLabel: 90,
                },
                y: {
                    axisLabelWidth: kAxisWidth - 6,
                    axisLabelFormatter: (y, granularity, options, graph) => labelOfY(y, graph),
                    pixelsPerLabel: 20,
                    ...(lane ? {ticker: () => [], valueRange: [0.4, lines.length + 0.6]} : {}),
                },
            },
            interactionModel: mouse,
            clickCallback: (event, x) => boardreport.choose(x, {figure: figure.element}),
            underlayCallback: (canvas, where, graph) => drawBands(canvas, where, graph, plot),
            drawCallback: graph => follow(graph),
        });
    }
    // All ticks of an axis are written alike: so many digits as their distance needs.
    function labelOfY(y, graph) {
        const [low, high] = graph.yAxisRange();
        const most = Math.max(Math.abs(low), Math.abs(high));
        if (most >= 1e6 || high - low < 1e-4) return y.toExponential(1);
        return y.toFixed(Math.max(0, Math.min(4, 1 - Math.floor(Math.log10(high - low)))));
    }

    // What is out of sight waits until it is looked at, or asked for.
    function redraw() {
        showing = true;
        for (const plot of plots) {
            plot.stale = true;
            if (plot.seen) draw(plot);
        }
        showing = false;
    }
    function settle() {
        showing = true;
        plots.forEach(draw);
        showing = false;
    }
    const sight = new IntersectionObserver(entries => {
        showing = true;
        for (const {target, isIntersecting} of entries) {
            const plot = plotOf.get(target);
            plot.seen = isIntersecting;
            if (isIntersecting) {
                draw(plot);
                tell(plot.figure, cursor);
            }
        }
        showing = false;
    }, {rootMargin: '30%'});
    // Reports that say the same still show all: what is drawn first is the widest.
    const widths = lines => Object.fromEntries(lines.flatMap(({names}, i) =>
        names.map(name => [name, {strokeWidth: 1.2 + 2 * (lines.length - 1 - i) / lines.length}])));
    const stepFor = ([from, to]) => {
        const seconds = (to - from) / 1000;
        if (seconds > 6 * 86400) return 86400e3;
        return seconds > 900 ? 60e3 : seconds > 5 ? 1000 : seconds > 0.02 ? 1 : 0.001;
    };

    // Behind the lines: when it was worn, as bands; in the lane of wear, as bars. Gestures are marks
    // at the upper edge.
    function drawBands(canvas, where, graph, plot) {
        const left = x => Math.max(where.x, Math.min(where.x + where.w, graph.toDomXCoord(x)));
        const ownLane = plot.figure.shape === 'wear';
        const share = where.h / wear.length;
        for (const [k, set] of wear.entries()) {
            if (!shown(set)) continue;
            const top = ownLane ? where.y + share * (k + 0.25) : where.y;
            const height = ownLane ? share / 2 : where.h;
            canvas.fillStyle = colourOf(set.report);
            canvas.globalAlpha = ownLane ? 1 : 0.1;
            for (let i = 0; i < set.times.length; ++i) {
                const from = left(xOf(set, i)), to = left(endOf(set, i));
                if (to > from) canvas.fillRect(from, top, to - from, height);
            }
        }
        canvas.globalAlpha = 1;
        plot.figure.sets.forEach((set, i) => {
            if (!shown(set)) return;
            for (const trouble of plot.figure.troubles[i]) {
                if (trouble.to < view[0] || trouble.from > view[1]) continue;
                drawTrouble(canvas, where, trouble, left(trouble.from), left(trouble.to),
                            compared ? colourOf(set.report) : colour.trouble);
            }
        });
        if (!plot.lane) gestures.forEach(({sets}, nth) => sets.filter(shown).forEach(set => {
            const begin = firstNotBefore(set.times, timeOf(set, view[0]));
            const end = firstNotBefore(set.times, timeOf(set, view[1]));
            const every = Math.max(1, Math.ceil((end - begin) / where.w));
            for (let i = begin; i < end; i += every) {
                drawGesture(canvas, nth, graph.toDomXCoord(xOf(set, i)), where.y + 5, 5, compared ? colourOf(set.report) : colour.mark);
            }
        }));
        if (marked !== null && marked >= view[0] && marked <= view[1]) drawMark(canvas, where, graph.toDomXCoord(marked), colour.chosen);
    }

    // --- zoom and pan --------------------------------------------------------------------------

    function show(from, to) {
        if (!(to - from >= kLeastSpan)) {
            const middle = (from + to) / 2;
            [from, to] = [middle - kLeastSpan / 2, middle + kLeastSpan / 2];
        }
        view = [from, to];
        redraw();
        area.dataset.from = from;
        area.dataset.to = to;
        hideCursor();
        tellAxis();
        boardreport.changed?.();
    }

    // What was done to one plot with the mouse or a finger is done to all, once a frame.
    let waiting = null;
    function follow(graph) {
        if (showing || !window.boardreport.ready) return;
        const range = graph.xAxisRange();
        if (range[0] === view[0] && range[1] === view[1]) return;
        if (waiting === null) {
            requestAnimationFrame(() => {
                const [from, to] = waiting;
                waiting = null;
                show(from, to);
            });
        }
        waiting = range;
    }

    function reset() {
        // Upright again, too: only what was moved up or down has a range of its own.
        for (const {lane, graph} of plots) {
            if (!lane && graph?.axes_[0].valueRange) graph.axes_[0].valueRange = null;
        }
        show(...home);
    }
    function move(by, zoom) {
        const [from, to] = view, span = to - from, middle = (from + to) / 2 + by * span;
        show(middle - span * zoom / 2, middle + span * zoom / 2);
    }
    const actions = {
        in: () => move(0, 0.5), out: () => move(0, 2),
        left: () => move(-0.25, 1), right: () => move(0.25, 1),
        reset, all: () => show(...everything),
        back: () => step(-1), forth: () => step(1),
        logs: () => boardreport.choose(cursor ?? marked ?? (view[0] + view[1]) / 2), save,
    };
    const keys = {
        '+': 'in', '=': 'in', '-': 'out', ArrowLeft: 'left', ArrowRight: 'right',
        0: 'reset', a: 'all', ',': 'back', '.': 'forth', l: 'logs', s: 'save',
    };
    for (const button of document.querySelectorAll('[data-action]')) {
        button.addEventListener('click', () => actions[button.dataset.action]());
    }
    area.addEventListener('keydown', event => {
        if (event.key === 'Escape') boardreport.leaveMark();
        const action = event.target === area ? keys[event.key] : null;
        if (!action || event.ctrlKey || event.metaKey || event.altKey) return;
        event.preventDefault();
        actions[action]();
    });

    // What the mouse does to one plot; fingers are below.
    const {mousedown, mousemove, mouseup, mouseout, willDestroyContextMyself} = Dygraph.defaultInteractionModel;
    const mouse = Object.fromEntries(Object.entries({mousedown, mousemove, mouseup, mouseout, willDestroyContextMyself})
        .filter(([, does]) => does !== undefined));
    mouse.dblclick = () => { boardreport.leaveMark(); reset(); };

    function xUnder(event) {
        const plot = plotOf.get(event.target.closest?.('.plot'));
        if (!plot?.graph) return null;
        return plot.graph.toDataXCoord(event.clientX - plot.element.getBoundingClientRect().left);
    }
    area.addEventListener('wheel', event => {
        const x = event.ctrlKey ? xUnder(event) : null;
        if (x === null) return;
        event.preventDefault();
        const zoom = Math.exp(Math.max(-1, Math.min(1, event.deltaY / 200)));
        show(x - (x - view[0]) * zoom, x + (view[1] - x) * zoom);
    }, {passive: false});

    // One finger moves, two zoom, a tap chooses a time; up and down is the page's own.
    const fingers = new Map();
    let tapped = null;
    const spread = () => {
        const xs = [...fingers.values()];
        return [Math.min(...xs), Math.max(...xs)];
    };
    area.addEventListener('pointerdown', event => {
        const x = event.pointerType === 'touch' ? xUnder(event) : null;
        if (x === null) return;
        fingers.set(event.pointerId, event.clientX);
        tapped = fingers.size === 1 ? {x, at: event.clientX, figure: event.target.closest('figure')} : null;
    });
    area.addEventListener('pointermove', event => {
        if (!fingers.has(event.pointerId)) return;
        const [left, right] = spread();
        fingers.set(event.pointerId, event.clientX);
        if (tapped && Math.abs(event.clientX - tapped.at) < 6) return;
        tapped = null;
        const [newLeft, newRight] = spread();
        const plot = plots.find(({graph}) => graph);
        const edge = plot.element.getBoundingClientRect().left + kAxisWidth;
        const perPixel = (view[1] - view[0]) / Math.max(100, plot.element.clientWidth - kAxisWidth);
        const zoom = newRight - newLeft > 10 ? (right - left) / (newRight - newLeft) : 1;
        const held = view[0] + ((left + right) / 2 - edge) * perPixel;
        const from = held - ((newLeft + newRight) / 2 - edge) * perPixel * zoom;
        show(from, from + (view[1] - view[0]) * zoom);
    });
    for (const end of ['pointerup', 'pointercancel']) {
        area.addEventListener(end, event => {
            if (!fingers.delete(event.pointerId)) return;
            if (end === 'pointerup' && tapped) boardreport.choose(tapped.x, {figure: tapped.figure});
            tapped = null;
        });
    }

    // The records that are shown, one a line.
    function save() {
        const rows = ['sensor,name,report,nanoseconds since boot,time of day,x or value,y,z'];
        for (const figure of figures) {
            for (const set of figure.sets.filter(shown)) {
                const end = firstNotBefore(set.times, timeOf(set, view[1]));
                for (let i = firstNotBefore(set.times, timeOf(set, view[0])); i < end; ++i) {
                    const day = boot === null ? '' : new Date(xOf(set, i)).toISOString().slice(0, -1);
                    rows.push([figure.element.dataset.sensor, `"${figure.name.replaceAll('"', '""')}"`, set.report,
                               set.first + BigInt(Math.round(set.times[i])), day, ...set.columns.map(column => Number(column[i].toPrecision(7)))].join());
                }
            }
        }
        const url = URL.createObjectURL(new Blob([rows.join('\n'), '\n'], {type: 'text/csv'}));
        element('a', {href: url, download: 'sensors.csv'}).click();
        setTimeout(() => URL.revokeObjectURL(url), 1000);
        pointed.textContent = `${(rows.length - 1).toLocaleString('en')} records saved in sensors.csv`;
    }

    // --- what is under the cursor --------------------------------------------------------------

    const seen = figure => plots.some(plot => plot.figure === figure && plot.seen);
    const pointed = document.querySelector('#pointed');
    // Bands and marks at that time, in words.
    function tellPlace(x, only = figures) {
        const words = new Set();
        const near = 5 * (view[1] - view[0]) / Math.max(100, area.clientWidth - kAxisWidth);
        for (const figure of only) {
            figure.sets.forEach((set, i) => {
                if (!shown(set)) return;
                for (const one of figure.troubles[i]) {
                    if (one.from - near <= x && x <= one.to + near) words.add(`${figure.name} ${tellTrouble(one)}`);
                }
            });
        }
        for (const {name, sets} of gestures) {
            for (const set of sets.filter(shown)) {
                if (Math.abs(xOf(set, nearest(set.times, timeOf(set, x))) - x) <= near) words.add(name);
            }
        }
        if (wear.some(set => shown(set) && set.times.some((_, i) => xOf(set, i) <= x && x <= endOf(set, i)))) words.add('worn');
        return [...words].join(', ');
    }
    function pointAt(x) {
        cursor = x;
        const place = tellPlace(x);
        pointed.textContent = tellTime(x) + (place ? `: ${place}` : '');
        for (const plot of plots) {
            if (!plot.graph) continue;
            if (!plot.line) {
                plot.line = document.createElement('div');
                plot.line.className = 'cursor';
                plot.element.append(plot.line);
            }
            const at = plot.graph.toDomXCoord(x);
            plot.line.hidden = at < kAxisWidth;
            plot.line.style.transform = `translateX(${at}px)`;
        }
        for (const figure of figures.filter(seen)) tell(figure, x);
    }
    function hideCursor() {
        cursor = null;
        pointed.textContent = boardreport.hint;
        for (const plot of plots) if (plot.line) plot.line.hidden = true;
        for (const figure of figures.filter(seen)) tell(figure, null);
    }
    // The keys go through the records of the first plot.
    function step(by) {
        const set = (lines[0] ?? figures[0])?.sets[0];
        if (!set) return;
        const x = cursor ?? (view[0] + view[1]) / 2;
        const i = Math.max(0, Math.min(set.times.length - 1, nearest(set.times, timeOf(set, x)) + by));
        pointAt(xOf(set, i));
    }

    // The record that is under the cursor: a few pixels away, or half a step; of wear the period around
    // it. Nothing where there is none.
    function recordAt(figure, set, x) {
        if (figure.shape === 'wear') {
            for (let i = 0; i < set.times.length; ++i) {
                if (xOf(set, i) <= x && x <= endOf(set, i)) return i;
            }
            return null;
        }
        const i = nearest(set.times, timeOf(set, x));
        const near = 8 * (view[1] - view[0]) / Math.max(100, area.clientWidth - kAxisWidth);
        const half = Number.isFinite(set.gap) ? set.gap / 20e6 : 0;
        return Math.abs(xOf(set, i) - x) <= Math.max(near, half) ? i : null;
    }

    // On which side of what is shown the figure's records lie; nothing when some are shown.
    function elsewhere(figure) {
        let before = false, after = false;
        for (const set of figure.sets) {
            for (let i = 0; i < set.times.length; ++i) {
                const end = figure.shape === 'wear' ? endOf(set, i) : xOf(set, i);
                if (end < view[0]) before = true;
                else if (xOf(set, i) > view[1]) after = true;
                else return '';
            }
        }
        if (before && after) return 'its records are before and after what is shown';
        return before ? '← its records are before what is shown' : '→ its records are after what is shown';
    }

    // Without a cursor it is the legend.
    function tell(figure, x) {
        const parts = [];
        let row = null;  // a report's, where there are several
        const part = (text, className) => {
            const span = document.createElement('span');
            span.textContent = text;
            span.className = className;
            if (row) row.append(span);
            else parts.push(span);
        };
        if (x === null) {
            const where = elsewhere(figure);
            if (where) part(where, 'raw');
        }
        for (const set of figure.sets.filter(shown)) {
            if (compared) {
                row = element('span', {className: 'row'});
                parts.push(row);
            }
            const i = x === null ? null : recordAt(figure, set, x);
            if (compared) part(reportName(set.report), `key line-${set.report % 12 + 1}`);
            if (x !== null && i === null) {
                part('no record here', 'raw');
                continue;
            }
            if (i !== null) {
                part(label(xOf(set, i), boot === null ? 1 : 1000), 'clock');
                part(`${set.first + BigInt(Math.round(set.times[i]))} ns`, 'raw');
            }
            if (compared && x === null) continue;
            const keyed = set.columns.length === 3;
            set.columns.forEach((column, c) => {
                const value = i === null ? '' : ` ${column[i].toFixed(figure.shape === 'wear' ? 1 : 6)}`;
                if (keyed) part(axes[c] + value, compared ? 'value' : `key line-${c + 1}`);
                else if (i === null || figure.shape === 'event') return;
                else part(figure.shape === 'wear' ? `worn${value} s` : value, 'value');
            });
        }
        figure.readout.replaceChildren(...parts);
    }
    area.addEventListener('pointermove', event => {
        const x = event.buttons === 0 && event.pointerType !== 'touch' ? xUnder(event) : null;
        if (x !== null) pointAt(x);
    });
    area.addEventListener('pointerleave', hideCursor);

    // --- legend --------------------------------------------------------------------------------

    boardreport.hint = matchMedia('(pointer: coarse)').matches
        ? 'Drag to move, pinch to zoom; a tap opens the logs around that time'
        : 'Drag or Ctrl and wheel to zoom, Shift and drag to move; a click opens the logs around that time';
    const axisTold = element('span');
    function tellAxis() {
        axisTold.textContent = boot === null
            ? `Times: seconds ${compared ? 'from each report’s newest record' : 'from the newest record; when the device booted isn’t known'}`
            : stepFor(view) < 1000 ? 'Times: seconds since boot' : 'Times: the device’s time of day';
    }
    function writeLegend() {
        const legend = document.querySelector('#legend');
        const kinds = new Set(figures.flatMap(({troubles}) => troubles.flat()).map(({kind}) => kind));
        const words = {frozen: 'froze: its values stand still', gap: 'gap: records are missing', silent: 'silent: it stopped before the others'};
        legend.replaceChildren(axisTold);
        if (wear.length > 0) legend.append(element('span', {className: 'swatch worn', textContent: 'worn'}));
        gestures.forEach(({name}, nth) => legend.append(element('span', {textContent: `${gestureShapes[nth % gestureShapes.length]} ${name}`})));
        for (const kind of ['frozen', 'gap', 'silent']) {
            if (kinds.has(kind)) legend.append(element('span', {className: `swatch ${kind}`, textContent: words[kind]}));
        }
        tellAxis();
    }
    // What is wrong with a sensor leads to what was written then.
    function offerTroubles(figure) {
        const first = new Map();
        figure.troubles.forEach((troubles, i) => {
            const longest = [...troubles].sort((a, b) => (b.to - b.from) - (a.to - a.from));
            for (const one of longest) {
                const key = `${figure.sets[i].report} ${one.words}`;
                if (!first.has(key)) first.set(key, [figure.sets[i].report, one]);
            }
        });
        const buttons = element('p', {className: 'gos'});
        if (first.size > 0) figure.readout.before(buttons);
        for (const [report, one] of first.values()) {
            const button = element('button', {type: 'button', className: 'go',
                textContent: `${compared ? `${reportName(report)} ` : ''}Logs when ${one.words === 'gap' ? 'the longest gap began' : one.words === 'silent' ? 'it fell silent' : `it ${one.words}`.replace(/^it (. stood)/, '$1')}`});
            button.addEventListener('click', () => boardreport.choose(one.from, {figure: figure.element}));
            buttons.append(button);
        }
    }

    // --- begin ---------------------------------------------------------------------------------

    Dygraph.PLUGINS = Dygraph.PLUGINS.filter(plugin => plugin !== Dygraph.Plugins.Legend);
    readColours();
    for (const figure of figures) {
        const columns = Math.max(...figure.sets.map(set => set.columns.length));
        if (compared && columns === 3) {
            const sets = figure.sets.filter(set => set.columns.length === 3);
            axes.forEach((name, column) => {
                add(figure, linesOf(sets, column), 'low');
                const title = document.createElement('span');
                title.className = 'axis';
                title.textContent = name;
                plots.at(-1).element.append(title);
            });
        } else {
            add(figure, linesOf(figure.sets, compared ? 0 : null));
        }
    }
    for (const plot of plots) plotOf.set(plot.element, plot);
    // The first view is there at once.
    for (const plot of plots) {
        const {top, bottom} = plot.element.getBoundingClientRect();
        plot.seen = bottom > 0 && top < innerHeight;
    }
    if (compared) for (const {readout} of figures) readout.classList.add('rows');
    writeLegend();
    figures.forEach(offerTroubles);
    pointed.textContent = boardreport.hint;
    redraw();
    for (const figure of figures) tell(figure, null);
    for (const plot of plots) sight.observe(plot.element);
    // On paper a canvas is what it last was on the screen: all are drawn by then, and scaled.
    const kPaperWidth = 690;
    const drawAhead = () => {
        const plot = plots.find(({graph}) => !graph);
        if (!plot) return;
        showing = true;
        draw(plot);
        showing = false;
        requestIdleCallback(drawAhead);
    };
    requestIdleCallback?.(drawAhead);
    addEventListener('beforeprint', () => {
        settle();
        area.style.setProperty('--paper', Math.min(1, kPaperWidth / area.clientWidth));
    });
    for (const query of ['(prefers-color-scheme: dark)', 'print']) {
        matchMedia(query).addEventListener('change', () => {
            readColours();
            redraw();
        });
    }
    area.dataset.from = view[0];
    area.dataset.to = view[1];
    boardreport.axis = {reports: Number(area.dataset.reports), xOf: xOfBoot, tell: tellTime};
    // Near what was recorded it is shown there; else only said.
    boardreport.mark = x => {
        marked = x;
        const [from, to] = view, reach = 10 * (home[1] - home[0]);
        if (x !== null && (x < from || x > to) && x > home[0] - reach && x < home[1] + reach) {
            const margin = (Math.max(to, x) - Math.min(from, x)) * 0.02;
            show(Math.min(from, x - margin), Math.max(to, x + margin));
        } else {
            redraw();
        }
        if (x !== null && (x < view[0] || x > view[1])) {
            const away = duration(Math.abs(x - (x < view[0] ? home[0] : home[1])) / 1000);
            pointed.textContent = `That is ${away} ${x < view[0] ? 'before' : 'after'} what the sensors recorded`;
        }
    };
    boardreport.hideInPlots = reports => {
        hidden = new Set(reports);
        redraw();
        for (const figure of figures) tell(figure, cursor);
    };
    boardreport.view = {
        get: () => view[0] === home[0] && view[1] === home[1] ? null : view,
        mark: () => marked,
        set: show,
    };
    Object.defineProperty(window.boardreport, 'plots', {
        get() {
            settle();
            return plots.map(({graph}) => graph);
        },
    });
})();
