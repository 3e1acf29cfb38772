// For hands without a mouse, small screens, and eyes that need contrast.
import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import { after, before, test } from 'node:test';
import { operate, rests, row, settled, shown, table, turns } from './hand.mjs';
import { Stand, connected, eventually, gist, sentBy, sticksOf } from './stand.mjs';

const axe = readFileSync(createRequire(import.meta.url).resolve('axe-core/axe.min.js'), 'utf8');
const narrow = 360;
const stand = new Stand();
let page;
let phone;

before(async () => {
    await stand.startMonitor();
    await stand.startCamera();
    page = await stand.openPage();
    await connected(page);
});
after(() => stand.close());

async function findings(where) {
    await where.evaluate(axe);
    const { violations } = await where.evaluate(() => globalThis.axe.run());
    return violations.filter(({ impact }) => ['serious', 'critical'].includes(impact))
        .map(({ id, nodes }) => `${id}: ${nodes.map(({ target }) => target.join(' ')).join(', ')}`);
}

test('axe has no serious finding', async () => {
    assert.deepEqual(await findings(page), []);
});

test('axe has no serious finding in the dialogs', async () => {
    await page.getByRole('button', { name: 'Keys' }).click();
    assert.deepEqual(await findings(page), []);
    await page.keyboard.press('Escape');
    await row(page, 'format_sd').locator('button').click();
    assert.deepEqual(await findings(page), []);
    await page.keyboard.press('Escape');
    await page.locator('#question').waitFor({ state: 'hidden' });
});

test('no name is covered, and each number has one', async () => {
    const covered = await page.evaluate(() => [...document.querySelectorAll('.control')].flatMap((row) => {
        row.scrollIntoView({ block: 'center' });
        return [...row.querySelectorAll(':scope > label, :scope > .label')].filter((name) => {
            const text = document.createRange();
            text.selectNodeContents(name);
            const { left, right } = text.getBoundingClientRect();
            const box = name.getBoundingClientRect();
            const hit = document.elementFromPoint(right - 2, box.top + box.height / 2);
            return name.checkVisibility() && (right > box.right + 1 || left < box.left - 1 || hit !== name);
        }).map((name) => name.textContent);
    }));
    assert.deepEqual(covered, []);
    assert.deepEqual(await row(page, 'position_abs').locator('.field').allInnerTexts(), ['Pan', 'Tilt', 'Roll']);
    await page.locator('#headline-battery').getByText(/^Battery \d+ %$/).waitFor();
});

test('all that can be used is reached by the Tab key, and is seen to be', async () => {
    await page.locator('.skip').focus();
    const reached = new Set();
    for (let known = false; !known;) {
        await page.keyboard.press('Tab');
        const at = await page.evaluate(() => {
            const element = document.activeElement;
            const style = getComputedStyle(element);
            globalThis.names ??= new Map();
            if (!globalThis.names.has(element)) {
                globalThis.names.set(element, globalThis.names.size);
            }
            return {
                number: globalThis.names.get(element),
                what: element.outerHTML.slice(0, 90),
                seen: element === document.body || (style.outlineStyle !== 'none' && parseFloat(style.outlineWidth) >= 2),
            };
        });
        assert.ok(at.seen, `the outline of ${at.what}`);
        known = reached.has(at.number);
        reached.add(at.number);
    }
    const missing = await page.evaluate(() => [...document.querySelectorAll('button, select, input, a[href], summary, [tabindex="0"]')]
        .filter((element) => element.checkVisibility() && !element.disabled && !globalThis.names.has(element))
        .map((element) => element.outerHTML.slice(0, 90)));
    assert.deepEqual(missing, []);
});

async function packetsOf(action, count) {
    const begin = stand.packets().length;
    await action();
    await eventually(() => stand.packets().length >= begin + count,
        () => `${count} packets: ${stand.packets().slice(begin).map(gist).join('; ')}`);
    return stand.packets().slice(begin).map(gist);
}

