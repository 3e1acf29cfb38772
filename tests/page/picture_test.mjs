// The picture really plays: the numbers in the clip's pictures are read off the screen.
import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { join } from 'node:path';
import { after, before, test } from 'node:test';
import { clockDifference, numbersSeen, pictures, steps, watchNumbers } from './counter.mjs';
import { Stand, connected, eventually, pause, screenshots } from './stand.mjs';

const stand = new Stand();
/** @type {Record<string, import('playwright-core').Page>} */
const pages = {};

before(async () => {
    await stand.startMonitor();
    await stand.startCamera();
    pages.WebCodecs = await stand.openPage({ prepare: breakableDecoder });
    await connected(pages.WebCodecs);
});
after(() => stand.close());

/** In the page: its decoder fails when the test says so. */
function breakableDecoder() {
    globalThis.VideoDecoder = class extends VideoDecoder {
        constructor(init) {
            super(init);
            globalThis.decoders = (globalThis.decoders ?? 0) + 1;
            globalThis.breakDecoder = () => {
                this.close();
                init.error(new DOMException('it broke', 'EncodingError'));
            };
        }
    };
}

/** Numbers of the pictures of some seconds. */
async function play(page, count) {
    await watchNumbers(page);
    return eventually(async () => {
        const seen = await numbersSeen(page);
        return seen.length >= count && seen;
    }, `${count} pictures`);
}

function median(list) {
    return [...list].sort((a, b) => a - b)[Math.floor(list.length / 2)];
}

/** Whether as many of the clip's pictures went by as its 30 a second. */
function keepsPace(seen) {
    const span = (seen.at(-1).at - seen[0].at) / 1000;
    const shown = steps(seen).reduce((sum, step) => sum + step, 0);
    return Math.abs(shown - 30 * span) < 20;
}

async function playsInOrder(page, t) {
    await play(page, 90);
    // On a machine that was busy when it began, it first makes up for that.
    const seen = await eventually(async () => {
        const all = await numbersSeen(page);
        return keepsPace(all.slice(-90)) && all;
    }, 'it plays as fast as the clip');
    assert.ok(seen.every(({ number }) => number >= 0), 'each picture has its number');
    const between = steps(seen);
    t.diagnostic(`${seen.length} pictures, ${between.filter((step) => step !== 1).length} steps other than 1`);
    // A late one may be left out on a busy machine, but none comes back, and none is waited for.
    assert.ok(between.every((step) => step < pictures / 4), between.join(' '));
}

test('the clip plays in order through WebCodecs', async (t) => {
    const page = pages.WebCodecs;
    assert.equal(await page.locator('#player').innerText(), 'WebCodecs');
    await playsInOrder(page, t);
});

test('a picture is on the screen soon after it came out of the ring', async (t) => {
    const { difference, around } = await clockDifference(pages.WebCodecs);
    await pause(2000);
    const seen = (await numbersSeen(pages.WebCodecs)).slice(-90);
    const delays = seen.map(({ stamp, at }) => at + difference - stamp / 1000);
    const sorted = [...delays].sort((a, b) => a - b);
    t.diagnostic(`ring to screen: median ${median(delays).toFixed(1)} ms, 95 % ${sorted[Math.floor(sorted.length * 0.95)].toFixed(1)} ms, `
        + `longest ${sorted.at(-1).toFixed(1)} ms (clocks agree to ${(around / 2).toFixed(1)} ms)`);
    assert.ok(sorted[0] > -around, `no picture is early: ${sorted[0]} ms`);
    assert.ok(median(delays) < 200);
});

test('a snapshot is a PNG of the picture', async () => {
    const begun = pages.WebCodecs.waitForEvent('download');
    await pages.WebCodecs.getByRole('button', { name: 'Snapshot' }).click();
    const download = await begun;
    assert.match(download.suggestedFilename(), /^snapshot-\d{8}-\d{6}\.png$/);
    await isSnapshot(await download.path());
});

async function isSnapshot(path) {
    const png = readFileSync(path);
    assert.equal(png.subarray(1, 4).toString(), 'PNG');
    assert.deepEqual([png.readUInt32BE(16), png.readUInt32BE(20)], [1280, 720]);
    assert.ok(png.length > 10000, `${png.length} bytes: an empty picture would be smaller`);
}

