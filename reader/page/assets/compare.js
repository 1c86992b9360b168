// Each of several reports can be hidden and shown: in the plots, the timeline and the tables.
'use strict';
(() => {
    const area = document.querySelector('#plots');
    const count = Number(area?.dataset.reports ?? 1);
    if (count < 2) return;
    const hidden = new Set();
    const bars = [...document.querySelectorAll('.strip, .strip-axis')];
    const buttons = Array.from({length: count}, (_, report) => {
        const button = element('button', {type: 'button', title: `Hide or show report ${report}` + (report < 9 ? ` (Alt+${report + 1})` : '')},
            element('b', {className: `chip chip-${report % 12 + 1}`, textContent: `[${report}]`}));
        button.setAttribute('aria-label', `Report ${report}`);
        button.setAttribute('aria-pressed', true);
        button.addEventListener('click', () => toggle(report));
        return button;
    });
    const bar = element('div', {className: 'reports', id: 'reports'}, 'Shown: ', ...buttons);
    bar.setAttribute('role', 'group');
    bar.setAttribute('aria-label', 'Reports that are shown');
    document.querySelector('header').after(bar);

    function toggle(report) {
        if (!hidden.delete(report)) hidden.add(report);
        apply();
        boardreport.changed?.();
    }
    function apply() {
        buttons.forEach((button, report) => button.setAttribute('aria-pressed', !hidden.has(report)));
        bars.forEach((one, i) => { one.hidden = hidden.has(Math.floor(i / 2)); });
        // A column a report, after the rows' heads.
        for (const row of document.querySelectorAll(':is(.compared, .findings, .times) tr')) {
            for (let report = 0; report + 1 < row.cells.length; ++report) row.cells[report + 1].hidden = hidden.has(report);
        }
        boardreport.hideInPlots?.(hidden);
    }
    document.addEventListener('keydown', event => {
        const report = Number(event.code?.match(/^Digit([1-9])$/)?.[1] ?? 0) - 1;
        if (!event.altKey || event.ctrlKey || report < 0 || report >= count) return;
        event.preventDefault();
        toggle(report);
    });
    boardreport.hidden = {
        get: () => [...hidden].sort((a, b) => a - b),
        set: reports => { hidden.clear(); reports.forEach(report => hidden.add(report)); apply(); },
    };
})();
