// What the page makes of the monitor's words, by a connection of the test's.
import assert from 'node:assert/strict';
import { beforeEach, test } from 'node:test';
import { join } from 'node:path';
import { pathToFileURL } from 'node:url';

let socket;
globalThis.window = globalThis;
globalThis.location = { search: '', protocol: 'http:', host: '127.0.0.1:8080' };
globalThis.setInterval = () => 0; // nobody waits for the silence
globalThis.WebSocket = class {
    static OPEN = 1;

    readyState = 1;

    constructor() {
        socket = this;
    }

    send() {}

    close() {}
};

const link = await import(pathToFileURL(join(process.env.PAGE_SOURCES ?? '', 'link.js')).href);
let told;
for (const kind of ['refused', 'sent', 'of']) {
    link.on(kind, (what) => told.push([kind, what]));
}
const hear = (message) => socket.onmessage({ data: JSON.stringify(message) });

beforeEach(() => {
    told = [];
    link.connect();
    socket.onopen();
});

const iso = { command: { cmd: 'iso', param: '400' } };
const shot = { command: { cmd: 'shot' } };
const sticks = { sticks: { pan: 1, tilt: 0, dutch: 0 } };

test('refused sticks are told as such, whatever the reason, and answer nothing else', () => {
    link.send(iso);
    link.send(sticks);
    hear({ refused: 'no such device', of: 'sticks' });
    hear({ refused: 'there is no receiver', of: 'command' });
    assert.deepEqual(told, [
        ['refused', { why: 'no such device', message: { sticks: {} } }],
        ['refused', { why: 'there is no receiver', message: iso }],
    ]);
});

test('a command is refused by its turn, also where the reason speaks of sticks', () => {
    link.send(iso);
    link.send(shot);
    hear({ sent: iso.command });
    hear({ refused: 'a stick and its channel block', of: 'command' });
    assert.deepEqual(told, [
        ['sent', iso.command],
        ['refused', { why: 'a stick and its channel block', message: shot }],
    ]);
});