test('a snapshot has the time of whoever takes it', async () => {
    const page = await stand.openPage({ timezoneId: 'Pacific/Kiritimati' }); // 14 hours ahead
    await page.locator('#no-picture').waitFor({ state: 'hidden' });
    const begun = page.waitForEvent('download');
    await page.getByRole('button', { name: 'Snapshot' }).click();
    const [day, time] = (await begun).suggestedFilename().match(/\d{8}-\d{6}/)[0].split('-');
    const apart = (part, from, to) => part.slice(from, to);
    const named = Date.UTC(apart(day, 0, 4), apart(day, 4, 6) - 1, apart(day, 6, 8), apart(time, 0, 2), apart(time, 2, 4), apart(time, 4, 6));
    assert.ok(Math.abs(named - 14 * 3600000 - Date.now()) < 60000, `${day}-${time}`);
    await page.close();
});

test('the page as it is', async () => {
    const page = pages.WebCodecs;
    await page.evaluate(() => scrollTo(0, 0));
    await page.locator('[data-plot=battery] .latest').getByText('level').waitFor();
    await eventually(async () => await page.locator('#notices p').count() === 0, 'no notices');
    await page.screenshot({ path: join(screenshots, 'screenshot.png') });
    const { width, height } = await page.locator('#picture').boundingBox();
    assert.ok(width * height > 0.3 * 1280 * 800, 'the picture is most of it');
});

test('pictures that never came are passed over at the next key frame', async () => {
    const page = pages.WebCodecs;
    const before = (await numbersSeen(page)).length;
    stand.monitor.child.kill('SIGSTOP'); // the ring comes round: 200 parts are under seven seconds
    await page.getByText(/No picture for [1-9]/).waitFor();
    await page.getByText(/No picture for [89] s/).waitFor();
    stand.monitor.child.kill('SIGCONT');
    await page.locator('#no-picture').waitFor({ state: 'hidden' });
    stand.forgetRefusals(); // the page did not wait for it
    const [lost] = [await eventually(async () => {
        const text = await page.locator('[data-key=video_missed_parts]').innerText();
        return text !== '0' && text;
    }, 'parts are missed')];
    assert.ok(Number(lost) > 0);
    const seen = await eventually(async () => {
        const all = await numbersSeen(page);
        return all.length > before + 60 && all.slice(before);
    }, 'it plays on');
    assert.ok(seen.slice(-30).every(({ number }) => number >= 0));
    assert.ok(steps(seen.slice(-30)).every((step) => step < pictures / 4));
});

test('a decoder that fails is replaced by another', async () => {
    const page = pages.WebCodecs;
    const [before, decoders] = await page.evaluate(() => {
        globalThis.breakDecoder();
        return [globalThis.seen.length, globalThis.decoders];
    });
    await eventually(async () => (await numbersSeen(page)).length > before + 30, 'it plays on');
    assert.ok(await page.evaluate(() => globalThis.decoders) > decoders);
});

test('without WebCodecs it plays through Media Source', async (t) => {
    pages.MediaSource = await stand.openPage({ prepare: () => { delete globalThis.VideoDecoder; } });
    const page = pages.MediaSource;
    await connected(page);
    await page.locator('#no-picture').waitFor({ state: 'hidden' });
    assert.equal(await page.locator('#player').innerText(), 'Media Source');
    await pause(1500); // it catches up with the start that a newcomer is given
    await playsInOrder(page, t);
});

test('Media Source shows a picture not long after it came out of the ring, either', async (t) => {
    // The pictures' numbers say which it is; the other page knows when each came.
    const stamps = new Map((await play(pages.WebCodecs, 150)).map(({ number, stamp }) => [number, stamp / 1000]));
    const seen = (await numbersSeen(pages.MediaSource)).filter(({ number }) => stamps.has(number));
    const { difference, around } = await clockDifference(pages.MediaSource);
    // The clip's numbers come again every twenty seconds.
    const same = seen.filter(({ number, at }) => Math.abs(at + difference - stamps.get(number)) < 5000);
    const delays = same.map(({ number, at }) => at + difference - stamps.get(number));
    t.diagnostic(`ring to screen: median ${median(delays).toFixed(0)} ms of ${delays.length}, longest ${Math.max(...delays).toFixed(0)} ms`);
    assert.ok(delays.length > 30 && median(delays) < 300 && Math.min(...delays) > -around);
    const told = same.filter(({ number, stamp }) => Math.abs(stamp / 1000 - stamps.get(number)) < 1);
    assert.ok(told.length > 0.9 * same.length, `${told.length} of ${same.length} pictures are told by their own times`);
});

