// A sensor's records, as the page carries them and as they are drawn.
'use strict';

// A data element's base64 holds, little-endian:
//   data-columns columns of data-records values each, as float32
//   data-times="delta": for each record one variable-length number, seven bits a byte, the lowest
//     first, the highest bit set where more follow; (n >> 1) ^ -(n & 1) is by how many data-unit
//     nanoseconds the step to this record is longer than expected: the step that is expected is 0
//     at first, and after each record an eighth of that, towards 0, is added to it
//   data-times="plain": for each record a float64, in data-unit nanoseconds
// Times count from data-first, nanoseconds since boot as a decimal number.
function readRecords(element) {
    const bytes = fromBase64(element.textContent);
    const count = Number(element.dataset.records);
    const columns = [];
    for (let i = 0; i < Number(element.dataset.columns); ++i) {
        columns.push(new Float32Array(bytes.buffer, bytes.byteOffset + 4 * count * i, count));
    }
    const packed = bytes.subarray(4 * count * columns.length);
    const unit = Number(element.dataset.unit);
    const read = element.dataset.times === 'plain' ? readPlainTimes : readTimes;
    const records = {
        report: Number(element.dataset.report),
        first: BigInt(element.dataset.first),
        gap: Number(element.dataset.gap),  // a longer step, in nanoseconds, is a gap
        still: element.dataset.still,          // when its values stood still
        silent: 'silent' in element.dataset,   // it ended before the others
        times: read(packed, count, unit),  // nanoseconds after the first
        columns,
    };
    sortByTime(records);
    return records;
}

function fromBase64(text) {
    if (Uint8Array.fromBase64) return Uint8Array.fromBase64(text);
    const characters = atob(text);
    const bytes = new Uint8Array(characters.length);
    for (let i = 0; i < bytes.length; ++i) bytes[i] = characters.charCodeAt(i);
    return bytes;
}

function readTimes(packed, count, unit) {
    const times = new Float64Array(count);
    let at = 0, expected = 0, time = 0;
    for (let i = 0; i < count; ++i) {
        let number = 0, scale = 1, byte;
        do {
            byte = packed[at++];
            number += (byte & 127) * scale;
            scale *= 128;
        } while (byte > 127);
        const surprise = number % 2 === 0 ? number / 2 : -(number + 1) / 2;
        time += expected + surprise;
        expected += Math.trunc(surprise / 8);
        times[i] = time * unit;
    }
    return times;
}

function readPlainTimes(packed, count, unit) {
    const view = new DataView(packed.buffer, packed.byteOffset, 8 * count);
    return Float64Array.from({length: count}, (_, i) => view.getFloat64(8 * i, true) * unit);
}

// A hub whose clock went astray sends times that run backwards.
function sortByTime(records) {
    const {times, columns} = records;
    let sorted = 1;
    while (sorted < times.length && times[sorted - 1] <= times[sorted]) ++sorted;
    if (sorted >= times.length) return;
    const order = Uint32Array.from(times.keys()).sort((a, b) => times[a] - times[b]);
    records.times = Float64Array.from(order, i => times[i]);
    records.columns = columns.map(column => Float32Array.from(order, i => column[i]));
}

// The index of the first record that is not before `time`.
function firstNotBefore(times, time) {
    let low = 0, high = times.length;
    while (low < high) {
        const middle = (low + high) >> 1;
        if (times[middle] < time) low = middle + 1; else high = middle;
    }
    return low;
}

function nearest(times, time) {
    const next = firstNotBefore(times, time);
    if (next === 0) return 0;
    if (next === times.length || time - times[next - 1] < times[next] - time) return next - 1;
    return next;
}

// What there is to draw from `from` to `to` (nanoseconds after the first record) on so many
// pixels, as [time, value of the first column, ...] in the order of time: the records, where they
// are few, else the least and the greatest value of each pixel, which looks the same. A row of NaN
// stands in each gap. One record more on either side takes the lines to the edges.
function thin({times, columns, gap}, from, to, pixels) {
    const begin = Math.max(0, firstNotBefore(times, from) - 1);
    const end = Math.min(times.length, firstNotBefore(times, to) + 1);
    const rows = [];
    const few = end - begin <= 2 * pixels;
    const width = (to - from) / pixels;
    let next = begin;
    while (next < end) {
        const start = next;
        const edge = few ? times[start] : from + (Math.floor((times[start] - from) / width) + 1) * width;
        do ++next; while (next < end && times[next] < edge && times[next] - times[next - 1] <= gap);
        if (start > begin && times[start] - times[start - 1] > gap) {
            rows.push([(times[start] + times[start - 1]) / 2, ...columns.map(() => NaN)]);
        }
        if (next - start === 1) {
            rows.push([times[start], ...columns.map(column => finite(column[start]))]);
            continue;
        }
        const least = [times[start]], greatest = [times[next - 1]];
        for (const column of columns) {
            let low = Infinity, high = -Infinity;
            for (let i = start; i < next; ++i) {
                const value = column[i];
                if (value < low) low = value;
                if (value > high) high = value;
            }
            least.push(finite(low));
            greatest.push(finite(high));
        }
        rows.push(least, greatest);
    }
    return rows;
}

// A value that can't be drawn breaks the line as a gap does.
function finite(value) {
    return Number.isFinite(value) ? value : NaN;
}
