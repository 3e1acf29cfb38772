// What Media Source is given, by a muxer of the test's.
import assert from 'node:assert/strict';
import { register } from 'node:module';
import { join } from 'node:path';
import { test } from 'node:test';
import { pathToFileURL } from 'node:url';

/** @type {{ options: object, fed: object[] }[]} */
const muxers = [];
globalThis.JMuxer = class {
    fed = [];

    constructor(options) {
        this.options = options;
        muxers.push(this);
    }

    feed(data) {
        this.fed.push(data);
    }

    destroy() {}
};
const resolve = `export const resolve = (name, context, next) => (name !== 'jmuxer' ? next(name, context)
    : { url: 'data:text/javascript,export default globalThis.JMuxer', shortCircuit: true });`;
register(`data:text/javascript,${encodeURIComponent(resolve)}`);
let video;
globalThis.document = {
    createElement() {
        video = { buffered: [], currentTime: 0, play: () => Promise.resolve(), removeAttribute() {}, load() {},
            requestVideoFrameCallback: (tell) => { video.tellFrame = tell; } };
        return video;
    },
};
let look;
globalThis.setInterval = (act) => { look = act; };

const { mediaSourcePlayer } = await import(pathToFileURL(join(process.env.PAGE_SOURCES ?? '', 'media_source_player.js')).href);
const key = (stamp) => ({ key: true, stamp, arrived: 0, bytes: Uint8Array.of(stamp) });

test('a muxer that is gone tells nothing of the one in its place', () => {
    const failures = [];
    const player = mediaSourcePlayer(() => {}, (...why) => failures.push(why));
    player.start();
    player.start();
    const [gone, current] = muxers;
    player.take(key(7));
    gone.options.onReady();
    gone.options.onError();
    gone.options.onUnsupportedCodec('avc1.000000');
    assert.deepEqual([gone.fed, current.fed, failures], [[], [], []]);
    current.options.onReady();
    assert.deepEqual(current.fed.map(({ video }) => [...video]), [[7]]);
    current.options.onUnsupportedCodec('avc1.000000');
    assert.deepEqual(failures, [['this browser does not play avc1.000000', true]]);
});

test('a page in the background forgets what was shown long ago, though nothing tells of its frames', () => {
    const told = [];
    const player = mediaSourcePlayer((picture) => told.push(picture.stamp), assert.fail);
    const pictureMs = 33;
    const count = 1000;
    const at = (index) => (index * pictureMs) / 1000;
    player.start();
    muxers.at(-1).options.onReady();
    for (let i = 0; i < count; i += 1) {
        player.take({ ...key(1 + i), stamp: 1000 * pictureMs * (1 + i) });
    }
    video.buffered = { length: 1, start: () => 0, end: () => at(count) };
    video.currentTime = at(count - 1);
    look();
    video.tellFrame(0, { mediaTime: at(count - 400) });
    assert.deepEqual(told, []);
    video.tellFrame(0, { mediaTime: at(count - 2) });
    assert.deepEqual(told, [1000 * pictureMs * (count - 1)]);
});