test('a snapshot from Media Source is the same', async () => {
    const begun = pages.MediaSource.waitForEvent('download');
    await pages.MediaSource.getByRole('button', { name: 'Snapshot' }).click();
    await isSnapshot(await (await begun).path());
});

test('Media Source does not keep what was shown long ago', async () => {
    const start = () => pages.MediaSource.locator('#picture').evaluate(({ buffered }) => buffered.start(0));
    const end = () => pages.MediaSource.locator('#picture').evaluate(({ buffered }) => buffered.end(0));
    await eventually(async () => (await end()) > 12, 'it has played for a while');
    await eventually(async () => (await start()) > 0, 'its begin is cut off');
    assert.ok((await end()) - (await start()) < 12);
});

test('a decoder that nothing helps is not tried again and again', async () => {
    const page = await stand.openPage({ prepare: () => {
        globalThis.tried = { NotSupportedError: 0, EncodingError: 0 };
        globalThis.kind = 'EncodingError';
        globalThis.VideoDecoder = class {
            decodeQueueSize = 0;
            constructor({ error }) {
                globalThis.tried[globalThis.kind] += 1;
                setTimeout(() => error(new DOMException('this is not for me', globalThis.kind)));
            }
            configure() {}
            decode() {}
            close() {}
        };
    } });
    await page.getByText('this is not for me').waitFor();
    const tried = () => page.evaluate(() => globalThis.tried);
    const early = await tried();
    await pause(5000);
    const { EncodingError } = await tried();
    assert.ok(EncodingError > early.EncodingError, 'it is tried again');
    assert.ok(EncodingError - early.EncodingError < 20, `${EncodingError - early.EncodingError} decoders in 5 s`);
    await page.evaluate(() => { globalThis.kind = 'NotSupportedError'; });
    await eventually(async () => (await tried()).NotSupportedError > 0, 'the format is refused');
    await pause(3000);
    assert.equal((await tried()).NotSupportedError, 1);
    await page.getByText('this is not for me').waitFor();
    await page.close();
});

test('a browser that plays nothing still has the controls', async () => {
    const page = await stand.openPage({ prepare: () => {
        delete globalThis.VideoDecoder;
        delete globalThis.MediaSource;
        delete globalThis.ManagedMediaSource;
        delete HTMLVideoElement.prototype.requestVideoFrameCallback;
    } });
    await connected(page);
    await page.locator('#no-picture-why').getByText('Media Source Extension').waitFor();
    assert.equal(await page.locator('#control-iso').isDisabled(), false);
    await page.close();
});

test('a browser that does not tell of its frames plays, too', async () => {
    const page = await stand.openPage({ prepare: () => {
        delete globalThis.VideoDecoder;
        delete HTMLVideoElement.prototype.requestVideoFrameCallback;
    } });
    await page.locator('#no-picture').waitFor({ state: 'hidden' });
    await play(page, 30);
    await page.close();
});

test('without a camera Media Source does not show once more what was live', async () => {
    const page = pages.MediaSource;
    await stand.endCamera();
    await stand.endMonitor();
    await page.locator('#link-monitor[data-state=lost]').waitFor();
    await stand.startMonitor();
    await page.locator('#link-monitor[data-state=present]').waitFor();
    await page.locator('#no-picture').waitFor();
    const before = (await numbersSeen(page)).length;
    await pause(2500);
    assert.equal((await numbersSeen(page)).length, before);
    assert.equal(await page.locator('#no-picture').isVisible(), true);
    stand.forgetRefusals();
});

test('Media Source plays again when all is back', async (t) => {
    await stand.startCamera();
    await connected(pages.MediaSource);
    await pages.MediaSource.locator('#no-picture').waitFor({ state: 'hidden' });
    await playsInOrder(pages.MediaSource, t);
});

test('no error was in the console, and nothing came from elsewhere', () => {
    assert.deepEqual(stand.errors, []);
    assert.deepEqual(stand.foreign, []);
});
