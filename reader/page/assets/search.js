// The search: counts hits in sections, logs and facts, goes from one to the next, and hides the
// sections and logs without any.
'use strict';
(() => {
    const search = document.querySelector('input[type=search]');
    const found = document.querySelector('#found');
    const units = [...document.querySelectorAll(`:is(#sections, #bundle) ${unitSelector}`)];
    const facts = [...document.querySelectorAll('#facts :is(dl > div, tbody > tr)')];
    const series = [...document.querySelectorAll('.series')];
    const filters = [
        // button, whether a unit passes, what is left in words
        [document.querySelector('#failing'), unit => 'failed' in unit.dataset, 'what failed'],
        [document.querySelector('#differing'), unit => 'differs' in unit.dataset, 'what differs'],
    ].filter(([button]) => button);
    const pressed = () => filters.filter(([button]) => button.getAttribute('aria-pressed') === 'true');

    // Where it is looked into, and that in lower case with every character where it was.
    const partsOf = place => facts.includes(place) ? [place]
        : [place.querySelector('.title'), ...presOf(place)].filter(Boolean);
    const lower = new Map();
    function textOf(place) {
        let text = lower.get(place);
        if (text === undefined) {
            text = toLower(partsOf(place).map(part => part.textContent).join(''));
            lower.set(place, text);
        }
        return text;
    }
    function toLower(text) {
        const all = text.toLowerCase();
        if (all.length === text.length) return all;
        return Array.from(text, c => c.toLowerCase().length === c.length ? c.toLowerCase() : c).join('');
    }
    function count(text, words) {
        let hits = 0;
        for (let at = text.indexOf(words); at >= 0; at = text.indexOf(words, at + words.length)) ++hits;
        return hits;
    }

    let last = '';
    let hits = [];     // [place, how many], those with any, in the page's order and facts last
    let total = 0;
    let current = -1;  // which of all hits
    function filter(anew = false) {
        const words = toLower(search.value);
        const wanted = pressed();
        // More of the same word can't be where less of it was not.
        const narrower = !anew && last !== '' && words.includes(last);
        hits = [];
        for (const unit of units) {
            if (narrower && unit.hidden) continue;
            const passes = wanted.every(([, test]) => test(unit));
            const n = passes && words !== '' ? count(textOf(unit), words) : 0;
            unit.hidden = !passes || (words !== '' && n === 0);
            if (n > 0) hits.push([unit, n]);
        }
        for (const fact of facts) {
            const n = words !== '' ? count(textOf(fact), words) : 0;
            fact.classList.toggle('hit', n > 0);
            if (n > 0) hits.push([fact, n]);
        }
        for (const one of series) one.hidden = !one.querySelector('[data-member]:not([hidden])');
        document.querySelector('#bundle')?.classList.toggle('filtered', words !== '' || wanted.length > 0);
        total = hits.reduce((sum, [, n]) => sum + n, 0);
        current = -1;
        last = words;
        tell();
        showSnippets();
        mark();
        boardreport.changed?.();
    }

    const some = (n, what) => `${n.toLocaleString('en')} ${what}${n === 1 ? '' : 's'}`;
    function tell() {
        const within = pressed().map(([, , what]) => what).join(' and ');
        if (last === '') {
            const shown = units.filter(unit => 'section' in unit.dataset && !unit.hidden).length;
            found.textContent = !within ? '' : shown === 0 ? `No section is among ${within}` : `${some(shown, 'section')}: ${within}`;
        } else if (total === 0) {
            found.textContent = `No hit for “${search.value}”${within ? ` in ${within}` : ''}`;
        } else {
            const kinds = [['section', ([p]) => 'section' in p.dataset], ['log', ([p]) => 'member' in p.dataset],
                           ['fact', ([p]) => facts.includes(p)]];
            const where = kinds.map(([what, is]) => [hits.filter(is).length, what]).filter(([n]) => n > 0);
            found.textContent = (current < 0 ? some(total, 'hit') : `${current + 1} of ${some(total, 'hit')}`) +
                (where.length > 0 ? ' in ' + where.map(([n, what]) => some(n, what)).join(', ') : '') +
                (within ? ` among ${within}` : '');
        }
    }

    // One line of each unit, beside its title: what stands around the first hit.
    const kMostSnippets = 500, kAround = 50;
    function showSnippets() {
        for (const old of document.querySelectorAll('.snippet')) old.remove();
        if (last === '') return;
        for (const [unit, n] of hits.slice(0, kMostSnippets)) {
            const head = unit.querySelector(':scope > summary');
            if (!head) continue;
            const text = partsOf(unit).map(part => part.textContent).join('');
            const title = partsOf(unit)[0].textContent.length;
            let at = textOf(unit).indexOf(last, title);
            const snippet = element('span', {className: 'snippet'}, some(n, 'hit'));
            if (at >= 0) {
                const line = text.lastIndexOf('\n', at - 1) + 1;
                const from = Math.max(line, title, at - kAround);
                const until = (text + '\n').indexOf('\n', at + last.length - 1);
                snippet.append(element('code', {}, text.slice(from, at),
                    element('mark', {textContent: text.slice(at, at + last.length)}),
                    text.slice(at + last.length, Math.max(at + last.length, Math.min(until, at + kAround + last.length)))));
            }
            head.append(snippet);
        }
    }

    // Marks the hits in what is open.
    const kMostMarks = 2000;
    function mark() {
        const ranges = [];
        for (const [place] of last === '' ? [] : hits) {
            if (place.open === false || ranges.length >= kMostMarks) continue;
            for (const part of partsOf(place)) {
                const walker = document.createTreeWalker(part, NodeFilter.SHOW_TEXT);
                while (walker.nextNode() && ranges.length < kMostMarks) {
                    const node = walker.currentNode, text = toLower(node.data);
                    for (let at = text.indexOf(last); at >= 0 && ranges.length < kMostMarks; at = text.indexOf(last, at + last.length)) {
                        ranges.push(new StaticRange({startContainer: node, startOffset: at,
                                                     endContainer: node, endOffset: at + last.length}));
                    }
                }
            }
        }
        paint('found', ranges);
    }

    function go(by) {
        if (total === 0) return;
        current = current < 0 && by < 0 ? total - 1 : (current + by + total) % total;
        let nth = current, i = 0;
        while (nth >= hits[i][1]) nth -= hits[i++][1];
        const [place] = hits[i];
        if (!facts.includes(place)) reveal(place);
        const text = textOf(place);
        let at = text.indexOf(last);
        while (nth-- > 0) at = text.indexOf(last, at + last.length);
        const range = rangeIn(partsOf(place), at, at + last.length);
        mark();
        paint('current', range ? [range] : []);
        if (facts.includes(place)) place.querySelector('dd, th')?.scrollIntoView({block: 'center'});
        else if (range) scrollToRange(range);
        tell();
    }

    boardreport.clearSearch = () => {
        search.value = '';
        for (const [button] of filters) button.setAttribute('aria-pressed', false);
        filter(true);
    };
    boardreport.search = {
        get: () => ({words: search.value, filters: pressed().map(([button]) => button.id)}),
        set: (words, chosen) => {
            search.value = words;
            for (const [button] of filters) button.setAttribute('aria-pressed', chosen.includes(button.id));
            filter(true);
        },
    };
    search.addEventListener('input', () => filter());
    search.addEventListener('keydown', event => {
        if (event.key === 'Enter') {
            event.preventDefault();
            go(event.shiftKey ? -1 : 1);
        } else if (event.key === 'Escape') {
            boardreport.clearSearch();
        }
    });
    document.querySelector('#next').addEventListener('click', () => go(1));
    document.querySelector('#previous').addEventListener('click', () => go(-1));
    for (const [button] of filters) {
        button.addEventListener('click', () => {
            button.setAttribute('aria-pressed', button.getAttribute('aria-pressed') !== 'true');
            filter(true);  // what was hidden may match again
        });
    }
    document.addEventListener('keydown', event => {
        const typing = /^(INPUT|TEXTAREA|SELECT)$/.test(document.activeElement.tagName);
        if (event.key !== '/' || typing || event.ctrlKey || event.metaKey) return;
        event.preventDefault();
        search.focus();
    });
    document.addEventListener('toggle', () => last !== '' && mark(), true);
})();
