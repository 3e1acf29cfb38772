// What is lost is said, and what comes back is there again: receiver, camera, monitor.
import assert from 'node:assert/strict';
import { existsSync, readFileSync, renameSync } from 'node:fs';
import { after, before, test } from 'node:test';
import { operate, row, settled, shown } from './hand.mjs';
import { Stand, connected, eventually, gist, noticesOf, pause, sentBy } from './stand.mjs';

const stand = new Stand();
let page;

before(async () => {
    await stand.startMonitor();
    page = await stand.openPage({ prepare: countConnections });
});
after(() => stand.close());

/** In the page: counts its connections. */
function countConnections() {
    globalThis.opened = 0;
    globalThis.WebSocket = class extends WebSocket {
        constructor(address) {
            super(address);
            globalThis.opened += 1;
        }
    };
}

const link = (name) => page.locator(`#link-${name}`).getAttribute('data-state');
const says = (name, state) => page.locator(`#link-${name}[data-state=${state}]`).waitFor();
const plays = () => page.locator('#no-picture').waitFor({ state: 'hidden' });

const model = { camera_model: 'Z3' };

/** The camera that was stopped goes on; where that took more than five seconds its receiver has ended, and another comes. */
async function goesOn(values = {}) {
    const { child } = stand.camera;
    child.kill('SIGCONT');
    await eventually(async () => {
        if (child.exitCode !== null || child.signalCode !== null) {
            await says('receiver', 'lost');
            await stand.startCamera(values);
            return true;
        }
        return await link('camera') === 'present';
    }, 'the camera goes on, or ends');
    await connected(page);
}

test('a monitor without a receiver says so, and offers nothing', async () => {
    await says('monitor', 'present');
    assert.equal(await link('receiver'), 'waiting');
    await page.getByText('Waiting for the receiver.').waitFor();
    await page.getByText(/No picture for \d+ s/).waitFor();
    assert.equal(await row(page, 'iso').locator('select').isDisabled(), true);
    await row(page, 'iso').getByText('no receiver').waitFor();
    assert.deepEqual(await page.locator('#stage [role=status]').allInnerTexts(), ['Waiting for the receiver.']); // not each second
    for (const key of ['battery_level', 'sd', 'format', 'ae']) {
        assert.equal(await page.locator(`[data-key=${key}]`).innerText(), '–', key);
    }
});

test('there is no snapshot before there was a picture', async () => {
    await page.getByRole('button', { name: 'Snapshot' }).click();
    await page.getByText('There is no picture yet.').waitFor();
});

test('a receiver and its camera are there when they come', async () => {
    await stand.startCamera();
    await connected(page);
    await plays();
    await page.getByRole('heading', { name: 'DJI Osmo RAW (X5R)' }).waitFor();
    assert.equal(await row(page, 'iso').locator('select').isDisabled(), false);
});

test('a camera that falls silent is lost, and found again', async () => {
    stand.camera.child.kill('SIGSTOP'); // the receiver ends where that lasts for five seconds
    await page.waitForFunction(() => document.querySelector('#link-camera').dataset.state === 'lost'
        && document.querySelector('#no-picture-why').textContent === 'The camera is lost.'
        && document.querySelector('#control-iso').disabled, undefined, { polling: 50 });
    await goesOn();
    await plays();
});

test('a receiver that ends is lost, and the next one found', async () => {
    await stand.endCamera();
    await says('receiver', 'lost');
    await page.getByText('The receiver is lost.').waitFor();
    assert.equal(await link('monitor'), 'present');
    await stand.startCamera(model);
    await connected(page);
    await plays();
    await page.getByRole('heading', { name: 'DJI Osmo+ (Z3)' }).waitFor();
});

test('another camera is offered what it has', async () => {
    assert.equal(await row(page, 'aperture').isVisible(), false);
    assert.equal(await row(page, 'format_ssd').isVisible(), false);
    assert.equal(await row(page, 'zoom_optical').isVisible(), true);
});

test('optical zoom goes on while its button is held', async () => {
    for (const [value, packet] of [['1', '01 02 B8 01 48 01 00'], ['-1', '01 02 B8 01 48 00 00']]) {
        const begin = stand.packets().length;
        const button = row(page, 'zoom_optical').locator(`[data-value="${value}"]`);
        await button.scrollIntoViewIfNeeded();
        await button.hover();
        await page.mouse.down();
        await eventually(() => stand.packets().slice(begin).some((each) => gist(each) === packet), 'zooms');
        await page.mouse.up();
        await eventually(() => {
            const sent = stand.packets().slice(begin).map(gist);
            return sent.includes('01 02 B8 00 48 00 00') && sent.includes('01 02 B8 FF 48 00 00');
        }, 'stops');
    }
});