test('keys alone change ISO', async () => {
    await row(page, 'iso').locator('select').focus();
    assert.deepEqual(await packetsOf(() => page.keyboard.press('ArrowDown'), 1), ['01 02 2A 04']);
    await settled(page, 'iso');
    assert.equal(await shown(page, 'iso'), '200');
});

test('keys alone record and stop', async () => {
    await page.evaluate(() => document.activeElement.blur());
    assert.deepEqual(await packetsOf(() => page.keyboard.press('r'), 1), ['01 02 02 01']);
    await settled(page, 'record');
    assert.equal(await shown(page, 'record'), 'start');
    await page.locator('#headline-recording').getByText(/REC 00:00:\d\d/).waitFor();
    assert.deepEqual(await packetsOf(() => page.keyboard.press('r'), 1), ['01 02 02 00']);
    await settled(page, 'record');
});

test('keys alone turn the gimbal while they are held', async () => {
    for (const [focus, key, axis] of [['body', 'd', 'yaw'], ['#stick', 'ArrowUp', 'pitch']]) {
        await page.evaluate((where) => document.querySelector(where).focus(), focus);
        await turns(page, axis, () => page.keyboard.down(key));
        await page.keyboard.up(key);
        await rests(page, axis);
    }
});

test('a Mac, which tells of no key that is let go of beside Command, moves nothing for ever', async () => {
    await page.evaluate(() => document.activeElement.blur());
    await turns(page, 'yaw', () => page.keyboard.down('a'));
    await page.keyboard.down('Meta');
    await rests(page, 'yaw');
    await page.keyboard.up('Meta');
    await page.keyboard.up('a');
});

test('keys can be switched off, but for the stick that has the focus', async () => {
    const act = page.getByRole('checkbox', { name: 'Keys act' });
    await page.getByRole('button', { name: 'Keys' }).click();
    await act.uncheck();
    await page.keyboard.press('Escape');
    await page.evaluate(() => document.activeElement.blur());
    const [begin, told] = [sentBy(page).length, sticksOf(page).length];
    for (const key of ['r', 'm', 'n', 'd', '+', '?']) {
        await page.keyboard.press(key);
    }
    await page.locator('#stick').focus();
    await turns(page, 'yaw', () => page.keyboard.down('ArrowRight'));
    await page.keyboard.up('ArrowRight');
    await rests(page, 'yaw');
    assert.deepEqual(sentBy(page).slice(begin), []);
    assert.ok(sticksOf(page).length > told);
    await page.reload(); // it is remembered
    await connected(page);
    await page.getByRole('button', { name: 'Keys' }).click();
    assert.equal(await act.isChecked(), false);
    await act.check();
    await page.keyboard.press('Escape');
    assert.deepEqual(await packetsOf(() => page.keyboard.press('n'), 1), ['09 01 01 00 00 00 00 01 91 00 00 00 90']);
});

test('keys alone answer a question, and no is what Enter says', async () => {
    await row(page, 'format_sd').locator('button').focus();
    const begin = sentBy(page).length;
    await page.keyboard.press('Enter');
    await page.locator('#question').waitFor();
    await page.keyboard.press('Enter');
    await page.locator('#question').waitFor({ state: 'hidden' });
    assert.deepEqual(await packetsOf(async () => {
        await page.keyboard.press('Enter');
        await page.keyboard.press('Tab');
        await page.keyboard.press('Enter');
    }, 1), ['01 02 72']);
    assert.deepEqual(sentBy(page).slice(begin), ['{"command":{"cmd":"format","param":"sd"}}']);
});

test('letters in a field are no commands', async () => {
    const field = row(page, 'dzoom').locator('input');
    await field.focus();
    const begin = sentBy(page).length;
    for (const key of ['p', 'r', 'n', 'd']) {
        await page.keyboard.press(key);
    }
    await field.evaluate((element) => element.blur());
    await page.keyboard.press('n'); // which comes behind the others
    await eventually(() => sentBy(page).length > begin, 'the page sends');
    assert.deepEqual(sentBy(page).slice(begin), ['{"command":{"cmd":"position","param":"normal"}}']);
});

