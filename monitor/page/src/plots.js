// Values over time. One clock samples them all, so that the plots' time axes agree.
import uPlot from 'uplot';
import { number } from './camera_state.js';
import { byId, make, setText } from './dom.js';
import { figures } from './picture.js';
import { growthOf, largest, mean, sayOf, sum } from './samples.js';
import { state } from './state.js';

const sampleMs = 200;
const drawEvery = 5; // samples
const keptSeconds = 300;
const colors = ['#7cc4ff', '#ffb454', '#8fd694'];

/** @param {string} key @param {number} divisor */
const live = (key, divisor = 1) => () => {
    const value = number(state(), key) / divisor;
    return Number.isNaN(value) || state().camera !== 'present' || state().monitor !== 'present' ? null : value;
};

let intervals = /** @type {number[]} */ ([]);
let delays = /** @type {number[]} */ ([]);
let leftOut = 0;
/** @param {string} key */
function growth(key) {
    const grown = growthOf();
    return () => grown(number(state(), key));
}

/** says: what the words beside the curve make of the samples that they are for; the last where it is left out.
 * @typedef {{ label: string, unit: string, digits: number, sample: () => number | null,
 *     says?: (samples: number[]) => number | null }} Series */
/** @type {{ id: string, title: string, range?: [number, number], fromZero?: boolean, series: Series[] }[]} */
const plots = [
    { id: 'battery', title: 'Battery', range: [0, 100], series: [
        { label: 'level', unit: '%', digits: 0, sample: live('battery_level') }] },
    { id: 'angles', title: 'Angles', series: [
        { label: 'yaw', unit: '°', digits: 1, sample: live('yaw', 10) },
        { label: 'pitch', unit: '°', digits: 1, sample: live('pitch', 10) },
        { label: 'roll', unit: '°', digits: 1, sample: live('roll', 10) }] },
    { id: 'bitrate', title: 'Bit rate', fromZero: true, series: [
        { label: 'video', unit: 'Mbit/s', digits: 1, sample: live('video_bits_per_second', 1e6) }] },
    { id: 'intervals', title: 'Between pictures', fromZero: true, series: [
        { label: 'longest', unit: 'ms', digits: 0, sample: () => largest(intervals), says: largest },
        { label: 'mean', unit: 'ms', digits: 0, sample: () => mean(intervals), says: mean }] },
    { id: 'delay', title: 'From arrival to screen', fromZero: true, series: [
        { label: 'longest', unit: 'ms', digits: 0, sample: () => largest(delays), says: largest },
        { label: 'mean', unit: 'ms', digits: 0, sample: () => mean(delays), says: mean }] },
    { id: 'lost', title: 'Lost', fromZero: true, series: [
        { label: 'parts', unit: '', digits: 0, sample: growth('video_missed_parts'), says: sum },
        { label: 'pictures', unit: '', digits: 0, sample: growth('video_dropped_pictures'), says: sum },
        { label: 'late here', unit: '', digits: 0, sample: () => leftOut, says: sum }] },
];

/** @param {number} value @param {Series} series */
function wording(value, { label, unit, digits }) {
    return `${label} ${value.toFixed(digits)}${unit === '°' ? unit : ` ${unit}`}`.trim();
}

/** @param {typeof plots[number]} plot @param {HTMLElement} place */
function makePlot(plot, place) {
    const latest = make('span', { class: 'latest' }, '–');
    const chart = make('div', { class: 'chart', role: 'img', 'aria-label': `${plot.title} over time` });
    place.append(make('figure', { 'data-plot': plot.id }, make('figcaption', {}, make('h3', {}, plot.title), latest), chart));
    const axis = { stroke: '#aab4c0', grid: { stroke: '#2a323c', width: 1 }, ticks: { show: false }, font: '11px system-ui' };
    const view = new uPlot({
        width: 300,
        height: 130,
        legend: { show: false },
        cursor: { y: false, points: { size: 6 } },
        scales: { x: { time: false }, y: { range: plot.range ?? ((_, low, high) => {
            const room = Math.max((high - low) * 0.1, 1);
            return [plot.fromZero ? 0 : (low ?? 0) - room, (high ?? 0) + room];
        }) } },
        axes: [
            { ...axis, size: 22, values: (_, ticks) => ticks.map((tick) => (tick === 0 ? 'now' : `${tick} s`)) },
            { ...axis, size: 42 },
        ],
        series: [{}, ...plot.series.map(({ label }, i) => ({ label, stroke: colors[i], width: 1.5, spanGaps: false }))],
    }, [[]], chart);
    new ResizeObserver(() => view.setSize({ width: chart.clientWidth, height: 130 })).observe(chart);
    return { view, latest, chart, columns: plot.series.map(() => /** @type {(number | null)[]} */ ([])), plot };
}

export function startPlots() {
    const place = byId('plots');
    const made = plots.map((plot) => makePlot(plot, place));
    const visible = new Set();
    const observer = new IntersectionObserver((entries) => entries.forEach(({ target, isIntersecting }) => {
        visible[isIntersecting ? 'add' : 'delete'](target);
    }));
    made.forEach(({ chart }) => observer.observe(chart));
    const seconds = /** @type {HTMLSelectElement} */ (byId('plot-seconds'));
    /** @type {number[]} */
    const times = [];
    let count = 0;

    function sample() {
        intervals = figures.intervals.splice(0);
        delays = figures.delays.splice(0);
        leftOut = figures.leftOut;
        figures.leftOut = 0;
        times.push(performance.now() / 1000);
        const old = times.findIndex((time) => time > times[times.length - 1] - keptSeconds);
        times.splice(0, old);
        for (const { columns, plot } of made) {
            columns.forEach((column, i) => {
                column.push(plot.series[i].sample());
                column.splice(0, old);
            });
        }
        count += 1;
        if (count % drawEvery === 0 && !document.hidden) {
            draw();
        }
    }

    function draw() {
        const now = times[times.length - 1];
        const ages = times.map((time) => time - now);
        for (const { view, latest, chart, columns, plot } of made) {
            const texts = columns.flatMap((column, i) => {
                const value = sayOf(column.slice(-drawEvery), plot.series[i].says);
                return value === null ? [] : [wording(value, plot.series[i])];
            });
            setText(latest, texts.join(', ') || '–');
            if (visible.has(chart)) {
                view.batch(() => {
                    view.setData(/** @type {uPlot.AlignedData} */ ([ages, ...columns]), false);
                    view.setScale('x', { min: -Number(seconds.value), max: 0 });
                });
            }
        }
    }

    setInterval(sample, sampleMs);
    seconds.addEventListener('change', draw);
}