test('digital zoom needs no movement mode to be chosen first', async () => {
    const begin = stand.packets().length;
    const button = row(page, 'zoom_digital').locator('[data-value="1"]');
    await button.scrollIntoViewIfNeeded();
    await button.hover();
    await page.mouse.down();
    await eventually(() => stand.packets().slice(begin).some((each) => gist(each).startsWith('01 02 34 ')), 'zooms');
    await page.mouse.up();
});

test('keys zoom while they are held', async () => {
    const begin = stand.packets().length;
    const sent = (text) => eventually(() => stand.packets().slice(begin).some((each) => gist(each) === text), text);
    await page.evaluate(() => document.activeElement.blur());
    await page.keyboard.down('+');
    await sent('01 02 B8 01 48 01 00');
    await page.keyboard.up('+');
    await sent('01 02 B8 00 48 00 00');
});

test('a zoom key ends its zoom also where Shift was let go of first', async () => {
    const begin = stand.packets().length;
    const count = (text) => stand.packets().slice(begin).filter((each) => gist(each) === text).length;
    await page.keyboard.down('Shift');
    await page.keyboard.down('Equal');
    await eventually(() => count('01 02 B8 01 48 01 00') > 0, 'zooms');
    await page.keyboard.up('Shift');
    await page.keyboard.up('Equal');
    await eventually(() => count('01 02 B8 00 48 00 00') > 0, 'stops');
});

test('a key turns from autofocus to infinity and back, where the lens has no manual focus', async () => {
    await eventually(async () => await shown(page, 'focus_type') === 'af', 'autofocus');
    for (const type of ['inf', 'af']) {
        const begin = sentBy(page).length;
        await page.keyboard.press('f');
        await eventually(async () => await shown(page, 'focus_type') === type, `it is ${type}`);
        await settled(page, 'focus_type');
        assert.deepEqual(sentBy(page).slice(begin), [JSON.stringify({ command: { cmd: 'focus', param: 'type', value: type } })]);
    }
});

test('a key asks for nothing that the mode does not allow', async () => {
    await page.keyboard.press('r'); // in video mode: it would record
    await settled(page, 'record');
    await page.keyboard.press('r');
    await settled(page, 'record');
    await operate(page, 'mode', ['photo']);
    await settled(page, 'mode');
    const after = sentBy(page).length;
    await page.keyboard.press('r');
    await page.getByText('Record: only in video mode').waitFor();
    assert.equal(sentBy(page).length, after);
    await operate(page, 'mode', ['video']);
    await settled(page, 'mode');
});

test('a zoom that is held ends with its camera', async () => {
    const begin = sentBy(page).length;
    const button = row(page, 'zoom_optical').locator('[data-value="1"]');
    await button.scrollIntoViewIfNeeded();
    await button.hover();
    await page.mouse.down();
    const zoom = (value) => JSON.stringify({ command: { cmd: 'zoom', param: 'optical', value } });
    await eventually(() => sentBy(page).length > begin, 'zooms');
    stand.camera.child.kill('SIGSTOP');
    await says('camera', 'lost');
    await goesOn(model);
    await eventually(() => sentBy(page).slice(begin).includes(zoom('0')), 'stops');
    assert.deepEqual(sentBy(page).slice(begin), [zoom('1'), zoom('0')]);
    await page.mouse.up();
});

test('a question that outlives its camera asks nothing of it', async () => {
    const begin = sentBy(page).length;
    await row(page, 'format_sd').locator('button').click();
    stand.camera.child.kill('SIGSTOP');
    await says('camera', 'lost');
    await page.locator('#question').getByRole('button', { name: 'Format', exact: true }).click();
    await goesOn(model);
    await eventually(async () => (await noticesOf(page)).includes('Memory card: no camera'), 'it says why');
    assert.deepEqual(sentBy(page).slice(begin), []);
});

test('the stick gives what was chosen, also when the camera was away', async () => {
    const modes = () => sentBy(page).map((text) => JSON.parse(text).command).filter(({ cmd }) => cmd === 'set').map(({ value }) => value);
    await operate(page, 'movement', ['abs']);
    await settled(page, 'movement');
    assert.equal(await shown(page, 'movement'), 'abs');
    await stand.endCamera();
    await says('receiver', 'lost');
    await eventually(async () => await shown(page, 'movement') !== 'abs', 'the next receiver begins without one');
    await stand.startCamera(model);
    await connected(page);
    const begin = modes().length;
    await page.evaluate(() => document.activeElement.blur());
    await page.keyboard.down('d');
    await eventually(() => modes().length > begin, 'the stick has a mode');
    await page.keyboard.up('d');
    assert.deepEqual(modes().slice(begin), ['abs']);
    await operate(page, 'movement', ['rel']);
});

