// The page at a monitor that says what the test wants it to.
import assert from 'node:assert/strict';
import { after, before, test } from 'node:test';
import { row } from './hand.mjs';
import { Stand, eventually, noticesOf } from './stand.mjs';

const stand = new Stand();
let page;
/** What /api/recordings answers, one after the other. */
let answers = [];

/** In the page: the monitor that it takes for one. */
function pretend() {
    globalThis.sent = [];
    globalThis.WebSocket = class {
        static OPEN = 1;
        readyState = 1;

        constructor() {
            globalThis.monitor = this;
            setTimeout(() => this.onopen?.());
            setInterval(() => this.onmessage?.({ data: '{"state":{}}' }), 1000);
        }

        send(text) {
            globalThis.sent.push(text);
        }

        close() {}
    };
}

const says = (what) => page.evaluate((data) => globalThis.monitor.onmessage({ data }), JSON.stringify(what));
const sent = () => page.evaluate(() => globalThis.sent);
const present = { receiver: 'present', camera: 'present', camera_detected: '1', camera_mode: 'video', camera_model: 'DJI Osmo+ (Z3)' };

before(async () => {
    await stand.startMonitor();
    page = await stand.openPage({ prepare: pretend });
    await page.route('**/api/recordings', async (route) => {
        const answer = await answers.shift()?.();
        await route.fulfill({ contentType: 'application/json', body: answer ?? '[]' });
    });
    await page.locator('#link-monitor[data-state=present]').waitFor();
});
after(() => stand.close());

test('a video that is saved says how far it is', async () => {
    const name = page.locator('#keep-name');
    await says({ state: { recording: 'camera-1.mp4', recording_bytes: 0 } });
    await name.getByText('camera-1.mp4, waiting for a key frame').waitFor();
    await says({ state: { recording_bytes: 1500000 } });
    await name.getByText('camera-1.mp4, 1.5 MB').waitFor();
    await says({ state: { recording: '' } });
    await eventually(async () => await name.innerText() === '', 'it has ended');
});

test('no video is offered to be saved where the monitor was given no place for it', async () => {
    const why = 'the monitor was started without --recordings';
    const button = page.locator('#keep');
    await says({ state: { recordings_possible: false } });
    await eventually(() => button.isDisabled(), 'it is not offered');
    assert.equal(await page.locator('#keep-name').innerText(), why);
    assert.equal(await page.locator('#no-recordings').innerText(), `None yet: ${why}.`);
    await page.keyboard.press('v');
    await eventually(async () => (await noticesOf(page)).includes(`Save video: ${why}`), 'the key says why');
    await says({ state: { recordings_possible: true } });
    await eventually(() => button.isEnabled(), 'it is offered');
    assert.equal(await page.locator('#keep-name').innerText(), '');
    assert.match(await page.locator('#no-recordings').innerText(), /“Save video” writes one/);
});

test('an answer that comes late does not take the place of a later one', async () => {
    let release;
    const held = new Promise((resolve) => { release = resolve; });
    const begun = [];
    answers = [
        async () => { begun.push('first'); await held; return '[{"name":"old.mp4","bytes":1000}]'; },
        async () => { begun.push('second'); return '[{"name":"new.mp4","bytes":2000}]'; },
    ];
    await says({ state: { recording: 'camera-2.mp4' } });
    await eventually(() => begun.length === 1, 'the first is asked for');
    await says({ state: { recording: '' } });
    const files = page.locator('#recording-list a');
    await files.getByText('new.mp4').waitFor();
    const late = page.waitForResponse('**/api/recordings');
    release();
    await (await late).finished();
    await page.evaluate(() => new Promise((resolve) => { setTimeout(resolve, 200); }));
    assert.deepEqual(await files.allInnerTexts(), ['new.mp4']);
});

test('an answer that is none empties the list', async () => {
    answers = [() => '[{"name":']; // cut off
    await says({ state: { recording: 'camera-3.mp4' } });
    await page.locator('#no-recordings').waitFor();
    assert.equal(await page.locator('#recording-list a').count(), 0);
    await says({ state: { recording: '' } });
});

