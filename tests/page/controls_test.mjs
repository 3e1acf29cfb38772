// Each control sends what docs/protocol.md says and nothing else, and shows what the camera makes of it.
import assert from 'node:assert/strict';
import { after, before, test } from 'node:test';
import { makeOffered, operate, rests, row, settled, shown, table, turns, waysTo } from './hand.mjs';
import { commandRows } from './protocol.mjs';
import { Stand, connected, eventually, gist, noticesOf, pause, sentBy } from './stand.mjs';

const stand = new Stand();
let page;

before(async () => {
    await stand.startMonitor();
    await stand.startCamera();
    page = await stand.openPage();
    await connected(page);
});
after(() => stand.close());

const rows = commandRows();
// Behind whose packet nothing can come any more that was sent before.
const marker = rows.find(({ command }) => command.cmd === 'histogram');

/** The packets that come of an action, in order. */
async function packetsOf(action, count) {
    const begin = stand.packets().length;
    const sent = () => stand.packets().slice(begin).map(gist);
    await action();
    await eventually(() => sent().length >= count, () => `${count} packets: ${sent().join('; ')}`);
    const before = sent().length;
    await operate(page, 'histogram', [marker.command.param]);
    await eventually(() => sent().slice(before).includes(marker.packets[0]), 'the marker');
    return sent().slice(0, -1);
}

/** Away from what is asked for next, so that the hand has something to change. */
async function leave(control, values) {
    const says = await shown(page, control.id);
    const isToggle = control.kind === 'switch';
    if (says !== values[0] || !(isToggle || control.kind === 'choice')) {
        return;
    }
    const other = control.options.find((option) => option.value !== values[0] && !option.silent);
    await operate(page, control.id, [other.value]);
    await settled(page, control.id);
}

// Those behind which the camera is silent for a while, or for good.
const disturbing = ['power'];
const gentle = rows.filter(({ command }) => !disturbing.includes(command.cmd));

for (const { command, packets } of gentle) {
    test(`${JSON.stringify(command)} is sent and its effect shown`, async () => {
        const [{ control, values }] = waysTo(command);
        await makeOffered(page, control.id);
        await leave(control, values);
        const [begin, told] = [sentBy(page).length, (await noticesOf(page)).length];
        const asks = async () => {
            await operate(page, control.id, values);
            await eventually(() => sentBy(page).length > begin, 'the page sends');
            assert.deepEqual(sentBy(page).slice(begin), [JSON.stringify({ command })]);
        };
        assert.deepEqual(await packetsOf(asks, packets.length), packets);
        await settled(page, control.id);
        if (['choice', 'switch'].includes(control.kind) && control.shown) {
            const expected = command.value === 'inf' ? 'mf' : values[0];
            await eventually(async () => await shown(page, control.id) === expected, `${control.id} shows ${expected}`);
        }
        const wrong = (await noticesOf(page)).slice(told).filter((text) => /does not confirm|[Rr]efused|does not answer/.test(text));
        assert.deepEqual(wrong, []);
        if (control.kind === 'switch' && values[0] === control.options[0].value) { // off again: others mind
            await operate(page, control.id, [control.options[1].value]);
            await settled(page, control.id);
        }
    });
}

test('a number that is not set by a list is shown as the camera tells it', async () => {
    await operate(page, 'wb_custom', ['6100']);
    await settled(page, 'wb_custom');
    assert.equal(await shown(page, 'wb_custom'), '6100 K');
    await operate(page, 'focus_point', ['0.25', '0.75']);
    await settled(page, 'focus_point');
    assert.equal(await shown(page, 'focus_point'), '0.25, 0.75');
    await operate(page, 'focus_limits', ['10', '90']);
    await settled(page, 'focus_limits');
    assert.equal(await shown(page, 'focus_limits'), '10 to 90 %');
    await makeOffered(page, 'focus_manual');
    await operate(page, 'focus_manual', ['25']);
    await settled(page, 'focus_manual');
    assert.match(await shown(page, 'focus_manual'), /^2[456] %$/);
    assert.match(await page.locator('[data-key=focus_position]').innerText(), /^(29|30|31)\d of 1000$/);
});

