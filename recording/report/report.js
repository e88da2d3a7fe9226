// Draws the report of a recording from the JSON in the page.
'use strict';

const data = JSON.parse(document.getElementById('data').textContent);
const main = document.getElementById('report');
const dark = matchMedia('(prefers-color-scheme: dark)');
const color = (name) => getComputedStyle(document.documentElement).getPropertyValue(`--${name}`).trim();
const seriesColors = ['c0', 'c1', 'c2', 'c3', 'c4', 'c5'];

// Words and numbers

const whole = new Intl.NumberFormat('en');
const count = (number) => whole.format(number);

/** Microseconds for people, in three digits. */
function duration(microseconds) {
    const units = [[1e6, 's'], [1e3, 'ms'], [1, 'µs']];
    const [size, unit] = units.find(([least]) => microseconds >= least) ?? [1, 'µs'];
    const value = microseconds / size;
    return `${value >= 100 || size === 1 ? Math.round(value) : value.toPrecision(3)} ${unit}`;
}

function bytes(number) {
    const unit = number > 0 ? Math.min(4, Math.floor(Math.log2(number) / 10)) : 0;
    const value = number / 1024 ** unit;
    return `${unit === 0 || value >= 100 ? Math.round(value) : value.toFixed(1)} ${['B', 'KiB', 'MiB', 'GiB', 'TiB'][unit]}`;
}

const percent = (part, all) => (all > 0 ? `${((part / all) * 100).toFixed(part / all < 0.1 ? 1 : 0)} %` : '–');

// Parts of the page

function element(tag, properties = {}, ...children) {
    const made = Object.assign(document.createElement(tag), properties);
    made.append(...children);
    return made;
}

function section(title, note, ...children) {
    return element('section', {}, element('h2', { textContent: title }), element('p', { textContent: note }), ...children);
}

/** columns: {name, value(row), shown(value), kind: 'text' | 'path' | undefined, share: true for a bar behind the number} */
function table(columns, rows) {
    const body = element('tbody');
    const fill = () => body.replaceChildren(...rows.map((row) => element('tr', {}, ...columns.map((column) => cell(column, row)))));
    const most = new Map(columns.map((column) => [column, Math.max(1, ...rows.map((row) => (column.share ? column.value(row) : 0)))]));
    function cell(column, row) {
        const value = column.value(row);
        const shown = column.shown ? column.shown(value) : String(value);
        if (column.kind === 'path') return element('td', { className: 'path', title: shown }, element('bdi', { textContent: shown }));
        const made = element('td', { className: column.share ? 'bar' : column.kind ?? '', textContent: shown });
        if (column.share) made.style.setProperty('--share', `${(value / most.get(column)) * 100}%`);
        return made;
    }
    const heads = columns.map((column) => {
        const head = element('th', { className: column.kind ? 'text' : '', textContent: column.name, scope: 'col' });
        head.onclick = () => {
            const descending = head.getAttribute('aria-sort') !== 'descending';
            heads.forEach((other) => other.removeAttribute('aria-sort'));
            head.setAttribute('aria-sort', descending ? 'descending' : 'ascending');
            const order = (a, b) => (a < b ? -1 : a > b ? 1 : 0) * (descending ? -1 : 1);
            rows.sort((a, b) => order(column.value(a), column.value(b)));
            fill();
        };
        return head;
    });
    fill();
    return element('table', {}, element('thead', {}, element('tr', {}, ...heads)), body);
}

// Charts

const charts = []; // how each is drawn, for when colours or sizes change

function chart(holder, make) {
    let drawn;
    charts.push(() => {
        drawn?.destroy();
        const { options, values } = make();
        drawn = new uPlot({ width: Math.max(320, holder.clientWidth), ...options }, values, holder);
    });
}

const axis = (more) => ({
    stroke: color('soft'), grid: { stroke: color('line'), width: 1 }, ticks: { stroke: color('line'), width: 1 },
    font: '12px system-ui, "DejaVu Sans", sans-serif', ...more,
});

const line = (label, name, more) => ({ label, stroke: color(name), width: 1.5, points: { show: false }, ...more });