test('a stick takes the movement mode that there is, and gives one where there is none', async () => {
    const button = row(page, 'zoom_digital').locator('[data-value="1"]');
    const others = { camera_model: 'DJI Osmo Pro (X5)' };
    const modes = async (begin) => (await sent()).slice(begin).map((text) => JSON.parse(text).command)
        .filter((command) => command?.cmd === 'set').map(({ value }) => value);
    /** Both that need a mode, and that they were sent, too. */
    const use = async () => {
        const begin = (await sent()).length;
        await page.keyboard.down('d');
        await eventually(async () => (await sent()).slice(begin).filter((text) => text.includes('"pan":0.5')).length > 3, 'the stick repeats');
        await page.keyboard.up('d');
        await button.hover();
        await page.mouse.down();
        await page.mouse.up();
        assert.ok((await sent()).slice(begin).some((text) => text.includes('digital')));
        return modes(begin);
    };
    const chosen = () => page.locator('#control-movement').inputValue();
    await page.evaluate(() => document.activeElement.blur());
    await says({ state: { ...present, ...others, movement: 'abs' } });
    await eventually(async () => await chosen() === 'abs', 'it is shown');
    assert.deepEqual(await use(), []);
    await says({ state: { movement: '', receiver: 'lost' } });
    await row(page, 'movement').getByText('no receiver').waitFor();
    await says({ state: { receiver: 'present' } });
    await eventually(() => page.locator('#control-movement').isEnabled(), 'another receiver');
    assert.deepEqual(await use(), ['abs']); // once
    await says({ state: { movement: 'rel' } });
    await eventually(async () => await chosen() === 'rel', 'somebody else has chosen');
    assert.deepEqual(await use(), []);
    await says({ state: { movement: '', ...present } });
    await eventually(async () => await chosen() !== 'rel', 'it is not known');
    assert.deepEqual(await use(), ['rel']);
    await says({ state: { movement: 'rel' } });
});

/** The values of the zooms that were sent since then. */
const zooms = async (begin) => (await sent()).slice(begin).map((text) => JSON.parse(text).command)
    .filter((command) => command?.cmd === 'zoom').map(({ value }) => value);

test('a zoom that another hand has taken ends with that hand', async () => {
    await says({ state: present });
    const button = (value) => row(page, 'zoom_optical').locator(`[data-value="${value}"]`);
    const isHeld = async (value) => (await button(value).getAttribute('class')).includes('held');
    await eventually(() => button('1').isEnabled(), 'it is offered');
    await button('1').scrollIntoViewIfNeeded();
    let begin = (await sent()).length;
    await page.keyboard.down('-');
    await button('1').hover();
    await page.mouse.down();
    await page.keyboard.down('-'); // repeats itself
    assert.equal(await isHeld('1'), true);
    await page.keyboard.up('-');
    assert.deepEqual(await zooms(begin), ['-1', '1']);
    assert.equal(await isHeld('1'), true);
    await page.mouse.up();
    assert.deepEqual(await zooms(begin), ['-1', '1', '0']);
    begin = (await sent()).length;
    await button('1').hover();
    await page.mouse.down();
    await page.keyboard.down('-');
    assert.equal(await isHeld('1'), false);
    await page.mouse.up();
    assert.deepEqual(await zooms(begin), ['1', '-1']);
    await page.keyboard.up('-');
    assert.deepEqual(await zooms(begin), ['1', '-1', '0']);
    begin = (await sent()).length;
    await button('1').focus();
    await button('1').hover();
    await page.keyboard.down(' ');
    await button('-1').hover();
    await page.mouse.down(); // which takes the focus from the other button, too
    assert.deepEqual([await isHeld('1'), await isHeld('-1')], [false, true]);
    await page.keyboard.up(' ');
    await page.mouse.up();
    assert.deepEqual(await zooms(begin), ['1', '-1', '0']);
});

test('a zoom by key ends where the hand that holds it is lost', async () => {
    await says({ state: present });
    await eventually(() => row(page, 'zoom_optical').locator('button').first().isEnabled(), 'it is offered');
    const ends = {
        blur: () => window.dispatchEvent(new Event('blur')),
        visibilitychange: () => document.dispatchEvent(new Event('visibilitychange')),
    };
    for (const [name, end] of Object.entries(ends)) {
        const begin = (await sent()).length;
        await page.keyboard.down('-');
        assert.deepEqual(await zooms(begin), ['-1'], name);
        await page.evaluate(end);
        assert.deepEqual(await zooms(begin), ['-1', '0'], name);
        await page.keyboard.up('-');
        assert.deepEqual(await zooms(begin), ['-1', '0'], name);
    }
});

test('what keeps a key from doing what it does is said', async () => {
    const hear = async (key, text) => {
        const begin = (await sent()).length;
        await page.keyboard.press(key);
        await eventually(async () => (await noticesOf(page)).includes(text), text);
        assert.equal((await sent()).length, begin, key);
    };
    await says({ state: { camera: 'lost' } });
    await row(page, 'iso').getByText('no camera').waitFor();
    await hear('r', 'Record: no camera');
    await hear('l', 'Exposure lock: no camera');
    await page.evaluate(() => {
        globalThis.WebSocket = class { close() {} }; // and nobody answers
        globalThis.monitor.onclose();
    });
    await row(page, 'iso').getByText('no monitor').waitFor();
    await hear('v', 'Save video: no monitor');
});

test('no error was in the console', () => {
    assert.deepEqual(stand.errors, []);
});
