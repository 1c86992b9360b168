// The address holds how the page is looked at, so that a page attached to a bug can be pointed into:
// #PLACE?zoom=FROM,TO&mark=X&hide=0,2&q=WORDS&only=failing
'use strict';
(() => {
    const place = () => location.hash.slice(1).split('?')[0];
    function write() {
        const said = new URLSearchParams();
        const zoom = boardreport.view?.get();
        if (zoom) said.set('zoom', zoom.map(x => x.toFixed(3)).join());
        const mark = boardreport.view?.mark();
        if (mark !== null && mark !== undefined) said.set('mark', mark.toFixed(3));
        const hidden = boardreport.hidden?.get() ?? [];
        if (hidden.length > 0) said.set('hide', hidden.join());
        const {words, filters} = boardreport.search.get();
        if (words) said.set('q', words);
        if (filters.length > 0) said.set('only', filters.join());
        const text = said.toString().replaceAll('%2C', ',');
        const hash = place() + (text ? `?${text}` : '');
        if (hash !== location.hash.slice(1)) history.replaceState(null, '', `#${hash}`);
    }
    function read() {
        const said = new URLSearchParams(location.hash.slice(1).split('?').slice(1).join('?'));
        const numbers = key => (said.get(key) ?? '').split(',').filter(Boolean).map(Number).filter(Number.isFinite);
        if (said.has('q') || said.has('only')) boardreport.search.set(said.get('q') ?? '', (said.get('only') ?? '').split(','));
        if (said.has('hide')) boardreport.hidden?.set(numbers('hide'));
        const [from, to] = numbers('zoom');
        if (to > from) boardreport.view?.set(from, to);
        const [mark] = numbers('mark');
        if (mark !== undefined) boardreport.choose?.(mark);
    }
    // A slide of the plots is many changes, of which the last counts.
    let waiting = 0;
    boardreport.changed = () => {
        clearTimeout(waiting);
        waiting = setTimeout(write, 150);
    };
    addEventListener('hashchange', () => location.hash.includes('?') ? read() : write());
    read();
    boardreport.openTarget();
})();
window.boardreport.ready = true;