test('a phone shows all of it, without scrolling sideways', async () => {
    await page.close();
    phone = await stand.openPage({ viewport: { width: narrow, height: 740 }, hasTouch: true, isMobile: true, deviceScaleFactor: 2 });
    await connected(phone);
    await phone.evaluate(() => document.querySelectorAll('details').forEach((details) => { details.open = true; }));
    // Not innerWidth: a phone shrinks a page that is too wide.
    const wide = await phone.evaluate((width) => [...document.querySelectorAll('body *')]
        .filter((element) => element.checkVisibility() && !element.closest('.skip, svg, .u-wrap') && element.getBoundingClientRect().right > width + 1)
        .map((element) => element.outerHTML.slice(0, 90)), narrow);
    assert.deepEqual(wide, []);
    assert.equal(await phone.evaluate(() => document.documentElement.scrollWidth), narrow);
});

test('a phone that is scrolled still shows that it records, and its header is small', async () => {
    await operate(phone, 'record', []);
    await phone.locator('#headline-recording').getByText(/REC 00:00:\d\d/).waitFor();
    const { bottom } = await phone.evaluate(() => {
        document.querySelector('footer').scrollIntoView();
        return document.querySelector('header').getBoundingClientRect();
    });
    assert.ok(bottom < 0, 'the header is scrolled away');
    assert.ok(await phone.locator('#stage').evaluate((stage) => {
        const { top, left } = stage.getBoundingClientRect();
        return getComputedStyle(stage, '::after').content.includes('REC') && stage.contains(document.elementFromPoint(left + 20, top + 15));
    }), 'the picture is not, and says so');
    const height = await phone.locator('header').evaluate((header) => header.clientHeight);
    assert.ok(height < 100, `${height} pixels`);
    await operate(phone, 'record', []);
    await eventually(async () => await phone.locator('#headline-recording').innerText() === '', 'it is said to have stopped');
});

test('on a phone every control can be brought to the finger, and is large enough for it', async () => {
    const small = await phone.evaluate((ids) => ids.flatMap((id) => {
        const row = document.querySelector(`[data-control=${id}]`);
        if (row.hidden) {
            return [];
        }
        row.scrollIntoView({ block: 'center' });
        return [...row.querySelectorAll('button, select, input')].filter((element) => {
            const { left, top, width, height } = element.getBoundingClientRect();
            const hit = document.elementFromPoint(left + width / 2, top + height / 2);
            return height < 24 || width < 24 || !(element.disabled || element.contains(hit) || hit?.contains(element));
        }).map((element) => `${id}: ${element.outerHTML.slice(0, 60)}`);
    }), table.controls.map(({ id }) => id));
    assert.deepEqual(small, []);
});

test('a finger locks the exposure and drags the stick', async () => {
    await row(phone, 'exposure_lock').locator('button').tap();
    await eventually(async () => await shown(phone, 'exposure_lock') === 'lock', 'it is locked');
    await row(phone, 'exposure_lock').locator('button').tap();
    await eventually(async () => await shown(phone, 'exposure_lock') === 'unlock', 'it is not locked');
    await phone.locator('#stick').scrollIntoViewIfNeeded();
    const box = await phone.locator('#stick').boundingBox();
    const begin = stand.packets().length;
    const touch = await phone.context().newCDPSession(phone);
    const at = (x, y) => [{ x: Math.round(box.x + x * box.width), y: Math.round(box.y + y * box.height) }];
    await touch.send('Input.dispatchTouchEvent', { type: 'touchStart', touchPoints: at(0.5, 0.5) });
    await touch.send('Input.dispatchTouchEvent', { type: 'touchMove', touchPoints: at(0.1, 0.5) });
    await eventually(() => stand.packets().slice(begin).some((packet) => gist(packet).startsWith('04 04 0C')), 'the gimbal is told');
    await touch.send('Input.dispatchTouchEvent', { type: 'touchEnd', touchPoints: [] });
    await rests(phone, 'yaw');
});

