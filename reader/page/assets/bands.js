// What is drawn in a plot besides its lines: when it was worn, gestures, and where a sensor froze,
// paused or fell silent.
'use strict';

// Of one sensor of one report, in x: [{kind, words, from, to}]. `newest`: the x of the newest record
// of the report's sensors.
function troublesOf(set, xOf, newest) {
    const troubles = [];
    const {times, gap} = set;
    for (const [, what, begin, end] of (set.still ?? '').matchAll(/(\S+) (\d+)-(\d+)/g)) {
        const x = time => set.start + Number(BigInt(time) - set.first) / 1e6;
        const words = what === 'froze' ? 'froze' : `${what[0]} stood still`;
        troubles.push({kind: 'frozen', words, from: x(begin), to: x(end)});
    }
    for (let i = 1; i < times.length; ++i) {
        if (!(times[i] - times[i - 1] > gap)) continue;
        troubles.push({kind: 'gap', words: 'gap', from: xOf(set, i - 1), to: xOf(set, i)});
    }
    const end = xOf(set, times.length - 1);
    if (set.silent && newest > end) troubles.push({kind: 'silent', words: 'silent', from: end, to: newest});
    return troubles;
}
const tellTrouble = ({words, from, to}) => `${words} for ${duration((to - from) / 1000)}`;

// A band from edge to edge with its word, where there is room for it.
function drawTrouble(canvas, where, {words, kind}, from, to, colour) {
    canvas.save();
    canvas.beginPath();
    const width = Math.max(1.5, to - from);
    canvas.rect(from, where.y, width, where.h);
    canvas.fillStyle = canvas.strokeStyle = colour;
    canvas.globalAlpha = 0.1;
    canvas.fill();
    canvas.clip();
    canvas.globalAlpha = 0.45;
    canvas.lineWidth = 1;
    const slant = kind === 'gap' ? 0 : kind === 'silent' ? -where.h : where.h;
    canvas.beginPath();
    // No more lines than can be told apart, whatever the width.
    for (let x = Math.max(from, where.x) - where.h; slant !== 0 && x < to + where.h; x += 9) {
        canvas.moveTo(x, where.y + where.h);
        canvas.lineTo(x + slant, where.y);
    }
    canvas.rect(from, where.y - 1, width, where.h + 2);
    canvas.stroke();
    canvas.restore();
    canvas.save();
    canvas.font = '600 11px system-ui, sans-serif';
    const room = canvas.measureText(words).width + 8;
    if (to - from > room || kind !== 'gap') {
        // A freeze or silence that is too thin for its word has it on its left.
        const x = to - from > room ? from + 4 : Math.max(where.x, from - room + 4);
        canvas.fillStyle = colour;
        canvas.fillText(words, x, where.y + where.h - 6);
    }
    canvas.restore();
}

// Each gesture has a mark of its own, about `size` wide around x, y.
const gestureShapes = ['▼', '◆', '●', '▲', '■', '★', '✚', '⬟'];
function drawGesture(canvas, nth, x, y, size, colour) {
    canvas.save();
    canvas.font = `${size * 2}px system-ui, "DejaVu Sans", sans-serif`;
    canvas.textAlign = 'center';
    canvas.textBaseline = 'middle';
    canvas.fillStyle = colour;
    canvas.fillText(gestureShapes[nth % gestureShapes.length], x, y);
    canvas.restore();
}

// The time that was chosen: a line through every plot.
function drawMark(canvas, where, x, colour) {
    canvas.save();
    canvas.fillStyle = colour;
    canvas.fillRect(x - 1, where.y, 2, where.h);
    canvas.beginPath();
    canvas.moveTo(x, where.y + where.h - 7);
    canvas.lineTo(x - 6, where.y + where.h);
    canvas.lineTo(x + 6, where.y + where.h);
    canvas.fill();
    canvas.restore();
}
