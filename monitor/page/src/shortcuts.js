// The keys. They act while the hand is not in a field of its own.
import { ask } from './asking.js';
import { model } from './camera_state.js';
import { belongs, control, reasonAgainst, reasonAgainstValue, shownBy } from './control_table.js';
import { byId, make } from './dom.js';
import { hold } from './holding.js';
import { tell } from './notices.js';
import { reasonAgainstSaving } from './recordings.js';
import { takeSnapshot } from './snapshot.js';
import { state, watch } from './state.js';
import { holdKey, isStickKey, letGoOfAll } from './stick_pad.js';

/** @param {string} id @param {...string} values */
function askIfOffered(id, ...values) {
    const row = control(id);
    const against = reasonAgainstValue(row, values[0], state());
    if (against === '') {
        ask(row, ...values);
    } else {
        tell(`${row.label}: ${against}`);
    }
}

/** @param {string} id A switch, which goes the other way. */
function turn(id) {
    const [on, off] = control(id).options ?? [];
    askIfOffered(id, shownBy(control(id), state()) === on.value ? off.value : on.value);
}

function turnFocus() {
    const away = model(state()) === 'Z3' ? 'inf' : 'mf';
    askIfOffered('focus_type', shownBy(control('focus_type'), state()) === 'af' ? away : 'af');
}

function turnSaving() {
    const against = reasonAgainstSaving();
    if (against === '') {
        byId('keep').click();
    } else {
        tell(`${byId('keep').textContent}: ${against}`);
    }
}

/** @type {{ key: string, does: string, act: () => void }[]} */
const keys = [
    { key: 'r', does: 'start or stop the camera’s recording', act: () => turn('record') },
    { key: 'p', does: 'take a photo', act: () => askIfOffered('shot', '') },
    { key: 'm', does: 'photo or video mode',
        act: () => askIfOffered('mode', state().camera_mode === 'video' ? 'photo' : 'video') },
    { key: 'l', does: 'lock or unlock the exposure', act: () => turn('exposure_lock') },
    { key: 'n', does: 'gimbal to its normal position', act: () => askIfOffered('position', 'normal') },
    { key: 'f', does: 'autofocus or manual focus; or infinity, where the lens has no manual focus', act: turnFocus },
    { key: 'c', does: 'snapshot of the picture to a PNG file', act: takeSnapshot },
    { key: 'v', does: 'save the video where the monitor runs, or stop', act: turnSaving },
    { key: '?', does: 'this list', act: () => byId('help').click() },
];

/** @type {[string, string][]} */
const others = [
    ['W A S D', 'tilt and pan while held'],
    ['Arrow keys', 'the same, with the stick in focus'],
    ['Q E', 'roll while held'],
    ['+ −', 'zoom in and out while held'],
    ['Click', 'focus there in the picture'],
    ['Shift + click', 'meter there'],
];

/** @type {Record<string, string>} */
const zooms = { '+': '1', '=': '1', '-': '-1' };
/** @type {string | null} The key's place on the keyboard that zooms now - let go of, the key may be
 *  another one, for Shift is let go of, too - and what ends it. */
let zooming = null;
let stopZoom = () => {};

/** @param {string} key @param {string} code */
function zoom(key, code) {
    const row = [control('zoom_optical'), control('zoom_digital')].find((each) => belongs(each, state()));
    if (zooming !== null || !row || reasonAgainst(row, state()) !== '') {
        return;
    }
    const ended = () => {
        zooming = null;
        stopZoom = () => {};
    };
    const letGoOfIt = hold(row, zooms[key], ended);
    if (letGoOfIt) {
        zooming = code;
        stopZoom = () => {
            ended();
            letGoOfIt();
        };
    }
}

/** @param {KeyboardEvent} event */
function isElsewhere(event) {
    const target = /** @type {Element} */ (event.target);
    return event.ctrlKey || event.altKey || event.metaKey || document.querySelector('dialog[open]') !== null
        || target.closest('input:not([type=checkbox]), select, textarea') !== null;
}

// Whether keys act; a browser may keep nothing for the page.
const remembered = {
    get() {
        try {
            return localStorage.getItem('keys');
        } catch {
            return null;
        }
    },
    /** @param {string} value */
    set(value) {
        try {
            localStorage.setItem('keys', value);
        } catch {
            // For this time only, then.
        }
    },
};

export function startShortcuts() {
    const list = byId('key-list');
    for (const [key, does] of [...keys.map(({ key, does }) => [key, does]), ...others]) {
        list.append(make('div', {}, make('dt', {}, make('kbd', {}, key)), make('dd', {}, does)));
    }
    byId('help').addEventListener('click', () => /** @type {HTMLDialogElement} */ (byId('keys')).showModal());

    const act = /** @type {HTMLInputElement} */ (byId('keys-act'));
    act.checked = remembered.get() !== 'off';
    act.addEventListener('change', () => remembered.set(act.checked ? 'on' : 'off'));
    const endAll = () => {
        letGoOfAll();
        stopZoom();
    };

    document.addEventListener('keydown', (event) => {
        if (event.key === 'Meta') {
            endAll(); // a Mac tells of no key that is let go of beside it
        }
        if (isElsewhere(event) || !(act.checked || event.code.startsWith('Arrow'))) {
            return;
        }
        // The arrows scroll the page, but where the stick has the focus.
        if (isStickKey(event.code) && (!event.code.startsWith('Arrow') || document.activeElement === byId('stick'))) {
            event.preventDefault();
            holdKey(event.code, true);
            return;
        }
        if (event.repeat) {
            return; // it is held, or another hand has taken its zoom
        }
        if (event.key in zooms) {
            zoom(event.key, event.code);
            return;
        }
        const row = keys.find(({ key }) => key === event.key);
        if (row) {
            event.preventDefault();
            row.act();
        }
    });
    document.addEventListener('keyup', (event) => {
        if (event.key === 'Meta') {
            endAll();
        }
        holdKey(event.code, false);
        if (event.code === zooming) {
            stopZoom();
        }
    });
    window.addEventListener('blur', () => stopZoom());
    document.addEventListener('visibilitychange', () => stopZoom());
    watch((known) => {
        if (reasonAgainst(control('zoom_optical'), known) !== '') {
            stopZoom();
        }
    });
}
