// What a page can be pointed into: its sections and the logs of its bundle, called units here, and
// places in their texts.
'use strict';
window.boardreport = {ready: false, plots: []};

const unitSelector = ':is([data-section], [data-member], .outside)';
const titleOf = unit => unit.dataset.section ?? unit.dataset.member?.replace(/.*\//, '') ?? 'Lines outside of sections';
const presOf = unit => [...unit.querySelectorAll('pre')];

// What is done to a unit once, when it is first opened: a list that other scripts add to.
const preparations = [];
function prepare(unit) {
    if (unit.dataset.prepared !== undefined) return;
    unit.dataset.prepared = '';
    for (const one of preparations) one(unit);
}

// Opens the unit and what it is in, also if a search hides it.
function reveal(unit) {
    if (unit.closest('[hidden]')) boardreport.clearSearch();
    for (let at = unit.closest('details'); at; at = at.parentElement.closest('details')) at.open = true;
    prepare(unit);
}

// From the `from`th to the `to`th character of the roots' texts, one after the other.
function rangeIn(roots, from, to) {
    const range = document.createRange();
    let before = 0, begun = false;
    for (const root of roots) {
        const walker = document.createTreeWalker(root, NodeFilter.SHOW_TEXT);
        while (walker.nextNode()) {
            const node = walker.currentNode;
            if (!begun && from < before + node.length) {
                range.setStart(node, from - before);
                begun = true;
            }
            if (begun && to <= before + node.length) {
                range.setEnd(node, to - before);
                return range;
            }
            before += node.length;
        }
    }
    return begun ? range : null;
}

// Colours ranges as ::highlight(name) says, without touching their elements.
function paint(name, ranges) {
    if (window.CSS?.highlights) CSS.highlights.set(name, new Highlight(...ranges));
}

function scrollToRange(range) {
    const {top, bottom} = range.getBoundingClientRect();
    if (top < 80 || bottom > innerHeight - 40) scrollBy(0, top - innerHeight / 3);
}

// As on the rest of the page: "2 min 54 s", below a minute "4.5 s".
function duration(seconds) {
    if (seconds < 60) return `${seconds.toFixed(seconds < 10 ? 1 : 0)} s`;
    const whole = Math.round(seconds);
    const both = (large, of, small, rest) => `${Math.floor(large)} ${of}` + (small > 0 ? ` ${small} ${rest}` : '');
    if (whole < 3600) return both(whole / 60, 'min', whole % 60, 's');
    if (whole < 86400) return both(whole / 3600, 'h', Math.floor(whole % 3600 / 60), 'min');
    return both(whole / 86400, 'd', Math.floor(whole % 86400 / 3600), 'h');
}

function element(name, properties = {}, ...children) {
    const made = Object.assign(document.createElement(name), properties);
    made.append(...children);
    return made;
}

// What needs scripts comes with them, and what stands for it goes.
for (const tools of document.querySelectorAll('.tools')) tools.hidden = false;
for (const numbers of document.querySelectorAll('.numbers')) numbers.open = false;
