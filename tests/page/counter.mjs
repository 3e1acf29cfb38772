// Reads the numbers that the clip's pictures carry (make-clip.sh) off the screen.

/** Notes, in the page, the number of each picture as it is shown, and when. */
export function watchNumbers(page) {
    return page.evaluate(() => {
        const side = 40;
        const bits = 12;
        const strip = document.createElement('canvas');
        strip.width = side * (bits + 2);
        strip.height = side;
        const context = strip.getContext('2d', { willReadFrequently: true });
        const first = !globalThis.seen;
        globalThis.seen = [];
        if (!first) {
            return; // its listener is there
        }
        document.getElementById('picture').addEventListener('presented', ({ detail, target }) => {
            context.drawImage(target, 0, 0);
            const bright = Array.from({ length: bits + 2 }, (_, i) =>
                context.getImageData((i + 0.5) * side, side / 2, 1, 1).data[1] > 128);
            const number = bright[0] && !bright[1]
                ? bright.slice(2).reduce((sum, isSet, bit) => sum + (isSet ? 2 ** bit : 0), 0) : -1;
            globalThis.seen.push({ number, stamp: detail.stamp, at: detail.at });
        });
    });
}

/** @returns {Promise<{ number: number, stamp: number, at: number }[]>} */
export const numbersSeen = (page) => page.evaluate(() => globalThis.seen);

export const pictures = 600;

/** How many pictures each was behind the one before; the clip begins anew at its end. */
export function steps(seen) {
    return seen.slice(1).map(({ number }, i) => (number - seen[i].number + pictures) % pictures);
}

/** What is to be added to the page's clock, in milliseconds, to have the monitor's: both count from the
 *  start of this machine, so this process' clock serves in between. */
export async function clockDifference(page) {
    let best = { around: Infinity, difference: 0 };
    for (let i = 0; i < 20; i += 1) {
        const before = Number(process.hrtime.bigint()) / 1e6;
        const there = await page.evaluate(() => performance.now());
        const after = Number(process.hrtime.bigint()) / 1e6;
        if (after - before < best.around) {
            best = { around: after - before, difference: (before + after) / 2 - there };
        }
    }
    return best;
}
