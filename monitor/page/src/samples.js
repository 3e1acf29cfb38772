// What is made of a plot's samples.

/** @param {number[]} list */
export const sum = (list) => list.reduce((all, each) => all + each, 0);
/** @param {number[]} list */
export const largest = (list) => (list.length === 0 ? null : Math.max(...list));
/** @param {number[]} list */
export const mean = (list) => (list.length === 0 ? null : sum(list) / list.length);

/** @returns {(value: number) => number | null} How much a counter grew since it was last known; null the first time. */
export function growthOf() {
    let before = NaN;
    return (value) => {
        const grown = value - before; // one that begins anew has lost nothing yet
        before = Number.isNaN(value) ? before : value;
        return grown >= 0 ? grown : null;
    };
}

/** One number for some samples; null where none of them is known. A counter moves in one of several, which is
 * told all the same.
 * @param {(number | null)[]} samples @param {(known: number[]) => number | null} [make] the last where it is left out */
export function sayOf(samples, make) {
    const known = samples.filter((each) => each !== null);
    if (known.length === 0) {
        return null;
    }
    return make ? make(known) : samples[samples.length - 1];
}