test('what the camera does not do is not shown as done', async () => {
    await stand.endCamera();
    await says('receiver', 'lost');
    await stand.startCamera({ sd: '0' }); // a full card
    await connected(page);
    await operate(page, 'record', ['start']);
    await page.getByText('Record: the camera does not confirm start.').waitFor();
    await settled(page, 'record');
    assert.equal(await shown(page, 'record'), 'stop');
});

test('a stick that is refused is not offered, and nothing else is taken for refused', async () => {
    const block = '/dev/shm/shared_rc_raw';
    await operate(page, 'record', ['start']); // the card is still full: it waits for an answer
    await row(page, 'record').getByText('asked: Recording').waitFor();
    renameSync(block, `${block}.away`);
    await page.evaluate(() => document.activeElement.blur());
    await page.keyboard.down('d');
    await page.locator('#stick-note').getByText('channel block').waitFor();
    assert.equal(await row(page, 'record').getAttribute('aria-busy'), 'true');
    assert.equal(await page.locator('#stick').getAttribute('aria-disabled'), 'true');
    await page.keyboard.up('d');
    renameSync(`${block}.away`, block);
    await settled(page, 'record');
});

test('a monitor that ends is lost, and the next one found', async () => {
    await stand.endMonitor();
    await says('monitor', 'lost');
    assert.equal(await link('camera'), 'unknown');
    await page.getByText('The monitor does not answer.').waitFor();
    assert.equal(await row(page, 'iso').locator('select').isDisabled(), true);
    stand.forgetRefusals();
    await pause(1500);
    await stand.startMonitor();
    await connected(page);
    await plays();
    await operate(page, 'iso', ['800']);
    await settled(page, 'iso');
    assert.equal(await shown(page, 'iso'), '800');
    stand.forgetRefusals();
});

test('a monitor that falls silent is lost, and found again', async () => {
    stand.monitor.child.kill('SIGSTOP'); // its connections stay open
    const begin = Date.now();
    await says('monitor', 'lost');
    assert.ok(Date.now() - begin > 3000, 'a pause is no loss');
    stand.monitor.child.kill('SIGCONT');
    await connected(page);
    await plays();
    stand.forgetRefusals();
});

test('a monitor that has nothing to tell is not lost', async () => {
    await stand.endCamera();
    await says('receiver', 'lost');
    const opened = await page.evaluate(() => globalThis.opened);
    await pause(6000);
    assert.equal(await link('monitor'), 'present');
    assert.equal(await page.evaluate(() => globalThis.opened), opened, 'it is the same connection');
    await stand.startCamera();
    await connected(page);
    await plays();
});

test('video is saved where the monitor runs, and can be fetched', async () => {
    await page.getByRole('switch', { name: 'Save video' }).click();
    await page.getByRole('switch', { name: 'Saving video' }).waitFor();
    await page.locator('#keep-name').getByText(/camera-\d+-\d+\.mp4, [\d.]+ [kM]B/).waitFor();
    await pause(1500);
    await page.getByRole('switch', { name: 'Saving video' }).click();
    const file = page.locator('#recording-list a').first();
    await file.waitFor();
    const begun = page.waitForEvent('download');
    await file.click();
    const path = await (await begun).path();
    assert.ok(existsSync(path));
    assert.equal(readFileSync(path).subarray(4, 8).toString(), 'ftyp');
});

test('the log tells what happened', async () => {
    const lines = await page.locator('#lines').innerText();
    assert.match(lines, /\d\d:\d\d:\d\d iso_set 100 -> 800/);
    assert.match(lines, /camera present/);
});

test('a page with a token has all that it asks for', async () => {
    const { writeFileSync } = await import('node:fs');
    const { join } = await import('node:path');
    const token = 'a token of 26 characters, ok';
    writeFileSync(join(stand.directory, 'token'), `${token}\n`);
    await page.close();
    await stand.endMonitor();
    await stand.startMonitor('--token-file', join(stand.directory, 'token'));
    page = await stand.openPage();
    await page.locator('#link-monitor[data-state=locked]').waitFor();
    await page.getByText('The monitor asks for a token').waitFor();
    await page.close();
    stand.forgetRefusals();
    stand.errors = stand.errors.filter((text) => !/401/.test(text));
    page = await stand.openPage({ address: `${stand.address}?token=${encodeURIComponent(token)}` });
    await connected(page);
    await plays();
    await page.locator('#recording-list a').first().waitFor();
});

test('no error was in the console, and nothing came from elsewhere', () => {
    assert.deepEqual(stand.errors, []);
    assert.deepEqual(stand.foreign, []);
});
