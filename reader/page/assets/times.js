// From text to plots and back: the times that lines of logs begin with are links to the plots, and a
// time in the plots opens the lines around it.
//
// Two clocks are known: seconds since boot, as the kernel prints them with six digits, and the
// device's time of day, which needs to be known when it booted. A line that begins with any other
// number is of a clock that nobody can place, and that is said.
'use strict';
(() => {
    const {axis} = boardreport;
    if (!axis) return;
    const main = document.querySelector('main');
    const compared = axis.reports > 1;
    const seconds = word => word === '-' ? null : 1000 * Number(word);
    const boots = main.dataset.boots.split(' ').map(seconds);
    const nows = main.dataset.nows.split(' ').map(seconds);

    const sign = compared ? '(?:[-+ ] )?' : '';
    const kTime = new RegExp(`^${sign}(?:<\\d{1,3}>)?(?:\\[ *(\\d{1,9}\\.\\d{6})\\]|` +
        '\\[?((?:(\\d{4})-)?(\\d\\d)-(\\d\\d)[ T])?(\\d\\d):(\\d\\d):(\\d\\d)(?:[.,](\\d{1,9}))?' +
        '(?!\\d|Z|[+-]\\d\\d))', 'gm');
    const kOtherClock = new RegExp(`^${sign}(?:<\\d{1,3}>)?\\[? *\\d{1,12}(?:\\.\\d+)?(?:\\]|: | [a-zA-Z]+:)`, 'm');
    // Texts of a boot before this one, or from before the kernel began to count.
    const kOtherBoot = /ramoops|pstore|last_kmsg|bootloader/i;

    // Milliseconds since the report's boot; null when that can't be known.
    function sinceBoot([, boot, date, year, month, day, hours, minutes, secs, fraction], report, otherBoot) {
        if (boot !== undefined) return otherBoot ? null : 1000 * Number(boot);
        const now = nows[report];
        if (boots[report] === null || now === null) return null;
        const today = new Date(now);
        const ofDay = [+hours, +minutes, +secs, fraction ? 1000 * Number(`0.${fraction}`) : 0];
        let time;
        if (date === undefined) {
            time = Date.UTC(today.getUTCFullYear(), today.getUTCMonth(), today.getUTCDate(), ...ofDay);
            if (time > now + 60e3) time -= 86400e3;
        } else {
            const of = chosen => Date.UTC(chosen, month - 1, +day, ...ofDay);
            time = of(year ? +year : today.getUTCFullYear());
            if (!year && time > now + 86400e3) time = of(today.getUTCFullYear() - 1);
        }
        return time - boots[report];
    }

    // Which report the text around the node is of: in what differs, removed lines are the first's.
    function reportOf(pre, node, unit) {
        if (!compared) return 0;
        let head = pre;
        while (head && !head.matches('h4')) head = head.previousElementSibling ?? head.parentElement.closest('.fold');
        if (!head) return Number(unit.dataset.of ?? 0);
        return Number(node?.closest('del') ? head.dataset.first : head.dataset.other);
    }

    // --- links in the text -----------------------------------------------------------------------

    const kMostLinks = 20000;
    function linkTimes(unit) {
        const otherBoot = kOtherBoot.test(titleOf(unit));
        let links = 0, byBoot = 0, unplaced = false;
        for (const pre of presOf(unit)) {
            const walker = document.createTreeWalker(pre, NodeFilter.SHOW_TEXT);
            const nodes = [];
            while (walker.nextNode()) nodes.push(walker.currentNode);
            let fresh = true;  // the node begins a line
            for (const node of nodes) {
                const text = node.data, pieces = [];
                let done = 0;
                for (const match of text.matchAll(kTime)) {
                    if (match.index === 0 && !fresh) continue;
                    const report = reportOf(pre, node.parentElement, unit);
                    const time = sinceBoot(match, report, otherBoot);
                    const x = time === null ? null : axis.xOf(report, time);
                    if (x === null) unplaced = true;
                    if (x === null || links >= kMostLinks) continue;
                    const begin = match.index + match[0].search(/\d(?!\d*>)/);
                    const end = match.index + match[0].replace(/\]$/, '').length;
                    const link = element('a', {className: 'time', href: '#plots', tabIndex: links === 0 ? 0 : -1,
                                               textContent: text.slice(begin, end), title: 'Show in the plots, with the logs around it'});
                    link.dataset.x = x;
                    pieces.push(text.slice(done, begin), link);
                    done = end;
                    ++links;
                    if (match[1] !== undefined) ++byBoot;
                }
                fresh = text.endsWith('\n');
                if (done > 0) node.replaceWith(...pieces, text.slice(done));
            }
        }
        tellClock(unit, links, byBoot, unplaced, otherBoot);
    }
    function tellClock(unit, links, byBoot, unplaced, otherBoot) {
        const parts = [];
        if (unit.dataset.at !== undefined) {
            const x = axis.xOf(0, 1000 * Number(unit.dataset.at));
            if (x !== null) {
                const button = element('button', {type: 'button', className: 'place', textContent: `Ran about ${axis.tell(x).replace(/\.\d+ s/, ' s')}: show in the plots`});
                button.addEventListener('click', () => choose(x, {unit, words: 'when this section ran'}));
                parts.push(button);
            }
        }
        if (links > 0) {
            parts.push(byBoot === links ? 'Times: seconds since boot; a kernel’s clock may stand still while the device sleeps'
                : byBoot > 0 ? 'Times: seconds since boot, and the device’s time of day' : 'Times: the device’s time of day');
        } else if (unplaced) {
            parts.push(otherBoot ? 'Times: of a clock that isn’t this boot’s; they can’t be placed in the plots'
                : 'Times of day can’t be placed: the report doesn’t say when the device booted');
        } else if (presOf(unit).some(pre => kOtherClock.test(pre.textContent))) {
            parts.push('Its lines may count by a clock of their own, which isn’t known: they can’t be placed in the plots');
        }
        if (parts.length > 0) unit.querySelector('.text > .copy')?.after(element('p', {className: 'note clock-told'}, ...parts.flatMap(part => [part, ' '])));
    }
    preparations.push(linkTimes);

    function placeOf(link) {
        const unit = link.closest(unitSelector), pre = link.closest('pre');
        const before = document.createRange();
        before.setStart(pre, 0);
        before.setEndBefore(link);
        const text = pre.textContent, at = before.toString().length;
        const from = text.lastIndexOf('\n', at - 1) + 1;
        return {unit, pre, from};
    }
    document.addEventListener('click', event => {
        const link = event.target.closest('a.time');
        if (!link) return;
        event.preventDefault();
        choose(Number(link.dataset.x), placeOf(link));
    });
    // One stop of the tab key a text; the arrow keys go from time to time.
    document.addEventListener('keydown', event => {
        const by = {ArrowDown: 1, ArrowUp: -1}[event.key];
        const link = event.target.closest?.('a.time');
        if (!by || !link) return;
        const all = [...link.closest(unitSelector).querySelectorAll('a.time')];
        const to = all[all.indexOf(link) + by];
        if (!to) return;
        event.preventDefault();
        link.tabIndex = -1;
        to.tabIndex = 0;
        to.focus();
    });

    // --- the lines around a time -----------------------------------------------------------------

    let lines = null;      // [{x, unit, report, pre, from}] in the order of time, made when first asked for
    let unplaced = [];     // units whose lines can't be placed
    function readLines() {
        lines = [];
        for (const unit of document.querySelectorAll(`:is(#sections, #bundle) ${unitSelector}`)) {
            const otherBoot = kOtherBoot.test(titleOf(unit));
            const before = lines.length;
            let strange = false;
            for (const pre of presOf(unit)) {
                const text = pre.textContent;
                for (const match of text.matchAll(kTime)) {
                    const report = !compared ? 0
                        : reportOf(pre, match[0].startsWith('-') ? pre.querySelector('del') : null, unit);
                    const time = sinceBoot(match, report, otherBoot);
                    const x = time === null ? null : axis.xOf(report, time);
                    if (x === null) strange = true;
                    else lines.push({x, unit, report, pre, from: match.index});
                }
                strange = strange || kOtherClock.test(text);
            }
            if (lines.length === before && strange) unplaced.push(unit);
            if (unit.dataset.at !== undefined) {
                const x = axis.xOf(0, 1000 * Number(unit.dataset.at));
                if (x !== null) lines.push({x, unit, pre: null, from: 0});
            }
        }
        lines.sort((a, b) => a.x - b.x);
    }

    const panel = document.querySelector('#around');
    const kLines = 15;  // before, and after
    const lineOf = ({pre, from}) => {
        const text = pre.textContent;
        return text.slice(from, Math.min((text + '\n').indexOf('\n', from), from + 400));
    };
    function offset(x, to) {
        const seconds = (to - x) / 1000;
        return (seconds < 0 ? '−' : '+') + (Math.abs(seconds) < 60 ? `${Math.abs(seconds).toFixed(3)} s` : duration(Math.abs(seconds)));
    }

    // Marks the time in the plots and opens the lines around it; `origin` is where it was chosen.
    function choose(x, origin = null) {
        if (lines === null) readLines();
        boardreport.mark(x);
        let next = 0;
        while (next < lines.length && lines[next].x < x) ++next;
        const list = element('ol');
        const same = line => origin && line.unit === origin.unit && line.from === origin.from && line.pre === (origin.pre ?? null);
        lines.slice(Math.max(0, next - kLines), next + kLines).forEach((line) => {
            const link = element('a', {href: `#${line.unit.id}`},
                element('span', {className: 'when', textContent: offset(x, line.x)}), ' ',
                element('span', {className: 'from', textContent: (compared ? `[${line.report}] ` : '') + titleOf(line.unit)}), ' ',
                element('code', {textContent: line.pre ? lineOf(line) : 'this section ran'}));
            link.addEventListener('click', event => { event.preventDefault(); openLine(line); });
            const item = element('li', {className: line.x < x ? 'before' : 'after'}, link);
            if (same(line)) item.classList.add('origin');
            list.append(item);
        });
        const close = element('button', {type: 'button', className: 'close', textContent: 'Close'});
        close.addEventListener('click', () => { leave(); document.querySelector('#plots').focus({preventScroll: true}); });
        const head = element('p', {className: 'around-head'}, element('strong', {textContent: `Logs around ${axis.tell(x)}`}), ' ');
        if (origin?.unit) {
            const back = element('button', {type: 'button', className: 'back', textContent: `Back to ${titleOf(origin.unit)}`});
            back.addEventListener('click', () => openLine({pre: null, from: 0, ...origin}));
            head.append(back, ' ');
        }
        head.append(close);
        panel.replaceChildren(head);
        if (list.children.length > 0) panel.append(list);
        else panel.append(element('p', {className: 'note', textContent: 'No line bears a time that could be placed.'}));
        if (unplaced.length > 0) {
            const names = unplaced.slice(0, 6).map(titleOf).join(', ') + (unplaced.length > 6 ? ` and ${unplaced.length - 6} more` : '');
            panel.append(element('p', {className: 'note', textContent: `Not among them, as their clock isn’t known: ${names}.`}));
        }
        if (boots.includes(null)) {
            panel.append(element('p', {className: 'note', textContent: 'Times of day can’t be placed where a report doesn’t say when the device booted.'}));
        }
        panel.hidden = false;
        // The plots are not to lie beneath the panel.
        const figure = (origin?.figure ?? document).querySelector('.plots');
        const {top, bottom} = figure.getBoundingClientRect();
        if (bottom < 200 || Math.min(bottom, top + 150) > 0.55 * innerHeight) figure.scrollIntoView({block: 'start'});
        const now = panel.querySelector('.after') ?? panel.querySelector('li:last-child');
        if (now) panel.scrollTop = now.offsetTop - panel.clientHeight / 2;
        boardreport.changed?.();
    }
    function openLine({unit, pre, from}) {
        reveal(unit);
        if (pre === null) {
            unit.scrollIntoView({block: 'start'});
        } else {
            const text = pre.textContent;
            const range = rangeIn([pre], from, Math.min((text + '\n').indexOf('\n', from), text.length));
            paint('line', [range]);
            scrollToRange(range);
        }
        unit.querySelector('summary')?.focus({preventScroll: true});
    }
    function leave() {
        panel.hidden = true;
        boardreport.mark(null);
        boardreport.changed?.();
    }
    panel.addEventListener('keydown', event => event.key === 'Escape' && leave());
    boardreport.choose = choose;
    boardreport.leaveMark = leave;
})();
