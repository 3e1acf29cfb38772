// What was asked of the camera and is not in its telemetry yet. A control shows it as asked for, never
// as set, until the telemetry says so or has had the time to.
import { isShown, reasonAgainstValue } from './control_table.js';
import { on, sendCommand } from './link.js';
import { tell } from './notices.js';
import { state, watch } from './state.js';
import { sure } from './dialogs.js';

// The text report comes once a second; recording takes the camera a moment.
const patienceMs = 4000;

/** @typedef {{ values: string[], timer: number, command: Command }} Asked */
/** @type {Map<string, Asked>} */
const asked = new Map();
/** @type {(() => void)[]} */
const watchers = [];

/** @param {() => void} watcher Called when something is asked, confirmed or given up. */
export function watchAsked(watcher) {
    watchers.push(watcher);
}

function changed() {
    for (const watcher of watchers) {
        watcher();
    }
}

/** @param {string} id @returns {string[] | undefined} */
export function pending(id) {
    return asked.get(id)?.values;
}

/** @param {string} id */
function settle(id) {
    window.clearTimeout(asked.get(id)?.timer);
    return asked.delete(id);
}

/** @param {Control} control @param {string[]} values */
function giveUp(control, values) {
    settle(control.id);
    tell(`${control.label}: the camera does not confirm ${values.join(', ')}.`);
    changed();
}

/** @param {Control} control @param {...string} values */
export async function ask(control, ...values) {
    const option = control.options?.find((each) => each.value === values[0]);
    if (option?.confirm) {
        const isSure = await sure(option.confirm, option.label.replace('…', ''));
        const against = reasonAgainstValue(control, values[0], state()); // which may have come meanwhile
        if (!isSure || against !== '') {
            if (isSure) {
                tell(`${control.label}: ${against}`);
            }
            changed();
            return;
        }
    }
    const command = control.command(...values);
    if (!sendCommand(command)) {
        tell('The monitor does not answer: nothing was sent.');
        changed();
        return;
    }
    settle(control.id);
    if (control.shown && !option?.silent && !isShown(control, state(), values)) {
        const timer = window.setTimeout(() => giveUp(control, values), patienceMs);
        asked.set(control.id, { values, timer, command });
    } else {
        tell(`${control.label}: sent`);
    }
    changed();
}

/** @param {Control[]} controls */
export function startAsking(controls) {
    watch((known) => {
        const done = controls.filter((control) => {
            const values = pending(control.id);
            return values && isShown(control, known, values);
        });
        done.forEach((control) => settle(control.id));
        if (done.length > 0) {
            changed();
        }
    });
    on('refused', (/** @type {{ why: string, message: { command?: Command } }} */ { why, message }) => {
        for (const [id, { command }] of asked) {
            if (command === message.command) {
                settle(id);
            }
        }
        tell(`Refused: ${why}`);
        changed();
    });
    on('connected', () => {
        [...asked.keys()].forEach(settle);
        changed();
    });
}