function timeLine() {
    const slot = data.timeLine.slot / 1e6; // seconds
    const slots = data.timeLine.slots;
    const times = slots.map((_, index) => index * slot);
    const rate = (place) => slots.map((each) => each[place] / slot);
    const hasRequests = slots.some((each) => each[1] > 0);
    const hasErrors = slots.some((each) => each[2] > 0);
    const scaleX = { x: { time: false, range: [0, Math.max(slot, slots.length * slot)] } };
    const seconds = (_, value) => (value == null ? '–' : `${value.toFixed(slot < 0.01 ? 3 : slot < 1 ? 2 : 0)} s`);
    const perSecond = (_, value) => (value == null ? '–' : `${count(Math.round(value))} /s`);
    const x = axis({ values: (_, values) => values.map((value) => `${value} s`) });
    const sync = { key: 'time' };
    const rates = element('div');
    chart(rates, () => ({
        options: {
            height: 240, scales: scaleX, cursor: { sync },
            axes: [x, axis({ label: 'per second', labelFont: '12px system-ui, "DejaVu Sans", sans-serif', size: 64, values: (_, values) => values.map((value) => whole.format(value)) })],
            series: [
                { label: 'after', value: seconds },
                line('exchanges with the helper', 'c0', { value: perSecond, fill: color('c0') + '22' }),
                ...(hasRequests ? [line('requests of the kernel', 'c1', { value: perSecond })] : []),
                ...(hasErrors ? [line('errors', 'c4', { value: perSecond })] : []),
            ],
        },
        values: [times, rate(0), ...(hasRequests ? [rate(1)] : []), ...(hasErrors ? [rate(2)] : [])],
    }));
    const busy = element('div');
    chart(busy, () => ({
        options: {
            height: 150, scales: { ...scaleX, y: { range: [0, 100] } }, cursor: { sync },
            axes: [x, axis({ label: 'helper busy', labelFont: '12px system-ui, "DejaVu Sans", sans-serif', size: 64, values: (_, values) => values.map((value) => `${value} %`) })],
            series: [
                { label: 'after', value: seconds },
                line('time in which the helper was asked', 'c2', { fill: color('c2') + '22', value: (_, value) => (value == null ? '–' : `${value.toFixed(0)} %`) }),
            ],
        },
        values: [times, slots.map((each) => Math.min(100, each[3] / 1e4 / slot))],
    }));
    return section('Time line', `What was asked when, in slots of ${duration(data.timeLine.slot)}. Drag to look closer, double-click to see all.`, rates, busy);
}

const lowerBound = (bucket) => (bucket === 0 ? 0.5 : 2 ** ((bucket - 1) / 4)); // microseconds

/** How many of a kind were answered within a time, one line for each of the most frequent kinds. */
function latencies(title, note, tallies) {
    const shown = [...tallies].sort((a, b) => b.sum - a.sum).slice(0, seriesColors.length);
    const used = shown.flatMap((tally) => tally.buckets.map(([bucket]) => bucket));
    const first = Math.max(0, Math.min(...used) - 1);
    const last = Math.max(...used) + 1;
    const ends = Array.from({ length: last - first + 1 }, (_, index) => lowerBound(first + index));
    const curve = ({ buckets, count: all }) => {
        const within = new Map(buckets);
        let sum = 0;
        return ends.map((_, index) => {
            if (index > 0) sum += within.get(first + index - 1) ?? 0;
            return (sum / all) * 100;
        });
    };
    const holder = element('div');
    chart(holder, () => ({
        options: {
            height: 260, scales: { x: { time: false, distr: 3, log: 10 }, y: { range: [0, 100] } },
            axes: [
                axis({ values: (_, values) => values.map((value) => (value == null ? '' : duration(value))), filter: (_, values) => values.map((value) => (Number.isInteger(Math.log10(value)) ? value : null)) }),
                axis({ size: 56, values: (_, values) => values.map((value) => `${value} %`) }),
            ],
            series: [
                { label: 'within', value: (_, value) => (value == null ? '–' : duration(value)) },
                ...shown.map((tally, index) => line(tally.op, seriesColors[index], { value: (_, value) => (value == null ? '–' : `${value.toFixed(1)} %`) })),
            ],
        },
        values: [ends, ...shown.map(curve)],
    }));
    return section(title, note, holder, tallyTable(tallies));
}

function tallyTable(tallies) {
    const time = (name, key) => ({ name, value: (row) => row[key], shown: duration });
    return table([
        { name: 'operation', value: (row) => row.op, kind: 'text' },
        { name: 'count', value: (row) => row.count, shown: count },
        { name: 'errors', value: (row) => row.errors, shown: count },
        time('median', 'p50'), time('90 %', 'p90'), time('99 %', 'p99'), time('longest', 'max'),
        { name: 'altogether', value: (row) => row.sum, shown: duration, share: true },
    ], [...tallies].sort((a, b) => b.sum - a.sum));
}

