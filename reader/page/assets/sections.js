// The sections and logs: links that open them, the buttons that copy their text.
'use strict';
(() => {
    // A link to a unit opens it, wherever the link came from. Behind the place stands how the page is
    // looked at, which is no part of its name.
    function openTarget() {
        let id;
        try {
            id = decodeURIComponent(location.hash.slice(1).split('?')[0]);
        } catch {
            return;  // not one of this page's
        }
        const place = id && document.getElementById(id);
        const target = place && place.closest(`details, ${unitSelector}`);
        if (!target) return;
        reveal(target);
        place.scrollIntoView({block: place === target ? 'start' : 'center'});
        target.querySelector('summary')?.focus({preventScroll: true});
    }
    addEventListener('hashchange', openTarget);
    document.addEventListener('click', event => {
        const link = event.target.closest('a[href^="#"]');
        // Following a link to where one already is changes no hash.
        if (link && link.getAttribute('href') === location.hash) openTarget();
    });

    const all = document.querySelector('#open-all');
    all?.addEventListener('click', () => {
        const open = all.getAttribute('aria-pressed') !== 'true';
        for (const section of document.querySelectorAll('#sections > details')) section.open = open;
        all.setAttribute('aria-pressed', open);
        all.textContent = open ? 'Close all' : 'Open all';
    });

    // file: has a clipboard in some browsers, in others only a selection can be copied.
    async function copy(unit) {
        const pres = presOf(unit);
        try {
            await navigator.clipboard.writeText(pres.map(pre => pre.textContent).join(''));
            return true;
        } catch {
            const last = pres[pres.length - 1];
            getSelection().setBaseAndExtent(pres[0], 0, last, last.childNodes.length);
            return document.execCommand('copy');
        }
    }
    preparations.push(unit => {
        const text = unit.querySelector('.text');
        if (!text || !unit.matches('details')) return;
        text.prepend(element('button', {type: 'button', className: 'copy', textContent: 'Copy'}), '\n');
    });
    document.addEventListener('toggle', event => {
        if (event.target.open && event.target.matches?.(unitSelector)) prepare(event.target);
    }, true);
    document.addEventListener('click', async event => {
        const button = event.target.closest('button.copy');
        if (!button) return;
        const copied = await copy(button.closest(unitSelector));
        button.textContent = copied ? 'Copied' : 'Selected';
        setTimeout(() => { button.textContent = 'Copy'; }, 1500);
    });

    boardreport.openTarget = openTarget;
})();
