// The live picture: which player, what it shows instead of a picture, and its figures.
import { byId, setText } from './dom.js';
import { on } from './link.js';
import { mediaSourcePlayer } from './media_source_player.js';
import { state } from './state.js';
import { webCodecsPlayer } from './webcodecs_player.js';

const missedAfterMs = 1000;
const lookEveryMs = 250;
const tryAgainAfterMs = 1000;

/** @type {Player | null} */
let player = null;
let lastShown = 0;
let ratio = 0;
const begun = performance.now();
let failure = '';

/** What the plots are fed with, and emptied by them. */
export const figures = {
    /** @type {number[]} milliseconds between pictures as they came out of the ring */
    intervals: [],
    /** @type {number[]} milliseconds from arrival to screen */
    delays: [],
    /** pictures that came too late for this browser's decoder */
    leftOut: 0,
};

/** Whose picture a snapshot is. */
export function currentPlayer() {
    return player;
}

/** @param {Presented} picture */
function presented(picture) {
    lastShown = picture.at;
    failure = '';
    if (picture.arrived > 0) {
        figures.delays.push(picture.at - picture.arrived);
    }
    const { width, height } = player?.size() ?? { width: 0, height: 0 };
    if (width > 0 && width / height !== ratio) {
        ratio = width / height;
        byId('stage').style.setProperty('--ratio', String(ratio));
    }
    byId('picture').dispatchEvent(new CustomEvent('presented', { detail: picture }));
    if (!byId('no-picture').hidden) {
        tellOfPicture();
    }
}

function whyNot() {
    const known = state();
    if (known.monitor === 'locked') {
        return 'The monitor asks for a token, ?token=... in the address.';
    }
    if (known.monitor !== 'present') {
        return 'The monitor does not answer.';
    }
    if (known.receiver !== 'present') {
        return known.receiver === 'lost' ? 'The receiver is lost.' : 'Waiting for the receiver.';
    }
    if (known.camera !== 'present') {
        return known.camera === 'lost' ? 'The camera is lost.' : 'Waiting for the camera.';
    }
    return failure;
}

function tellOfPicture() {
    const silent = performance.now() - (lastShown || begun);
    const note = byId('no-picture');
    const late = silent > missedAfterMs;
    note.hidden = lastShown > 0 && !late;
    byId('stage').classList.toggle('still', late);
    if (late) {
        setText(byId('no-picture-why'), whyNot());
        setText(byId('no-picture-since'), `No picture for ${Math.floor(silent / 1000)} s`);
    }
}

export function startPicture() {
    const build = 'VideoDecoder' in window ? webCodecsPlayer : mediaSourcePlayer;
    /** @type {VideoFormat} */
    let format = { codec: '', width: 0, height: 0 };
    let lastStamp = 0;
    /** @type {number | undefined} */
    let retry;
    // Decodes anew, from the next key frame on. What cannot be decoded at all is left to another format.
    const failed = (/** @type {string} */ why, isFinal = false) => {
        failure = why;
        if (isFinal) {
            window.clearTimeout(retry);
            retry = undefined;
        } else {
            retry ??= window.setTimeout(() => {
                retry = undefined;
                start();
            }, tryAgainAfterMs);
        }
    };
    const attempt = (/** @type {() => void} */ what) => {
        try {
            what();
        } catch (error) {
            failed(String(error));
        }
    };
    const start = () => {
        window.clearTimeout(retry);
        retry = undefined;
        attempt(() => player?.start(format));
    };
    player = build(presented, failed, () => { figures.leftOut += 1; });
    player.element.id = 'picture';
    player.element.setAttribute('role', 'img');
    player.element.setAttribute('aria-label', 'Live picture of the camera');
    byId('picture').replaceWith(player.element);
    setText(byId('player'), player.name);

    on('connected', () => {
        window.clearTimeout(retry);
        retry = undefined;
        player?.stop();
        format = { codec: '', width: 0, height: 0 };
        lastStamp = 0;
    });
    on('video', (/** @type {VideoFormat} */ video) => {
        if (video.codec !== '' && (video.codec !== format.codec || video.width !== format.width || video.height !== format.height)) {
            format = video;
            start();
        }
    });
    on('picture', (/** @type {Picture} */ picture) => {
        if (lastStamp > 0 && picture.stamp > lastStamp) {
            figures.intervals.push((picture.stamp - lastStamp) / 1000);
        }
        lastStamp = picture.stamp;
        attempt(() => player?.take(picture));
    });
    setInterval(tellOfPicture, lookEveryMs);
}
