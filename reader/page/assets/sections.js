// The sections: links that open them, the search box, the buttons that copy their text.
'use strict';
(() => {
    // The last may be what is outside of the sections, which has no title.
    const sections = [...document.querySelectorAll('#sections :is([data-section], .outside)')];
    const titled = sections.filter(section => 'section' in section.dataset);
    const search = document.querySelector('input[type=search]');
    const found = document.querySelector('#found');

    const textOf = section =>
        [...section.querySelectorAll('pre')].map(pre => pre.textContent).join('');

    // A link to a section opens it, wherever the link came from.
    function openTarget() {
        let id;
        try {
            id = decodeURIComponent(location.hash.slice(1));
        } catch {
            return;  // not one of this page's
        }
        const place = document.getElementById(id);
        const target = place?.closest('details, [data-section]');
        if (!target) return;
        if (target.hidden) clearSearch();
        target.open = true;
        place.scrollIntoView({block: place === target ? 'start' : 'center'});
        target.querySelector('summary')?.focus({preventScroll: true});
    }
    addEventListener('hashchange', openTarget);
    document.addEventListener('click', event => {
        const link = event.target.closest('a[href^="#"]');
        // Following a link to where one already is changes no hash.
        if (link && link.getAttribute('href') === location.hash) openTarget();
    });

    // Lower-case texts, made when somebody first searches.
    const lower = new Map();
    const differing = document.querySelector('#differing');
    const onlyDiffering = () => differing && differing.getAttribute('aria-pressed') === 'true';
    function matches(section, words) {
        if (onlyDiffering() && !('differs' in section.dataset)) return false;
        if (words === '') return true;
        if (!lower.has(section)) {
            lower.set(section, ((section.dataset.section ?? '') + '\n' + textOf(section)).toLowerCase());
        }
        return lower.get(section).includes(words);
    }

    let last = '';
    function filter() {
        const words = search.value.toLowerCase();
        // More of the same word can't be where less of it was not.
        const narrower = last !== '' && words.includes(last);
        for (const section of sections) {
            if (!narrower || !section.hidden) section.hidden = !matches(section, words);
        }
        last = words;
        const shown = titled.filter(section => !section.hidden).length;
        found.textContent = shown === titled.length ? '' : `${shown} of ${titled.length}`;
        mark();
    }
    function clearSearch() {
        search.value = '';
        filter();
    }

    // Marks what was searched for in the sections that are open, without touching their elements.
    const kMostMarks = 2000;
    function mark() {
        if (!window.CSS || !CSS.highlights) return;
        const ranges = [];
        if (last !== '') {
            for (const section of sections.filter(one => one.open !== false && !one.hidden)) {
                const walker = document.createTreeWalker(section, NodeFilter.SHOW_TEXT);
                while (walker.nextNode() && ranges.length < kMostMarks) {
                    const text = walker.currentNode.data.toLowerCase();
                    if (text.length !== walker.currentNode.length) continue;
                    let at = text.indexOf(last);
                    for (; at >= 0 && ranges.length < kMostMarks; at = text.indexOf(last, at + 1)) {
                        const range = new StaticRange({
                            startContainer: walker.currentNode, startOffset: at,
                            endContainer: walker.currentNode, endOffset: at + last.length,
                        });
                        ranges.push(range);
                    }
                }
            }
        }
        CSS.highlights.set('found', new Highlight(...ranges));
    }

    if (search) {
        search.addEventListener('input', filter);
        search.addEventListener('keydown', event => {
            const first = sections.find(section => !section.hidden);
            if (event.key === 'Enter' && search.value !== '' && first) {
                event.preventDefault();  // or it would close again what has the focus by then
                first.open = true;
                first.querySelector('summary')?.focus();
                first.scrollIntoView({block: 'nearest'});
            } else if (event.key === 'Escape') {
                clearSearch();
            }
        });
        document.addEventListener('keydown', event => {
            const typing = /^(INPUT|TEXTAREA|SELECT)$/.test(document.activeElement.tagName);
            if (event.key !== '/' || typing || event.ctrlKey || event.metaKey) return;
            event.preventDefault();
            search.focus();
        });
        document.querySelector('#sections').addEventListener('toggle', () => last !== '' && mark(), true);
    }

    if (differing) {
        differing.addEventListener('click', () => {
            differing.setAttribute('aria-pressed', !onlyDiffering());
            last = '';  // what was hidden may match again
            filter();
        });
    }

    const all = document.querySelector('#open-all');
    if (all) {
        all.addEventListener('click', () => {
            const open = all.getAttribute('aria-pressed') !== 'true';
            for (const section of sections) section.open = open;
            all.setAttribute('aria-pressed', open);
            all.textContent = open ? 'Close all' : 'Open all';
        });
    }

    // file: has a clipboard in some browsers, in others only a selection can be copied.
    async function copy(section) {
        try {
            await navigator.clipboard.writeText(textOf(section));
            return true;
        } catch {
            const pre = section.querySelectorAll('pre');
            const selection = getSelection();
            selection.setBaseAndExtent(pre[0], 0, pre[pre.length - 1],
                                       pre[pre.length - 1].childNodes.length);
            return document.execCommand('copy');
        }
    }
    // The button comes when the section is opened.
    function offerCopy(section) {
        const text = section.querySelector('.text');
        if (!text || text.querySelector('.copy')) return;
        const button = document.createElement('button');
        button.type = 'button';
        button.className = 'copy';
        button.textContent = 'Copy';
        text.prepend(button, '\n');
    }
    document.querySelector('#sections')?.addEventListener('toggle', event => {
        if (event.target.open && 'section' in event.target.dataset) offerCopy(event.target);
    }, true);
    document.addEventListener('click', async event => {
        const button = event.target.closest('button.copy');
        if (!button) return;
        const copied = await copy(button.closest('[data-section]'));
        button.textContent = copied ? 'Copied' : 'Selected';
        setTimeout(() => { button.textContent = 'Copy'; }, 1500);
    });

    openTarget();
})();