test('a number out of its range is not sent', async () => {
    assert.deepEqual(await packetsOf(() => operate(page, 'dzoom', ['250']), 0), []);
    await page.getByText('Digital zoom to: Percent, 100 to 200.').waitFor();
});

test('what is asked for is shown as asked for until the telemetry says so', async () => {
    await operate(page, 'iso', ['200']);
    await settled(page, 'iso');
    stand.camera.child.kill('SIGSTOP');
    await operate(page, 'iso', ['1600']);
    await row(page, 'iso').getByText('asked: 1600').waitFor();
    await pause(300);
    const says = await page.evaluate(() => ['[data-control=iso] .value', '[data-key=iso_set]']
        .map((place) => document.querySelector(place).textContent));
    stand.camera.child.kill('SIGCONT'); // without it for five seconds the receiver ends
    assert.deepEqual(says, ['200', '200']);
    await settled(page, 'iso');
    assert.equal(await shown(page, 'iso'), '1600');
    assert.equal(await page.locator('[data-key=iso_set]').innerText(), '1600');
});

test('a question that is answered with no sends nothing', async () => {
    assert.deepEqual(await packetsOf(() => operate(page, 'format_sd', ['sd'], 'Cancel'), 0), []);
    assert.deepEqual(await packetsOf(() => operate(page, 'power', ['shutdown'], 'Cancel'), 0), []);
});

test('digital zoom goes on while its button is held', async () => {
    await operate(page, 'movement', ['rel']);
    const button = row(page, 'zoom_digital').locator('[data-value="1"]');
    await button.scrollIntoViewIfNeeded();
    await button.hover();
    const begin = stand.packets().length;
    const zoomed = await packetsOf(async () => {
        await page.mouse.down();
        await eventually(() => stand.packets().length >= begin + 5, 'it goes on');
        await page.mouse.up();
    }, 5);
    assert.ok(zoomed.every((packet) => packet.startsWith('01 02 34 09 00 00 ')), zoomed.join('; '));
    const quiet = await packetsOf(() => pause(300), 0);
    assert.deepEqual(quiet, []);
});

test('a click on the picture focuses there', async () => {
    await operate(page, 'focus_type', ['af']);
    await settled(page, 'focus_type');
    const { width, height } = await page.locator('#picture').boundingBox();
    const sent = await packetsOf(() => page.locator('#picture').click({ position: { x: width / 4, y: height / 2 } }), 1);
    assert.match(sent[0], /^01 02 30 /);
    const bytes = Buffer.from(sent[0].split(' ').slice(3).join(''), 'hex');
    assert.ok(Math.abs(bytes.readFloatLE(0) - 0.25) < 0.01 && Math.abs(bytes.readFloatLE(4) - 0.5) < 0.01, sent[0]);
    await settled(page, 'focus_point');
    const mark = await page.locator('#focus-mark').boundingBox();
    const picture = await page.locator('#picture').boundingBox();
    assert.ok(Math.abs(mark.x + mark.width / 2 - (picture.x + width / 4)) < width / 100);
});

test('a click with Shift, or with the box ticked, meters there', async () => {
    const { width, height } = await page.locator('#picture').boundingBox();
    const position = { x: width * (2.5 / 16), y: height * (3.5 / 16) };
    const metered = ['01 02 68 00', '01 02 32 32']; // field 2 of row 3 of 16
    assert.deepEqual(await packetsOf(() => page.locator('#picture').click({ position, modifiers: ['Shift'] }), 2), metered);
    await page.locator('#click-meters').check();
    assert.deepEqual(await packetsOf(() => page.locator('#picture').click({ position }), 2), metered);
    await page.locator('#click-meters').uncheck();
});

