// Recording to a file where the monitor runs, and the files that are there.
import { number, text } from './camera_state.js';
import { byId, make, setAttribute, setText } from './dom.js';
import { on, send, withToken } from './link.js';
import { tell } from './notices.js';
import { state, watch } from './state.js';

/** @param {number} bytes */
function size(bytes) {
    return bytes < 1e6 ? `${Math.ceil(bytes / 1000)} kB` : `${(bytes / 1e6).toFixed(1)} MB`;
}

let asks = 0;

async function list() {
    asks += 1;
    const mine = asks;
    const place = byId('recording-list');
    const answer = await fetch(withToken('/api/recordings')).catch(() => null);
    const files = answer?.ok ? await answer.json().catch(() => []) : [];
    if (mine !== asks) {
        return; // a later answer was here first, or will be
    }
    place.replaceChildren(...files.map((/** @type {{ name: string, bytes: number }} */ { name, bytes }) => {
        const link = make('a', { href: withToken(`/recordings/${encodeURIComponent(name)}`), download: name }, name);
        return make('li', {}, link, ` ${size(bytes)}`);
    }));
    byId('no-recordings').hidden = files.length > 0;
}

/** Why no video can be saved; empty where it can. */
export function reasonAgainstSaving() {
    if (text(state(), 'monitor') !== 'present') {
        return 'no monitor';
    }
    return state().recordings_possible === false ? 'the monitor was started without --recordings' : '';
}

export function startRecordings() {
    const button = /** @type {HTMLButtonElement} */ (byId('keep'));
    let before = '';
    let isOn = false;
    button.addEventListener('click', () => {
        if (!send({ record: isOn ? 'stop' : 'start' })) {
            tell('The monitor does not answer: nothing was sent.');
        }
    });
    watch((known) => {
        const now = text(known, 'recording');
        const against = reasonAgainstSaving();
        isOn = now !== '';
        setAttribute(button, 'aria-checked', String(isOn));
        setText(button, isOn ? 'Saving video' : 'Save video');
        const bytes = number(known, 'recording_bytes') || 0;
        const how = known.recordings_possible === false ? against : '';
        setText(byId('keep-name'), !isOn ? how : `${now}, ${bytes > 0 ? size(bytes) : 'waiting for a key frame'}`);
        setText(byId('no-recordings'), `None yet${how ? `: ${how}` : '. “Save video” writes one where the monitor runs'}.`);
        button.disabled = against !== '';
        if (now !== before) {
            before = now;
            list();
        }
    });
    on('connected', list);
}
