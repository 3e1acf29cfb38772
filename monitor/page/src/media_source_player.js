// Pictures through Media Source, for pages that are no secure context: the monitor on another
// machine over plain HTTP. The player is kept at the end of what has come.
import JMuxer from 'jmuxer';

// Seconds behind the end: from there it jumps, from there it hurries, down to what the pictures'
// own unevenness asks for.
const farthestBehind = 0.4;
const hurriesFrom = 0.12;
const enough = 0.06;
const lookEveryMs = 100;
const usualMs = 33;
const longestMs = 200;
// Seconds of what was shown that are kept: a seek goes back to a key frame.
const kept = 5;

/** @typedef {{ from: number, picture: Picture }} Fed from: milliseconds of the media's time */

/** @param {(picture: Presented) => void} presented
 * @param {(why: string, isFinal?: boolean) => void} failed @returns {Player} */
export function mediaSourcePlayer(presented, failed) {
    const video = document.createElement('video');
    video.muted = true;
    video.playsInline = true;
    video.disablePictureInPicture = true;
    /** @type {JMuxer | null} */
    let muxer = null;
    let waitsForKey = true;
    /** @type {Picture[] | null} What came before the browser was ready for it; then null. */
    let early = [];
    let lastStamp = 0;
    let fedMs = 0;
    /** @type {Fed[]} What may not be on the screen yet, and the one that is. */
    let fed = [];
    /** @type {number[]} Where key frames begin, in the media's time: only up to there may be cut off. */
    let keys = [];
    let shownAt = NaN;
    const tellsOfFrames = typeof video.requestVideoFrameCallback === 'function';

    function follow() {
        const { buffered } = video;
        if (!muxer || buffered.length === 0 || video.seeking) {
            return;
        }
        const end = buffered.end(buffered.length - 1);
        const behind = end - video.currentTime;
        if (behind > farthestBehind || behind < -1) {
            video.currentTime = Math.max(end - enough, 0);
        } else if (behind > hurriesFrom) {
            video.playbackRate = 1.2;
        } else if (behind < enough) {
            video.playbackRate = 1;
        }
        if (video.paused) {
            video.play().catch(() => {}); // tried again at the next look
        }
        if (!tellsOfFrames && video.currentTime !== shownAt) {
            tellShown(video.currentTime);
        }
        cutOff();
    }

    // The browser keeps all that it was given until it has no room for more; and in the background it
    // tells of no frame that is shown.
    function cutOff() {
        const buffer = muxer?.bufferControllers?.video?.sourceBuffer;
        const old = 1000 * (video.currentTime - kept);
        fed = fed.filter(({ from }) => from > old);
        const place = keys.filter((from) => from <= old).length - 1;
        if (buffer && !buffer.updating && place > 0) {
            buffer.remove(0, keys[place] / 1000 - 0.001);
            keys.splice(0, place);
        }
    }

    /** @param {number} mediaTime seconds */
    function tellShown(mediaTime) {
        shownAt = mediaTime;
        const place = fed.filter(({ from }) => from <= 1000 * mediaTime + 0.5).length - 1;
        if (muxer && place >= 0) {
            fed.splice(0, place);
            const { stamp, arrived } = fed[0].picture;
            presented({ stamp, arrived, at: performance.now() });
        }
    }

    function onFrame(/** @type {number} */ _now, /** @type {VideoFrameCallbackMetadata} */ { mediaTime }) {
        tellShown(mediaTime);
        video.requestVideoFrameCallback(onFrame);
    }

    /** @param {Picture} picture */
    function feed(picture) {
        const pause = lastStamp === 0 ? usualMs : (picture.stamp - lastStamp) / 1000;
        // What a newcomer is given at once came out of the ring at its own pace.
        const duration = Math.min(Math.max(Math.round(pause), 1), longestMs);
        lastStamp = picture.stamp;
        fed.push({ from: fedMs, picture: { ...picture, bytes: new Uint8Array() } });
        if (picture.key) {
            keys.push(fedMs);
        }
        fedMs += duration;
        muxer?.feed({
            video: picture.bytes,
            duration,
            isLastVideoFrameComplete: true, // or it waits for the next one
        });
    }

    function end() {
        muxer?.destroy();
        muxer = null;
        waitsForKey = true;
        lastStamp = 0;
        fedMs = 0;
        fed = [];
        keys = [];
        early = [];
    }

    function begin() {
        let isCurrent = () => true;
        const begun = new JMuxer({
            node: video,
            mode: 'video',
            flushingTime: 0,
            maxDelay: 1000 * farthestBehind,
            clearBuffer: false, // its guess of where key frames are needs a steady pace
            onReady() {
                if (isCurrent()) {
                    early?.forEach(feed);
                    early = null;
                }
            },
            onError: () => isCurrent() && failed('Media Source refused the video'),
            onUnsupportedCodec: (/** @type {string} */ codec) => isCurrent()
                && failed(`this browser does not play ${codec}`, true),
        });
        isCurrent = () => muxer === begun;
        muxer = begun;
    }

    if (tellsOfFrames) {
        video.requestVideoFrameCallback(onFrame);
    }
    setInterval(follow, lookEveryMs);

    return {
        name: 'Media Source',
        element: video,
        start() {
            end();
            begin();
        },
        take(picture) {
            waitsForKey &&= !picture.key;
            if (waitsForKey || !muxer) {
                return;
            }
            if (early) {
                early = picture.key ? [picture] : [...early, picture];
            } else {
                feed(picture);
            }
        },
        stop() {
            end();
            // Or it plays what it has once more, as if that were live.
            video.removeAttribute('src');
            video.load();
        },
        size: () => ({ width: video.videoWidth, height: video.videoHeight }),
    };
}
