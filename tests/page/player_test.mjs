// What the page's own decoder is given, by a clock and a decoder of the test's.
import assert from 'node:assert/strict';
import { beforeEach, test } from 'node:test';
import { join } from 'node:path';
import { pathToFileURL } from 'node:url';

const pictureMs = 33;
const picturesAGroup = 30;
let clock = 0;
/** How many pictures the decoder holds back. */
let holds = 0;
let decoders = 0;

Object.defineProperty(globalThis, 'performance', { value: { now: () => clock }, configurable: true });
globalThis.document = { createElement: () => ({ getContext: () => ({ drawImage() {} }) }) };
const frames = [];
globalThis.requestAnimationFrame = (act) => frames.push(act);
globalThis.EncodedVideoChunk = class {
    constructor({ timestamp }) {
        this.timestamp = timestamp;
    }
};
class Decoder {
    decodeQueueSize = 0;
    waiting = [];

    constructor({ output, error }) {
        decoders += 1;
        Object.assign(this, { output, error });
    }

    configure() {}

    decode({ timestamp }) {
        this.waiting.push({ timestamp, displayWidth: 1280, displayHeight: 720, close() {} });
        while (this.waiting.length > holds) {
            this.output(this.waiting.shift());
        }
    }

    close() {}
}

const { webCodecsPlayer } = await import(pathToFileURL(join(process.env.PAGE_SOURCES ?? '', 'webcodecs_player.js')).href);
let shown;
let leftOut;
let failures;
let player;
let count;

beforeEach(() => {
    globalThis.VideoDecoder = Decoder;
    [clock, holds, decoders, leftOut, count, shown, failures] = [1000, 0, 0, 0, 0, [], []];
    player = webCodecsPlayer((picture) => shown.push(picture), (why, isFinal = false) => failures.push([why, isFinal]), () => { leftOut += 1; });
});

const format = { codec: 'avc1.640028', width: 1280, height: 720 };

/** So many pictures come, each at its time. */
function play(pictures) {
    for (let i = 0; i < pictures; i += 1) {
        clock += pictureMs;
        player.take({ key: count % picturesAGroup === 0, stamp: 1000 * clock, arrived: clock, bytes: new Uint8Array() });
        count += 1;
        frames.splice(0).forEach((act) => act());
    }
}

test('a decoder that holds pictures back for their order is not late', () => {
    holds = 12; // 400 ms
    player.start(format);
    play(300);
    assert.equal(leftOut, 0);
    assert.equal(shown.length, 288);
});

test('a decoder that is later than usual is given nothing more until the next key frame', () => {
    player.start(format);
    play(31);
    holds = 20; // it stops for longer than may be
    play(28);
    assert.ok(leftOut > 10 && leftOut < 28, String(leftOut));
    const before = leftOut;
    holds = 0;
    play(31);
    assert.equal(leftOut, before + 1, 'from the key frame on it has all');
});

test('there is no size before there was a picture', () => {
    player.start(format);
    assert.deepEqual(player.size(), { width: 0, height: 0 });
    play(1);
    assert.deepEqual(player.size(), { width: 1280, height: 720 });
});

test('a format that is not known is given up for good, and another one tried', () => {
    globalThis.VideoDecoder = class extends Decoder {
        configure() {
            throw new TypeError('no such codec');
        }
    };
    player.start(format);
    play(90);
    assert.deepEqual(failures, [['TypeError: no such codec', true]]);
    assert.equal(decoders, 1);
    globalThis.VideoDecoder = Decoder;
    player.start({ ...format, codec: 'avc1.42e01e' });
    play(31);
    assert.ok(shown.length > 0);
});

test('a decoder that fails is replaced at a key frame', () => {
    let last;
    globalThis.VideoDecoder = class extends Decoder {
        constructor(init) {
            super(init);
            last = this;
        }
    };
    player.start(format);
    play(10);
    last.error(new DOMException('it broke', 'EncodingError'));
    assert.deepEqual(failures, [['it broke', false]]);
    play(60);
    assert.equal(decoders, 2);
    assert.equal(leftOut, 20);
});
