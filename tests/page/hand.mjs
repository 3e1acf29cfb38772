// A user's hand on the page's controls.
import { join } from 'node:path';
import { pathToFileURL } from 'node:url';
import { eventually, sticksOf } from './stand.mjs';

const load = (name) => import(pathToFileURL(join(process.env.PAGE_SOURCES ?? '', name)).href);
export const table = await load('control_table.js');
export const { lateness } = await load('lateness.js');
export const samples = await load('samples.js');
export const { instruments, shownBy } = await load('instrument_table.js');

/** The controls, and the values of each, that make exactly this command. */
export function waysTo(command) {
    const given = [command.value, command.value2, command.value3].filter((value) => value !== undefined);
    return table.controls.flatMap((control) => {
        const ways = control.options ? control.options.map((option) => [option.value]) : [given];
        return ways.filter((values) => JSON.stringify(control.command(...values)) === JSON.stringify(command))
            .map((values) => ({ control, values }));
    });
}

export const row = (page, id) => page.locator(`[data-control=${id}]`);

/** Opens the group in which it stands, where the screen is narrow. */
export async function unfold(page, id) {
    await row(page, id).evaluate((element) => {
        const group = element.closest('details');
        if (group) {
            group.open = true;
        }
    });
}

/** Does with the control what a hand does that wants these values. */
export async function operate(page, id, values, answer = undefined) {
    const control = table.control(id);
    const place = row(page, id);
    await unfold(page, id);
    switch (control.kind) {
        case 'choice':
            await place.locator('select').selectOption(values[0]);
            break;
        case 'switch':
            await place.locator('button').click();
            break;
        case 'actions':
            await place.locator(`button[data-value="${values[0] ?? ''}"]`).click();
            break;
        case 'range':
            await place.locator('input').fill(values[0]);
            break;
        case 'fields':
            for (const [i, value] of values.entries()) {
                await place.locator('input').nth(i).fill(value);
            }
            await place.locator('button').click();
            break;
        default:
            throw new Error(`${control.kind} is held, not operated`);
    }
    if (control.options?.find((option) => option.value === (values[0] ?? ''))?.confirm) {
        await page.locator(answer === 'Cancel' ? '#question button[value=""]' : '#question-yes').click();
    }
}

/** What the page says that the camera's telemetry shows. */
export async function shown(page, id) {
    const control = table.control(id);
    const place = row(page, id);
    if (control.kind === 'choice') {
        return place.locator('select').inputValue();
    }
    if (control.kind === 'switch') {
        const [on, off] = control.options;
        return (await place.locator('button').getAttribute('aria-checked')) === 'true' ? on.value : off.value;
    }
    return place.locator('.value').innerText();
}

const angle = async (page, key) => parseFloat(await page.locator(`[data-key=${key}]`).innerText());

/** Until the gimbal has turned by more than two degrees. */
export async function turns(page, key, action) {
    const start = await angle(page, key);
    await action();
    await eventually(async () => Math.abs((await angle(page, key)) - start) > 2, `${key} changes`);
}

/** Until the page has told that the stick is at rest, and the gimbal has stood still for a while. */
export async function rests(page, key) {
    await eventually(() => sticksOf(page).at(-1) === '{"sticks":{"pan":0,"tilt":0,"dutch":0}}', 'the stick is told to be at rest');
    let [last, since] = [NaN, 0];
    await eventually(async () => {
        const now = await angle(page, key);
        if (now !== last) {
            [last, since] = [now, Date.now()];
        }
        return Date.now() - since > 600;
    }, `${key} rests`);
}

/** Until what was asked for is confirmed, or given up. */
export async function settled(page, id) {
    await eventually(async () => !(await row(page, id).getAttribute('aria-busy')), `${id} is settled`);
}

/** Operates another control where the page says that this one needs it. */
export async function makeOffered(page, id) {
    const remedies = {
        'only in photo mode': ['mode', 'photo'],
        'only in video mode': ['mode', 'video'],
        'only in manual focus': ['focus_type', 'mf'],
        'only in program shutter or manual': ['video_mode', 'manual'],
        'only in program aperture or manual': ['video_mode', 'manual'],
    };
    await unfold(page, id);
    await eventually(async () => {
        const against = row(page, id).locator('.note.against');
        if (await against.count() === 0) {
            return true;
        }
        const remedy = remedies[await against.innerText()];
        if (remedy) {
            await operate(page, remedy[0], [remedy[1]]);
            await settled(page, remedy[0]);
        }
        return false;
    }, `${id} is offered`);
}