test('the stick turns the gimbal while it is held, and lets it rest', async () => {
    await page.locator('#stick').scrollIntoViewIfNeeded();
    const { x, y, width, height } = await page.locator('#stick').boundingBox();
    const drag = async () => {
        await page.mouse.move(x + width / 2, y + height / 2);
        await page.mouse.down();
        await page.mouse.move(x + width, y + height / 2);
    };
    await turns(page, 'yaw', drag);
    await page.mouse.up();
    await rests(page, 'yaw');
    // And where the hand is lost: the window's, the tab's, the pointer's end.
    const ends = {
        blur: () => window.dispatchEvent(new Event('blur')),
        visibilitychange: () => document.dispatchEvent(new Event('visibilitychange')),
        pointercancel: () => document.getElementById('stick').dispatchEvent(new PointerEvent('pointercancel')),
    };
    for (const end of Object.values(ends)) {
        await turns(page, 'yaw', drag);
        await page.evaluate(end);
        await rests(page, 'yaw');
        await page.mouse.move(x + width / 2, y + height * 0.9); // still pressed, and no hand's any more
        await page.mouse.up();
    }
    await rests(page, 'yaw');
});

test('a zoom ends where the hand that holds it is lost', async () => {
    const button = row(page, 'zoom_digital').locator('[data-value="1"]');
    await button.scrollIntoViewIfNeeded();
    const ends = {
        blur: () => document.querySelector('[data-control=zoom_digital] [data-value="1"]').blur(),
        visibilitychange: () => document.dispatchEvent(new Event('visibilitychange')),
        pointercancel: () => document.querySelector('[data-control=zoom_digital] [data-value="1"]').dispatchEvent(new PointerEvent('pointercancel')),
    };
    for (const [name, end] of Object.entries(ends)) {
        const begin = sentBy(page).length;
        const zooms = () => sentBy(page).slice(begin).map((text) => JSON.parse(text).command).filter(({ cmd }) => cmd === 'zoom');
        await button.hover();
        await page.mouse.down();
        await eventually(() => zooms().length > 0, 'zooms');
        await page.evaluate(end);
        await eventually(() => zooms().length > 1, `${name} stops it`);
        await page.mouse.up();
        assert.deepEqual(zooms().map(({ value }) => value), ['1', '0'], name);
    }
});

test('a number is sent as one, however it was typed', async () => {
    const begin = sentBy(page).length;
    await operate(page, 'dzoom', ['0150']);
    await eventually(() => sentBy(page).length > begin, 'the page sends');
    assert.deepEqual(sentBy(page).slice(begin), ['{"command":{"cmd":"dzoom","param":"set","value":"150"}}']);
});

test('limits the wrong way round are not sent', async () => {
    assert.deepEqual(await packetsOf(() => operate(page, 'focus_limits', ['90', '10']), 0), []);
    assert.ok((await noticesOf(page)).includes('Manual-focus limits: from the lower to the higher.'));
});

test('a gimbal that is asked for a position goes there', async () => {
    await operate(page, 'position', ['selfie']);
    await page.locator('[data-key=yaw]').getByText('180.0 °').waitFor();
    await operate(page, 'position', ['normal']);
    await page.locator('[data-key=yaw]').getByText('0.0 °', { exact: true }).waitFor();
});

/** Not with a marker behind it: the camera may not answer. */
async function askForPower({ command, packets }) {
    const [begin, sent] = [stand.packets().length, sentBy(page).length];
    await operate(page, 'power', [command.param]);
    await eventually(() => stand.packets().length >= begin + packets.length, 'the camera is told');
    assert.deepEqual(stand.packets().slice(begin).map(gist), packets);
    assert.deepEqual(sentBy(page).slice(sent), [JSON.stringify({ command })]);
}
const power = Object.fromEntries(rows.filter(({ command }) => command.cmd === 'power').map((each) => [each.command.param, each]));

test('a camera is sent to sleep, and wakes up again', async () => {
    await connected(page);
    await askForPower(power.sleep);
    await askForPower(power.wakeup); // at once: five seconds later the receiver has ended
    await connected(page);
});

for (const param of ['restart', 'shutdown']) {
    test(`${param} is sent`, async () => {
        await connected(page);
        await askForPower(power[param]);
    });
}

test('power has no other words', () => {
    assert.deepEqual(Object.keys(power).sort(), ['restart', 'shutdown', 'sleep', 'wakeup']);
});

test('no error was in the console, and nothing came from elsewhere', () => {
    assert.deepEqual(stand.errors, []);
    assert.deepEqual(stand.foreign, []);
});
