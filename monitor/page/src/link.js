// The connection to the monitor. It comes back by itself, at first soon and then more slowly.
import { change, forget, state } from './state.js';

const firstPause = 250;
const longestPause = 5000;
const headerSize = 9;
// The monitor says something each second; where it does not, the way to it is cut, which a browser
// notices only after minutes.
const longestSilence = 4000;
const lookEvery = 500;

const token = new URLSearchParams(location.search).get('token');

/** @type {WebSocket | null} */
let socket = null;
/** @type {object[]} What the monitor has not answered yet, in its order; sticks it answers only when it refuses them. */
let unanswered = [];
let pause = firstPause;
/** @type {Record<string, ((what: any) => void)[]>} */
const listeners = {};

/** Kinds: picture, video, lines, connected, sent, and refused with why and the message.
 * @param {string} kind @param {(what: any) => void} listener */
export function on(kind, listener) {
    (listeners[kind] ??= []).push(listener);
}

/** @param {string} kind @param {any} what */
function tell(kind, what) {
    for (const listener of listeners[kind] ?? []) {
        listener(what);
    }
}

/** @param {string} path The same path with what opens the door. */
export function withToken(path) {
    return token === null ? path : `${path}?token=${encodeURIComponent(token)}`;
}

/** What asks for the door to be opened says so only to a request, not to a connection. */
async function askWhy() {
    const answer = await fetch(withToken('/api/state')).catch(() => null);
    if (answer?.status === 401 && socket === null) {
        change({ monitor: 'locked' });
    }
}

/** @param {object} message Whether it left. */
export function send(message) {
    if (socket?.readyState !== WebSocket.OPEN) {
        return false;
    }
    socket.send(JSON.stringify(message));
    if (!('sticks' in message)) {
        unanswered.push(message);
    }
    return true;
}

/** @param {Command} command */
export function sendCommand(command) {
    return send({ command });
}

export function connect() {
    const scheme = location.protocol === 'https:' ? 'wss' : 'ws';
    const opened = new WebSocket(`${scheme}://${location.host}${withToken('/live')}`);
    opened.binaryType = 'arraybuffer';
    let heard = performance.now();
    let wasOpen = false;
    const lost = () => {
        window.clearInterval(looking);
        opened.onopen = opened.onmessage = opened.onclose = null;
        opened.close(); // which would tell of its end only when the other side has answered
        socket = null;
        if (wasOpen || state().monitor !== 'locked') {
            change({ monitor: 'lost' });
        }
        if (!wasOpen) {
            askWhy();
        }
        setTimeout(connect, pause * (0.75 + Math.random() / 2));
        pause = Math.min(2 * pause, longestPause);
    };
    const looking = window.setInterval(() => {
        if (performance.now() - heard > longestSilence) {
            lost();
        }
    }, lookEvery);
    opened.onopen = () => {
        wasOpen = true;
        unanswered = [];
        pause = firstPause;
        forget();
        change({ monitor: 'present' });
        tell('connected', null);
    };
    opened.onmessage = ({ data }) => {
        heard = performance.now();
        if (typeof data === 'string') {
            takeText(data);
        } else {
            takePicture(data);
        }
    };
    opened.onclose = lost;
    socket = opened;
}

/** @param {string} data */
function takeText(data) {
    const { of, ...told } = JSON.parse(data);
    for (const [kind, what] of Object.entries(told)) {
        if (kind === 'state') {
            change(what);
        } else if (kind === 'refused') {
            tell(kind, { why: what, message: of === 'sticks' ? { sticks: {} } : unanswered.shift() ?? {} });
        } else {
            if (kind === 'sent') {
                unanswered.shift();
            }
            tell(kind, what);
        }
    }
}

/** @param {ArrayBuffer} data byte 0: flags, 1 to 8: microseconds, then the picture */
function takePicture(data) {
    const view = new DataView(data);
    /** @type {Picture} */
    const picture = {
        key: (view.getUint8(0) & 1) !== 0,
        stamp: Number(view.getBigUint64(1, true)),
        bytes: new Uint8Array(data, headerSize),
        arrived: performance.now(),
    };
    tell('picture', picture);
}
