// The timeline: the bar under the pointer or the focus says its title and seconds beneath; the
// arrow keys go from bar to bar, so that the whole strip is one stop of the tab key.
'use strict';
for (const strip of document.querySelectorAll('.strip')) {
    const bars = [...strip.querySelectorAll('[data-bar]')];
    const told = document.querySelector('#bar-told');
    const idle = told.textContent;
    const tell = bar => { told.textContent = bar ? bar.getAttribute('aria-label') : idle; };
    const barOf = event => event.target.closest('[data-bar]');

    bars.forEach((bar, i) => bar.setAttribute('tabindex', i === 0 ? 0 : -1));
    strip.addEventListener('focusin', event => tell(barOf(event)));
    strip.addEventListener('focusout', () => tell(null));
    strip.addEventListener('pointerover', event => tell(barOf(event)));
    strip.addEventListener('pointerout', () => tell(barOf({target: document.activeElement})));
    strip.addEventListener('keydown', event => {
        const at = bars.indexOf(document.activeElement);
        const to = {
            ArrowLeft: at - 1, ArrowUp: at - 1, ArrowRight: at + 1, ArrowDown: at + 1,
            Home: 0, End: bars.length - 1,
        }[event.key];
        if (at < 0 || to === undefined) return;
        event.preventDefault();
        if (!bars[to]) return;
        bars[at].setAttribute('tabindex', -1);
        bars[to].setAttribute('tabindex', 0);
        bars[to].focus();
    });
}
