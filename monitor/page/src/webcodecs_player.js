// Pictures through the browser's own decoder, each shown as soon as it is there. Only where the page
// is a secure context: on this machine, or over HTTPS.

import { lateness, recentSmallest } from './lateness.js';

// When the pictures come or leave the decoder as late as that, it is given nothing more until the next
// key frame: a picture that stands still for a moment is better than one that is always behind.
const longestDelayMs = 250;
// What still waits for it at a key frame is left out.
const lateQueue = 4;

/**
 * @param {(picture: Presented) => void} presented
 * @param {(why: string, isFinal?: boolean) => void} failed
 * @param {() => void} leftOut a picture that came too late to be decoded
 * @returns {Player}
 */
export function webCodecsPlayer(presented, failed, leftOut) {
    const canvas = document.createElement('canvas');
    canvas.width = 1280; // the shape of what is not there yet
    canvas.height = 720;
    let isDrawn = false;
    // Snapshots are taken from it, too.
    const context = /** @type {CanvasRenderingContext2D} */ (canvas.getContext('2d', { alpha: false }));
    /** @type {VideoDecoder | null} */
    let decoder = null;
    /** @type {VideoDecoderConfig | null} */
    let config = null;
    let waitsForKey = true;
    let behind = lateness();
    let quickest = recentSmallest();
    /** What the decoder takes at least: it may hold some back for their order. Not known before the first. */
    let usualMs = Infinity;
    /** @type {Map<number, number>} When the pictures came that are being decoded. */
    const arrivals = new Map();
    /** @type {{ frame: VideoFrame, arrived: number } | null} The latest; an older one that was not shown yet is late. */
    let next = null;

    function show() {
        if (!next) {
            return;
        }
        const { frame, arrived } = next;
        next = null;
        if (canvas.width !== frame.displayWidth || canvas.height !== frame.displayHeight) {
            canvas.width = frame.displayWidth;
            canvas.height = frame.displayHeight;
        }
        context.drawImage(frame, 0, 0);
        isDrawn = true;
        presented({ stamp: frame.timestamp, arrived, at: performance.now() });
        frame.close();
    }

    /** @param {VideoFrame} frame */
    function takeFrame(frame) {
        if (next) {
            next.frame.close();
        } else {
            requestAnimationFrame(show);
        }
        const arrived = arrivals.get(frame.timestamp) ?? NaN;
        next = { frame, arrived };
        if (arrived > 0) {
            const now = performance.now();
            usualMs = quickest(now - arrived, now);
        }
        for (const stamp of arrivals.keys()) {
            if (stamp <= frame.timestamp) {
                arrivals.delete(stamp);
            }
        }
    }

    /** How much longer than usual the oldest has been waiting for the decoder. */
    function delay() {
        const [oldest] = arrivals.values();
        return oldest === undefined || usualMs === Infinity ? 0 : performance.now() - oldest - usualMs;
    }

    /** @param {string} why @param {boolean} isFinal no other decoder does better, but with another format */
    function giveUp(why, isFinal) {
        decoder = null;
        if (isFinal) {
            config = null;
        }
        failed(why, isFinal);
    }

    function begin() {
        decoder?.close();
        arrivals.clear();
        waitsForKey = true;
        decoder = new VideoDecoder({
            output: takeFrame,
            error: (error) => {
                // It has closed itself.
                giveUp(error.message, error.name === 'NotSupportedError');
            },
        });
        try {
            decoder.configure(/** @type {VideoDecoderConfig} */ (config));
        } catch (error) {
            giveUp(String(error), true);
        }
    }

    return {
        name: 'WebCodecs',
        element: canvas,
        start(format) {
            config = { codec: format.codec, optimizeForLatency: true };
            behind = lateness();
            quickest = recentSmallest();
            usualMs = Infinity;
            begin();
        },
        take(picture) {
            if (!config) {
                return;
            }
            if (picture.key && (!decoder || decoder.decodeQueueSize > lateQueue)) {
                begin();
            }
            const late = Math.max(behind(picture), delay()) > longestDelayMs;
            waitsForKey = !picture.key && (waitsForKey || late);
            if (waitsForKey || !decoder) {
                leftOut();
                return;
            }
            arrivals.set(picture.stamp, picture.arrived);
            decoder.decode(new EncodedVideoChunk({
                type: picture.key ? 'key' : 'delta',
                timestamp: picture.stamp,
                data: picture.bytes,
            }));
        },
        stop() {
            decoder?.close();
            decoder = null;
            config = null;
            next?.frame.close();
            next = null;
        },
        size: () => (isDrawn ? { width: canvas.width, height: canvas.height } : { width: 0, height: 0 }),
    };
}