function shares() {
    const all = data.requestTime > 0 ? data.requestTime : data.duration;
    const parts = data.requestTime > 0
        ? [['helper', Math.min(all, data.exchangeTime), 'c2'], ['host', Math.max(0, all - data.exchangeTime), 'c0']]
        : [['helper', Math.min(all, data.helperTime), 'c2'], ['host, programs and nothing', Math.max(0, all - data.helperTime), 'c0']];
    const bar = element('div', { className: 'share', role: 'img', ariaLabel: parts.map(([name, part]) => `${name} ${percent(part, all)}`).join(', ') });
    const legend = element('div', { className: 'legend' });
    for (const [name, part, tint] of parts) {
        const block = element('div', { title: `${name}: ${duration(part)}` });
        block.style.cssText = `flex:${Math.max(part, all / 1000)};background:var(--${tint})`;
        const mark = element('i');
        mark.style.background = `var(--${tint})`;
        bar.append(block);
        legend.append(element('span', {}, mark, `${name} ${percent(part, all)} (${duration(part)})`));
    }
    const note = data.requestTime > 0
        ? 'Of the time that requests of the kernel took: while the helper was asked, and in the host itself.'
        : 'Of the time that was recorded. No requests of the kernel were recorded, so what the host took cannot be told apart.';
    return section('Host and helper', note, bar, legend);
}

function tiles() {
    const sum = (tallies, key) => tallies.reduce((all, tally) => all + tally[key], 0);
    const shown = [
        ['recorded', duration(data.duration)], ['exchanges', count(sum(data.exchanges, 'count'))],
        ['requests of the kernel', count(sum(data.requests, 'count'))], ['errors answered', count(sum(data.exchanges, 'errors'))],
        ['read', bytes(data.read)], ['written', bytes(data.written)], ['paths', count(data.paths)],
    ];
    return element('div', { className: 'tiles' }, ...shown.map(([name, value]) =>
        element('div', { className: 'tile' }, element('b', { textContent: value }), element('span', { textContent: name }))));
}

function slowest() {
    return section('Slowest exchanges', 'With the line of the recording in which each stands.', table([
        { name: 'took', value: (row) => row.took, shown: duration, share: true },
        { name: 'after', value: (row) => row.at, shown: duration },
        { name: 'operation', value: (row) => row.op, kind: 'text' },
        { name: 'path', value: (row) => row.path, kind: 'path' },
        { name: 'error', value: (row) => row.error, kind: 'text' },
        { name: 'line', value: (row) => row.line, shown: count },
    ], data.slowest));
}

function busiest() {
    return section('Busiest paths', 'By the time that the helper was asked about each.', table([
        { name: 'path', value: (row) => row.path, shown: (path) => path || '(none)', kind: 'path' },
        { name: 'exchanges', value: (row) => row.count, shown: count },
        { name: 'errors', value: (row) => row.errors, shown: count },
        { name: 'bytes', value: (row) => row.bytes, shown: bytes },
        { name: 'time', value: (row) => row.time, shown: duration, share: true },
    ], data.busiest));
}

function errors() {
    if (data.errors.length === 0) return section('Errors', 'The helper answered no error.');
    return section('Errors', 'Many are everyday answers: programs look up names that are not there all the time.', table([
        { name: 'operation', value: (row) => row.op, kind: 'text' },
        { name: 'error', value: (row) => row.code, kind: 'text' },
        { name: 'count', value: (row) => row.count, shown: count, share: true },
        { name: 'first of', value: (row) => row.path, shown: (path) => path || '(none)', kind: 'path' },
    ], data.errors));
}

function callers() {
    return section('Callers', 'Who made the requests of the kernel.', table([
        { name: 'process', value: (row) => row.process, kind: 'text' },
        { name: 'requests', value: (row) => row.count, shown: count, share: true },
    ], data.processes));
}

// The page

const about = [`begun ${data.started.replace('T', ' ').slice(0, 19)} UTC`, data.mountPoint, `kemvi ${data.kemvi}`, `payloads ${data.payloads}`, `names ${data.names}`];
main.append(element('p', { textContent: about.filter(Boolean).join(' · ') }));
if (data.cut) main.append(element('div', { className: 'warning', textContent: 'The recording breaks off: what came later is not in it.' }));
if (data.lost > 0) main.append(element('div', { className: 'warning', textContent: `${count(data.lost)} lines are missing in the recording.` }));
main.append(tiles());
if (data.exchanges.length === 0 && data.requests.length === 0) {
    main.append(section('Nothing', 'Nothing was asked while this was recorded.'));
} else {
    main.append(timeLine(), shares());
    if (data.exchanges.length > 0) main.append(latencies('Times of the helper', 'The share of exchanges that were answered within a time, for the operations that took most of it.', data.exchanges));
    if (data.requests.length > 0) main.append(latencies('Times of the kernel’s requests', 'The same for what programs waited for.', data.requests));
    main.append(slowest());
    main.append(element('div', { className: 'two' }, busiest(), errors()));
    if (data.processes.length > 0) main.append(callers());
}
const draw = () => charts.forEach((each) => each());
draw();
dark.addEventListener('change', draw);
let resizing;
addEventListener('resize', () => {
    clearTimeout(resizing);
    resizing = setTimeout(draw, 150);
});
document.documentElement.dataset.drawn = String(charts.length);