test('axe has no serious finding on a phone', async () => {
    assert.deepEqual(await findings(phone), []);
});

test('two pages at once tell the same', async () => {
    page = await stand.openPage();
    await connected(page);
    await operate(page, 'iso', ['1600']);
    for (const each of [page, phone]) {
        await eventually(async () => await shown(each, 'iso') === '1600', 'both show it');
    }
    await phone.close();
    assert.equal(await page.locator('#link-monitor').getAttribute('data-state'), 'present');
});

/** In the page: its pictures are as wide as 4:3 is. */
function asFourToThree() {
    globalThis.VideoDecoder = class extends VideoDecoder {
        constructor({ output, error }) {
            super({ error, output: (frame) => {
                output(new VideoFrame(frame, { displayWidth: 960, displayHeight: 720 }));
                frame.close();
            } });
        }
    };
}

for (const [name, width, height, ratio] of [['small screen', 1000, 800, 16 / 9], ['phone on its side', 740, 360, 16 / 9],
    ['wide screen', 1920, 600, 16 / 9], ['small screen, 4:3', 1000, 800, 4 / 3], ['screen, 4:3', 1280, 800, 4 / 3]]) {
    test(`a click hits its place in the picture: ${name}`, async () => {
        const other = await stand.openPage({ viewport: { width, height }, prepare: ratio < 1.5 ? asFourToThree : undefined });
        await connected(other);
        await other.locator('#no-picture').waitFor({ state: 'hidden' });
        const picture = await other.locator('#picture').boundingBox();
        assert.ok(Math.abs(picture.width / picture.height - ratio) < 0.02, `${picture.width} x ${picture.height}`);
        assert.ok(picture.height < height && picture.width <= width && picture.width > 100, `${picture.width} x ${picture.height}`);
        const frame = await other.locator('.frame').boundingBox();
        assert.ok(Math.abs(frame.width - picture.width) < 1 && Math.abs(frame.height - picture.height) < 1, 'the marks are laid over it');
        assert.equal(await other.evaluate(() => document.documentElement.scrollWidth <= innerWidth), true);
        await other.close();
    });
}

test('on a phone on its side the picture stays in sight, beside the controls', async () => {
    const side = await stand.openPage({ viewport: { width: 740, height: 360 }, hasTouch: true, isMobile: true });
    await connected(side);
    await side.locator('#no-picture').waitFor({ state: 'hidden' });
    await row(side, 'iso').evaluate((element) => element.scrollIntoView({ block: 'center' }));
    const picture = await side.locator('#picture').boundingBox();
    const iso = await row(side, 'iso').boundingBox();
    assert.ok(picture.width > 400 && picture.y >= 0 && picture.y + picture.height <= 360, JSON.stringify(picture));
    assert.ok(iso.x >= picture.x + picture.width && iso.x + iso.width <= 740, JSON.stringify(iso));
    assert.equal(await side.getByRole('button', { name: 'Keys' }).isVisible(), false);
    await side.close();
});

test('axe has no serious finding while something waits, nor where the camera is lost', async () => {
    await page.bringToFront();
    stand.camera.child.kill('SIGSTOP');
    await operate(page, 'iso', ['100']);
    await row(page, 'iso').getByText('asked: 100').waitFor();
    await page.keyboard.press('p'); // a notice
    await page.locator('#notices p').first().waitFor();
    assert.deepEqual(await findings(page), []);
    await eventually(async () => await page.locator('#link-camera').getAttribute('data-state') !== 'present', 'the camera is lost');
    assert.deepEqual(await findings(page), []);
});

test('no error was in the console, and nothing came from elsewhere', () => {
    assert.deepEqual(stand.errors, []);
    assert.deepEqual(stand.foreign, []);
});
