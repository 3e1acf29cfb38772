// The plots over time, read off the screen: their words, and how high their curves stand.
import assert from 'node:assert/strict';
import { after, before, test } from 'node:test';
import { operate } from './hand.mjs';
import { Stand, connected, eventually } from './stand.mjs';

const stand = new Stand();
let page;

before(async () => {
    await stand.startMonitor();
    await stand.startCamera({ battery_level: 55 });
    page = await stand.openPage();
    await connected(page);
    await page.locator('#no-picture').waitFor({ state: 'hidden' });
});
after(() => stand.close());

const plots = ['battery', 'angles', 'bitrate', 'intervals', 'delay', 'lost'];
const colors = ['#7cc4ff', '#ffb454', '#8fd694']; // of a plot's first, second and third curve

const words = (id) => page.locator(`[data-plot=${id}] .latest`).innerText();
const telemetry = (key) => page.locator(`[data-key=${key}]`).innerText();

/** For each colour how high its curve gets, from 0 to 1 of the chart; null where there is none of it. */
async function heights(id) {
    await page.locator(`[data-plot=${id}]`).scrollIntoViewIfNeeded(); // those out of sight are not drawn
    return page.locator(`[data-plot=${id}] canvas`).evaluate((canvas, wanted) => {
        const { width, height } = canvas;
        const copy = new OffscreenCanvas(width, height).getContext('2d', { willReadFrequently: true });
        copy.drawImage(canvas, 0, 0);
        const { data } = copy.getImageData(0, 0, width, height);
        return wanted.map((color) => {
            const parts = [1, 3, 5].map((from) => parseInt(color.slice(from, from + 2), 16));
            const isIt = (pixel) => parts.every((part, i) => Math.abs(data[4 * pixel + i] - part) < 30) && data[4 * pixel + 3] > 100;
            let first = 0;
            while (first < width * height && !isIt(first)) {
                first += 1;
            }
            return first === width * height ? null : 1 - Math.floor(first / width) / height;
        });
    }, colors);
}

test('there is a plot of each that changes over time', async () => {
    assert.deepEqual(await page.locator('[data-plot]').evaluateAll((all) => all.map(({ dataset }) => dataset.plot)), plots);
});

const says = {
    battery: /^level 5[0-5] %$/,
    angles: /^yaw -?\d+\.\d°, pitch -?\d+\.\d°, roll -?\d+\.\d°$/,
    bitrate: /^video \d+\.\d Mbit\/s$/,
    intervals: /^longest \d+ ms, mean (2[5-9]|3\d|4[0-5]) ms$/, // 30 a second
    delay: /^longest \d+ ms, mean \d+ ms$/,
    lost: /^parts 0, pictures 0, late here \d+$/,
};
for (const id of plots) {
    test(`the plot ${id} has its words and its curve`, async () => {
        await eventually(async () => says[id].test(await words(id)), async () => `${id} says: ${await words(id)}`);
        const count = (await words(id)).split(',').length;
        // Where two are the same the later one is to be seen.
        await eventually(async () => (await heights(id))[count - 1] !== null, async () => `${id} is drawn: ${await heights(id)}`);
        assert.deepEqual((await heights(id)).slice(count), colors.slice(count).map(() => null));
    });
}

test('the bit rate is the one that the telemetry shows', async () => {
    await eventually(async () => {
        const [plot, shown] = [await words('bitrate'), await telemetry('video_bits_per_second')];
        return plot === `video ${shown}` && shown !== '0.0 Mbit/s';
    }, async () => `${await words('bitrate')} is ${await telemetry('video_bits_per_second')}`);
});

test('each angle has the curve of its name', async () => {
    await operate(page, 'position', ['selfie']);
    await page.locator('[data-key=yaw]').getByText('180.0 °').waitFor();
    await eventually(async () => /^yaw 180\.0°, pitch -?0\.0°, roll -?0\.0°$/.test(await words('angles')), () => words('angles'));
    await eventually(async () => {
        const [yaw, pitch, roll] = await heights('angles');
        return yaw > 0.8 && !(pitch > 0.7) && roll < 0.7;
    }, async () => `only yaw is high: ${await heights('angles')}`);
    await operate(page, 'position_abs', ['0', '1', '2']);
    await eventually(async () => {
        const angles = await Promise.all(['yaw', 'pitch', 'roll'].map(telemetry));
        return new Set(angles).size === 3
            && await words('angles') === ['yaw', 'pitch', 'roll'].map((name, i) => `${name} ${angles[i].replace(' ', '')}`).join(', ');
    }, async () => `${await words('angles')}: ${await Promise.all(['yaw', 'pitch', 'roll'].map(telemetry))}`);
});

test('what is lost while the monitor does not answer is said and drawn', async () => {
    await page.evaluate(() => {
        globalThis.saidOfLost = [];
        const place = document.querySelector('[data-plot=lost] .latest');
        new MutationObserver(() => globalThis.saidOfLost.push(place.textContent))
            .observe(place, { childList: true, characterData: true, subtree: true });
    });
    const [flat] = await heights('lost');
    stand.monitor.child.kill('SIGSTOP'); // the ring comes round: 200 parts are under seven seconds
    await page.getByText(/No picture for (8|9|\d\d) s/).waitFor();
    stand.monitor.child.kill('SIGCONT');
    const missed = await eventually(async () => {
        const text = await telemetry('video_missed_parts');
        return /^[1-9]\d*$/.test(text) && text;
    }, 'parts are missed');
    await eventually(() => page.evaluate((text) => globalThis.saidOfLost.some((said) => said.startsWith(`parts ${text}, pictures `)), missed),
        async () => `parts ${missed} in: ${await page.evaluate(() => globalThis.saidOfLost.join('; '))}`);
    await eventually(async () => (await heights('lost'))[0] > 0.6 && !(flat > 0.6), async () => `a peak: ${await heights('lost')}, ${flat} before`);
    stand.forgetRefusals(); // the page did not wait for it
});

test('no error was in the console, and nothing came from elsewhere', () => {
    assert.deepEqual(stand.errors, []);
    assert.deepEqual(stand.foreign, []);
});
